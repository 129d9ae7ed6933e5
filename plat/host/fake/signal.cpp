// SPDX-License-Identifier: GPL-2.0
/*
 * Signals, as Linux 5.10 delivers them to a task that is a group of its own.
 * One that was sent to a PID waits in the set that the group shares. One that
 * ends the group puts SIGKILL into the task's private set as well, but only
 * the first one: the group ends only once.
 */
#include "scheduler.h"

namespace
{

constexpr int signals = 65;

constexpr u64 bit(int signal)
{
	return 1ull << signal;
}

/* Wakes who sleeps interruptibly; all others see it when they look. */
void notify(task_struct *task)
{
	task->signal_pending = true;
	fake::wake(task, state_interruptible);
}

int send(task_struct *task, int signal)
{
	if (signal < 1 || signal >= signals)
		fake::fatal(fake::format("there is no signal %d", signal));
	if (task->state == state_dead)
		return -ESRCH_;
	if (task->actions[signal] == action_ignore)
		return 0;
	task->shared_signals |= bit(signal);
	if (task->actions[signal] == action_default && !task->group_exits) {
		task->group_exits = true;
		task->private_signals |= bit(SIGKILL);
	}
	notify(task);
	return 0;
}

} // namespace

namespace fake
{

bool signal_ends_sleep(const task_struct *task, long state)
{
	return task->signal_pending && state == state_interruptible;
}

void send_signal(pid_t pid, int signal)
{
	send(task_of(pid), signal);
}

} // namespace fake

void kernel_sigaction(int signal, __sighandler_t action)
{
	const auto value = reinterpret_cast<uintptr_t>(action);

	fake::record(fake::format("kernel_sigaction %d %lu", signal,
				  static_cast<unsigned long>(value)));
	fake::running()->actions[signal] = value;
}

int kill_pid(struct pid *pid, int signal, int privileged)
{
	fake::record(fake::format("kill_pid %d %d %d", pid->task->number,
				  signal, privileged),
		     pid->task);
	return send(pid->task, signal);
}

void flush_signals(struct task_struct *task)
{
	fake::record(fake::format("flush_signals %d", task->number));
	task->signal_pending = false;
	task->private_signals = 0;
	task->shared_signals = 0;
}

bool zk_signal_pending(void)
{
	return fake::running()->signal_pending;
}

bool zk_fatal_signal_pending(void)
{
	const task_struct *const self = fake::running();

	return self->signal_pending && self->private_signals & bit(SIGKILL);
}

bool zk_signal_is_pending(int signal)
{
	const task_struct *const self = fake::running();

	return (self->private_signals | self->shared_signals) & bit(signal);
}
