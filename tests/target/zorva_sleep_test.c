// SPDX-License-Identifier: GPL-2.0
/*
 * Sleeps and busy delays: how long they take, what signals do to a sleep, and
 * who is ended by one.
 *
 * Sleeps of ticks are compared with the kernel's own, begun right behind a
 * tick like they are. The board may be held up at any time, so of several
 * tries the shortest counts, and none may be too short.
 */
#include <linux/bottom_half.h>
#include <linux/debugfs.h>
#include <linux/fs.h>
#include <linux/module.h>
#include <linux/string.h>
#include <linux/uaccess.h>
#include <linux/umh.h>

#include "zorva_sleeper.h"

#define TRIES 20u
#define USEC 1000ull
#define MSEC 1000000ull

static u32 usleep(u32 usecs)
{
	zorva_time_usleep(usecs);
	return 0;
}

static u32 sleep(u32 secs)
{
	zorva_time_sleep(secs);
	return 0;
}

static u32 own_sleep(u32 ticks)
{
	schedule_timeout_interruptible(ticks);
	return 0;
}

static void wait_for_a_tick(void)
{
	const unsigned long now = jiffies;

	while (jiffies == now)
		cpu_relax();
}

/* The shortest of several calls, in nanoseconds and in ticks. */
struct span {
	u64 nsecs;
	unsigned long ticks;
	bool gave_way; /* at least once */
};

static const struct span no_span = { ~0ull, ~0ul, false };

static void try(struct span *best, u32 (*call)(u32 arg), u32 arg)
{
	unsigned long switches, ticks;
	u64 nsecs;

	wait_for_a_tick();
	switches = current->nvcsw;
	ticks = jiffies;
	nsecs = ktime_get_ns();
	call(arg);
	nsecs = ktime_get_ns() - nsecs;
	ticks = jiffies - ticks;
	switches = current->nvcsw - switches;

	best->nsecs = min(best->nsecs, nsecs);
	best->ticks = min(best->ticks, ticks);
	best->gave_way |= switches != 0;
}

static struct span once(u32 (*call)(u32 arg), u32 arg)
{
	struct span span = no_span;

	try(&span, call, arg);
	return span;
}

/*
 * Below 10 ms a sleep is exact, however the ticks lie. With a clock of ticks it
 * lasts until the clock has moved, and gives way only where others can run.
 */
static void expect_exact_sleep(struct kunit *test, u32 usecs)
{
	const bool by_ticks = usecs && zt_clock_is_coarse();
	const u64 end = usecs * USEC + MSEC + (by_ticks ? 10 * MSEC : 0);
	struct span span = no_span;
	u32 tries = 0;

	do {
		try(&span, usleep, usecs);
	} while (++tries < TRIES && span.nsecs >= end);

	KUNIT_EXPECT_GE_MSG(test, span.nsecs, usecs * USEC, "%u us", usecs);
	KUNIT_EXPECT_LT_MSG(test, span.nsecs, end, "%u us", usecs);
	KUNIT_EXPECT_TRUE_MSG(test, span.gave_way || usecs < 300 || by_ticks,
			      "%u us", usecs);
}

static void a_sleep_below_10_ms_is_exact(struct kunit *test)
{
	expect_exact_sleep(test, 0);
	expect_exact_sleep(test, 1);
	expect_exact_sleep(test, 300);
	expect_exact_sleep(test, 2500);
	expect_exact_sleep(test, 9999);
	ZT_EXPECT_NO_REPORTS(test);
}

/* From 10 ms on it takes whole ticks, as many as the kernel's own sleep. */
static void expect_sleep_of_ticks(struct kunit *test, u32 (*call)(u32 arg),
				  u32 arg, u32 ticks)
{
	struct span span = no_span, own = no_span;
	u32 tries = 0;

	do {
		try(&span, call, arg);
		try(&own, own_sleep, ticks);
	} while (++tries < TRIES && (tries < 2 || span.ticks != own.ticks));

	KUNIT_EXPECT_GE_MSG(test, span.ticks, (unsigned long)ticks, "of %u",
			    arg);
	KUNIT_EXPECT_EQ_MSG(test, span.ticks, own.ticks, "of %u", arg);
	KUNIT_EXPECT_TRUE_MSG(test, span.gave_way, "of %u", arg);
}

static void a_sleep_from_10_ms_on_takes_ticks_rounded_down(struct kunit *test)
{
	expect_sleep_of_ticks(test, usleep, 10000, 1);
	expect_sleep_of_ticks(test, usleep, 19999, 1);
	expect_sleep_of_ticks(test, usleep, 20000, 2);
	expect_sleep_of_ticks(test, usleep, 25000, 2);
	expect_sleep_of_ticks(test, usleep, 69999, 6);
	ZT_EXPECT_NO_REPORTS(test);
}

static void a_sleep_of_a_second_takes_100_ticks(struct kunit *test)
{
	const struct span span = once(sleep, 1);

	KUNIT_EXPECT_GE(test, span.ticks, 100ul);
	KUNIT_EXPECT_LT(test, span.ticks, 150ul);
	KUNIT_EXPECT_TRUE(test, span.gave_way);
	ZT_EXPECT_NO_REPORTS(test);
}

static void a_sleep_of_0_seconds_returns_at_once(struct kunit *test)
{
	const struct span span = once(sleep, 0);

	KUNIT_EXPECT_LT(test, span.nsecs, 5 * MSEC);
	KUNIT_EXPECT_FALSE(test, span.gave_way);
	ZT_EXPECT_NO_REPORTS(test);
}

static void the_product_of_many_seconds_wraps(struct kunit *test)
{
	if (sizeof(long) > 4)
		ZT_SKIP(test, "64 bits: so long a sleep is none too long");
	expect_sleep_of_ticks(test, sleep, 42949673, 4);
	expect_sleep_of_ticks(test, sleep, 85899346, 4 * 2);
}

/* A number of ticks that the kernel takes for a negative one. */
static void the_kernel_refuses_too_many_seconds(struct kunit *test)
{
	struct span span;

	if (sizeof(long) > 4)
		ZT_SKIP(test, "64 bits: so long a sleep is none too long");
	span = once(sleep, 21474837);

	KUNIT_EXPECT_LT(test, span.nsecs, 100 * MSEC);
	KUNIT_EXPECT_TRUE(test,
			  !!strstr(zt_log(test),
				   "schedule_timeout: wrong timeout value"));
	KUNIT_EXPECT_EQ(test, zt_task_state(current), 0u);
}

static void without_bottom_halves_a_sleep_returns_at_once(struct kunit *test)
{
	const unsigned long switches = current->nvcsw;
	u64 nsecs = ktime_get_ns();

	local_bh_disable();
	zorva_time_usleep(5000);
	zorva_time_usleep(500000);
	zorva_time_sleep(1);
	local_bh_enable();
	nsecs = ktime_get_ns() - nsecs;

	KUNIT_EXPECT_LT(test, nsecs, 4 * MSEC);
	KUNIT_EXPECT_EQ(test, current->nvcsw, switches);
	ZT_EXPECT_NO_REPORTS(test);
}

struct visit {
	const struct zt_call_context *context;
	bool interrupt;
	bool right_context_after;
	u64 nsecs;
};

static void sleep_here(void *arg)
{
	struct visit *visit = arg;

	visit->interrupt = in_interrupt();
	if (!visit->interrupt)
		return;
	visit->nsecs = ktime_get_ns();
	zorva_time_usleep(0);
	zorva_time_usleep(5000);
	zorva_time_usleep(500000);
	zorva_time_sleep(0);
	zorva_time_sleep(1);
	visit->nsecs = ktime_get_ns() - visit->nsecs;
	visit->right_context_after = visit->context->is_current();
}

static void in_an_interrupt_a_sleep_returns_at_once(struct kunit *test)
{
	const struct zt_call_context *context;
	unsigned int interrupts = 0;

	ZT_FOR_EACH_CONTEXT(context) {
		struct visit visit = { .context = context };

		context->run(sleep_here, &visit);

		if (!visit.interrupt)
			continue;
		interrupts++;
		KUNIT_EXPECT_LT_MSG(test, visit.nsecs, 4 * MSEC, "%s",
				    context->name);
		KUNIT_EXPECT_TRUE_MSG(test, visit.right_context_after, "%s",
				      context->name);
	}
	KUNIT_EXPECT_EQ(test, interrupts, 3u);
	ZT_EXPECT_NO_REPORTS(test);
}

/* A signal interrupts a sleep, which then goes on for the rest of its time. */
static void expect_signals_discarded(struct kunit *test, u32 (*call)(u32 arg),
				     u32 arg, u32 ticks)
{
	struct zt_sleeper *sleeper = zt_start_sleeper(test, call, arg);
	unsigned long switches;
	unsigned int i;

	for (i = 0; i < 3; i++) {
		zt_expect_asleep(test, sleeper);
		switches = READ_ONCE(sleeper->task->nvcsw);
		KUNIT_EXPECT_EQ(test, send_sig(SIGUSR1, sleeper->task, 1), 0);
		msleep(ticks * 2);
		KUNIT_EXPECT_GT(test, READ_ONCE(sleeper->task->nvcsw),
				switches);
		KUNIT_EXPECT_FALSE(test, signal_pending(sleeper->task));
	}
	zt_expect_asleep(test, sleeper);
	zt_expect_returned(test, sleeper);

	KUNIT_EXPECT_GE(test, sleeper->ticks, (unsigned long)ticks);
	KUNIT_EXPECT_LT(test, sleeper->ticks, ticks + ticks / 4ul);
	KUNIT_EXPECT_FALSE(test, sleeper->signals_left);
	ZT_EXPECT_NO_REPORTS(test);
	zt_let_go(test, sleeper);
}

static void signals_do_not_end_a_sleep_of_ticks(struct kunit *test)
{
	expect_signals_discarded(test, usleep, 800000, 80);
}

static void signals_do_not_end_a_sleep_of_seconds(struct kunit *test)
{
	expect_signals_discarded(test, sleep, 1, 100);
}

static u32 usleep_with_a_signal_pending(u32 usecs)
{
	send_sig(SIGUSR1, current, 1);
	return usleep(usecs);
}

static void a_signal_from_before_a_sleep_is_discarded(struct kunit *test)
{
	struct zt_sleeper *sleeper =
		zt_start_sleeper(test, usleep_with_a_signal_pending, 100000);

	zt_expect_returned(test, sleeper);
	KUNIT_EXPECT_GE(test, sleeper->ticks, 10ul);
	KUNIT_EXPECT_FALSE(test, sleeper->signals_left);
	zt_let_go(test, sleeper);
}

static u32 short_usleep_with_a_kill_pending(u32 usecs)
{
	send_sig(SIGKILL, current, 1);
	return usleep(usecs);
}

/* The exact ones do not look at signals. */
static void a_kill_does_not_end_a_short_sleep(struct kunit *test)
{
	struct zt_sleeper *sleeper =
		zt_start_sleeper(test, short_usleep_with_a_kill_pending, 9000);

	zt_expect_returned(test, sleeper);
	KUNIT_EXPECT_GE(test, sleeper->nsecs, 9 * MSEC);
	KUNIT_EXPECT_TRUE(test, sleeper->signals_left);
	zt_let_go(test, sleeper);
}

#define EXIT_REPORT                                                            \
	ZT_REPORT(3, "zorva_thread.cpp", "zorva_thread_exit_track",            \
		  "Thread 'sleeper' exit")

/* Its record goes with it: the report names the threads of before. */
static void expect_killed(struct kunit *test, struct zt_sleeper *sleeper,
			  const char *threads)
{
	zt_expect_ended(test, sleeper, 1);
	ZT_EXPECT_FILE(test, "zorva.thread", "%s", threads);
}

static void expect_end_by_destroy(struct kunit *test, u32 (*call)(u32 arg),
				  u32 arg)
{
	const char *const threads = zt_file(test, "zorva.thread");
	struct zt_sleeper *sleeper = zt_start_sleeper(test, call, arg);

	zt_expect_asleep(test, sleeper);
	KUNIT_EXPECT_EQ(test, zorva_thread_destroy(1, sleeper->task->pid),
			ZORVA_RC_OK);
	expect_killed(test, sleeper, threads);
	ZT_EXPECT_REPORTS_OF_TWO(test,
				 ZT_REPORT(3, "zorva_thread.cpp",
					   "zorva_thread_destroy_track",
					   "Thread 'sleeper' has been destroyed"),
				 EXIT_REPORT);
}

static void expect_end_by_signal(struct kunit *test, u32 (*call)(u32 arg),
				 u32 arg, int signal)
{
	const char *const threads = zt_file(test, "zorva.thread");
	struct zt_sleeper *sleeper = zt_start_sleeper(test, call, arg);

	zt_expect_asleep(test, sleeper);
	KUNIT_EXPECT_EQ(test, kill_pid(task_pid(sleeper->task), signal, 1), 0);
	expect_killed(test, sleeper, threads);
	ZT_EXPECT_REPORTS(test, EXIT_REPORT);
}

/* To the thread alone: then it is pending elsewhere than with kill_pid(). */
static void expect_end_by_own_signal(struct kunit *test, u32 (*call)(u32 arg),
				     u32 arg, int signal)
{
	const char *const threads = zt_file(test, "zorva.thread");
	struct zt_sleeper *sleeper = zt_start_sleeper(test, call, arg);

	zt_expect_asleep(test, sleeper);
	KUNIT_EXPECT_EQ(test, send_sig(signal, sleeper->task, 1), 0);
	expect_killed(test, sleeper, threads);
	ZT_EXPECT_REPORTS(test, EXIT_REPORT);
}

static void a_destroyed_thread_ends_in_its_sleep_of_ticks(struct kunit *test)
{
	expect_end_by_destroy(test, usleep, 10000000);
	zt_forget_reports();
	expect_end_by_destroy(test, usleep, 0xFFFFFFFF);
}

static void a_destroyed_thread_ends_in_its_sleep_of_seconds(struct kunit *test)
{
	expect_end_by_destroy(test, sleep, 10);
	zt_forget_reports();
	expect_end_by_destroy(test, sleep, 21474836);
}

static void sigterm_ends_a_thread_in_its_sleep_of_ticks(struct kunit *test)
{
	expect_end_by_signal(test, usleep, 10000000, SIGTERM);
	zt_forget_reports();
	expect_end_by_own_signal(test, usleep, 10000000, SIGTERM);
}

static void sigterm_ends_a_thread_in_its_sleep_of_seconds(struct kunit *test)
{
	expect_end_by_signal(test, sleep, 10, SIGTERM);
	zt_forget_reports();
	expect_end_by_own_signal(test, sleep, 10, SIGTERM);
}

static void sigkill_ends_a_thread_in_its_sleep(struct kunit *test)
{
	expect_end_by_signal(test, usleep, 10000000, SIGKILL);
	zt_forget_reports();
	expect_end_by_own_signal(test, sleep, 10, SIGKILL);
}

/* Late enough for the test to have got hold of the thread. */
static u32 sleep_with_a_kill_pending(u32 secs)
{
	msleep(30);
	send_sig(SIGUSR1, current, 1);
	send_sig(SIGKILL, current, 1);
	return sleep(secs);
}

static void a_kill_from_before_a_sleep_ends_the_thread(struct kunit *test)
{
	const char *const threads = zt_file(test, "zorva.thread");
	struct zt_sleeper *sleeper =
		zt_start_sleeper(test, sleep_with_a_kill_pending, 10);

	expect_killed(test, sleeper, threads);
	ZT_EXPECT_REPORTS(test, EXIT_REPORT);
}

/* The line of the report is that of the sleep. */
static void expect_not_found(struct kunit *test)
{
	const char *line;

	KUNIT_ASSERT_EQ(test, zt_report_count(), 1u);
	line = strrchr(zt_report(test, 0)->text, ' ');
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, line);
	KUNIT_EXPECT_GT(test, simple_strtoul(line + 1, NULL, 10), 0ul);
	ZT_EXPECT_REPORTS(test,
			  ZT_ERROR("zorva_thread.cpp",
				   "zorva_thread_exit_track",
				   "cannot find target thread. (zorva_util.cpp,%s"),
			  line);
}

static void expect_stranger_returns(struct kunit *test, u32 (*call)(u32 arg),
				    u32 arg, int signal)
{
	struct zt_sleeper *stranger;

	zt_forget_reports();
	stranger = zt_start_stranger(test, call, arg);
	zt_expect_asleep(test, stranger);
	KUNIT_EXPECT_EQ(test, send_sig(signal, stranger->task, 1), 0);
	zt_expect_returned(test, stranger);

	KUNIT_EXPECT_LT(test, stranger->ticks, 300ul);
	KUNIT_EXPECT_FALSE(test, stranger->signals_left);
	expect_not_found(test);
	zt_let_go(test, stranger);
}

static void a_killed_thread_of_others_returns_from_its_sleep(struct kunit *test)
{
	expect_stranger_returns(test, usleep, 10000000, SIGKILL);
	expect_stranger_returns(test, usleep, 10000000, SIGTERM);
	expect_stranger_returns(test, sleep, 10, SIGKILL);
	expect_stranger_returns(test, sleep, 10, SIGTERM);
}

static void a_signal_does_not_end_the_sleep_of_others(struct kunit *test)
{
	struct zt_sleeper *stranger = zt_start_stranger(test, usleep, 400000);

	zt_expect_asleep(test, stranger);
	KUNIT_EXPECT_EQ(test, send_sig(SIGUSR1, stranger->task, 1), 0);
	zt_expect_returned(test, stranger);
	KUNIT_EXPECT_GE(test, stranger->ticks, 40ul);
	KUNIT_EXPECT_FALSE(test, stranger->signals_left);
	ZT_EXPECT_NO_REPORTS(test);
	zt_let_go(test, stranger);
}

/*
 * A process of user space sleeps by writing an order to a file: "usleep N" or
 * "sleep N". What else it writes there is kept for the test to look at.
 */
static struct {
	struct task_struct *task;
	bool user;
	bool inside;
	bool returned;
	bool signals_left;
	unsigned long ticks;
	char said[64];
} nap;

static ssize_t nap_write(struct file *file, const char __user *text,
			 size_t length, loff_t *position)
{
	char order[32] = "";
	u32 number;

	if (length >= sizeof(order) || copy_from_user(order, text, length))
		return -EFAULT;
	if (strncmp(order, "usleep ", 7) != 0 &&
	    strncmp(order, "sleep ", 6) != 0) {
		strlcat(nap.said, order, sizeof(nap.said));
		return length;
	}

	number = simple_strtoul(strchr(order, ' ') + 1, NULL, 10);
	get_task_struct(current);
	nap.task = current;
	nap.user = !(current->flags & PF_KTHREAD);
	nap.ticks = jiffies;
	nap.inside = true;
	if (order[0] == 'u')
		zorva_time_usleep(number);
	else
		zorva_time_sleep(number);
	nap.ticks = jiffies - nap.ticks;
	nap.signals_left = zt_signals_pending();
	nap.returned = true;
	return length;
}

static const struct file_operations nap_operations = {
	.owner = THIS_MODULE,
	.write = nap_write,
};

/* A shell that takes a nap, and its nap is over for this reason or another. */
static void nap_with_signal(struct kunit *test, const char *trap,
			    const char *order, int signal)
{
	struct dentry *file = debugfs_create_file("zorva_nap", 0200, NULL, NULL,
						  &nap_operations);
	const char *script =
		zt_text(test,
			"f=/sys/kernel/debug/zorva_nap; %s; echo %s >$f; echo done >$f",
			trap, order);
	char *argv[] = { "/bin/sh", "-c", (char *)script, NULL };
	char *envp[] = { NULL };

	KUNIT_ASSERT_FALSE(test, IS_ERR(file));
	memset(&nap, 0, sizeof(nap));
	zt_forget_reports();
	KUNIT_EXPECT_EQ(test,
			call_usermodehelper(argv[0], argv, envp, UMH_WAIT_EXEC),
			0);
	ZT_UNTIL(test,
		 nap.inside && zt_task_state(nap.task) == TASK_INTERRUPTIBLE,
		 "asleep");
	KUNIT_EXPECT_TRUE(test, nap.user);
	KUNIT_EXPECT_EQ(test, send_sig(signal, nap.task, 1), 0);
	ZT_UNTIL(test, strstr(nap.said, "done\n"), "done");
	KUNIT_EXPECT_TRUE(test, nap.returned);
	KUNIT_EXPECT_FALSE(test, nap.signals_left);
	ZT_UNTIL(test, READ_ONCE(nap.task->exit_state), "ended");
	put_task_struct(nap.task);
	debugfs_remove(file);
}

static void a_killed_process_returns_from_its_sleep_of_ticks(struct kunit *test)
{
	nap_with_signal(test, ":", "usleep 10000000", SIGTERM);
	KUNIT_EXPECT_LT(test, nap.ticks, 300ul);
	ZT_EXPECT_NO_REPORTS(test);

	nap_with_signal(test, ":", "usleep 10000000", SIGKILL);
	KUNIT_EXPECT_LT(test, nap.ticks, 300ul);
	ZT_EXPECT_NO_REPORTS(test);
}

/* This sleep tries to end the process, which is none of zorva's threads. */
static void
a_killed_process_returns_from_its_sleep_of_seconds(struct kunit *test)
{
	nap_with_signal(test, ":", "sleep 10", SIGTERM);
	KUNIT_EXPECT_LT(test, nap.ticks, 300ul);
	expect_not_found(test);

	nap_with_signal(test, ":", "sleep 10", SIGKILL);
	KUNIT_EXPECT_LT(test, nap.ticks, 300ul);
	expect_not_found(test);
}

/* Nor does the process hear of a signal that it has a handler for. */
static void a_signal_to_a_process_is_discarded(struct kunit *test)
{
	nap_with_signal(test, "trap 'echo caught >$f' USR1", "usleep 400000",
			SIGUSR1);
	KUNIT_EXPECT_GE(test, nap.ticks, 40ul);
	KUNIT_EXPECT_STREQ(test, (const char *)nap.said, "done\n");
	ZT_EXPECT_NO_REPORTS(test);

	nap_with_signal(test, "trap 'echo caught >$f' TERM", "usleep 10000000",
			SIGTERM);
	KUNIT_EXPECT_LT(test, nap.ticks, 300ul);
	KUNIT_EXPECT_STREQ(test, (const char *)nap.said, "done\n");
}

static u32 zorva_delay_usecs(u32 usecs)
{
	zorva_time_udelay(usecs);
	return 0;
}

static u32 zorva_delay_msecs(u32 msecs)
{
	zorva_time_mdelay(msecs);
	return 0;
}

/* The kernel's delay at its full length, as often as it takes. */
static u32 own_delay(u32 usecs)
{
	for (; usecs > 1000; usecs -= 1000)
		udelay(1000);
	udelay(usecs);
	return 0;
}

/*
 * The kernel's delay counts loops, which an emulated board runs faster at one
 * time than at another: only the kernel's own one is a measure for it.
 */
static bool much_longer(const struct span *span, const struct span *other)
{
	return span->nsecs > other->nsecs + other->nsecs / 4 + 20 * USEC;
}

static void expect_delay(struct kunit *test, u32 (*call)(u32 arg), u32 arg,
			 u32 usecs)
{
	struct span span = no_span, own = no_span;
	u32 tries = 0;

	do {
		try(&span, call, arg);
		try(&own, own_delay, usecs);
	} while (++tries < TRIES && (tries < 2 || much_longer(&span, &own) ||
				     much_longer(&own, &span)));

	KUNIT_EXPECT_FALSE_MSG(test, much_longer(&span, &own), "of %u", arg);
	KUNIT_EXPECT_FALSE_MSG(test, much_longer(&own, &span), "of %u", arg);
	KUNIT_EXPECT_FALSE_MSG(test, span.gave_way, "of %u", arg);
}

static bool delays_take_time(struct kunit *test)
{
	if (ZT_OWN_TIME)
		ZT_SKIP(test, "no time passes in a delay");
	return !ZT_OWN_TIME;
}

static void a_delay_of_microseconds_is_busy(struct kunit *test)
{
	if (!delays_take_time(test))
		return;
	expect_delay(test, zorva_delay_usecs, 0, 0);
	expect_delay(test, zorva_delay_usecs, 200, 200);
	expect_delay(test, zorva_delay_usecs, 999, 999);
	expect_delay(test, zorva_delay_usecs, 1000, 1000);
	expect_delay(test, zorva_delay_usecs, 1800, 1800);
	expect_delay(test, zorva_delay_usecs, 2500, 2500);
	ZT_EXPECT_NO_REPORTS(test);
}

static void a_delay_of_milliseconds_is_busy(struct kunit *test)
{
	if (!delays_take_time(test))
		return;
	expect_delay(test, zorva_delay_msecs, 0, 0);
	expect_delay(test, zorva_delay_msecs, 1, 1000);
	expect_delay(test, zorva_delay_msecs, 5, 5000);
	ZT_EXPECT_NO_REPORTS(test);
}

static void delay_here(void *arg)
{
	struct visit *visit = arg;

	visit->interrupt = visit->context->is_current();
	visit->nsecs = ktime_get_ns();
	zorva_time_udelay(400);
	zorva_time_mdelay(2);
	visit->nsecs = ktime_get_ns() - visit->nsecs;
	visit->right_context_after = visit->context->is_current();
}

static void delays_work_in_every_context(struct kunit *test)
{
	/* The clock of several emulated processors may lag for once. */
	const u32 most_tries = num_online_cpus() == 1 ? 1 : 3;
	const struct zt_call_context *context;
	struct span own = no_span;
	u32 tries;

	if (!delays_take_time(test))
		return;
	for (tries = 0; tries < 5; tries++)
		try(&own, own_delay, 2400);
	ZT_FOR_EACH_CONTEXT(context) {
		struct visit visit = { .context = context };

		tries = 0;
		do {
			context->run(delay_here, &visit);
		} while (++tries < most_tries && visit.nsecs < own.nsecs / 4);

		KUNIT_EXPECT_TRUE_MSG(test, visit.interrupt, "%s",
				      context->name);
		KUNIT_EXPECT_TRUE_MSG(test, visit.right_context_after, "%s",
				      context->name);
		KUNIT_EXPECT_GE_MSG(test, visit.nsecs, own.nsecs / 4, "%s",
				    context->name);
	}
}

static struct kunit_case cases[] = {
	KUNIT_CASE(a_sleep_below_10_ms_is_exact),
	KUNIT_CASE(a_sleep_from_10_ms_on_takes_ticks_rounded_down),
	KUNIT_CASE(a_sleep_of_a_second_takes_100_ticks),
	KUNIT_CASE(a_sleep_of_0_seconds_returns_at_once),
	KUNIT_CASE(the_product_of_many_seconds_wraps),
	KUNIT_CASE(the_kernel_refuses_too_many_seconds),
	KUNIT_CASE(without_bottom_halves_a_sleep_returns_at_once),
	KUNIT_CASE(in_an_interrupt_a_sleep_returns_at_once),
	KUNIT_CASE(signals_do_not_end_a_sleep_of_ticks),
	KUNIT_CASE(signals_do_not_end_a_sleep_of_seconds),
	KUNIT_CASE(a_signal_from_before_a_sleep_is_discarded),
	KUNIT_CASE(a_kill_does_not_end_a_short_sleep),
	KUNIT_CASE(a_destroyed_thread_ends_in_its_sleep_of_ticks),
	KUNIT_CASE(a_destroyed_thread_ends_in_its_sleep_of_seconds),
	KUNIT_CASE(sigterm_ends_a_thread_in_its_sleep_of_ticks),
	KUNIT_CASE(sigterm_ends_a_thread_in_its_sleep_of_seconds),
	KUNIT_CASE(sigkill_ends_a_thread_in_its_sleep),
	KUNIT_CASE(a_kill_from_before_a_sleep_ends_the_thread),
	KUNIT_CASE(a_killed_thread_of_others_returns_from_its_sleep),
	KUNIT_CASE(a_signal_does_not_end_the_sleep_of_others),
	KUNIT_CASE(a_killed_process_returns_from_its_sleep_of_ticks),
	KUNIT_CASE(a_killed_process_returns_from_its_sleep_of_seconds),
	KUNIT_CASE(a_signal_to_a_process_is_discarded),
	KUNIT_CASE(a_delay_of_microseconds_is_busy),
	KUNIT_CASE(a_delay_of_milliseconds_is_busy),
	KUNIT_CASE(delays_work_in_every_context),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_sleep",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Sleeps and delays of ZORVA");
