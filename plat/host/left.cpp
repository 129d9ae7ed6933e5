// SPDX-License-Identifier: GPL-2.0
/* What a life leaves, and who waits for whom when nobody can run any more. */
#include "host.h"

#include "zorva_sem.h"
#include "zorva_timer.h"

#include <set>
#include <string.h>

namespace
{

std::string thread_text(const task_struct *task)
{
	return fake::format("thread '%s' (%d)", task->comm, task->number);
}

bool lives(const task_struct *task)
{
	return task->state != state_dead;
}

/* The mutex or the semaphore whose lock that is; "" for one of the module's. */
std::string name_of_lock(const void *lock)
{
	for (const zorva_mutex *each = _zorvaMutexDbg.head; each;
	     each = each->next)
		if (&each->mutex == lock)
			return fake::format("mutex '%s'", each->name);
	for (const zorva_sem *each = _zorvaSemDbg.head; each; each = each->next)
		if (&each->semaphore == lock)
			return fake::format("semaphore '%s'", each->name);
	return "";
}

std::string what_it_does(const task_struct *task)
{
	if (task->calling.empty())
		return task->state == state_running
			       ? "can run"
			       : "waits in " + task->blocked_in;

	const fake::firmware_call &call = task->calling.front();
	const std::string object = host::name_of(call);

	return (task->state == state_running && !task->waits_for
			? "is in "
			: "waits in ") +
	       host::text_of(call) + (object.empty() ? "" : " for " + object);
}

/* The mutexes that a thread has, each with the place where it took it. */
std::string what_it_holds(const task_struct *task)
{
	std::string text;

	for (size_t i = 0; i < task->taken.size(); ++i) {
		const std::string name = name_of_lock(task->taken[i]);

		if (name.starts_with("mutex"))
			text += (text.empty() ? "" : ", ") + name +
				", taken at " +
				host::place_of(task->taken_at[i]);
	}
	return text;
}

bool makes_timers(const fake::firmware_call &call)
{
	return call.function && strstr(call.function, "timer_init");
}

template <class Record>
void find_timers(const sys_sll_t *list, const char *kind,
		 std::vector<host::leftover> &found)
{
	if (!list)
		return;
	for (const sys_sll_node_t *node = list->pFirst; node;
	     node = node->pNext) {
		const auto *const timer = static_cast<Record *>(node->pData);

		if (!timer || !timer->running)
			continue;
		found.push_back(
			{ { "timer", nullptr, timer->startFile,
			    timer->startLine, nullptr, 0 },
			  fake::format("left: %s %u of %s still runs, started at %s:%u: its callback would run in code that is gone",
				       kind, timer->timerId,
				       _componentName[timer->component],
				       timer->startFile, timer->startLine) });
	}
}

void find_threads(std::vector<host::leftover> &found)
{
	for (const task_struct *task : fake::all_tasks()) {
		if (!lives(task) || task->number == fake::main_pid)
			continue;

		const std::string held = what_it_holds(task);

		found.push_back(
			{ task->made_by,
			  "left: " + thread_text(task) + ", made by " +
				  host::text_of(task->made_by) + ", " +
				  what_it_does(task) +
				  (held.empty() ? "" : "; it holds " + held) });
	}
}

/* Those of a thread that is left, and of timers, do not count twice. */
void find_blocks(std::vector<host::leftover> &found)
{
	std::set<u64> told;

	for (const task_struct *task : fake::all_tasks())
		if (lives(task) && task->number != fake::main_pid)
			told.insert(task->made_by.number);
	for (const fake::firmware_call &call : fake::calls_that_left_blocks())
		if (call.function && !makes_timers(call) &&
		    told.insert(call.number).second)
			found.push_back({ call, "left: what was made by " +
							host::text_of(call) });
}

} // namespace

namespace host
{

std::vector<leftover> leftovers()
{
	const fake::context now = fake::current_context();
	std::vector<leftover> found;

	if (now.interrupts_off || now.in_interrupt || !now.locks.empty())
		found.push_back({ {}, "left: interrupts are off" });
	find_timers<tick_timer>(_pZorvaTimerList, "timer", found);
	find_timers<hrt_timer>(_pZorvaHrtTimerList, "high-resolution timer",
			       found);
	find_threads(found);
	find_blocks(found);
	return found;
}

void check_end_of(const task_struct *task)
{
	const std::string held = what_it_holds(task);

	if (held.empty())
		return;

	const std::string where =
		task->calling.empty() ? ""
				      : " in " + text_of(task->calling.front());

	fail_by(task->taken_at.back(), thread_text(task) + " has ended" +
					       where + " and holds " + held);
}

std::string holder_text(object mutex)
{
	const void *const lock =
		&static_cast<const zorva_mutex *>(mutex)->mutex;
	const task_struct *const task = fake::holder_of(lock);

	if (!task)
		return "nobody holds";
	for (size_t i = task->taken.size(); i--;)
		if (task->taken[i] == lock)
			return thread_text(task) + " holds, taken at " +
			       place_of(task->taken_at[i]);
	return "";
}

/*
 * Where somebody holds what another one waits for, it is a deadlock. Else all
 * wait for something that nobody will give.
 */
void tell_of_deadlock(const std::string &)
{
	const fake::firmware_call *first = nullptr;
	std::string states;
	bool circle = false;

	for (const task_struct *task : fake::all_tasks()) {
		if (!lives(task))
			continue;

		const std::string holds = what_it_holds(task);

		states += "\n  " + thread_text(task) + " " + what_it_does(task);
		if (!holds.empty())
			states += "\n    and holds " + holds;
		circle = circle || task->waits_for;
		if (!first && !task->calling.empty())
			first = &task->calling.front();
	}
	fail_by(first ? *first : fake::firmware_call(),
		(circle ? "deadlock: threads wait for each other's mutexes:"
			: "deadlock, or a lost wake-up: threads wait, and nobody wakes them:") +
			states);
}

} // namespace host
