// SPDX-License-Identifier: GPL-2.0
/* zorva threads: what the module's threads do, and what they hold. */
#include "command.h"
#include "print.h"
#include "thread_view.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace zorva
{
namespace
{

using json = nlohmann::ordered_json;

json json_thread(const reading &from, const thread &one)
{
	const model &now = from.last();
	json held = json::array();
	json out = { { "pid", one.pid },
		     { "name", json_text(one.name) },
		     { "component", json_text(one.component) },
		     { "state", one.state },
		     { "gone", is_gone(now, one) },
		     { "priority", one.priority },
		     { "real_time", one.priority == real_time } };

	for (const lock *its : held_by(now, one.pid))
		held.push_back(json_text(its->name));
	out["holds"] = std::move(held);
	if (const task *its = task_of(now, one.pid)) {
		json stack = json::array();

		for (const stack_frame &frame : its->stack) {
			json shown = { { "symbol", json_text(frame.symbol) },
				       { "offset", frame.offset } };

			if (!frame.module.empty())
				shown["module"] = json_text(frame.module);
			stack.push_back(std::move(shown));
		}
		out["stack"] = std::move(stack);
	}
	out["at"] = json_place(from, one.at);
	return out;
}

int run(const common_options &common)
{
	reading from;
	size_t gone = 0;

	if (!read_for(common, common.sources[0], { report_kind::thread }, true,
		      from))
		return exit_unreadable;

	const model &now = from.last();
	const std::vector<thread> &threads = now.threads.threads;

	for (const thread &one : threads)
		gone += is_gone(now, one);
	if (common.json) {
		json out = json_head("threads", from);

		out["threads"] = json::array();
		for (const thread &one : threads)
			out["threads"].push_back(json_thread(from, one));
		print_json(out);
		return gone ? exit_found : exit_nothing;
	}

	table shown = { { { "PID", true },
			  { "THREAD" },
			  { "OWNER" },
			  { "STATE" },
			  { "PRIORITY" },
			  { "HOLDS" },
			  { "IN" } },
			{} };

	for (const thread &one : threads)
		shown.rows.push_back(
			{ fmt::format("{}", one.pid), escaped(one.name),
			  escaped(one.component), thread_state(now, one),
			  priority_text(one.priority),
			  thread_holds(now, one.pid),
			  thread_place(now, one.pid) });
	if (threads.empty())
		print("There are no threads.\n");
	else
		print(table_text(shown));
	if (gone)
		print(fmt::format("\n{} ended without zorva_thread_exit: what it held stays held.\n",
				  count_text(gone, "thread has",
					     "threads have")));
	return gone ? exit_found : exit_nothing;
}

} // namespace

const command threads_command = {
	"threads",
	"what the module's threads do, and what they hold",
	"IN is the function of a module that a thread is in, by its kernel stack; only\n"
	"root sees stacks, and of saved inputs only snapshots have them. The exit status\n"
	"is 1 when a thread is listed that has ended.\n\n"
	"Examples:\n"
	"  zorva threads\n"
	"  zorva threads board.txt",
	0,
	1,
	nullptr,
	run,
};

} // namespace zorva
