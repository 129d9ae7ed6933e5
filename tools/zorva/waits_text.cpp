// SPDX-License-Identifier: GPL-2.0
/* Who waits for whom, in words. */
#include "print.h"
#include "waits_view.h"

#include <algorithm>
#include <fmt/format.h>
#include <set>

namespace zorva
{
namespace
{

class teller {
public:
	explicit teller(const waits &of) : of_(of)
	{
	}

	std::string text(bool all);

private:
	void tell_deadlock(const deadlock &one);
	void tell_wait(const actor &one);
	void tell_holder(const lock_state &lock, const holder &by);
	void tell_idle(bool all);
	void doubt(const finding &sure);

	const waits &of_;
	std::set<size_t> stuck_;
	std::string text_;
};

void teller::doubt(const finding &sure)
{
	if (!sure.proven && !sure.why.empty())
		text_ += styled(style::dim,
				fmt::format("      probably: {}",
					    escaped(sure.why, 200))) +
			 '\n';
}

void teller::tell_wait(const actor &one)
{
	const lock_state &lock = of_.locks[*one.lock];
	std::string limit;

	if (one.timeout_ms)
		limit = fmt::format(", of {} ms at most", *one.timeout_ms);
	text_ += fmt::format("  {} waits for {}{}\n    at {}, for {}{}\n",
			     styled(style::bold, actor_text(one)),
			     lock_label(lock),
			     one.kind == wait_kind::room ? " to have room" : "",
			     call_text(one), elapsed_text(of_.now, one.since),
			     limit);
	doubt(one.sure);
}

void teller::tell_holder(const lock_state &lock, const holder &by)
{
	const actor &who = of_.actors[by.actor];
	std::string taken;

	if (!lock.which->mutex && !lock.queue.empty())
		text_ += fmt::format("    it is read by {}",
				     styled(style::bold, actor_text(who)));
	else
		text_ += fmt::format("    {} by {}",
				     lock.which->mutex ? "held"
						       : "a unit is out",
				     styled(style::bold, actor_text(who)));
	if (lock.taken)
		text_ += fmt::format(", taken at {} {} ago",
				     site_text(lock.taken->from),
				     elapsed_text(of_.now, lock.taken->time));
	text_ += who.alive ? "\n" : ", which has ended: it stays so\n";
	doubt(by.sure);
	if (lock.taken && lock.which->mutex)
		doubt(lock.taken_sure);
}

void teller::tell_deadlock(const deadlock &one)
{
	std::optional<uint64_t> since = one.since;

	text_ += styled(one.proven ? style::bad : style::warn,
			one.proven ? "DEADLOCK" : "PROBABLY A DEADLOCK");
	text_ += fmt::
		format(": {} for {}\n",
		       one.steps.size() == 1
			       ? "a thread waits for itself,"
			       : fmt::format("{} threads wait for each other,",
					     one.steps.size()),
		       elapsed_text(of_.now, since));
	for (const wait_step &step : one.steps) {
		const lock_state &lock = of_.locks[step.lock];

		tell_wait(of_.actors[step.actor]);
		for (const holder &by : lock.holders)
			if (by.actor == step.next)
				tell_holder(lock, by);
	}
	text_ += '\n';
}

/* Whether it waits for something to do, and nobody stands in its way. */
bool is_idle(const waits &of, const actor &one)
{
	switch (one.kind) {
	case wait_kind::message:
	case wait_kind::event:
	case wait_kind::wake_up:
		return !one.lock || !of.locks[*one.lock].which->mutex;
	case wait_kind::semaphore:
		return !one.lock || (of.locks[*one.lock].holders.empty() &&
				     !of.locks[*one.lock].taken);
	default:
		return false;
	}
}

const char *work_text(const waits &of, const actor &one)
{
	switch (one.kind) {
	case wait_kind::message:
		return "a message";
	case wait_kind::event:
		return "an event";
	case wait_kind::wake_up:
		return "a wake-up";
	default:
		return one.lock && !of.locks[*one.lock].which->mutex
			       ? "a semaphore to be given"
			       : "a semaphore";
	}
}

void teller::tell_idle(bool all)
{
	size_t idle = 0;

	for (const actor &one : of_.actors)
		idle += is_idle(of_, one);
	if (!idle)
		return;
	text_ += fmt::format("{} for work: nobody stands in the way{}\n",
			     count_text(idle, "thread waits", "threads wait"),
			     all ? "" : " (--all shows them)");
	if (!all)
		return;
	for (const actor &one : of_.actors) {
		if (!is_idle(of_, one))
			continue;

		std::string what = work_text(of_, one);

		if (one.lock)
			what += fmt::format(", {}",
					    lock_label(of_.locks[*one.lock]));
		text_ += fmt::format("  {} waits for {}, at {}\n",
				     actor_text(one), what, call_text(one));
	}
}

std::string teller::text(bool all)
{
	size_t unknown = 0;
	bool title = false;

	for (const deadlock &one : of_.deadlocks) {
		tell_deadlock(one);
		for (const wait_step &step : one.steps)
			stuck_.insert(step.actor);
	}
	for (size_t i = 0; i < of_.actors.size(); ++i) {
		const actor &one = of_.actors[i];

		unknown += one.kind != wait_kind::none && !one.lock &&
			   !is_idle(of_, one);
		if (!one.lock || stuck_.count(i) || is_idle(of_, one))
			continue;
		if (!title)
			text_ += styled(style::bold, "WAITING") + "\n";
		title = true;

		const lock_state &lock = of_.locks[*one.lock];

		tell_wait(one);
		for (const holder &by : lock.holders)
			tell_holder(lock, by);
		if (lock.holders.empty() && lock.taken)
			text_ += fmt::
				format("    a unit is out since {}, taken at {}\n",
				       elapsed_text(of_.now, lock.taken->time),
				       site_text(lock.taken->from));
		else if (lock.holders.empty() && one.kind == wait_kind::room)
			text_ += "    who reads it is not known\n";
	}
	if (title)
		text_ += '\n';
	if (of_.deadlocks.empty() && !title && !unknown)
		text_ += "Nobody waits for anybody.\n";
	if (unknown)
		text_ += fmt::
			format("{} blocked, and for what cannot be told{}\n",
			       count_text(unknown, "thread is", "threads are"),
			       of_.has_stacks
				       ? ""
				       : ": there are no stacks (root reads them, on a kernel with CONFIG_STACKTRACE)");
	tell_idle(all);
	for (const std::string &note : of_.notes)
		text_ += fmt::format("note: {}\n", escaped(note, 200));
	return std::move(text_);
}

} // namespace

std::string waits_text(const waits &of, bool all)
{
	return teller(of).text(all);
}

bool waits_for_work(const waits &of, const actor &one)
{
	return is_idle(of, one);
}

} // namespace zorva
