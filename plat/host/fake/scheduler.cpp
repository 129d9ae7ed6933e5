// SPDX-License-Identifier: GPL-2.0
/*
 * Who runs, who can, and who is blocked. There is one baton; a thread of the
 * host that does not have it waits for its task's turn. So nothing in the fake
 * kernel needs a lock but the passing of the baton itself.
 */
#include "scheduler.h"

#include <algorithm>
#include <deque>
#include <map>

namespace
{

constexpr size_t stack_size = 1 << 20;

pthread_mutex_t baton = PTHREAD_MUTEX_INITIALIZER;
task_struct *owner; /* of the baton */

std::deque<task_struct *> ready;
std::map<pid_t, task_struct *> tasks; /* all that are referred to */
std::map<pid_t, long> exit_codes;
pid_t last_pid = fake::main_pid - 1;

/* The main task is made anew; it is the one that runs this. */
const fake::at_restart start_over([] {
	if (!fake::tasks_left().empty())
		fake::fatal("tasks are left:\n" + fake::tasks_left());
	if (owner)
		fake::put_task(owner);
	owner = nullptr;
	exit_codes.clear();
	last_pid = fake::main_pid - 1;
});

task_struct *make_main()
{
	task_struct *const task = fake::make_task("main", false);

	task->state = state_running;
	task->on_cpu = true;
	task->started = true;
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
			fake::fatal("deadlock, no task can ever run again:\n" +
				    states);
		}

	task_struct *const next = ready.front();

	ready.pop_front();
	next->on_cpu = true;
	return next;
}

void *run_task(void *argument);

/* Passes the baton; the caller holds its lock. */
void pass_baton(task_struct *to)
{
	owner = to;
	if (to->started) {
		pthread_cond_signal(&to->may_run);
		return;
	}
	to->started = true;

	pthread_t thread;
	pthread_attr_t attributes;

	pthread_attr_init(&attributes);
	pthread_attr_setstacksize(&attributes, stack_size);
	pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
	if (pthread_create(&thread, &attributes, run_task, to))
		fake::fatal("the host has no more threads");
	pthread_attr_destroy(&attributes);
}

/* A task that has ended is referred to only by those who asked to. */
void finish(task_struct *task)
{
	exit_codes[task->number] = task->exit_code;
	task->state = state_dead;

	task_struct *const next = next_task();

	fake::put_task(task);
	pthread_mutex_lock(&baton);
	pass_baton(next);
	pthread_mutex_unlock(&baton);
}

void *run_task(void *argument)
{
	auto *const task = static_cast<task_struct *>(argument);

	pthread_mutex_lock(&baton);
	pthread_mutex_unlock(&baton);
	if (!setjmp(task->end))
		task->exit_code = task->body();
	finish(task);
	return nullptr;
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
	pthread_cond_init(&task->may_run, nullptr);
	set_comm(task, comm);
	for (uintptr_t &action : task->actions)
		action = is_kthread ? action_ignore : action_default;
	tasks[task->number] = task;
	return task;
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

	if (!current_context().may_sleep())
		fatal(std::string(caller) + ": scheduling while atomic");
	run_due_events();
	if (signal_ends_sleep(self, self->state))
		self->state = state_running;
	if (self->state == state_running)
		ready.push_back(self);
	self->blocked_in = caller;
	self->on_cpu = false;

	task_struct *const next = next_task();

	if (next == self)
		return;
	pthread_mutex_lock(&baton);
	pass_baton(next);
	while (owner != self)
		pthread_cond_wait(&self->may_run, &baton);
	pthread_mutex_unlock(&baton);
}

/* One that still runs, and has only said that it will block, goes on. */
bool wake(task_struct *task, long states)
{
	if (!(task->state & states))
		return false;
	task->state = state_running;
	if (!task->on_cpu)
		ready.push_back(task);
	return true;
}

pid_t start_task(const char *comm, std::function<void()> body, kind what)
{
	running();

	task_struct *const task = make_task(comm, what == kind::kernel_thread);

	task->body = [body = std::move(body)] {
		body();
		return 0;
	};
	wake(task, state_uninterruptible);
	return task->number;
}

/* Those who are in here themselves do not count as tasks that can run. */
void run_others()
{
	task_struct *const self = running();
	const auto is_busy = [](const task_struct *task) {
		return !task->runs_others;
	};

	self->runs_others = true;
	while (std::any_of(ready.begin(), ready.end(), is_busy))
		switch_tasks("run_others");
	self->runs_others = false;
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
}

/* A unit may be given by another task than the one that has taken it. */
void note_given(const void *lock)
{
	auto &own = running()->taken;

	for (auto taken = own.end(); taken != own.begin();)
		if (*--taken == lock) {
			own.erase(taken);
			return;
		}
	for (const auto &[number, task] : tasks)
		if (std::erase(task->taken, lock))
			return;
}

} // namespace fake
