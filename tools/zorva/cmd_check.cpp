// SPDX-License-Identifier: GPL-2.0
/* zorva check: everything that looks wrong, on one screen. */
#include "check.h"
#include "command.h"
#include "print.h"
#include "waits_view.h"

#include <algorithm>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace zorva
{
namespace
{

/* What fits on a screen of 24 lines, with the shell's own. */
constexpr size_t screen_lines = 21;

struct {
	std::string modules;
	bool all = false;
} wanted;

std::vector<option> options()
{
	return {
		modules_option(wanted.modules),
		{ "--all", "", "all of it, however long", &wanted.all },
	};
}

/* A word that a shell takes as it is, or in quotes. */
std::string typed(std::string_view word)
{
	constexpr std::string_view plain =
		"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.,:/=@%+-";
	std::string quoted = "'";

	if (word.find_first_not_of(plain) == word.npos)
		return std::string(word);
	for (const char c : word) {
		if (c == '\'')
			quoted += "'\\'";
		quoted += c;
	}
	return quoted + '\'';
}

/* What to type next, about the same source. */
std::string next_text(const problem &of, const common_options &common)
{
	const std::string &source = common.sources.back();
	std::string text;

	/* One moment says too little about what grows. */
	if (of.what == trouble::leak && common.sources.size() == 1)
		return source.empty()
			       ? "zorva snapshot -o A, and later: zorva leaks A live"
			       : "take another one later, and: zorva leaks " +
					 escaped(typed(source), 200) + " LATER";
	text = "zorva " + of.next;
	if (of.what == trouble::leak)
		for (const std::string &one : common.sources)
			text += ' ' + (one.empty() ? "live" : typed(one));
	else if (!source.empty())
		text += ' ' + typed(source);
	if (!wanted.modules.empty() && of.next == "waits")
		text += " --modules " + typed(wanted.modules);
	return escaped(text, 300);
}

style style_of(const problem &of)
{
	if (!of.wrong())
		return style::dim;
	return of.what <= trouble::leak ? style::bad : style::warn;
}

/* What could not be looked at; empty: all of it was. */
std::string blind_spots(const model &of, const waits &found)
{
	std::vector<std::string_view> missing;

	for (const report_kind kind :
	     { report_kind::mutex_detail, report_kind::sem_detail,
	       report_kind::mem_detail, report_kind::thread,
	       report_kind::msgq })
		if (!state_of(of, kind).whole)
			missing.emplace_back(report_name(kind));
	if (!found.has_stacks)
		missing.emplace_back("stacks");
	return fmt::format("{}", fmt::join(missing, ", "));
}

void show_text(const common_options &common, const model &last,
	       const waits &found, const std::vector<problem> &problems)
{
	const auto wrong = static_cast<uint64_t>(
		std::count_if(problems.begin(), problems.end(),
			      [](const problem &one) {
				      return one.wrong();
			      }));
	const std::string blind = blind_spots(last, found);
	size_t lines = 1, shown = 0;

	print(wrong ? styled(style::bad, count_text(wrong, "thing looks wrong",
						    "things look wrong")) +
			      ":\n"
		    : styled(style::good, "Nothing looks wrong.") + "\n");
	for (const problem &one : problems) {
		std::string text =
			fmt::format("{}\n", styled(style_of(one), one.title));

		for (const std::string &detail : one.details)
			text += fmt::format("    {}\n", detail);
		if (one.wrong())
			text += styled(style::dim,
				       fmt::format("    next: {}",
						   next_text(one, common))) +
				'\n';
		lines += static_cast<size_t>(
			std::count(text.begin(), text.end(), '\n'));
		if (shown && !wanted.all && lines > screen_lines)
			break;
		print(text);
		++shown;
	}
	if (shown < problems.size())
		print(fmt::format("... and {} more (--all shows them)\n",
				  problems.size() - shown));
	if (!blind.empty())
		print(fmt::format("Not looked at, because not read: {}\n",
				  blind));
}

void show_json(const reading &from, const waits &found,
	       const std::vector<problem> &problems)
{
	nlohmann::ordered_json shown = json_head("check", from);

	if (found.now)
		shown["time_seconds"] = *found.now;
	shown["problems"] = nlohmann::ordered_json::array();
	for (const problem &one : problems) {
		nlohmann::ordered_json its = {
			{ "kind", trouble_name(one.what) },
			{ "wrong", one.wrong() },
			{ "title", one.title },
			{ "details", one.details },
			{ "next", "zorva " + one.next },
			{ "sites", nlohmann::ordered_json::array() }
		};

		for (const site &at : one.sites)
			its["sites"].push_back({ { "file", json_text(at.file) },
						 { "line", at.line } });
		shown["problems"].push_back(std::move(its));
	}
	print_json(shown);
}

int run(const common_options &common)
{
	std::vector<reading> from;
	std::vector<const model *> moments;
	code_lines lines;

	if (!read_all_for(common, from, moments))
		return exit_unreadable;

	const model &last = from.back().last();

	if (!lines_for(wanted.modules, common.sources.back(), last, lines))
		return exit_unreadable;

	const waits found = find_waits(last, lines);
	const std::vector<problem> problems = find_problems(moments, found);

	if (common.json)
		show_json(from.back(), found, problems);
	else
		show_text(common, last, found, problems);
	return std::any_of(problems.begin(), problems.end(),
			   [](const problem &one) {
				   return one.wrong();
			   })
		       ? exit_found
		       : exit_nothing;
}

} // namespace

const command check_command = {
	"check",
	"everything that looks wrong, worst first",
	"Deadlocks, damaged blocks, locks that are lost or held for long, full queues,\n"
	"what grows, little memory: each with what to look at next. With several\n"
	"sources, oldest first, the last one is looked at, and the others tell what has\n"
	"grown. Exit status 0: nothing looks wrong; 1: something does.\n\n"
	"Examples:\n"
	"  zorva check\n"
	"  zorva check console.log --modules build/target\n"
	"  zorva check ssh:root@switch || mail -s 'look at the switch' me",
	0,
	1000,
	options,
	run,
};

} // namespace zorva
