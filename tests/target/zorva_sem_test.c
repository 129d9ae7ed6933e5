// SPDX-License-Identifier: GPL-2.0
/*
 * Tracked semaphores: units, time limits, and what becomes of a task that is
 * told to end.
 */
#include <linux/interrupt.h>
#include <linux/module.h>
#include <linux/string.h>

#include "zorva_lock_test.h"

#define COMP ZT_SEM_COMPONENT
#define DETAIL "zorva.sem.detail"

#define CREATED(name)                                                          \
	ZT_REPORT(3, "zorva_sem.cpp", "zorva_sem_create_track",                \
		  "Semaphore '" name "' has been created")
#define DESTROYED(name)                                                        \
	ZT_REPORT(3, "zorva_sem.cpp", "zorva_sem_destroy_track",               \
		  "Semaphore '" name "' has been destroyed")
#define TOLD_TO_END(name)                                                      \
	ZT_REPORT(3, "zorva_thread.cpp", "zorva_thread_destroy_track",         \
		  "Thread '" name "' has been destroyed")
#define ENDED(name)                                                            \
	ZT_REPORT(3, "zorva_thread.cpp", "zorva_thread_exit_track",            \
		  "Thread '" name "' exit")
#define NO_SUCH_THREAD                                                         \
	ZT_ERROR("zorva_thread.cpp", "zorva_thread_exit_track",                \
		 "cannot find target thread. (zorva_sem.cpp, *)")

static zorva_sem_t *create(struct kunit *test, const char *name, u32 count)
{
	zorva_sem_t *sem =
		zorva_sem_create_track(COMP, name, count, "caller.c", 21);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, sem);
	zt_forget_reports();
	return sem;
}

static void destroy(struct kunit *test, zorva_sem_t *sem)
{
	zt_forget_reports();
	KUNIT_EXPECT_EQ(test, zorva_sem_destroy_track(COMP, sem, "caller.c", 2),
			ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, zt_report_count(), 1u);
}

static u32 take(zorva_sem_t *sem, u32 timeout, u32 line)
{
	return zorva_sem_take_track(COMP, sem, timeout, "caller.c", line);
}

static void give(struct kunit *test, zorva_sem_t *sem, u32 line)
{
	KUNIT_EXPECT_EQ(test, zorva_sem_give_track(COMP, sem, "caller.c", line),
			ZORVA_RC_OK);
}

/* Takes all the units there are, and tells how many these were. */
static u32 drain(zorva_sem_t *sem)
{
	u32 units = 0;

	while (units < 1000 && take(sem, ZORVA_NO_WAIT, 99) == ZORVA_RC_OK)
		units++;
	return units;
}

static void creation_and_destruction_are_reported(struct kunit *test)
{
	zorva_sem_t *sem =
		zorva_sem_create_track(COMP, "announced", 1, "caller.c", 1);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, sem);
	ZT_EXPECT_REPORTS(test, CREATED("announced"));

	zt_forget_reports();
	KUNIT_EXPECT_EQ(test, zorva_sem_destroy_track(COMP, sem, "caller.c", 2),
			ZORVA_RC_OK);
	ZT_EXPECT_REPORTS(test, DESTROYED("announced"));
	ZT_EXPECT_NO_USAGE(test, COMP);
}

static void a_destroy_does_not_read_the_file(struct kunit *test)
{
	zorva_sem_t *sem = create(test, "no file", 1);

	KUNIT_EXPECT_EQ(test, zorva_sem_destroy_track(COMP, sem, NULL, 0),
			ZORVA_RC_OK);
	ZT_EXPECT_REPORTS(test, DESTROYED("no file"));
	ZT_EXPECT_NO_USAGE(test, COMP);
}

/* The name that one gets, by the report of its creation and by its own. */
static void expect_name(struct kunit *test, u32 comp, const char *given,
			u32 line, const char *want)
{
	zorva_sem_t *sem;

	zt_forget_reports();
	sem = zorva_sem_create_track(comp, given, 0, "caller.c", line);
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, sem);
	ZT_EXPECT_REPORTS(test, CREATED("%s"), want);

	give(test, sem, 5);
	ZT_EXPECT_TEXT(test, zt_value(test, DETAIL, want, "Name"), "%s", want);
	destroy(test, sem);
}

static void a_null_name_is_made_of_component_and_line(struct kunit *test)
{
	expect_name(test, 9, NULL, 7, "ZORVA-7");
	expect_name(test, COMP, NULL, 0xFFFFFFFF,
		    zt_text(test, "%s-4294967295", _componentName[COMP]));
}

static void a_name_is_cut_to_31_characters(struct kunit *test)
{
	expect_name(test, COMP, "0123456789012345678901234567890", 1,
		    "0123456789012345678901234567890");
	expect_name(test, COMP, "01234567890123456789012345678901", 1,
		    "0123456789012345678901234567890");
	expect_name(test, COMP, "0123456789012345678901234567890123456789", 1,
		    "0123456789012345678901234567890");
	expect_name(test, COMP, "%s%n", 1, "%s%n");
}

static void it_starts_with_its_count(struct kunit *test)
{
	static const u32 counts[] = { 0, 1, 2, 17 };
	const u32 *count;
	zorva_sem_t *sem;

	for (count = counts; count < counts + ARRAY_SIZE(counts); count++) {
		sem = create(test, "counted", *count);
		KUNIT_EXPECT_EQ(test, drain(sem), *count);
		destroy(test, sem);
	}

	sem = create(test, "countless", 0x7FFFFFFF);
	KUNIT_EXPECT_EQ(test, take(sem, ZORVA_NO_WAIT, 1), ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, take(sem, ZORVA_WAIT_FOREVER, 2), ZORVA_RC_OK);
	destroy(test, sem);
}

static void gives_raise_it_past_its_start(struct kunit *test)
{
	zorva_sem_t *sem = create(test, "raised", 2);
	u32 line;

	for (line = 1; line <= 5; line++)
		give(test, sem, line);
	KUNIT_EXPECT_EQ(test, drain(sem), 7u);
	ZT_EXPECT_NO_REPORTS(test);
	destroy(test, sem);
}

static void no_wait_fails_at_once(struct kunit *test)
{
	zorva_sem_t *sem = create(test, "empty", 0);
	const unsigned long start = jiffies;

	KUNIT_EXPECT_EQ(test, take(sem, ZORVA_NO_WAIT, 1), 0xFFFFFFFFu);
	KUNIT_EXPECT_LE(test, jiffies - start, 2ul);

	ZT_EXPECT_TEXT(test, zt_history(test, DETAIL, "empty"),
		       "  [*] Take @caller.c, 1 (0 msec)\n");
	give(test, sem, 2);
	KUNIT_EXPECT_EQ(test, take(sem, ZORVA_NO_WAIT, 3), ZORVA_RC_OK);
	ZT_EXPECT_NO_REPORTS(test);
	destroy(test, sem);
}

/*
 * The board may stand still for a while, but its ticks do not come early. The
 * kernel's own timer may be one late.
 */
static void expect_ticks(struct kunit *test, unsigned long ticks,
			 unsigned long want)
{
	KUNIT_EXPECT_GE(test, ticks, want);
	KUNIT_EXPECT_LE(test, ticks, want + 15);
}

static void a_time_limit_passes(struct kunit *test)
{
	static const struct {
		u32 msecs;
		unsigned long ticks;
	} limits[] = {
		{ 100, 10 }, { 1, 1 }, { 10, 1 }, { 11, 2 }, { 250, 25 }
	};
	zorva_sem_t *sem = create(test, "limited", 0);
	unsigned int i;

	for (i = 0; i < ARRAY_SIZE(limits); i++) {
		const unsigned long start = jiffies;

		KUNIT_EXPECT_EQ(test, take(sem, limits[i].msecs, i + 1),
				0x7000002Au);
		expect_ticks(test, jiffies - start, limits[i].ticks);
	}
	ZT_EXPECT_TEXT(test, zt_history(test, DETAIL, "limited"),
		       "  [*] Take @caller.c, 5 (250 msec)\n"
		       "  [*] Take @caller.c, 4 (11 msec)\n"
		       "  [*] Take @caller.c, 3 (10 msec)\n"
		       "  [*] Take @caller.c, 2 (1 msec)\n"
		       "  [*] Take @caller.c, 1 (100 msec)\n");
	/* None of these took anything. */
	give(test, sem, 6);
	KUNIT_EXPECT_EQ(test, drain(sem), 1u);
	ZT_EXPECT_NO_REPORTS(test);
	destroy(test, sem);
}

static void a_free_unit_is_taken_at_once(struct kunit *test)
{
	static const u32 limits[] = { ZORVA_NO_WAIT, 1, 100, 0xFFFFFFFE,
				      ZORVA_WAIT_FOREVER };
	zorva_sem_t *sem = create(test, "free", 5);
	const unsigned long start = jiffies;
	const u32 *limit;

	for (limit = limits; limit < limits + ARRAY_SIZE(limits); limit++)
		KUNIT_EXPECT_EQ(test, take(sem, *limit, 1), ZORVA_RC_OK);
	KUNIT_EXPECT_LE(test, jiffies - start, 3ul);
	KUNIT_EXPECT_EQ(test, drain(sem), 0u);
	destroy(test, sem);
}

/* Another task, and the call that it makes. */
struct other {
	struct zt_actor actor;
	zorva_sem_t *sem;
	u32 timeout;
	u32 result;
	unsigned long ticks;
};

static struct other other, third;

static void do_take(void *arg)
{
	struct other *task = arg;
	const unsigned long start = jiffies;

	task->result = zorva_sem_take_track(COMP, task->sem, task->timeout,
					    "other.c", 8);
	task->ticks = jiffies - start;
}

static void other_waits(struct kunit *test, struct other *task,
			zorva_sem_t *sem, u32 timeout)
{
	zt_actor_start(test, &task->actor, "zt_other");
	task->sem = sem;
	task->timeout = timeout;
	task->result = 0x5a5a5a5a;
	zt_begin(test, &task->actor, do_take, task);
	zt_expect_blocked(test, &task->actor);
}

static void other_has_one(struct kunit *test, struct other *task)
{
	zt_actor_stop(test, &task->actor);
	KUNIT_EXPECT_EQ(test, task->result, ZORVA_RC_OK);
}

static void a_give_ends_a_wait_before_its_limit(struct kunit *test)
{
	zorva_sem_t *sem = create(test, "in time", 0);

	other_waits(test, &other, sem, 20000);
	msleep(50);
	give(test, sem, 9);
	other_has_one(test, &other);
	KUNIT_EXPECT_GE(test, other.ticks, 5ul);
	KUNIT_EXPECT_LT(test, other.ticks, 500ul);

	ZT_EXPECT_TEXT(test, zt_history(test, DETAIL, "in time"),
		       "  [*] Give @caller.c, 9\n"
		       "  [*] Take @other.c, 8 (20000 msec)\n");
	KUNIT_EXPECT_EQ(test, drain(sem), 0u);
	destroy(test, sem);
}

static void forever_ends_with_a_give_only(struct kunit *test)
{
	zorva_sem_t *sem = create(test, "forever", 0);

	other_waits(test, &other, sem, 0xFFFFFFFF);
	/* This one's limit lies beyond what the test can wait for. */
	other_waits(test, &third, sem, 0xFFFFFFFE);
	msleep(400);
	KUNIT_EXPECT_TRUE(test, zt_is_blocked(zt_task_of(&other.actor)));
	KUNIT_EXPECT_TRUE(test, zt_is_blocked(zt_task_of(&third.actor)));

	/* A unit is for one of them. */
	give(test, sem, 9);
	other_has_one(test, &other);
	KUNIT_EXPECT_TRUE(test, zt_is_blocked(zt_task_of(&third.actor)));
	give(test, sem, 10);
	other_has_one(test, &third);

	ZT_EXPECT_TEXT(test, zt_history(test, DETAIL, "forever"),
		       "  [*] Give @caller.c, 10\n"
		       "  [*] Give @caller.c, 9\n"
		       "  [*] Take @other.c, 8 (4294967294 ms\n"
		       "  [*] Take @other.c, 8 (forever)\n");
	ZT_EXPECT_NO_REPORTS(test);
	destroy(test, sem);
}

static void nine_calls_leave_the_newest_eight(struct kunit *test)
{
	zorva_sem_t *sem = create(test, "ring", 0);
	u32 line;

	for (line = 1; line <= 9; line++)
		if (line % 2)
			give(test, sem, line);
		else
			KUNIT_EXPECT_EQ(test, take(sem, line * 100, line),
					ZORVA_RC_OK);
	ZT_EXPECT_TEXT(test, zt_history(test, DETAIL, "ring"),
		       "  [*] Give @caller.c, 9\n"
		       "  [*] Take @caller.c, 8 (800 msec)\n"
		       "  [*] Give @caller.c, 7\n"
		       "  [*] Take @caller.c, 6 (600 msec)\n"
		       "  [*] Give @caller.c, 5\n"
		       "  [*] Take @caller.c, 4 (400 msec)\n"
		       "  [*] Give @caller.c, 3\n"
		       "  [*] Take @caller.c, 2 (200 msec)\n");
	destroy(test, sem);
}

static void a_file_is_cut_to_15_characters(struct kunit *test)
{
	zorva_sem_t *sem = create(test, "files", 2);

	zorva_sem_take_track(COMP, sem, 0, "a_name_of_15s.c", 1);
	zorva_sem_take_track(COMP, sem, 1, "a_name_of_20_chars.c", 2);
	zorva_sem_give_track(COMP, sem, "a_name_of_16_s.c", 3);
	zorva_sem_give_track(COMP, sem, "", 4);

	ZT_EXPECT_TEXT(test, zt_history(test, DETAIL, "files"),
		       "  [*] Give @, 4\n"
		       "  [*] Give @a_name_of_16_s., 3\n"
		       "  [*] Take @a_name_of_20_ch, 2 (1 msec)\n"
		       "  [*] Take @a_name_of_15s.c, 1 (0 msec)\n");
	destroy(test, sem);
}

static void any_component_and_task_may_use_it(struct kunit *test)
{
	zorva_sem_t *sem = create(test, "common", 0);

	other_waits(test, &other, sem, ZORVA_WAIT_FOREVER);
	KUNIT_EXPECT_EQ(test, zorva_sem_give_track(56, sem, "caller.c", 1),
			ZORVA_RC_OK);
	other_has_one(test, &other);
	KUNIT_EXPECT_EQ(test, zorva_sem_give_track(1, sem, "caller.c", 1),
			ZORVA_RC_OK);
	ZT_EXPECT_TEXT(test, zt_value(test, DETAIL, "common", "Component"),
		       "%s (%u)", _componentName[COMP], COMP);
	ZT_EXPECT_TEXT(test, zt_value(test, DETAIL, "common", "Locker"),
		       "(none)");
	KUNIT_EXPECT_EQ(test, zorva_sem_destroy_track(1, sem, NULL, 0),
			ZORVA_RC_OK);
	ZT_EXPECT_REPORTS(test, DESTROYED("common"));
	ZT_EXPECT_NO_USAGE(test, COMP);
}

static const u32 nobody[] = { 0, 57, 58, 0x80000001, 0xFFFFFFFF };

/* The two checks that a component's ID has to pass. */
static unsigned int place_of(u32 comp)
{
	return comp == 0 ? 0 : 1;
}

static void create_refuses(struct kunit *test)
{
	struct zt_checks checks =
		ZT_CHECKS("zorva_sem.cpp", "zorva_sem_create_track");
	const u32 *comp;

	for (comp = nobody; comp < nobody + ARRAY_SIZE(nobody); comp++) {
		ZT_EXPECT_NULL(test,
			       zorva_sem_create_track(*comp, "x", 1, NULL, 1));
		zt_expect_refused(test, &checks, place_of(*comp));
	}
	ZT_EXPECT_NULL(test, zorva_sem_create_track(COMP, "x", 1, NULL, 1));
	zt_expect_refused(test, &checks, 2);
	ZT_EXPECT_NO_USAGE(test, COMP);
}

static void destroy_refuses(struct kunit *test)
{
	struct zt_checks checks =
		ZT_CHECKS("zorva_sem.cpp", "zorva_sem_destroy_track");
	zorva_sem_t *sem = create(test, "kept", 1);
	const u32 *comp;

	for (comp = nobody; comp < nobody + ARRAY_SIZE(nobody); comp++) {
		KUNIT_EXPECT_EQ(test,
				zorva_sem_destroy_track(*comp, sem, NULL, 1),
				ZORVA_RC_BAD_COMPONENT);
		zt_expect_refused(test, &checks, place_of(*comp));
	}
	KUNIT_EXPECT_EQ(test, zorva_sem_destroy_track(COMP, NULL, NULL, 1),
			ZORVA_RC_NULL_ARG);
	zt_expect_refused(test, &checks, 2);
	KUNIT_EXPECT_EQ(test, drain(sem), 1u);
	destroy(test, sem);
}

static void take_refuses(struct kunit *test)
{
	struct zt_checks checks =
		ZT_CHECKS("zorva_sem.cpp", "zorva_sem_take_track");
	zorva_sem_t *sem = create(test, "not taken", 1);
	const u32 *comp;

	for (comp = nobody; comp < nobody + ARRAY_SIZE(nobody); comp++) {
		KUNIT_EXPECT_EQ(test,
				zorva_sem_take_track(*comp, NULL, 0, NULL, 1),
				ZORVA_RC_BAD_COMPONENT);
		zt_expect_refused(test, &checks, place_of(*comp));
		KUNIT_EXPECT_EQ(test,
				zorva_sem_take_track(*comp, sem, 0, "x.c", 1),
				ZORVA_RC_BAD_COMPONENT);
		zt_expect_refused(test, &checks, place_of(*comp));
	}
	KUNIT_EXPECT_EQ(test, zorva_sem_take_track(COMP, NULL, 0, NULL, 1),
			ZORVA_RC_NULL_ARG);
	zt_expect_refused(test, &checks, 2);
	KUNIT_EXPECT_EQ(test, zorva_sem_take_track(COMP, sem, 0, NULL, 1),
			ZORVA_RC_NULL_ARG);
	zt_expect_refused(test, &checks, 3);

	ZT_EXPECT_TEXT(test, zt_lock(test, DETAIL, "not taken"), "%s", "");
	KUNIT_EXPECT_EQ(test, drain(sem), 1u);
	destroy(test, sem);
}

static void give_refuses(struct kunit *test)
{
	struct zt_checks checks =
		ZT_CHECKS("zorva_sem.cpp", "zorva_sem_give_track");
	zorva_sem_t *sem = create(test, "not given", 1);
	const u32 *comp;

	for (comp = nobody; comp < nobody + ARRAY_SIZE(nobody); comp++) {
		KUNIT_EXPECT_EQ(test,
				zorva_sem_give_track(*comp, NULL, NULL, 1),
				ZORVA_RC_BAD_COMPONENT);
		zt_expect_refused(test, &checks, place_of(*comp));
		KUNIT_EXPECT_EQ(test,
				zorva_sem_give_track(*comp, sem, "x.c", 1),
				ZORVA_RC_BAD_COMPONENT);
		zt_expect_refused(test, &checks, place_of(*comp));
	}
	KUNIT_EXPECT_EQ(test, zorva_sem_give_track(COMP, NULL, NULL, 1),
			ZORVA_RC_NULL_ARG);
	zt_expect_refused(test, &checks, 2);
	KUNIT_EXPECT_EQ(test, zorva_sem_give_track(COMP, sem, NULL, 1),
			ZORVA_RC_NULL_ARG);
	zt_expect_refused(test, &checks, 3);

	ZT_EXPECT_TEXT(test, zt_lock(test, DETAIL, "not given"), "%s", "");
	KUNIT_EXPECT_EQ(test, drain(sem), 1u);
	destroy(test, sem);
}

static void a_create_without_memory_leaves_nothing(struct kunit *test)
{
	zorva_sem_t *sem;
	unsigned int n, failed = 0;

	for (n = 1;; n++) {
		zt_forget_reports();
		zt_mark_log();
		zt_fail_allocation(n);
		sem = zorva_sem_create_track(COMP, "scarce", 1, "caller.c", 1);
		if (!zt_end_failing())
			break;
		failed++;
		ZT_EXPECT_NULL(test, sem);
		/* The allocator's own report is all there is. */
		KUNIT_EXPECT_EQ(test, zt_report_count(), 1u);
		KUNIT_EXPECT_EQ(test, zt_report(test, 0)->level, 1u);
		ZT_EXPECT_TEXT(test, zt_report(test, 0)->func,
			       "zorva_malloc_track");
		KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 1u);
		ZT_EXPECT_NO_USAGE(test, COMP);
		ZT_EXPECT_NULL(test, strstr(zt_file(test, DETAIL), "Index"));
	}
	KUNIT_EXPECT_EQ(test, failed, 1u);
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, sem);
	ZT_EXPECT_REPORTS(test, CREATED("scarce"));
	destroy(test, sem);
}

static void takes_and_gives_allocate_nothing(struct kunit *test)
{
	zorva_sem_t *sem = create(test, "frugal", 1);

	zt_fail_allocation(1);
	KUNIT_EXPECT_EQ(test, take(sem, ZORVA_WAIT_FOREVER, 1), ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, take(sem, 1, 1), ZORVA_RC_TIMEOUT);
	KUNIT_EXPECT_EQ(test, take(sem, ZORVA_NO_WAIT, 1), ZORVA_RC_FAIL);
	give(test, sem, 2);
	KUNIT_EXPECT_EQ(test, zorva_sem_destroy_track(COMP, sem, "x.c", 2),
			ZORVA_RC_OK);
	KUNIT_EXPECT_FALSE(test, zt_end_failing());
	ZT_EXPECT_REPORTS(test, DESTROYED("frugal"));
}

/*
 * A thread that is told to end before, or while, it does something with a
 * semaphore.
 */
struct doomed {
	struct zt_thread thread;
	zorva_sem_t *sem;
	u32 timeout;
	bool returned;
	u32 result;
};

static struct doomed doomed;

static void wait_for_a_kill(void)
{
	while (!fatal_signal_pending(current))
		schedule_timeout_uninterruptible(1);
}

static void take_here(void *arg)
{
	struct doomed *thread = arg;

	thread->result = zorva_sem_take_track(COMP, thread->sem,
					      thread->timeout, "doomed.c", 1);
	WRITE_ONCE(thread->returned, true);
}

static void take_when_killed(void *arg)
{
	wait_for_a_kill();
	take_here(arg);
}

static void give_when_killed(void *arg)
{
	struct doomed *thread = arg;

	wait_for_a_kill();
	thread->result = zorva_sem_give_track(COMP, thread->sem, "doomed.c", 2);
	WRITE_ONCE(thread->returned, true);
}

static void start(struct kunit *test, void (*body)(void *arg), zorva_sem_t *sem,
		  u32 timeout)
{
	doomed.sem = sem;
	doomed.timeout = timeout;
	doomed.returned = false;
	zt_thread_start(test, &doomed.thread, COMP, "doomed", 128, body,
			&doomed);
	zt_forget_reports();
}

static void kill(struct kunit *test)
{
	KUNIT_EXPECT_EQ(test,
			zorva_thread_destroy_track(COMP, doomed.thread.pid,
						   "caller.c", 3),
			ZORVA_RC_OK);
}

/* It has ended within its call, with everything reported. */
static void expect_ended(struct kunit *test)
{
	KUNIT_EXPECT_EQ(test, zt_thread_end(test, &doomed.thread), 1);
	KUNIT_EXPECT_FALSE(test, doomed.returned);
	ZT_EXPECT_REPORTS_OF_TWO(test, TOLD_TO_END("doomed"), ENDED("doomed"));
	ZT_EXPECT_FILE(test, "zorva.thread", "%s", "");
}

static void a_killed_thread_waits_on_for_its_unit(struct kunit *test)
{
	zorva_sem_t *sem = create(test, "last unit", 0);

	start(test, take_here, sem, ZORVA_WAIT_FOREVER);
	ZT_WAIT_FOR(test, zt_is_blocked(doomed.thread.task));
	kill(test);
	msleep(300);
	KUNIT_EXPECT_TRUE(test, zt_is_blocked(doomed.thread.task));
	ZT_EXPECT_REPORTS(test, TOLD_TO_END("doomed"));

	/* It gets the unit, puts it back and ends. */
	give(test, sem, 9);
	expect_ended(test);
	ZT_EXPECT_TEXT(test, zt_history(test, DETAIL, "last unit"),
		       "  [*] Give @zorva_sem.cpp, *\n"
		       "  [*] Give @caller.c, 9\n"
		       "  [*] Take @doomed.c, 1 (forever)\n");
	KUNIT_EXPECT_EQ(test, drain(sem), 1u);
	destroy(test, sem);
}

static void a_killed_thread_waits_on_for_its_limit(struct kunit *test)
{
	zorva_sem_t *sem = create(test, "limit", 0);
	const unsigned long began = jiffies;

	start(test, take_here, sem, 300);
	ZT_WAIT_FOR(test, zt_is_blocked(doomed.thread.task));
	kill(test);

	/* It has taken nothing, and gives one all the same. */
	ZT_WAIT_FOR(test, zt_is_gone(&doomed.thread));
	expect_ticks(test, jiffies - began, 30);
	expect_ended(test);
	ZT_EXPECT_TEXT(test, zt_history(test, DETAIL, "limit"),
		       "  [*] Give @zorva_sem.cpp, *\n"
		       "  [*] Take @doomed.c, 1 (300 msec)\n");
	KUNIT_EXPECT_EQ(test, drain(sem), 1u);
	destroy(test, sem);
}

static void a_killed_thread_ends_in_its_next_take(struct kunit *test)
{
	static const struct {
		u32 count, timeout, left;
	} cases[] = {
		{ 3, ZORVA_WAIT_FOREVER, 3 },
		{ 3, ZORVA_NO_WAIT, 3 },
		{ 3, 1000, 3 },
		{ 0, ZORVA_NO_WAIT, 1 },
		{ 0, 20, 1 },
	};
	unsigned int i;

	for (i = 0; i < ARRAY_SIZE(cases); i++) {
		zorva_sem_t *sem = create(test, "next take", cases[i].count);

		start(test, take_when_killed, sem, cases[i].timeout);
		kill(test);
		expect_ended(test);
		KUNIT_EXPECT_EQ(test, drain(sem), cases[i].left);
		destroy(test, sem);
	}
}

static void a_killed_threads_give_counts_twice(struct kunit *test)
{
	zorva_sem_t *sem = create(test, "two units", 0);

	start(test, give_when_killed, sem, 0);
	kill(test);
	expect_ended(test);

	ZT_EXPECT_TEXT(test, zt_history(test, DETAIL, "two units"),
		       "  [*] Give @zorva_sem.cpp, *\n"
		       "  [*] Give @doomed.c, 2\n");
	KUNIT_EXPECT_EQ(test, drain(sem), 2u);
	destroy(test, sem);
}

static void take_and_give_after_a_signal(void *arg)
{
	while (!signal_pending(current))
		schedule_timeout_uninterruptible(1);
	take_here(arg);
	doomed.result |= zorva_sem_give_track(COMP, doomed.sem, "doomed.c", 2);
}

static void sigterm_does_not_end_a_thread_here(struct kunit *test)
{
	zorva_sem_t *sem = create(test, "terminated", 1);

	start(test, take_and_give_after_a_signal, sem, ZORVA_WAIT_FOREVER);
	kill_pid(task_pid(doomed.thread.task), SIGTERM, 1);

	KUNIT_EXPECT_EQ(test, zt_thread_end(test, &doomed.thread), 0);
	KUNIT_EXPECT_TRUE(test, doomed.returned);
	KUNIT_EXPECT_EQ(test, doomed.result, ZORVA_RC_OK);
	ZT_EXPECT_REPORTS(test, ENDED("doomed"));
	KUNIT_EXPECT_EQ(test, drain(sem), 1u);
	destroy(test, sem);
}

/* A task that zorva does not know, with a fatal signal pending. */
struct stranger {
	struct zt_actor actor;
	zorva_sem_t *sem;
	bool fatal;
	u32 take_result;
	bool pending_after_take;
	bool fatal_again;
	u32 give_result;
	bool pending_after_give;
};

static struct stranger stranger;

static void take_and_be_killed_twice(void *arg)
{
	struct stranger *task = arg;

	kernel_sigaction(SIGKILL, SIG_DFL);
	kill_pid(task_pid(current), SIGKILL, 1);
	task->fatal = fatal_signal_pending(current);
	task->take_result =
		zorva_sem_take_track(COMP, task->sem, 5, "stranger.c", 1);
	task->pending_after_take = signal_pending(current);

	kill_pid(task_pid(current), SIGKILL, 1);
	task->fatal_again = fatal_signal_pending(current);
	task->give_result =
		zorva_sem_give_track(COMP, task->sem, "stranger.c", 2);
	task->pending_after_give = signal_pending(current);
	flush_signals(current);
}

#define TOLD_ONCE                                                              \
	NO_SUCH_THREAD ZT_ERROR("zorva_sem.cpp", "zorva_sem_take_track",       \
				"error 0x7000000e")

/* The second kill was fatal as well: the give does what the take did. */
static void expect_told_twice(struct kunit *test, zorva_sem_t *sem)
{
	ZT_EXPECT_TEXT(test, zt_masked(test, zt_reports(test)),
		       TOLD_ONCE NO_SUCH_THREAD);
	KUNIT_EXPECT_TRUE(test, stranger.fatal_again);
	KUNIT_EXPECT_EQ(test, stranger.give_result, ZORVA_RC_OK);
	KUNIT_EXPECT_FALSE(test, stranger.pending_after_give);
	KUNIT_EXPECT_EQ(test, drain(sem), 3u);
	zt_actor_stop(test, &stranger.actor);
	destroy(test, sem);
}

static void a_killed_task_that_is_no_thread_goes_on(struct kunit *test)
{
	zorva_sem_t *sem = create(test, "stranger", 0);

	stranger.sem = sem;
	zt_actor_start(test, &stranger.actor, "zt_stranger");
	zt_do(test, &stranger.actor, take_and_be_killed_twice, &stranger);

	/* The signal is gone, a unit was given, and the task is told. */
	KUNIT_EXPECT_TRUE(test, stranger.fatal);
	KUNIT_EXPECT_EQ(test, stranger.take_result, 0x7000000Eu);
	KUNIT_EXPECT_FALSE(test, stranger.pending_after_take);
	if (ZT_SECOND_KILL_IS_FATAL) {
		expect_told_twice(test, sem);
		return;
	}
	ZT_EXPECT_TEXT(test, zt_masked(test, zt_reports(test)), TOLD_ONCE);
	/* A second one is never fatal again, so the give counts once. */
	KUNIT_EXPECT_FALSE(test, stranger.fatal_again);
	KUNIT_EXPECT_EQ(test, stranger.give_result, ZORVA_RC_OK);
	KUNIT_EXPECT_TRUE(test, stranger.pending_after_give);
	ZT_EXPECT_TEXT(test, zt_history(test, DETAIL, "stranger"),
		       "  [*] Give @stranger.c, 2\n"
		       "  [*] Give @zorva_sem.cpp, *\n"
		       "  [*] Take @stranger.c, 1 (5 msec)\n");
	KUNIT_EXPECT_EQ(test, drain(sem), 2u);
	zt_actor_stop(test, &stranger.actor);
	destroy(test, sem);
}

static void be_killed_and_give(void *arg)
{
	struct stranger *task = arg;

	kernel_sigaction(SIGKILL, SIG_DFL);
	kill_pid(task_pid(current), SIGKILL, 1);
	task->fatal = fatal_signal_pending(current);
	task->give_result =
		zorva_sem_give_track(COMP, task->sem, "stranger.c", 2);
	task->pending_after_give = signal_pending(current);
}

static void its_give_counts_twice_as_well(struct kunit *test)
{
	zorva_sem_t *sem = create(test, "stranger", 0);

	stranger.sem = sem;
	zt_actor_start(test, &stranger.actor, "zt_stranger");
	zt_do(test, &stranger.actor, be_killed_and_give, &stranger);

	KUNIT_EXPECT_TRUE(test, stranger.fatal);
	KUNIT_EXPECT_EQ(test, stranger.give_result, ZORVA_RC_OK);
	KUNIT_EXPECT_FALSE(test, stranger.pending_after_give);
	/* What the end of the thread answered is not looked at. */
	ZT_EXPECT_TEXT(test, zt_masked(test, zt_reports(test)), NO_SUCH_THREAD);
	ZT_EXPECT_TEXT(test, zt_history(test, DETAIL, "stranger"),
		       "  [*] Give @zorva_sem.cpp, *\n"
		       "  [*] Give @stranger.c, 2\n");
	KUNIT_EXPECT_EQ(test, drain(sem), 2u);
	zt_actor_stop(test, &stranger.actor);
	destroy(test, sem);
}

#define WARNING "[ZORVA] zorva_sem_take_track - in_interrupt.(caller.c, 12)\n"

/* What a semaphore with a free unit went through there. */
struct visit {
	zorva_sem_t *sem;
	bool in_interrupt;
	u32 took;
	u32 gave;
};

static void take_and_give_here(void *arg)
{
	struct visit *visit = arg;

	visit->in_interrupt = in_interrupt();
	visit->took = take(visit->sem, ZORVA_WAIT_FOREVER, 12);
	visit->gave = zorva_sem_give_track(COMP, visit->sem, "caller.c", 13);
}

static void run_with_bottom_halves_off(void (*fn)(void *arg), void *arg)
{
	local_bh_disable();
	fn(arg);
	local_bh_enable();
}

/* Take warns, on a line of its own and with a stack; give does not. */
static void an_interrupt_is_warned_and_not_refused(struct kunit *test)
{
	const struct zt_call_context bottom_halves_off = {
		.name = "bottom halves off",
		.run = run_with_bottom_halves_off,
	};
	const struct zt_call_context *context = &bottom_halves_off;
	unsigned int warned = 0, i;

	if (ZT_KERNEL_WATCHES)
		return;

	for (i = 0; i <= zt_context_count; i++) {
		struct visit visit = {
			.sem = create(test, "in interrupt", 1),
		};
		const char *log;

		zt_mark_log();
		context->run(take_and_give_here, &visit);

		KUNIT_EXPECT_EQ(test, visit.took, ZORVA_RC_OK);
		KUNIT_EXPECT_EQ(test, visit.gave, ZORVA_RC_OK);
		KUNIT_EXPECT_EQ(test, drain(visit.sem), 1u);
		log = zt_log(test);
		if (visit.in_interrupt) {
			KUNIT_EXPECT_EQ_MSG(test, zt_stack_dumps(), 1u, "%s",
					    context->name);
			KUNIT_EXPECT_EQ_MSG(test,
					    strncmp(log, WARNING,
						    strlen(WARNING)),
					    0, "%s: %s", context->name, log);
			ZT_EXPECT_NULL(test, strstr(log + 1, "[ZORVA]"));
			warned++;
		} else {
			ZT_EXPECT_TEXT(test, log, "%s", "");
		}
		ZT_EXPECT_NO_REPORTS(test);
		destroy(test, visit.sem);

		context = zt_contexts + i;
	}
	/* Timers of both kinds, the tasklet, and the first. */
	KUNIT_EXPECT_EQ(test, warned, 4u);
}

static struct kunit_case cases[] = {
	KUNIT_CASE(creation_and_destruction_are_reported),
	KUNIT_CASE(a_destroy_does_not_read_the_file),
	KUNIT_CASE(a_null_name_is_made_of_component_and_line),
	KUNIT_CASE(a_name_is_cut_to_31_characters),
	KUNIT_CASE(it_starts_with_its_count),
	KUNIT_CASE(gives_raise_it_past_its_start),
	KUNIT_CASE(no_wait_fails_at_once),
	KUNIT_CASE(a_time_limit_passes),
	KUNIT_CASE(a_free_unit_is_taken_at_once),
	KUNIT_CASE(a_give_ends_a_wait_before_its_limit),
	KUNIT_CASE(forever_ends_with_a_give_only),
	KUNIT_CASE(nine_calls_leave_the_newest_eight),
	KUNIT_CASE(a_file_is_cut_to_15_characters),
	KUNIT_CASE(any_component_and_task_may_use_it),
	KUNIT_CASE(create_refuses),
	KUNIT_CASE(destroy_refuses),
	KUNIT_CASE(take_refuses),
	KUNIT_CASE(give_refuses),
	KUNIT_CASE(a_create_without_memory_leaves_nothing),
	KUNIT_CASE(takes_and_gives_allocate_nothing),
	KUNIT_CASE(a_killed_thread_waits_on_for_its_unit),
	KUNIT_CASE(a_killed_thread_waits_on_for_its_limit),
	KUNIT_CASE(a_killed_thread_ends_in_its_next_take),
	KUNIT_CASE(a_killed_threads_give_counts_twice),
	KUNIT_CASE(sigterm_does_not_end_a_thread_here),
	KUNIT_CASE(a_killed_task_that_is_no_thread_goes_on),
	KUNIT_CASE(its_give_counts_twice_as_well),
	KUNIT_CASE(an_interrupt_is_warned_and_not_refused),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_sem",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Tracked semaphores of ZORVA");
