// SPDX-License-Identifier: GPL-2.0
/* What is known of tasks, and what the kernel does to them. */
#include "scheduler.h"

#include <string.h>

namespace
{

unsigned int threads_refused;
int thread_error;
int scheduler_error;
bool pids_hidden;

const fake::at_restart refuse_nothing([] {
	threads_refused = 0;
	thread_error = 0;
	scheduler_error = 0;
	pids_hidden = false;
});

bool is_dead(const task_struct *task)
{
	return task->state == state_dead;
}

[[noreturn]] void end_running_task(long code)
{
	if (fake::running()->number == fake::main_pid)
		fake::fatal("the test's own task is ended");
	fake::end_task(code);
}

} // namespace

namespace fake
{

void become(kind what)
{
	running()->is_kthread = what == kind::kernel_thread;
}

void rename_self(const char *comm)
{
	set_comm(running(), comm);
}

task_struct *task_of(pid_t pid)
{
	task_struct *const task = look_up(pid);

	if (!task || is_dead(task))
		fatal(format("no task with PID %d", pid));
	return task;
}

std::string comm_of(pid_t pid)
{
	return task_of(pid)->comm;
}

std::string blocked_in(pid_t pid)
{
	const task_struct *const task = task_of(pid);

	return task->state == state_running ? "" : task->blocked_in;
}

unsigned int references_to(pid_t pid)
{
	const task_struct *const task = look_up(pid);

	return task ? task->references : 0;
}

void refuse_threads(unsigned int count)
{
	threads_refused = count;
}

void fail_threads(int error)
{
	thread_error = error;
}

void refuse_scheduler(int error)
{
	scheduler_error = error;
}

void hide_pids()
{
	pids_hidden = true;
}

} // namespace fake

struct task_struct *zk_current(void)
{
	return fake::running();
}

pid_t zk_current_pid(void)
{
	return fake::running()->number;
}

bool zk_current_is_kthread(void)
{
	return fake::running()->is_kthread;
}

void zk_set_comm(const char *name)
{
	fake::set_comm(fake::running(), name);
}

pid_t zk_task_pid_nr(const struct task_struct *task)
{
	return task->number;
}

struct pid *zk_task_pid(struct task_struct *task)
{
	return &task->id;
}

long zk_task_state(const struct task_struct *task)
{
	return task->state;
}

void zk_get_task_struct(struct task_struct *task)
{
	fake::record(fake::format("get_task_struct %d", task->number));
	++task->references;
}

void zk_put_task_struct(struct task_struct *task)
{
	fake::record(fake::format("put_task_struct %d", task->number));
	fake::put_task(task);
}

bool zk_comm_of_pid(pid_t pid, char comm[ZK_TASK_COMM_LEN])
{
	const task_struct *const task = fake::look_up(pid);

	fake::record(fake::format("comm_of_pid %d", pid));
	if (pids_hidden || !task || is_dead(task))
		return false;
	memcpy(comm, task->comm, ZK_TASK_COMM_LEN);
	return true;
}

struct task_struct *kthread_create_on_node(int (*fn)(void *data), void *data,
					   int node, const char namefmt[], ...)
{
	va_list args;

	va_start(args, namefmt);
	const std::string name = fake::vformat(namefmt, args);
	va_end(args);

	fake::record(fake::format("kthread_create_on_node %d %s ", node,
				  namefmt) +
			     name,
		     data);
	fake::might_sleep("kthread_create");
	if (threads_refused) {
		--threads_refused;
		return nullptr;
	}
	if (thread_error)
		return reinterpret_cast<task_struct *>(thread_error);
	fake::running();

	task_struct *const task = fake::make_task(name, true);

	fake::set_body(task, [fn, data] {
		return fn(data);
	});
	task->blocked_in = "kthread";
	return task;
}

int wake_up_process(struct task_struct *task)
{
	if (thread_error && task == reinterpret_cast<void *>(thread_error)) {
		fake::record(fake::format("wake_up_process %d", thread_error));
		fake::complain("waking up an error pointer");
		end_running_task(SIGKILL);
	}
	fake::record(fake::format("wake_up_process %d", task->number), task);
	return fake::wake(task, state_interruptible | state_uninterruptible);
}

void set_user_nice(struct task_struct *task, long nice)
{
	fake::record(fake::format("set_user_nice %d %ld", task->number, nice));
}

int zk_sched_setscheduler(struct task_struct *task, int policy, int priority)
{
	fake::record(fake::format("sched_setscheduler %d %d %d", task->number,
				  policy, priority));
	return scheduler_error;
}

void zk_complete_and_exit(long code)
{
	fake::record(fake::format("complete_and_exit %ld", code));
	fake::might_sleep("complete_and_exit");
	end_running_task(code);
}

void schedule(void)
{
	fake::record("schedule");
	fake::switch_tasks("schedule");
}
