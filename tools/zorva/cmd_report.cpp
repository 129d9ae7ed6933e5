// SPDX-License-Identifier: GPL-2.0
/* zorva report: all of a switch on one page, to be handed on. */
#include "check.h"
#include "command.h"
#include "page.h"
#include "print.h"
#include "source.h"
#include "waits_view.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace zorva
{
namespace
{

struct {
	std::string html;
	std::string modules;
} wanted;

std::vector<option> options()
{
	return {
		{ "--html", "FILE",
		  "where to write the page; - is standard output",
		  &wanted.html },
		modules_option(wanted.modules),
	};
}

/* An error's text; empty when the page was written. */
std::string write_page(const std::string &text)
{
	FILE *const file = fopen(wanted.html.c_str(), "w");
	int error = 0;

	if (!file)
		return strerror(errno);
	if (fwrite(text.data(), 1, text.size(), file) != text.size())
		error = errno;
	if (fclose(file) != 0 && !error)
		error = errno;
	if (!error)
		return "";
	/* Half a page would pass for a whole one. */
	remove_half(wanted.html);
	return strerror(error);
}

int run(const common_options &common)
{
	std::vector<reading> from;
	page_content content;
	code_lines lines;

	if (wanted.html.empty() || (common.json && wanted.html == "-")) {
		complain(
			wanted.html.empty()
				? "report needs --html FILE, the page to write"
				: "--json says what was written, so the page needs a file");
		return exit_usage;
	}
	if (!read_all_for(common, from, content.moments))
		return exit_unreadable;
	for (const reading &one : from)
		content.readings.push_back(&one);

	const model &last = from.back().last();

	if (!lines_for(wanted.modules, common.sources.back(), last, lines))
		return exit_unreadable;

	const waits found = find_waits(last, lines);

	/* Colours are for terminals. */
	look.colours = false;
	content.sources = common.sources;
	content.waiting = &found;
	content.problems = find_problems(content.moments, found);

	const std::string text = page_text(content);

	if (wanted.html == "-") {
		print(text);
		return exit_nothing;
	}

	const std::string problem = write_page(text);

	if (!problem.empty()) {
		complain(fmt::format("{}: {}", escaped(wanted.html, 200),
				     problem));
		return exit_unreadable;
	}
	if (common.json) {
		nlohmann::ordered_json shown = json_head("report", from.back());

		for (size_t i = 0; i + 1 < from.size(); ++i)
			json_add_reading(shown, from[i]);
		shown["file"] = json_text(wanted.html);
		shown["bytes"] = text.size();
		print_json(shown);
	} else {
		complain(fmt::format("{} in {}", size_text(text.size()),
				     escaped(wanted.html, 200)));
	}
	return exit_nothing;
}

} // namespace

const command report_command = {
	"report",
	"a page that shows all of it, to hand on",
	"One file with everything in it, for any browser: what looks wrong, memory by\n"
	"component and place, growth, ages, who waits for whom, and all tables, which\n"
	"can be sorted and filtered. It fetches nothing, and shows all of it without\n"
	"scripts, too. With several sources, oldest first, the last one is shown, and\n"
	"the others tell what has grown. The exit status is 0 when the page was written,\n"
	"whatever is on it.\n\n"
	"Examples:\n"
	"  zorva report --html page.html board.txt\n"
	"  zorva report --html page.html monday.txt tuesday.txt --modules build/target\n"
	"  zorva report --html page.html ssh:root@switch",
	0,
	1000,
	options,
	run,
};

} // namespace zorva
