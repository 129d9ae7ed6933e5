// SPDX-License-Identifier: GPL-2.0
/* What all commands share of what they print as JSON. */
#include "command.h"
#include "print.h"

#include <nlohmann/json.hpp>

namespace zorva
{

using json = nlohmann::ordered_json;

namespace
{

const char *severity_name(severity level)
{
	switch (level) {
	case severity::note:
		return "note";
	case severity::warning:
		return "warning";
	case severity::error:
		return "error";
	}
	return "error";
}

} // namespace

json json_place(const reading &from, place at)
{
	json shown = json::object();

	shown["input"] = at.input < from.inputs.size()
				 ? json_text(from.inputs[at.input].name)
				 : "";
	if (at.line)
		shown["line"] = at.line;
	return shown;
}

json json_head(const char *command, const reading &from)
{
	json head = json::object();
	json inputs = json::array();
	json said = json::array();

	for (const input &one : from.inputs)
		inputs.push_back({ { "name", json_text(one.name) },
				   { "bytes", one.bytes } });
	for (const diagnostic &one : from.diagnostics)
		said.push_back({ { "severity", severity_name(one.level) },
				 { "at", json_place(from, one.at) },
				 { "text", json_text(one.text) } });
	head["version"] = json_version;
	head["command"] = command;
	head["read"] = { { "inputs", std::move(inputs) },
			 { "notes", from.notes },
			 { "warnings", from.warnings },
			 { "errors", from.errors },
			 { "other_lines", from.other_lines },
			 { "diagnostics", std::move(said) } };
	return head;
}

void print_json(const json &shown)
{
	print(shown.dump(2, ' ', false, json::error_handler_t::replace) + '\n');
}

} // namespace zorva
