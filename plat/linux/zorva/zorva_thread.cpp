// SPDX-License-Identifier: GPL-2.0
/*
 * Tracked kernel threads: a caller's function runs inside a wrapper that sets
 * the thread's scheduling and signals, and lists it until it ends.
 *
 * _zorvaThreadLock guards kthread_list and every record's count of users. Two
 * have a record: the thread, and its creator until it has read what it
 * returns; whoever is last frees it. A record holds a reference to its task,
 * so that one that was left listed can still be printed and looked at.
 *
 * The report copies what it shows under the lock and prints it outside; when
 * there is no memory for that, it prints under the lock.
 */
#include "zorva_thread.h"
#include "zorva_debug.h"
#include "zorva_guard.h"
#include "zorva_snapshot.h"
#include "zorva_text.h"
#include "zorva/mem.h"

namespace
{

constexpr u32 refused_stack_size = 0x7FFFFFFF;
constexpr s32 priority_limit = 256;
constexpr s32 real_time_priority = 30;
constexpr s32 scheduler_priority = 90;
constexpr s32 any_node = -1;

struct thread_record {
	u32 component;
	list_head link;
	struct task_struct *task;
	semaphore started; /* given by the thread once it is listed */
	void (*entry)(void *argument);
	s32 priority;
	void *argument;
	char name[32];
	u32 users;
};

/* Finds the newest listed thread with a PID; the lock is held. */
thread_record *find(u32 pid)
{
	for (list_head *link = zk_list_next(&kthread_list);
	     link != &kthread_list; link = zk_list_next(link)) {
		thread_record *const record =
			container_of(link, thread_record, link);

		if (static_cast<u32>(zk_task_pid_nr(record->task)) == pid)
			return record;
	}
	return nullptr;
}

/* Gives up one user's part of a record. */
void release(thread_record *record)
{
	{
		const irq_spin_guard lock(_zorvaThreadLock);

		if (--record->users)
			return;
	}
	zk_put_task_struct(record->task);
	zorva_free(record->component, record);
}

/* Priority 0 becomes nice -20, and 255 becomes 19. */
constexpr s32 nice_of(s32 priority)
{
	return priority * 39 / 255 - 20;
}

static_assert(nice_of(0) == -20 && nice_of(255) == 19 && nice_of(128) == -1 &&
	      nice_of(31) == -16);

} // namespace

int _zorva_thread_wrapper(void *argument)
{
	auto *const record = static_cast<thread_record *>(argument);
	struct task_struct *const self = zk_current();

	/* Let both signals through to a kernel thread; SIGKILL stays fatal. */
	kernel_sigaction(SIGKILL, SIG_KTHREAD);
	kernel_sigaction(SIGTERM, SIG_KTHREAD);
	kernel_sigaction(SIGKILL, nullptr);

	/* Only this one value is meant to select real-time scheduling. */
	if (record->priority == real_time_priority) {
		if (zk_sched_setscheduler(self, SCHED_RR, scheduler_priority))
			ZORVA_ERROR("Set thread %s scheduler failed.",
				    record->name);
	} else {
		set_user_nice(self, nice_of(record->priority));
	}
	if (record->name[0])
		zk_set_comm(record->name);

	zk_get_task_struct(self);
	{
		const irq_spin_guard lock(_zorvaThreadLock);

		record->task = self;
		zk_list_add(&record->link, &kthread_list);
	}
	up(&record->started);

	record->entry(record->argument);

	return zorva_thread_exit(record->component, 0);
}

u32 zorva_thread_create_track(u32 compId, const char *name, u32 stackSize,
			      s32 priority, void (*entry)(void *argument),
			      void *argument, const char *file, u32 line)
{
	ZORVA_CHECK(compId != 0, 0);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, 0);
	ZORVA_CHECK(stackSize != refused_stack_size, 0);
	ZORVA_CHECK(priority < priority_limit, 0);
	ZORVA_CHECK(entry, 0);
	ZORVA_CHECK(file, 0);

	auto *const record = static_cast<thread_record *>(
		zorva_malloc(compId, sizeof(thread_record)));

	if (!record) {
		ZORVA_ERROR("allocate memory failed. (%s, %u)", file, line);
		return 0;
	}
	name_object(record->name, name, compId, line);
	record->component = compId;
	record->entry = entry;
	zk_sema_init(&record->started, 0);
	record->argument = argument;
	record->priority = priority;
	record->users = 2;

	/*
	 * Only null is meant to be a failure. An error pointer is not, though
	 * the kernel oopses when it is to wake that up.
	 */
	record->task = kthread_create_on_node(_zorva_thread_wrapper, record,
					      any_node, "%s", record->name);
	if (!record->task) {
		ZORVA_ERROR("create thread failed. (%s, %u)", file, line);
		zorva_free(compId, record);
		return 0;
	}
	wake_up_process(record->task);
	down(&record->started);

	const u32 pid = zk_task_pid_nr(record->task);

	ZORVA_INFO("Thread '%s' has been created", record->name);
	release(record);
	return pid;
}

u32 zorva_thread_destroy_track(u32 compId, u32 pid, const char *file, u32 line)
{
	ZORVA_CHECK(compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(pid != 0, ZORVA_RC_BAD_VALUE);
	ZORVA_CHECK(file, ZORVA_RC_NULL_ARG);

	char name[sizeof(thread_record::name)];
	bool found;

	{
		/* The signal, too: the record goes when the thread ends. */
		const irq_spin_guard lock(_zorvaThreadLock);
		thread_record *const record = find(pid);

		found = record;
		if (found) {
			kill_pid(zk_task_pid(record->task), SIGKILL, 1);
			copy_text(name, record->name, sizeof(name));
		}
	}
	if (!found) {
		ZORVA_ERROR("cannot find target thread. (%s, %u)", file, line);
		return ZORVA_RC_NOT_FOUND;
	}
	ZORVA_INFO("Thread '%s' has been destroyed", name);
	return ZORVA_RC_OK;
}

u32 zorva_thread_exit_track(u32 compId, s32 exitCode, const char *file,
			    u32 line)
{
	ZORVA_CHECK(compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(file, ZORVA_RC_NULL_ARG);

	thread_record *record;

	{
		const irq_spin_guard lock(_zorvaThreadLock);

		record = find(zk_current_pid());
		if (record) {
			zk_list_del(&record->link);
			/* It is meant to be freed in the caller's name. */
			record->component = compId;
		}
	}
	if (!record) {
		ZORVA_ERROR("cannot find target thread. (%s, %u)", file, line);
		return ZORVA_RC_NOT_FOUND;
	}
	ZORVA_INFO("Thread '%s' exit", record->name);
	release(record);
	kill_pid(zk_task_pid(zk_current()), SIGKILL, 1);
	zk_complete_and_exit(exitCode);
}

namespace
{

/* What the report shows of a thread. */
struct thread_view {
	u32 component;
	char name[name_size];
	pid_t pid;
	s32 priority;
	long state;
};

unsigned long lock_threads()
{
	return zk_spin_lock_irqsave(&_zorvaThreadLock);
}

void unlock_threads(unsigned long flags)
{
	zk_spin_unlock_irqrestore(&_zorvaThreadLock, flags);
}

void *next_thread(void *last)
{
	const list_head *const before =
		last ? &static_cast<const thread_record *>(last)->link
		     : &kthread_list;
	list_head *const link = zk_list_next(before);

	return link == &kthread_list ? nullptr
				     : container_of(link, thread_record, link);
}

/* A listed record has a task, which it holds a reference to. */
void copy_thread(void *copy, void *listed)
{
	auto &view = *static_cast<thread_view *>(copy);
	const auto *const record = static_cast<const thread_record *>(listed);

	view.component = record->component;
	memcpy(view.name, record->name, sizeof(view.name));
	view.pid = zk_task_pid_nr(record->task);
	view.priority = record->priority;
	view.state = zk_task_state(record->task);
}

bool print_thread(struct seq_file *seq, const void *copy)
{
	const auto &view = *static_cast<const thread_view *>(copy);

	zorva_proc_printf(seq, "Component : %s\n",
			  _componentName[view.component]);
	zorva_proc_printf(seq, "Name      : %.32s\n", view.name);
	zorva_proc_printf(seq, "PID       : %d\n", view.pid);
	zorva_proc_printf(seq, "State     : %ld\n", view.state);
	zorva_proc_printf(seq, "Priority  : %d\n", view.priority);
	zorva_proc_printf(seq, "\n");
	return true;
}

constexpr report_source threads = {
	sizeof(thread_view), lock_threads, unlock_threads, next_thread,
	copy_thread,	     print_thread, nullptr
};

} // namespace

int zorva_thread_dump(struct seq_file *seq)
{
	show_all(seq, threads);
	return 0;
}
