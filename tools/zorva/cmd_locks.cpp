// SPDX-License-Identifier: GPL-2.0
/* zorva locks: what is held, by whom and since when, and who waits for it. */
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

struct {
	std::string modules;
	bool all = false;
} wanted;

std::vector<option> options()
{
	return {
		modules_option(wanted.modules),
		{ "--all", "", "also the locks that are free or wait for work",
		  &wanted.all },
	};
}

/* Whether somebody has it, and others may want it. */
bool is_held(const waits &of, const lock_state &one)
{
	const bool wanted_by_some =
		std::any_of(one.waiters.begin(), one.waiters.end(),
			    [&](size_t waiter) {
				    return !waits_for_work(of,
							   of.actors[waiter]);
			    });

	return one.which->taken &&
	       (one.which->mutex || wanted_by_some ||
		(one.queue.empty() && !one.holders.empty()));
}

std::string state_text(const waits &of, const lock_state &one)
{
	if (!one.which->taken)
		return "free";
	if (!one.which->mutex)
		return "no unit free";
	if (!one.taken)
		return "held";
	return "held for " + elapsed_text(of.now, one.taken->time);
}

void tell(const waits &of, const lock_state &one, std::string &text)
{
	text += fmt::format("{} '{}' ({}): {}\n",
			    one.which->mutex ? "mutex" : "semaphore",
			    styled(style::bold, escaped(one.which->name)),
			    escaped(one.which->component), state_text(of, one));
	for (const holder &by : one.holders)
		text += fmt::format("  {}{} {}{}\n",
				    by.sure.proven ? "" : "probably ",
				    one.which->mutex ? "by" : "out at",
				    actor_text(of.actors[by.actor]),
				    of.actors[by.actor].alive
					    ? ""
					    : ", which has ended");
	if (one.which->taken && one.taken)
		text += fmt::
			format("  taken at {}{}{}\n",
			       site_text(one.taken->from),
			       one.which->mutex
				       ? ""
				       : fmt::format(" {} ago",
						     elapsed_text(of.now,
								  one.taken
									  ->time)),
			       one.taken_sure.proven
				       ? ""
				       : " (probably: " +
						 escaped(one.taken_sure.why,
							 200) +
						 ")");
	for (const size_t waiter : one.waiters) {
		const actor &who = of.actors[waiter];

		text += fmt::format("  wanted by {}{} for {}, at {}\n",
				    who.sure.proven ? "" : "probably ",
				    actor_text(who),
				    elapsed_text(of.now, who.since),
				    call_text(who));
	}
}

std::string locks_text(const waits &of, bool all)
{
	std::string text;
	size_t others = 0;

	for (const lock_state &one : of.locks) {
		if (!all && !is_held(of, one)) {
			++others;
			continue;
		}
		if (!text.empty())
			text += '\n';
		tell(of, one, text);
	}
	if (!all && text.empty())
		text = "No lock is held.\n";
	else if (others)
		text += '\n';
	if (others)
		text += fmt::format("{} free or {} for work (--all shows them)\n",
				    count_text(others, "lock is", "locks are"),
				    others == 1 ? "waits" : "wait");
	for (const std::string &note : of.notes)
		text += fmt::format("note: {}\n", escaped(note, 200));
	return text;
}

int run(const common_options &common)
{
	code_lines lines;
	reading from;

	if (!read_for(common, common.sources[0],
		      { report_kind::mutex_detail, report_kind::mutex,
			report_kind::sem_detail, report_kind::sem },
		      true, from) ||
	    !lines_for(wanted.modules, common.sources[0], from.last(), lines))
		return exit_unreadable;

	const waits found = find_waits(from.last(), lines);

	if (common.json) {
		nlohmann::ordered_json shown = json_head("locks", from);

		if (found.now)
			shown["time_seconds"] = *found.now;
		shown["locks"] = locks_json(from, found);
		shown["threads"] = actors_json(from, found);
		print_json(shown);
	} else {
		print(locks_text(found, wanted.all));
	}
	return exit_nothing;
}

} // namespace

const command locks_command = {
	"locks",
	"what is held, by whom, where it was taken, who wants it",
	"Shows the mutexes that are held, and the semaphores whose units are out while\n"
	"somebody wants one: who has it, where and how long ago it was taken, and who\n"
	"waits for it since when.\n\n"
	"Examples:\n"
	"  zorva locks\n"
	"  zorva locks --all board.txt --modules build/target",
	0,
	1,
	options,
	run,
};

} // namespace zorva
