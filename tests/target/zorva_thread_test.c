// SPDX-License-Identifier: GPL-2.0
/* Tracked threads: what they start with, how they end, and their report. */
#include <linux/completion.h>
#include <linux/idr.h>
#include <linux/module.h>
#include <linux/pid_namespace.h>
#include <linux/string.h>

#include "zorva_lock_test.h"

#define COMP ZT_THREAD_COMPONENT

#define CREATED(name)                                                          \
	ZT_REPORT(3, "zorva_thread.cpp", "zorva_thread_create_track",          \
		  "Thread '" name "' has been created")
#define DESTROYED(name)                                                        \
	ZT_REPORT(3, "zorva_thread.cpp", "zorva_thread_destroy_track",         \
		  "Thread '" name "' has been destroyed")
#define ENDED(name)                                                            \
	ZT_REPORT(3, "zorva_thread.cpp", "zorva_thread_exit_track",            \
		  "Thread '" name "' exit")
#define NOT_FOUND(func, caller)                                                \
	ZT_ERROR("zorva_thread.cpp", func,                                     \
		 "cannot find target thread. (" caller ")")

#define LISTED                                                                 \
	"Component : %s\n"                                                     \
	"Name      : %s\n"                                                     \
	"PID       : %u\n"                                                     \
	"State     : %u\n"                                                     \
	"Priority  : %d\n"                                                     \
	"\n"

/* A thread, what it had when it began, and what it waits for. */
struct probe {
	struct zt_thread thread;
	struct completion go_on;
	bool stop;
	char comm[TASK_COMM_LEN];
	int policy;
	int rt_priority;
	int nice;
	bool is_kthread;
	__sighandler_t on_kill;
	__sighandler_t on_term;
	bool killed;
	u32 result[4];
};

static struct probe probe, second;

static void look_around(struct probe *self)
{
	memcpy(self->comm, current->comm, sizeof(self->comm));
	self->policy = current->policy;
	self->rt_priority = current->rt_priority;
	self->nice = task_nice(current);
	self->is_kthread = current->flags & PF_KTHREAD;
	self->on_kill = current->sighand->action[SIGKILL - 1].sa.sa_handler;
	self->on_term = current->sighand->action[SIGTERM - 1].sa.sa_handler;
}

static void just_return(void *arg)
{
	look_around(arg);
}

/* Waits with no regard to signals. */
static void wait_in_vain(void *arg)
{
	struct probe *self = arg;

	look_around(self);
	wait_for_completion(&self->go_on);
}

/* Returns when it is told to end, as an entry function should. */
static void wait_for_the_kill(void *arg)
{
	struct probe *self = arg;

	look_around(self);
	while (wait_for_completion_interruptible(&self->go_on))
		if (fatal_signal_pending(current)) {
			self->killed = true;
			return;
		}
}

static void never_sleep(void *arg)
{
	struct probe *self = arg;

	while (!READ_ONCE(self->stop))
		yield();
}

static void start(struct kunit *test, struct probe *which, const char *name,
		  s32 priority, void (*body)(void *arg))
{
	init_completion(&which->go_on);
	which->stop = false;
	which->killed = false;
	zt_thread_start(test, &which->thread, COMP, name, priority, body,
			which);
}

static int let_go(struct kunit *test, struct probe *which)
{
	complete(&which->go_on);
	return zt_thread_end(test, &which->thread);
}

static u32 destroy(u32 pid)
{
	return zorva_thread_destroy_track(COMP, pid, "caller.c", 41);
}

/* Of the task that has the PID now. */
static bool is_in_state(u32 pid, unsigned int state)
{
	struct task_struct *task;
	bool is;

	rcu_read_lock();
	task = pid_task(find_vpid(pid), PIDTYPE_PID);
	is = task && zt_task_state(task) == state;
	rcu_read_unlock();
	return is;
}

/* It has come to its wait when this returns. */
static void start_waiting(struct kunit *test, struct probe *which,
			  const char *name, s32 priority)
{
	start(test, which, name, priority, wait_in_vain);
	ZT_WAIT_FOR(test, is_in_state(which->thread.pid, TASK_UNINTERRUPTIBLE));
}

static void expect_listed(struct kunit *test, const char *name, u32 pid,
			  unsigned int state, s32 priority)
{
	/* One that is about to wait does so in its own time. */
	if (state != TASK_DEAD)
		ZT_WAIT_FOR(test, is_in_state(pid, state));
	ZT_EXPECT_FILE(test, "zorva.thread", LISTED, _componentName[COMP], name,
		       pid, state, priority);
}

/* A thread may have ended before its creator gets to say that it exists. */
static void expect_created_and_ended(struct kunit *test, const char *name)
{
	const char *late = zt_text(test, ENDED("%s") CREATED("%s"), name, name);

	if (strcmp(zt_reports(test), late) != 0)
		ZT_EXPECT_REPORTS(test, CREATED("%s") ENDED("%s"), name, name);
}

static void without_threads_the_report_is_empty(struct kunit *test)
{
	ZT_EXPECT_FILE(test, "zorva.thread", "%s", "");
}

static void a_thread_runs_its_entry_with_its_argument(struct kunit *test)
{
	struct probe *const self = &probe;

	start_waiting(test, self, "runs", 128);

	/* That it could be found at all came by way of the argument. */
	KUNIT_EXPECT_TRUE(test, self->is_kthread);
	KUNIT_EXPECT_PTR_NE(test, self->thread.task, current);
	ZT_EXPECT_REPORTS(test, CREATED("runs"));
	KUNIT_EXPECT_EQ(test, let_go(test, self), 0);
	ZT_EXPECT_REPORTS(test, CREATED("runs") ENDED("runs"));
}

/* The record goes after the report of the end. */
static void wait_for_the_end(struct kunit *test)
{
	ZT_WAIT_FOR(test,
		    zt_report_count() == 2 && *zt_mem_row(test, COMP) == '\0');
}

static void a_null_argument_is_handed_on(void *arg)
{
	probe.result[0] = arg ? 1 : 2;
}

static void the_argument_may_be_null(struct kunit *test)
{
	probe.result[0] = 0;
	KUNIT_EXPECT_NE(test,
			zorva_thread_create_track(COMP, "null", 0, 128,
						  a_null_argument_is_handed_on,
						  NULL, "caller.c", 1),
			0u);
	wait_for_the_end(test);
	KUNIT_EXPECT_EQ(test, probe.result[0], 2u);
	expect_created_and_ended(test, "null");
}

static void it_is_listed_when_create_returns(struct kunit *test)
{
	start_waiting(test, &probe, "listed", 77);

	expect_listed(test, "listed", probe.thread.pid, TASK_UNINTERRUPTIBLE,
		      77);
	let_go(test, &probe);
	ZT_EXPECT_FILE(test, "zorva.thread", "%s", "");
}

/* The name that a thread gets, in the report and for the kernel. */
static void expect_name(struct kunit *test, const char *given, const char *want,
			const char *comm)
{
	zt_forget_reports();
	start_waiting(test, &probe, given, 128);
	ZT_EXPECT_REPORTS(test, CREATED("%s"), want);
	expect_listed(test, want, probe.thread.pid, TASK_UNINTERRUPTIBLE, 128);
	ZT_EXPECT_TEXT(test, probe.comm, "%s", comm);

	zt_forget_reports();
	let_go(test, &probe);
	ZT_EXPECT_REPORTS(test, ENDED("%s"), want);
}

static void a_name_is_cut_at_31_and_at_15_characters(struct kunit *test)
{
	expect_name(test, "a name of 15 ch", "a name of 15 ch",
		    "a name of 15 ch");
	expect_name(test, "a name of 16 cha", "a name of 16 cha",
		    "a name of 16 ch");
	expect_name(test, "0123456789012345678901234567890",
		    "0123456789012345678901234567890", "012345678901234");
	expect_name(test, "01234567890123456789012345678901",
		    "0123456789012345678901234567890", "012345678901234");
	expect_name(test, "0123456789012345678901234567890123456789",
		    "0123456789012345678901234567890", "012345678901234");
}

static void a_name_is_taken_as_it_is(struct kunit *test)
{
	expect_name(test, "100%s %n", "100%s %n", "100%s %n");
	expect_name(test, "", "", "");
}

static void a_null_name_is_made_of_component_and_line(struct kunit *test)
{
	u32 pid;

	probe.thread.body = wait_in_vain;
	probe.thread.arg = &probe;
	probe.thread.task = NULL;
	init_completion(&probe.go_on);
	pid = zorva_thread_create_track(9, NULL, 0, 128, zt_thread_entry,
					&probe.thread, "caller.c", 88);
	KUNIT_ASSERT_NE(test, pid, 0u);
	ZT_WAIT_FOR(test, probe.thread.task);

	ZT_EXPECT_REPORTS(test, CREATED("ZORVA-88"));
	ZT_WAIT_FOR(test, is_in_state(pid, TASK_UNINTERRUPTIBLE));
	ZT_EXPECT_FILE(test, "zorva.thread", LISTED, "ZORVA", "ZORVA-88", pid,
		       TASK_UNINTERRUPTIBLE, 128);
	ZT_EXPECT_TEXT(test, probe.comm, "ZORVA-88");
	let_go(test, &probe);

	/* And with the line of the caller that the macro stands in. */
	expect_name(test, NULL, zt_text(test, "%s-31", _componentName[COMP]),
		    zt_text(test, "%s-31", _componentName[COMP]));
}

static void priority_30_is_round_robin_at_90(struct kunit *test)
{
	start_waiting(test, &probe, "fast", 30);

	/* A stock kernel lacks it: then the thread says so and runs on. */
	if (zt_has_sched_setscheduler()) {
		KUNIT_EXPECT_EQ(test, probe.policy, SCHED_RR);
		KUNIT_EXPECT_EQ(test, probe.rt_priority, 90);
		ZT_EXPECT_REPORTS(test, CREATED("fast"));
	} else {
		KUNIT_EXPECT_EQ(test, probe.policy, SCHED_NORMAL);
		KUNIT_EXPECT_EQ(test, probe.rt_priority, 0);
		ZT_EXPECT_REPORTS(test,
				  ZT_ERROR("zorva_thread.cpp",
					   "_zorva_thread_wrapper",
					   "Set thread fast scheduler failed.")
					  CREATED("fast"));
	}
	expect_listed(test, "fast", probe.thread.pid, TASK_UNINTERRUPTIBLE, 30);
	let_go(test, &probe);
}

static void any_other_priority_is_a_nice_value(struct kunit *test)
{
	static const struct {
		s32 priority;
		int nice;
	} cases[] = {
		{ 0, -20 },
		{ 6, -20 },
		{ 7, -19 },
		{ 29, -16 },
		{ 31, -16 },
		{ 127, -1 },
		{ 128, -1 },
		{ 130, -1 },
		{ 131, 0 },
		{ 254, 18 },
		{ 255, 19 },
		/* Division is towards 0. */
		{ -1, -20 },
		{ -6, -20 },
		/* The kernel knows no such value, and leaves what there was. */
		{ -7, 0 },
		{ -255, 0 },
		{ INT_MIN, 0 },
	};
	unsigned int i;

	for (i = 0; i < ARRAY_SIZE(cases); i++) {
		zt_forget_reports();
		start_waiting(test, &probe, "nice", cases[i].priority);

		KUNIT_EXPECT_EQ_MSG(test, probe.nice, cases[i].nice,
				    "priority %d", cases[i].priority);
		KUNIT_EXPECT_EQ(test, probe.policy, SCHED_NORMAL);
		KUNIT_EXPECT_EQ(test, probe.rt_priority, 0);
		expect_listed(test, "nice", probe.thread.pid,
			      TASK_UNINTERRUPTIBLE, cases[i].priority);
		ZT_EXPECT_REPORTS(test, CREATED("nice"));
		let_go(test, &probe);
	}
}

static void priorities_from_256_are_refused(struct kunit *test)
{
	static const s32 priorities[] = { 256, 257, 0x10000, INT_MAX };
	struct zt_checks checks =
		ZT_CHECKS("zorva_thread.cpp", "zorva_thread_create_track");
	const s32 *each;

	for (each = priorities; each < priorities + ARRAY_SIZE(priorities);
	     each++) {
		KUNIT_EXPECT_EQ(test,
				zorva_thread_create_track(COMP, "x", 0, *each,
							  just_return, &probe,
							  "caller.c", 1),
				0u);
		zt_expect_refused(test, &checks, 3);
	}
	ZT_EXPECT_FILE(test, "zorva.thread", "%s", "");
}

static void all_stack_sizes_but_one_are_accepted(struct kunit *test)
{
	static const u32 sizes[] = { 0,		 1,	     8192,
				     0x7FFFFFFE, 0x80000000, 0xFFFFFFFF };
	struct zt_checks checks =
		ZT_CHECKS("zorva_thread.cpp", "zorva_thread_create_track");
	const u32 *size;

	for (size = sizes; size < sizes + ARRAY_SIZE(sizes); size++) {
		zt_forget_reports();
		KUNIT_EXPECT_NE(test,
				zorva_thread_create_track(COMP, "stack", *size,
							  128, just_return,
							  &probe, "caller.c",
							  1),
				0u);
		wait_for_the_end(test);
		expect_created_and_ended(test, "stack");
	}

	zt_forget_reports();
	KUNIT_EXPECT_EQ(test,
			zorva_thread_create_track(COMP, "stack", 0x7FFFFFFF,
						  128, just_return, &probe,
						  "caller.c", 1),
			0u);
	zt_expect_refused(test, &checks, 2);
}

static void create_refuses(struct kunit *test)
{
	static const u32 nobody[] = { 57, 58, 0x80000001, 0xFFFFFFFF };
	struct zt_checks checks =
		ZT_CHECKS("zorva_thread.cpp", "zorva_thread_create_track");
	const u32 *comp;

	/* With every argument wrong, the first counts, and so on. */
	KUNIT_EXPECT_EQ(test,
			zorva_thread_create_track(0, "x", 0x7FFFFFFF, 256, NULL,
						  NULL, NULL, 1),
			0u);
	zt_expect_refused(test, &checks, 0);
	for (comp = nobody; comp < nobody + ARRAY_SIZE(nobody); comp++) {
		KUNIT_EXPECT_EQ(test,
				zorva_thread_create_track(*comp, "x",
							  0x7FFFFFFF, 256, NULL,
							  NULL, NULL, 1),
				0u);
		zt_expect_refused(test, &checks, 1);
	}
	KUNIT_EXPECT_EQ(test,
			zorva_thread_create_track(COMP, "x", 0x7FFFFFFF, 256,
						  NULL, NULL, NULL, 1),
			0u);
	zt_expect_refused(test, &checks, 2);
	KUNIT_EXPECT_EQ(test,
			zorva_thread_create_track(COMP, "x", 0, 256, NULL, NULL,
						  NULL, 1),
			0u);
	zt_expect_refused(test, &checks, 3);
	KUNIT_EXPECT_EQ(test,
			zorva_thread_create_track(COMP, "x", 0, 255, NULL, NULL,
						  NULL, 1),
			0u);
	zt_expect_refused(test, &checks, 4);
	KUNIT_EXPECT_EQ(test,
			zorva_thread_create_track(COMP, "x", 0, 255,
						  just_return, NULL, NULL, 1),
			0u);
	zt_expect_refused(test, &checks, 5);

	/* Nothing was started by any of these. */
	msleep(30);
	ZT_EXPECT_NO_REPORTS(test);
	ZT_EXPECT_FILE(test, "zorva.thread", "%s", "");
	ZT_EXPECT_NO_USAGE(test, COMP);
}

static void destroy_refuses(struct kunit *test)
{
	static const u32 nobody[] = { 57, 58, 0x80000001, 0xFFFFFFFF };
	struct zt_checks checks =
		ZT_CHECKS("zorva_thread.cpp", "zorva_thread_destroy_track");
	const u32 *comp;
	u32 pid;

	start(test, &probe, "spared", 128, wait_for_the_kill);
	pid = probe.thread.pid;
	zt_forget_reports();

	KUNIT_EXPECT_EQ(test, zorva_thread_destroy_track(0, 0, NULL, 1),
			ZORVA_RC_BAD_COMPONENT);
	zt_expect_refused(test, &checks, 0);
	KUNIT_EXPECT_EQ(test, zorva_thread_destroy_track(0, pid, "x.c", 1),
			ZORVA_RC_BAD_COMPONENT);
	zt_expect_refused(test, &checks, 0);
	for (comp = nobody; comp < nobody + ARRAY_SIZE(nobody); comp++) {
		KUNIT_EXPECT_EQ(test,
				zorva_thread_destroy_track(*comp, pid, "x.c",
							   1),
				ZORVA_RC_BAD_COMPONENT);
		zt_expect_refused(test, &checks, 1);
	}
	KUNIT_EXPECT_EQ(test, zorva_thread_destroy_track(COMP, 0, NULL, 1),
			ZORVA_RC_BAD_VALUE);
	zt_expect_refused(test, &checks, 2);
	KUNIT_EXPECT_EQ(test, zorva_thread_destroy_track(COMP, pid, NULL, 1),
			ZORVA_RC_NULL_ARG);
	zt_expect_refused(test, &checks, 3);

	/* None of these sent it a signal. */
	KUNIT_EXPECT_FALSE(test, signal_pending(probe.thread.task));
	expect_listed(test, "spared", pid, TASK_INTERRUPTIBLE, 128);
	let_go(test, &probe);
	KUNIT_EXPECT_FALSE(test, probe.killed);
}

static void a_destroy_finds_tracked_threads_only(struct kunit *test)
{
	static const u32 pids[] = { 1, 2, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF };
	const u32 *pid;

	start_waiting(test, &probe, "only one", 128);
	zt_forget_reports();

	/* This very task exists, and so do the first two. */
	KUNIT_EXPECT_EQ(test, destroy(current->pid), 0x7000000Eu);
	ZT_EXPECT_REPORTS(test, NOT_FOUND("zorva_thread_destroy_track",
					  "caller.c, 41"));
	KUNIT_EXPECT_FALSE(test, signal_pending(current));
	for (pid = pids; pid < pids + ARRAY_SIZE(pids); pid++) {
		zt_forget_reports();
		KUNIT_EXPECT_EQ(test,
				zorva_thread_destroy_track(COMP, *pid, "x.c",
							   0xFFFFFFFF),
				ZORVA_RC_NOT_FOUND);
		ZT_EXPECT_REPORTS(test, NOT_FOUND("zorva_thread_destroy_track",
						  "x.c, 4294967295"));
	}
	let_go(test, &probe);

	/* One that has ended is no longer tracked. */
	zt_forget_reports();
	KUNIT_EXPECT_EQ(test, destroy(probe.thread.pid), ZORVA_RC_NOT_FOUND);
}

static void a_destroy_sends_a_signal_and_no_more(struct kunit *test)
{
	start_waiting(test, &probe, "deaf", 5);
	zt_forget_reports();

	KUNIT_EXPECT_EQ(test, destroy(probe.thread.pid), ZORVA_RC_OK);
	ZT_EXPECT_REPORTS(test, DESTROYED("deaf"));
	KUNIT_EXPECT_TRUE(test, fatal_signal_pending(probe.thread.task));
	expect_listed(test, "deaf", probe.thread.pid, TASK_UNINTERRUPTIBLE, 5);

	/* It may be told again, as long as it is there. */
	msleep(100);
	zt_forget_reports();
	KUNIT_EXPECT_EQ(test, destroy(probe.thread.pid), ZORVA_RC_OK);
	ZT_EXPECT_REPORTS(test, DESTROYED("deaf"));
	expect_listed(test, "deaf", probe.thread.pid, TASK_UNINTERRUPTIBLE, 5);

	zt_forget_reports();
	KUNIT_EXPECT_EQ(test, let_go(test, &probe), 0);
	ZT_EXPECT_REPORTS(test, ENDED("deaf"));
	ZT_EXPECT_FILE(test, "zorva.thread", "%s", "");
}

static void a_thread_that_notices_the_signal_ends(struct kunit *test)
{
	start(test, &probe, "obedient", 128, wait_for_the_kill);
	zt_forget_reports();

	/* Any component may say so. */
	KUNIT_EXPECT_EQ(test,
			zorva_thread_destroy_track(56, probe.thread.pid, "x.c",
						   1),
			ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, zt_thread_end(test, &probe.thread), 0);
	KUNIT_EXPECT_TRUE(test, probe.killed);
	ZT_EXPECT_REPORTS_OF_TWO(test, DESTROYED("obedient"),
				 ENDED("obedient"));
	ZT_EXPECT_FILE(test, "zorva.thread", "%s", "");
	ZT_EXPECT_NO_USAGE(test, COMP);
}

static void a_destroy_hits_the_one_with_that_pid(struct kunit *test)
{
	start(test, &probe, "first", 128, wait_for_the_kill);
	start(test, &second, "second", 128, wait_for_the_kill);

	KUNIT_EXPECT_EQ(test, destroy(probe.thread.pid), ZORVA_RC_OK);
	zt_thread_end(test, &probe.thread);
	KUNIT_EXPECT_TRUE(test, probe.killed);
	KUNIT_EXPECT_FALSE(test, signal_pending(second.thread.task));
	expect_listed(test, "second", second.thread.pid, TASK_INTERRUPTIBLE,
		      128);

	KUNIT_EXPECT_EQ(test, destroy(second.thread.pid), ZORVA_RC_OK);
	zt_thread_end(test, &second.thread);
	KUNIT_EXPECT_TRUE(test, second.killed);
}

static void two_signals_get_through_and_no_other(struct kunit *test)
{
	struct task_struct *task;

	start_waiting(test, &probe, "signals", 128);
	task = probe.thread.task;

	/* SIGKILL is left to do what it always does, SIGTERM is let in. */
	KUNIT_EXPECT_PTR_EQ(test, (void *)probe.on_kill, (void *)SIG_DFL);
	KUNIT_EXPECT_PTR_EQ(test, (void *)probe.on_term, (void *)2);

	kill_pid(task_pid(task), SIGUSR1, 1);
	kill_pid(task_pid(task), SIGINT, 1);
	KUNIT_EXPECT_FALSE(test, signal_pending(task));
	kill_pid(task_pid(task), SIGTERM, 1);
	KUNIT_EXPECT_TRUE(test, signal_pending(task));
	KUNIT_EXPECT_FALSE(test, fatal_signal_pending(task));
	kill_pid(task_pid(task), SIGKILL, 1);
	KUNIT_EXPECT_TRUE(test, fatal_signal_pending(task));
	KUNIT_EXPECT_EQ(test, let_go(test, &probe), 0);
}

static void an_entry_that_returns_ends_its_thread(struct kunit *test)
{
	unsigned int i;

	for (i = 0; i < 50; i++) {
		zt_forget_reports();
		start(test, &probe, "short",
		      i % 2 && zt_has_sched_setscheduler() ? 30 : 128,
		      just_return);

		KUNIT_EXPECT_EQ(test, zt_thread_end(test, &probe.thread), 0);
		expect_created_and_ended(test, "short");
		ZT_EXPECT_FILE(test, "zorva.thread", "%s", "");
		ZT_EXPECT_NO_USAGE(test, COMP);
	}
}

static void its_end_is_that_of_a_killed_task(struct kunit *test)
{
	start(test, &probe, "short", 128, just_return);
	ZT_WAIT_FOR(test, zt_is_gone(&probe.thread));

	/* The signal has no say in the exit code. */
	KUNIT_EXPECT_TRUE(test, zt_group_exits(probe.thread.task->signal));
	KUNIT_EXPECT_EQ(test, probe.thread.task->signal->group_exit_code,
			SIGKILL);
	KUNIT_EXPECT_EQ(test, zt_thread_end(test, &probe.thread), 0);
}

static void exit_with_7(void *arg)
{
	zorva_thread_exit_track(COMP, 7, "caller.c", 1);
}

static void exit_with_minus_1_for_another(void *arg)
{
	zorva_thread_exit_track(1, -1, "caller.c", 1);
}

static void a_thread_may_end_itself_with_a_code(struct kunit *test)
{
	start(test, &probe, "seven", 128, exit_with_7);
	KUNIT_EXPECT_EQ(test, zt_thread_end(test, &probe.thread), 7);
	expect_created_and_ended(test, "seven");

	zt_forget_reports();
	start(test, &probe, "minus one", 128, exit_with_minus_1_for_another);
	KUNIT_EXPECT_EQ(test, zt_thread_end(test, &probe.thread), -1);
	expect_created_and_ended(test, "minus one");
	ZT_EXPECT_NO_USAGE(test, COMP);
	ZT_EXPECT_FILE(test, "zorva.thread", "%s", "");
}

static void exit_wrongly(void *arg)
{
	struct probe *self = arg;

	wait_for_completion(&self->go_on);
	self->result[0] = zorva_thread_exit_track(0, 3, NULL, 1);
	self->result[1] = zorva_thread_exit_track(57, 3, NULL, 1);
	self->result[2] = zorva_thread_exit_track(0xFFFFFFFF, 3, "x.c", 1);
	self->result[3] = zorva_thread_exit_track(COMP, 3, NULL, 1);
	wait_for_completion(&self->go_on);
}

static void exit_refuses_and_the_thread_goes_on(struct kunit *test)
{
	static const char refused[] = ZT_ERROR("zorva_thread.cpp",
					       "zorva_thread_exit_track",
					       "invalid parameter");

	start(test, &probe, "wrong", 128, exit_wrongly);
	complete(&probe.go_on);
	ZT_WAIT_FOR(test, zt_report_count() == 5);
	KUNIT_EXPECT_EQ(test, probe.result[0], ZORVA_RC_BAD_COMPONENT);
	KUNIT_EXPECT_EQ(test, probe.result[1], ZORVA_RC_BAD_COMPONENT);
	KUNIT_EXPECT_EQ(test, probe.result[2], ZORVA_RC_BAD_COMPONENT);
	KUNIT_EXPECT_EQ(test, probe.result[3], ZORVA_RC_NULL_ARG);
	expect_listed(test, "wrong", probe.thread.pid, TASK_UNINTERRUPTIBLE,
		      128);
	KUNIT_EXPECT_FALSE(test, signal_pending(probe.thread.task));

	ZT_EXPECT_REPORTS(test, CREATED("wrong") "%s%s%s%s", refused, refused,
			  refused, refused);
	KUNIT_EXPECT_EQ(test, let_go(test, &probe), 0);
}

static void every_check_of_exit_has_its_own_line(struct kunit *test)
{
	struct zt_checks checks =
		ZT_CHECKS("zorva_thread.cpp", "zorva_thread_exit_track");

	zorva_thread_exit_track(0, 0, NULL, 1);
	zt_expect_refused(test, &checks, 0);
	zorva_thread_exit_track(57, 0, NULL, 1);
	zt_expect_refused(test, &checks, 1);
	zorva_thread_exit_track(COMP, 0, NULL, 1);
	zt_expect_refused(test, &checks, 2);
}

static void a_task_that_is_no_thread_cannot_exit(struct kunit *test)
{
	start_waiting(test, &probe, "another", 128);
	zt_forget_reports();

	KUNIT_EXPECT_EQ(test, zorva_thread_exit_track(COMP, 1, "x.c", 9),
			ZORVA_RC_NOT_FOUND);
	ZT_EXPECT_REPORTS(test, NOT_FOUND("zorva_thread_exit_track", "x.c, 9"));
	KUNIT_EXPECT_FALSE(test, signal_pending(current));
	expect_listed(test, "another", probe.thread.pid, TASK_UNINTERRUPTIBLE,
		      128);
	let_go(test, &probe);
}

static void the_report_shows_the_newest_first(struct kunit *test)
{
	static struct probe third;
	const char *first = _componentName[COMP];

	start_waiting(test, &probe, "asleep", -5);
	start(test, &second, "dozing", 30, wait_for_the_kill);
	start(test, &third, "awake", 255, never_sleep);
	ZT_WAIT_FOR(test, is_in_state(probe.thread.pid, TASK_UNINTERRUPTIBLE));
	ZT_WAIT_FOR(test, is_in_state(second.thread.pid, TASK_INTERRUPTIBLE));
	ZT_EXPECT_FILE(test, "zorva.thread",
		       "Component : %s\n"
		       "Name      : awake\n"
		       "PID       : %d\n"
		       "State     : 0\n"
		       "Priority  : 255\n"
		       "\n"
		       "Component : %s\n"
		       "Name      : dozing\n"
		       "PID       : %d\n"
		       "State     : 1\n"
		       "Priority  : 30\n"
		       "\n"
		       "Component : %s\n"
		       "Name      : asleep\n"
		       "PID       : %d\n"
		       "State     : 2\n"
		       "Priority  : -5\n"
		       "\n",
		       first, third.thread.pid, first, second.thread.pid, first,
		       probe.thread.pid);

	/* One in the middle goes, the others stay as they are. */
	let_go(test, &second);
	ZT_EXPECT_FILE(test, "zorva.thread", LISTED LISTED, first, "awake",
		       third.thread.pid, TASK_RUNNING, 255, first, "asleep",
		       probe.thread.pid, TASK_UNINTERRUPTIBLE, -5);
	let_go(test, &probe);
	WRITE_ONCE(third.stop, true);
	zt_thread_end(test, &third.thread);
}

static void a_report_larger_than_its_buffer_is_whole(struct kunit *test)
{
	enum {
		THREADS = 450
	};
	static struct zt_thread thread[THREADS];
	static char want[64 * 1024];
	size_t length = 0;
	unsigned int i;

	init_completion(&probe.go_on);
	for (i = 0; i < THREADS; i++)
		zt_thread_start(test, &thread[i], COMP,
				"one of a great many, all alike", 128,
				wait_in_vain, &probe);
	for (i = 0; i < THREADS; i++)
		ZT_WAIT_FOR(test, zt_is_blocked(thread[i].task));
	for (i = THREADS; i-- > 0;)
		length += scnprintf(want + length, sizeof(want) - length,
				    LISTED, _componentName[COMP],
				    "one of a great many, all alike",
				    thread[i].pid, TASK_UNINTERRUPTIBLE, 128);

	KUNIT_EXPECT_GT(test, length, (size_t)32768);
	ZT_EXPECT_FILE(test, "zorva.thread", "%s", want);
	complete_all(&probe.go_on);
	for (i = 0; i < THREADS; i++)
		KUNIT_EXPECT_EQ(test, zt_thread_end(test, &thread[i]), 0);
	ZT_EXPECT_FILE(test, "zorva.thread", "%s", "");
	ZT_EXPECT_NO_USAGE(test, COMP);
}

/* What the kernel itself allocates for a thread is another matter. */
static void a_create_without_memory_starts_nothing(struct kunit *test)
{
	u32 pid;

	zt_fail_allocation(1);
	pid = zorva_thread_create_track(COMP, "scarce", 0, 128, just_return,
					&probe, "caller.c", 0xFFFFFFFF);
	KUNIT_EXPECT_TRUE(test, zt_end_failing());

	KUNIT_EXPECT_EQ(test, pid, 0u);
	KUNIT_EXPECT_EQ(test, zt_report_count(), 2u);
	ZT_EXPECT_TEXT(test, zt_report(test, 0)->func, "zorva_malloc_track");
	KUNIT_EXPECT_EQ(test, zt_report(test, 0)->level, 1u);
	ZT_EXPECT_TEXT(test, zt_report(test, 1)->func,
		       "zorva_thread_create_track");
	KUNIT_EXPECT_EQ(test, zt_report(test, 1)->level, 1u);
	ZT_EXPECT_TEXT(test, zt_report(test, 1)->text,
		       "allocate memory failed. (caller.c, 4294967295)");
	msleep(30);
	KUNIT_EXPECT_EQ(test, zt_report_count(), 2u);
	ZT_EXPECT_FILE(test, "zorva.thread", "%s", "");
	ZT_EXPECT_NO_USAGE(test, COMP);
}

static void end_without_a_word(void *arg)
{
	zt_complete_and_exit(NULL, 5);
}

/*
 * Runs as a task with a given PID, which must be free. A worker of the kernel
 * that is made at the same time may come to have it; then once more.
 */
static void run_as(struct kunit *test, u32 pid, struct zt_thread *thread,
		   int (*fn)(void *arg))
{
	const unsigned int next = idr_get_cursor(&init_pid_ns.idr);
	unsigned int tries = 0;

	do {
		if (tries > 0)
			kthread_stop(thread->task);
		idr_set_cursor(&init_pid_ns.idr, pid);
		thread->task = kthread_create(fn, NULL, "zt_heir");
		idr_set_cursor(&init_pid_ns.idr, next);
		KUNIT_ASSERT_NOT_ERR_OR_NULL(test, thread->task);
	} while (++tries < 5 && (u32)thread->task->pid != pid);
	KUNIT_ASSERT_EQ(test, (u32)thread->task->pid, pid);
	get_task_struct(thread->task);
	wake_up_process(thread->task);
}

static int exit_as_if_tracked(void *arg)
{
	return zorva_thread_exit_track(COMP, 9, "heir.c", 1);
}

static void one_that_ends_in_another_way_stays_listed(struct kunit *test)
{
	struct zt_thread heir;
	u32 pid;

	start(test, &probe, "silent", 128, end_without_a_word);
	pid = probe.thread.pid;
	KUNIT_EXPECT_EQ(test, zt_thread_end(test, &probe.thread), 5);

	/* Its task is kept for the report, for as long as it takes. */
	msleep(50);
	ZT_EXPECT_REPORTS(test, CREATED("silent"));
	expect_listed(test, "silent", pid, TASK_DEAD, 128);
	KUNIT_EXPECT_EQ(test, destroy(pid), ZORVA_RC_OK);
	expect_listed(test, "silent", pid, TASK_DEAD, 128);

	/* A task that comes to have its PID passes for it. */
	zt_forget_reports();
	run_as(test, pid, &heir, exit_as_if_tracked);
	KUNIT_EXPECT_EQ(test, zt_thread_end(test, &heir), 9);
	ZT_EXPECT_REPORTS(test, ENDED("silent"));
	ZT_EXPECT_FILE(test, "zorva.thread", "%s", "");
	ZT_EXPECT_NO_USAGE(test, COMP);
}

static void the_newest_thread_with_a_pid_counts(struct kunit *test)
{
	const char *owner = _componentName[COMP];
	struct zt_thread heir;
	unsigned int next;
	u32 pid;

	start(test, &probe, "ghost", 1, end_without_a_word);
	pid = probe.thread.pid;
	zt_thread_end(test, &probe.thread);

	next = idr_get_cursor(&init_pid_ns.idr);
	idr_set_cursor(&init_pid_ns.idr, pid);
	start(test, &second, "alive", 2, wait_for_the_kill);
	idr_set_cursor(&init_pid_ns.idr, next);
	KUNIT_EXPECT_EQ(test, second.thread.pid, pid);
	ZT_WAIT_FOR(test, is_in_state(pid, TASK_INTERRUPTIBLE));
	ZT_EXPECT_FILE(test, "zorva.thread", LISTED LISTED, owner, "alive", pid,
		       TASK_INTERRUPTIBLE, 2, owner, "ghost", pid, TASK_DEAD,
		       1);

	zt_forget_reports();
	KUNIT_EXPECT_EQ(test, destroy(pid), ZORVA_RC_OK);
	zt_thread_end(test, &second.thread);
	KUNIT_EXPECT_TRUE(test, second.killed);
	ZT_EXPECT_REPORTS_OF_TWO(test, DESTROYED("alive"), ENDED("alive"));
	expect_listed(test, "ghost", pid, TASK_DEAD, 1);

	run_as(test, pid, &heir, exit_as_if_tracked);
	zt_thread_end(test, &heir);
	ZT_EXPECT_FILE(test, "zorva.thread", "%s", "");
}

static struct kunit_case cases[] = {
	KUNIT_CASE(without_threads_the_report_is_empty),
	KUNIT_CASE(a_thread_runs_its_entry_with_its_argument),
	KUNIT_CASE(the_argument_may_be_null),
	KUNIT_CASE(it_is_listed_when_create_returns),
	KUNIT_CASE(a_name_is_cut_at_31_and_at_15_characters),
	KUNIT_CASE(a_name_is_taken_as_it_is),
	KUNIT_CASE(a_null_name_is_made_of_component_and_line),
	KUNIT_CASE(priority_30_is_round_robin_at_90),
	KUNIT_CASE(any_other_priority_is_a_nice_value),
	KUNIT_CASE(priorities_from_256_are_refused),
	KUNIT_CASE(all_stack_sizes_but_one_are_accepted),
	KUNIT_CASE(create_refuses),
	KUNIT_CASE(destroy_refuses),
	KUNIT_CASE(a_destroy_finds_tracked_threads_only),
	KUNIT_CASE(a_destroy_sends_a_signal_and_no_more),
	KUNIT_CASE(a_thread_that_notices_the_signal_ends),
	KUNIT_CASE(a_destroy_hits_the_one_with_that_pid),
	KUNIT_CASE(two_signals_get_through_and_no_other),
	KUNIT_CASE(an_entry_that_returns_ends_its_thread),
	KUNIT_CASE(its_end_is_that_of_a_killed_task),
	KUNIT_CASE(a_thread_may_end_itself_with_a_code),
	KUNIT_CASE(exit_refuses_and_the_thread_goes_on),
	KUNIT_CASE(every_check_of_exit_has_its_own_line),
	KUNIT_CASE(a_task_that_is_no_thread_cannot_exit),
	KUNIT_CASE(the_report_shows_the_newest_first),
	KUNIT_CASE(a_report_larger_than_its_buffer_is_whole),
	KUNIT_CASE(a_create_without_memory_starts_nothing),
	KUNIT_CASE(one_that_ends_in_another_way_stays_listed),
	KUNIT_CASE(the_newest_thread_with_a_pid_counts),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_thread",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Tracked threads of ZORVA");
