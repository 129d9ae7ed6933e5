// SPDX-License-Identifier: GPL-2.0
#include "standing.h"

#include "symbols.h"

#include <algorithm>

namespace zorva
{
namespace
{

/* So many calls are kept of a lock. */
constexpr size_t history_length = 8;

/* A compiler's own name for a part of a function ends in ".part.0" and such. */
bool is_function(const stack_frame &frame, std::string_view name)
{
	return frame.symbol.starts_with(name) &&
	       (frame.symbol.size() == name.size() ||
		frame.symbol[name.size()] == '.');
}

struct known_function {
	std::string_view name;
	wait_kind kind;
};

/* From the outside to the inside: the outermost says what it is for. */
constexpr known_function known_functions[] = {
	{ "zorva_mutex_take_track", wait_kind::mutex },
	{ "zorva_sem_take_track", wait_kind::semaphore },
	{ "zorva_msg_queue_send_track", wait_kind::room },
	{ "zorva_msg_queue_receive_track", wait_kind::message },
	{ "zorva_event_wait", wait_kind::event },
	{ "zorva_event_set", wait_kind::event },
	{ "zorva_wait_event_track", wait_kind::wake_up },
};

wait_kind kind_of(const stack_frame &frame)
{
	for (const known_function &one : known_functions)
		if (is_function(frame, one.name))
			return one.kind;
	return wait_kind::none;
}

bool may_wait(const lock_call &take, std::optional<uint64_t> now)
{
	/* Times are in whole seconds, and the report takes its own. */
	constexpr uint64_t slack = 2;

	if (take.forever || !take.timeout_ms || take.timeout_cut || !now)
		return true;
	if (*take.timeout_ms == 0)
		return false;
	return take.time + *take.timeout_ms / 1000 + slack >= *now;
}

/*
 * Which take a give of a mutex ends: the nearest before it in the same file,
 * else the oldest.
 */
std::vector<const lock_call *>::iterator
ended_by(std::vector<const lock_call *> &takes, const lock_call &give)
{
	auto best = takes.end();

	for (auto it = takes.begin(); it != takes.end(); ++it)
		if ((*it)->from.file == give.from.file &&
		    (*it)->from.line <= give.from.line &&
		    (best == takes.end() ||
		     (*it)->from.line > (*best)->from.line))
			best = it;
	return best == takes.end() ? takes.begin() : best;
}

open_takes open_of_mutex(const lock &of)
{
	open_takes result;

	result.cut = of.history.size() >= history_length;
	for (auto call = of.history.rbegin(); call != of.history.rend();
	     ++call) {
		if (!call->give)
			result.takes.push_back(&*call);
		else if (!result.takes.empty())
			result.takes.erase(ended_by(result.takes, *call));
		else if (!result.cut)
			result.doubtful = true;
	}
	return result;
}

} // namespace

standing standing_of(const task &of)
{
	standing result;
	bool inside = false;
	bool on_semaphore = false;

	/* What is about to run waits for nothing. */
	if (of.state == 'R')
		return result;
	for (const stack_frame &frame : of.stack) {
		if (frame.module != "zorva") {
			if (!frame.module.empty() || inside) {
				if (!frame.module.empty())
					result.caller = &frame;
				break;
			}
			/* Of the kernel's, with zorva's below. */
			on_semaphore |= is_function(frame, "down");
			if (is_function(frame, "down_timeout"))
				result.timed = true;
			continue;
		}

		const wait_kind kind = kind_of(frame);

		inside = true;
		/*
		 * A mutex is not waited for in down(): there it is the
		 * registry's lock, which is free again at once.
		 */
		if (kind == wait_kind::mutex && on_semaphore)
			return {};
		if (kind == wait_kind::mutex)
			result.on_mutex = true;
		if (kind != wait_kind::none)
			result.kind = kind;
	}
	if (on_semaphore)
		result.timed = false;
	return result;
}

open_takes open_takes_of(const lock &of, std::optional<uint64_t> now)
{
	if (of.mutex)
		return open_of_mutex(of);

	open_takes result;

	result.cut = of.history.size() >= history_length;
	for (auto call = of.history.rbegin(); call != of.history.rend(); ++call)
		if (!call->give && may_wait(*call, now))
			result.takes.push_back(&*call);
	return result;
}

std::vector<const lock_call *>
units_out(const lock &of, const std::vector<const lock_call *> &waiting)
{
	std::vector<const lock_call *> takes;
	size_t gives = 0;

	for (auto call = of.history.rbegin(); call != of.history.rend();
	     ++call) {
		if (call->give)
			++gives;
		else if (std::find(waiting.begin(), waiting.end(), &*call) ==
			 waiting.end())
			takes.push_back(&*call);
	}
	/* Whichever they were: as many as were given are not out. */
	takes.erase(takes.begin(),
		    takes.begin() + static_cast<std::ptrdiff_t>(
					    std::min(gives, takes.size())));
	return takes;
}

std::string_view queue_of(const lock &of)
{
	constexpr std::string_view begin = "msgq-";
	std::string_view name = of.name;

	for (const std::string_view end : { "-ent", "-tx", "-rx" }) {
		if (name.size() > begin.size() + end.size() &&
		    name.starts_with(begin) && name.ends_with(end) &&
		    of.mutex == (end == "-ent")) {
			name.remove_prefix(begin.size());
			name.remove_suffix(end.size());
			return name;
		}
	}
	return {};
}

} // namespace zorva
