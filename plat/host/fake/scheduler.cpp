// SPDX-License-Identifier: GPL-2.0
/*
 * Who runs, who can, and who is blocked. One task runs until it gives way, so
 * nothing in the fake kernel needs a lock. The task that has been ready for
 * longest goes on, unless an order was chosen by a seed: then chance decides,
 * and a task that could go on may have to give way as well.
 */
#include "scheduler.h"

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <utility>

namespace
{

void (*end_handler)(const task_struct *task);
task_struct *owner; /* of the processor */

/* That of the task that ended last, which ran on it to the end. */
std::unique_ptr<fake::fiber> last_stack;

std::deque<task_struct *> ready;
std::map<pid_t, task_struct *> tasks; /* all that are referred to */
std::map<pid_t, long> exit_codes;
pid_t last_pid = fake::main_pid - 1;

constexpr s64 near = 100000000; /* nanoseconds */

/* The order of tasks; without a period the first who is ready goes on. */
u64 chance;
u32 period; /* of chances to give way, on average */
bool in_kernel_calls;
bool time_passes;
u64 decided; /* or could be, of the order */

/* The main task is made anew; it is the one that runs this. */
const fake::at_restart start_over([] {
	if (!fake::is_forsaken() && !fake::tasks_left().empty())
		fake::fatal("tasks are left:\n" + fake::tasks_left());
	ready.clear();
	if (fake::is_forsaken())
		for (const auto &[number, task] : std::exchange(tasks, {}))
			delete task;
	else if (owner)
		fake::put_task(owner);
	owner = nullptr;
	exit_codes.clear();
	last_pid = fake::main_pid - 1;
	period = 0;
	decided = 0;
});

/* Small, and good enough to choose by: a step of splitmix64. */
u32 next_chance()
{
	u64 mixed = chance += 0x9e3779b97f4a7c15;

	mixed = (mixed ^ mixed >> 30) * 0xbf58476d1ce4e5b9;
	mixed = (mixed ^ mixed >> 27) * 0x94d049bb133111eb;
	return mixed >> 32;
}

task_struct *make_main()
{
	task_struct *const task = fake::make_task("main", false);

	task->state = state_running;
	task->on_cpu = true;
	task->stack = std::make_unique<fake::fiber>();
	return task;
}

const char *state_name(const task_struct *task)
{
	switch (task->state) {
	case state_running:
		return "can run";
	case state_interruptible:
		return "is blocked interruptibly in ";
	case state_uninterruptible:
		return "is blocked in ";
	}
	return "has ended";
}

std::string describe(const task_struct *task)
{
	const bool blocked = task->state == state_interruptible ||
			     task->state == state_uninterruptible;

	return fake::format("%s (%d) %s", task->comm, task->number,
			    state_name(task)) +
	       (blocked ? task->blocked_in : "") + "\n";
}

task_struct *next_task()
{
	while (ready.empty())
		if (!fake::run_next_event()) {
			std::string states;

			for (const auto &[number, task] : tasks)
				states += describe(task);
			fake::fatal_deadlock(states);
		}

	const auto chosen =
		ready.begin() + (period ? next_chance() % ready.size() : 0);

	decided += ready.size() > 1;

	task_struct *const next = *chosen;

	ready.erase(chosen);
	next->on_cpu = true;
	next->preempted = false;
	return next;
}

bool forget_taken(task_struct *task, const void *lock)
{
	for (size_t i = task->taken.size(); i--;)
		if (task->taken[i] == lock) {
			task->taken.erase(task->taken.begin() + i);
			task->taken_at.erase(task->taken_at.begin() + i);
			return true;
		}
	return false;
}

/* Lets a task run; the running one comes back when it is its turn. */
void switch_to(task_struct *next)
{
	task_struct *const self = std::exchange(owner, next);

	if (next != self)
		self->stack->switch_to(*next->stack);
}

void run_task(void *argument)
{
	auto *const task = static_cast<task_struct *>(argument);

	fake::end_task(task->body());
}

} // namespace

namespace fake
{

void set_comm(task_struct *task, const std::string &comm)
{
	kernel_snprintf(task->comm, sizeof(task->comm), "%s", comm.c_str());
}

task_struct *make_task(const std::string &comm, bool is_kthread)
{
	auto *const task = new task_struct{};

	task->references = 1;
	task->number = ++last_pid;
	task->id.task = task;
	task->is_kthread = is_kthread;
	task->state = state_uninterruptible;
	if (owner)
		task->made_by = current_call();
	set_comm(task, comm);
	for (uintptr_t &action : task->actions)
		action = is_kthread ? action_ignore : action_default;
	tasks[task->number] = task;
	return task;
}

void set_body(task_struct *task, std::function<int()> body)
{
	task->body = std::move(body);
	task->stack = std::make_unique<fiber>(run_task, task);
}

void put_task(task_struct *task)
{
	if (--task->references)
		return;
	tasks.erase(task->number);
	delete task;
}

task_struct *look_up(pid_t pid)
{
	const auto found = tasks.find(pid);

	return found == tasks.end() ? nullptr : found->second;
}

task_struct *running()
{
	if (!owner)
		owner = make_main();
	return owner;
}

void switch_tasks(const char *caller)
{
	task_struct *const self = running();

	if (!current_context_may_sleep())
		fatal(std::string(caller) + ": scheduling while atomic");
	run_due_events();
	if (!self->stands_still && signal_ends_sleep(self, self->state))
		self->state = state_running;
	if (self->stands_still || self->state == state_running)
		ready.push_back(self);
	self->blocked_in = caller;
	self->on_cpu = false;

	switch_to(next_task());
}

/* A task that has ended is referred to only by those who asked to. */
void end_task(long code)
{
	task_struct *const self = running();

	if (end_handler)
		end_handler(self);
	self->exit_code = code;
	exit_codes[self->number] = code;
	self->state = state_dead;
	self->on_cpu = false;

	task_struct *const next = next_task();

	last_stack = std::move(self->stack);
	owner = next;
	put_task(self);
	last_stack->end_for(*next->stack);
}

void on_task_end(void (*handler)(const task_struct *task))
{
	end_handler = handler;
}

void set_order(u64 seed, u32 mean_period, bool also_in_kernel_calls)
{
	chance = seed;
	period = mean_period;
	in_kernel_calls = also_in_kernel_calls;
	time_passes = false;
	decided = 0;
}

void let_time_pass(bool may_pass)
{
	time_passes = may_pass;
}

/* Whatever the task is about to wait for, it has not given way itself. */
void may_switch(switch_point where)
{
	if (!owner || !owner->on_cpu || !current_context_may_sleep())
		return;
	decided += !ready.empty();
	if (!period || (where == switch_point::kernel_call && !in_kernel_calls))
		return;
	if (time_passes && where == switch_point::firmware_call &&
	    !(next_chance() % (4 * period)))
		run_event_within(near);
	if (ready.empty() || next_chance() % period)
		return;

	task_struct *const self = owner;

	self->on_cpu = false;
	self->preempted = true;

	task_struct *const next = next_task();

	ready.push_back(self);
	switch_to(next);
}

u64 choices()
{
	return decided;
}

/* One that still runs, and has only said that it will block, goes on. */
bool wake(task_struct *task, long states)
{
	if (!(task->state & states))
		return false;
	task->state = state_running;
	if (!task->on_cpu && !task->preempted && !task->stands_still)
		ready.push_back(task);
	return true;
}

firmware_call current_call()
{
	return owner && !owner->calling.empty() ? owner->calling.back()
						: firmware_call();
}

pid_t start_task(const char *comm, std::function<void()> body, kind what)
{
	running();

	task_struct *const task = make_task(comm, what == kind::kernel_thread);

	set_body(task, [body = std::move(body)] {
		body();
		return 0;
	});
	wake(task, state_uninterruptible);
	return task->number;
}

/* Those who are in here themselves do not count as tasks that can run. */
void run_others()
{
	task_struct *const self = running();
	const bool were_run = self->runs_others;
	const auto is_busy = [](const task_struct *task) {
		return !task->runs_others;
	};

	self->runs_others = true;
	while (std::any_of(ready.begin(), ready.end(), is_busy))
		switch_tasks("run_others");
	self->runs_others = were_run;
}

void preempt()
{
	task_struct *const self = running();
	const bool stood_still = self->stands_still;

	self->stands_still = true;
	run_others();
	self->stands_still = stood_still;
}

/* Also for a processor that has no task, and is in an interrupt. */
void wait_for_other_processors(const char *caller)
{
	task_struct *const self = running();
	const bool had_processor = self->on_cpu;
	const bool stood_still = self->stands_still;
	const bool were_run = self->runs_others;

	self->stands_still = true;
	self->runs_others = true;
	switch_tasks(caller);
	self->runs_others = were_run;
	self->stands_still = stood_still;
	self->on_cpu = had_processor;
	/* Woken meanwhile. */
	if (!had_processor && self->state == state_running)
		ready.push_back(self);
}

bool has_ended(pid_t pid)
{
	return exit_codes.count(pid);
}

long exit_code_of(pid_t pid)
{
	const auto found = exit_codes.find(pid);

	return found == exit_codes.end() ? -1 : found->second;
}

std::string tasks_left()
{
	std::string left;

	for (const auto &[number, task] : tasks)
		if (number != main_pid && !task->left)
			left += describe(task);
	return left;
}

void leave_task(pid_t pid)
{
	task_struct *const task = look_up(pid);

	if (!task)
		fatal(format("no task with PID %d to leave", pid));
	task->left = true;
}

std::vector<const void *> taken_by_running()
{
	return running()->taken;
}

void note_taken(const void *lock)
{
	running()->taken.push_back(lock);
	running()->taken_at.push_back(current_call());
}

task_struct *holder_of(const void *lock)
{
	for (const auto &[number, task] : tasks)
		if (task->state != state_dead &&
		    std::count(task->taken.begin(), task->taken.end(), lock))
			return task;
	return nullptr;
}

std::vector<task_struct *> all_tasks()
{
	std::vector<task_struct *> all;

	for (const auto &[number, task] : tasks)
		all.push_back(task);
	return all;
}

/* A unit may be given by another task than the one that has taken it. */
void note_given(const void *lock)
{
	if (forget_taken(running(), lock))
		return;
	for (const auto &[number, task] : tasks)
		if (forget_taken(task, lock))
			return;
}

} // namespace fake
