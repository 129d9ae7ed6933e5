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

void json_add_reading(json &head, const reading &from)
{
	json &read = head["read"];

	for (const input &one : from.inputs)
		read["inputs"].push_back({ { "name", json_text(one.name) },
					   { "bytes", one.bytes } });
	for (const diagnostic &one : from.diagnostics)
		read["diagnostics"].push_back(
			{ { "severity", severity_name(one.level) },
			  { "at", json_place(from, one.at) },
			  { "text", json_text(one.text) } });
	for (const auto &[name, count] :
	     { std::pair("notes", from.notes),
	       std::pair("warnings", from.warnings),
	       std::pair("errors", from.errors),
	       std::pair("other_lines", from.other_lines) })
		read[name] = read[name].get<uint64_t>() + count;
}

json json_head(const char *command, const reading &from)
{
	json head = json::object();

	head["version"] = json_version;
	head["command"] = command;
	head["read"] = {
		{ "inputs", json::array() }, { "notes", 0 },
		{ "warnings", 0 },	     { "errors", 0 },
		{ "other_lines", 0 },	     { "diagnostics", json::array() }
	};
	json_add_reading(head, from);
	return head;
}

void print_json(const json &shown)
{
	print(shown.dump(2, ' ', false, json::error_handler_t::replace) + '\n');
}

} // namespace zorva
