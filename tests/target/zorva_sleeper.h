/* SPDX-License-Identifier: GPL-2.0 */
/*
 * A thread that makes one call in which it sleeps, and what becomes of both:
 * a thread that zorva has started and can tell to end, or one of the kernel's
 * own that zorva does not know.
 *
 * The kernel does not preempt a thread: reports come in the order in which
 * threads give way to each other.
 */
#ifndef ZORVA_SLEEPER_H
#define ZORVA_SLEEPER_H

#include <linux/delay.h>
#include <linux/jiffies.h>
#include <linux/kthread.h>
#include <linux/pid.h>
#include <linux/sched.h>
#include <linux/sched/signal.h>
#include <linux/sched/task.h>
#include <linux/slab.h>

#include "zorva_test.h"

#define ZT_SLEEPER_COMPONENT 46u

/* Where the kernel has no better clock than its ticks, timers go by them. */
static inline bool zt_clock_is_coarse(void)
{
	return ktime_get_resolution_ns() >= NSEC_PER_SEC / HZ;
}

struct zt_sleeper {
	u32 (*call)(u32 arg);
	u32 arg;
	struct task_struct *task;
	bool returned; /* as far as this flag, the thread came to the end */
	bool go_on;
	u32 result;
	bool signals_left;
	u64 nsecs;
	unsigned long ticks;
};

static inline bool zt_signals_pending(void)
{
	return signal_pending(current) ||
	       !sigisemptyset(&current->pending.signal) ||
	       !sigisemptyset(&current->signal->shared_pending.signal);
}

static inline void zt_sleeper_runs(void *arg)
{
	struct zt_sleeper *sleeper = arg;
	const u64 begin = ktime_get_ns();
	const unsigned long first = jiffies;

	allow_signal(SIGUSR1);
	sleeper->result = sleeper->call(sleeper->arg);
	sleeper->ticks = jiffies - first;
	sleeper->nsecs = ktime_get_ns() - begin;
	sleeper->signals_left = zt_signals_pending();
	WRITE_ONCE(sleeper->returned, true);
	/* Somebody may still want to look at its task. */
	while (!READ_ONCE(sleeper->go_on))
		msleep(10);
}

static inline int zt_stranger_runs(void *arg)
{
	allow_signal(SIGKILL);
	allow_signal(SIGTERM);
	zt_sleeper_runs(arg);
	return 0;
}

/* Waits for what another thread does. */
#define ZT_UNTIL(test, condition, what)                                        \
	do {                                                                   \
		const unsigned long end_ = jiffies + 60 * HZ;                  \
                                                                               \
		while (!(condition) && time_before(jiffies, end_))             \
			msleep(10);                                            \
		KUNIT_EXPECT_TRUE_MSG(test, condition, "not %s", what);        \
	} while (0)

static inline struct zt_sleeper *zt_new_sleeper(u32 (*call)(u32 arg), u32 arg)
{
	struct zt_sleeper *sleeper = kzalloc(sizeof(*sleeper), GFP_KERNEL);

	if (sleeper) {
		sleeper->call = call;
		sleeper->arg = arg;
	}
	return sleeper;
}

/* A thread of zorva's. */
static inline struct zt_sleeper *zt_start_sleeper(struct kunit *test,
						  u32 (*call)(u32 arg), u32 arg)
{
	struct zt_sleeper *sleeper = zt_new_sleeper(call, arg);
	struct pid *pid;
	u32 number;

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, sleeper);
	number = zorva_thread_create(ZT_SLEEPER_COMPONENT, "sleeper", 0, 100,
				     zt_sleeper_runs, sleeper);
	KUNIT_ASSERT_NE(test, number, 0u);
	pid = find_get_pid(number);
	sleeper->task = get_pid_task(pid, PIDTYPE_PID);
	put_pid(pid);
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, sleeper->task);
	ZT_EXPECT_REPORTS(test, ZT_REPORT(3, "zorva_thread.cpp",
					  "zorva_thread_create_track",
					  "Thread 'sleeper' has been created"));
	zt_forget_reports();
	return sleeper;
}

/* A thread of the kernel's own. */
static inline struct zt_sleeper *
zt_start_stranger(struct kunit *test, u32 (*call)(u32 arg), u32 arg)
{
	struct zt_sleeper *sleeper = zt_new_sleeper(call, arg);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, sleeper);
	sleeper->task = kthread_create(zt_stranger_runs, sleeper, "stranger");
	KUNIT_ASSERT_FALSE(test, IS_ERR(sleeper->task));
	get_task_struct(sleeper->task);
	wake_up_process(sleeper->task);
	return sleeper;
}

/* It has got into its call, and sleeps there so that a signal wakes it. */
static inline void zt_expect_asleep(struct kunit *test,
				    struct zt_sleeper *sleeper)
{
	ZT_UNTIL(test, zt_task_state(sleeper->task) == TASK_INTERRUPTIBLE,
		 "asleep");
	KUNIT_EXPECT_FALSE(test, READ_ONCE(sleeper->returned));
}

static inline void zt_drop_sleeper(struct kunit *test,
				   struct zt_sleeper *sleeper)
{
	ZT_UNTIL(test, READ_ONCE(sleeper->task->exit_state), "ended");
	put_task_struct(sleeper->task);
	kfree(sleeper);
}

/* Its call returned, and then its thread ended as all do. */
static inline void zt_expect_returned(struct kunit *test,
				      struct zt_sleeper *sleeper)
{
	ZT_UNTIL(test, READ_ONCE(sleeper->returned), "returned");
}

static inline void zt_let_go(struct kunit *test, struct zt_sleeper *sleeper)
{
	WRITE_ONCE(sleeper->go_on, true);
	ZT_UNTIL(test, READ_ONCE(sleeper->task->exit_state), "ended");
	KUNIT_EXPECT_EQ(test, zt_exit_code(sleeper->task), 0);
	zt_drop_sleeper(test, sleeper);
}

/* Its thread was ended from within the call, with this exit code. */
static inline void zt_expect_ended(struct kunit *test,
				   struct zt_sleeper *sleeper, int exit_code)
{
	ZT_UNTIL(test, READ_ONCE(sleeper->task->exit_state), "ended");
	KUNIT_EXPECT_FALSE(test, sleeper->returned);
	KUNIT_EXPECT_EQ(test, zt_exit_code(sleeper->task), exit_code);
	WRITE_ONCE(sleeper->go_on, true);
	zt_drop_sleeper(test, sleeper);
}

#endif
