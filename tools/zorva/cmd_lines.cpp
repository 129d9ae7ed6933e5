// SPDX-License-Identifier: GPL-2.0
/* zorva lines: the lines of modules, for a machine without debug information. */
#include "command.h"
#include "print.h"
#include "symbols.h"

#include <nlohmann/json.hpp>

namespace zorva
{
namespace
{

void show_json(const code_lines &lines)
{
	nlohmann::ordered_json shown = json_head("lines", {});

	shown["modules"] = nlohmann::ordered_json::array();
	for (const module_lines &one : lines.modules) {
		nlohmann::ordered_json module = {
			{ "name", json_text(one.name) },
			{ "functions", one.functions.size() },
			{ "files", nlohmann::ordered_json::array() }
		};

		for (const std::string &file : one.files)
			module["files"].push_back(json_text(file));
		shown["modules"].push_back(std::move(module));
	}
	print_json(shown);
}

std::vector<std::string> paths;

std::vector<option> options()
{
	return { { "--modules", "DIR",
		   "such a directory, a module, or a list; may come again",
		   &paths } };
}

int run(const common_options &common)
{
	code_lines lines;
	bool read = true;

	if (paths.empty()) {
		complain("lines: --modules says where the modules are");
		return exit_usage;
	}
	for (const std::string &path : paths)
		read &= load_lines(
			path,
			[](std::string_view) {
				return true;
			},
			lines);
	for (const std::string &problem : lines.problems)
		complain(escaped(problem, 300));
	if (lines.modules.empty())
		return exit_unreadable;
	if (common.json)
		show_json(lines);
	else
		print(lines_text(lines));
	return read ? exit_nothing : exit_unreadable;
}

} // namespace

const command lines_command = {
	"lines",
	"the lines of modules, as a list for the board",
	"Reads the modules (*.ko) with debug information that are in a directory, and\n"
	"prints what \"--modules\" needs of them. On a machine that has the list as\n"
	"/usr/share/zorva/modules.lines, the live commands name the lines of calls.\n\n"
	"Example:\n"
	"  zorva lines --modules build/target >modules.lines",
	0,
	0,
	options,
	run,
};

} // namespace zorva
