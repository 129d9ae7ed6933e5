// SPDX-License-Identifier: GPL-2.0
/* zorva queues: how full the message queues are and were, and who uses them. */
#include "command.h"
#include "print.h"

#include <algorithm>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace zorva
{
namespace
{

using json = nlohmann::ordered_json;

/* Who has called, and when last. */
struct user {
	site from;
	uint64_t last = 0;
};

/*
 * A queue's senders take its semaphore of free slots, its receivers that of
 * stored messages; the histories have the last eight calls. The names of both
 * are cut where they do not fit.
 */
std::vector<user> users_of(const lock_report &semaphores, const queue &of,
			   std::string_view end)
{
	constexpr size_t longest = 31;
	const std::string name =
		("msgq-" + of.name + std::string(end)).substr(0, longest);
	std::vector<user> found;

	for (const lock &one : semaphores.locks) {
		if (one.name != name || one.component_id != of.component_id)
			continue;
		for (const lock_call &call : one.history) {
			if (call.give)
				continue;

			const auto known = std::
				find_if(found.begin(), found.end(),
					[&](const user &u) {
						return u.from.file ==
							       call.from.file &&
						       u.from.line ==
							       call.from.line;
					});

			if (known == found.end())
				found.push_back({ call.from, call.time });
		}
	}
	return found;
}

std::string users_text(const std::vector<user> &users)
{
	std::string text;

	for (const user &one : users)
		text += fmt::format("{}{}:{}", text.empty() ? "" : ", ",
				    escaped(one.from.file), one.from.line);
	return text.empty() ? "-" : text;
}

json json_users(const std::vector<user> &users)
{
	json out = json::array();

	for (const user &one : users)
		out.push_back({ { "file", json_text(one.from.file) },
				{ "line", one.from.line },
				{ "last_seconds", one.last } });
	return out;
}

bool is_full(const queue &one)
{
	return one.depth >= static_cast<int64_t>(one.max_depth);
}

bool was_full(const queue &one)
{
	return one.max_seen >= static_cast<int64_t>(one.max_depth);
}

cell state_of(const queue &one)
{
	if (is_full(one))
		return { "FULL", style::bad };
	if (was_full(one))
		return { "was full", style::warn };
	return { "ok", style::good };
}

json json_queue(const reading &from, const queue &one)
{
	const lock_report &semaphores = best_locks(from.last(), false);

	return { { "name", json_text(one.name) },
		 { "component", json_text(one.component) },
		 { "component_id", one.component_id },
		 { "message_bytes", one.message_size },
		 { "depth", one.depth },
		 { "max_depth", one.max_depth },
		 { "max_seen", one.max_seen },
		 { "full", is_full(one) },
		 { "was_full", was_full(one) },
		 { "senders", json_users(users_of(semaphores, one, "-tx")) },
		 { "receivers", json_users(users_of(semaphores, one, "-rx")) },
		 { "at", json_place(from, one.at) } };
}

int run(const common_options &common)
{
	reading from;
	bool found = false;

	if (!read_for(common, common.sources[0], { report_kind::msgq }, false,
		      from))
		return exit_unreadable;

	const std::vector<queue> &queues = from.last().queues.queues;
	const lock_report &semaphores = best_locks(from.last(), false);

	for (const queue &one : queues)
		found |= was_full(one);
	if (common.json) {
		json out = json_head("queues", from);

		out["queues"] = json::array();
		for (const queue &one : queues)
			out["queues"].push_back(json_queue(from, one));
		print_json(out);
		return found ? exit_found : exit_nothing;
	}

	table shown = { { { "QUEUE" },
			  { "OWNER" },
			  { "NOW", true },
			  { "MOST", true },
			  { "ROOM", true },
			  { "MESSAGE", true },
			  { "" },
			  { "SENT AT" },
			  { "RECEIVED AT" } },
			{} };

	for (const queue &one : queues)
		shown.rows.push_back(
			{ escaped(one.name), escaped(one.component),
			  fmt::format("{}", one.depth),
			  fmt::format("{}", one.max_seen),
			  fmt::format("{}", one.max_depth),
			  size_text(one.message_size), state_of(one),
			  users_text(users_of(semaphores, one, "-tx")),
			  users_text(users_of(semaphores, one, "-rx")) });
	if (queues.empty())
		print("There are no queues.\n");
	else
		print(table_text(shown));
	if (!queues.empty() && !semaphores.state.present)
		print("\nWithout zorva.sem.detail it is not known who sends and receives.\n");
	return found ? exit_found : exit_nothing;
}

} // namespace

const command queues_command = {
	"queues",
	"how full the message queues are and were, and who uses them",
	"MOST is the highest fill ever seen: a queue that was full has made its senders\n"
	"wait, or has lost messages. Senders and receivers are those of the last eight\n"
	"calls. The exit status is 1 when a queue is or ever was full.\n\n"
	"Examples:\n"
	"  zorva queues\n"
	"  zorva queues --json console.log",
	0,
	1,
	nullptr,
	run,
};

} // namespace zorva
