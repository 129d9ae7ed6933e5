// SPDX-License-Identifier: GPL-2.0
/*
 * High-resolution timers: the cases of both kinds, their nanoseconds, and the
 * places without a timer that only they have.
 */
#include "zorva_timer_test.h"

static bool in_right_context(void)
{
	return in_hardirq() && irqs_disabled();
}

#define KIND zt_hrt
#include "zorva_timer_cases.h"

/* Tick timers were made before, and started with IDs of their own. */
static void there_is_a_list_of_tick_timers_only(struct kunit *test)
{
	u32 last;

	KUNIT_EXPECT_GT(test, zt_rows(zt_file(test, "zorva.timer"), &last), 0u);
	KUNIT_EXPECT_GE(test, last, 2u);
	ZT_EXPECT_FILE(test, "zorva.hrt", "%s", ZT_TIMER_HEAD);
}

static void an_id_may_name_one_timer_of_each_kind(struct kunit *test)
{
	struct pooled *const timer = take(test, 0);
	const char *const ticks = zt_file(test, "zorva.timer");
	const char *const hrts = zt_file(test, "zorva.hrt");
	const u32 id = 1;

	KUNIT_ASSERT_EQ(test, timer->id, id);

	/* One of them runs, the other does not. */
	KUNIT_EXPECT_EQ(test, start(timer, LONG_MSECS), ZORVA_RC_OK);
	ZT_EXPECT_FILE(test, "zorva.timer", "%s", ticks);
	KUNIT_EXPECT_EQ(test, zorva_timer_stop(CALLER, &id), ZORVA_RC_OK);
	expect_started(test, timer, LONG_MSECS, "start.c", 20);
	KUNIT_EXPECT_EQ(test, stop(timer), ZORVA_RC_OK);

	KUNIT_EXPECT_EQ(test, zorva_timer_start(CALLER, &id, LONG_MSECS),
			ZORVA_RC_OK);
	ZT_EXPECT_FILE(test, "zorva.hrt", "%s", hrts);
	KUNIT_EXPECT_EQ(test, stop(timer), ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, zorva_timer_start(CALLER, &id, LONG_MSECS),
			ZORVA_RC_FAIL);
	KUNIT_EXPECT_EQ(test, zorva_timer_stop(CALLER, &id), ZORVA_RC_OK);
	ZT_EXPECT_FILE(test, "zorva.timer", "%s", ticks);
}

/* The expiry lies a whole period behind a moment within the call. */
static void expect_nanoseconds(struct kunit *test, u32 msecs, u64 nsecs)
{
	struct pooled *const timer = take(test, 0);
	const struct zt_hrt_record *const record = timer->record;
	unsigned long flags;
	u64 before, after, expiry, soft;
	u32 result;

	local_irq_save(flags);
	before = ktime_get_ns();
	result = start(timer, msecs);
	after = ktime_get_ns();
	expiry = hrtimer_get_expires(&record->timer);
	soft = hrtimer_get_softexpires(&record->timer);
	local_irq_restore(flags);

	KUNIT_EXPECT_EQ(test, result, ZORVA_RC_OK);
	KUNIT_EXPECT_GE_MSG(test, expiry - nsecs, before, "%u ms", msecs);
	KUNIT_EXPECT_LE_MSG(test, expiry - nsecs, after, "%u ms", msecs);
	KUNIT_EXPECT_EQ(test, soft, expiry);
	KUNIT_EXPECT_EQ(test, stop(timer), ZORVA_RC_OK);
}

static void milliseconds_become_nanoseconds(struct kunit *test)
{
	expect_nanoseconds(test, 1, 1000000);
	expect_nanoseconds(test, 5, 5000000);
	expect_nanoseconds(test, 1000, 1000000000);
	expect_nanoseconds(test, 4294, 4294000000ull);
	expect_nanoseconds(test, 4295, 4295000000ull);
}

static void the_longest_period_does_not_wrap(struct kunit *test)
{
	expect_nanoseconds(test, 0x80000000, 2147483648000000ull);
	expect_nanoseconds(test, 0xFFFFFFFF, 4294967295000000ull);
}

/* A timer of the kernel's own that looks at one of the pool's. */
struct witness {
	struct hrtimer timer;
	struct pooled *pooled;
	unsigned int expiries;
	bool done;
};

static enum hrtimer_restart witness_expired(struct hrtimer *timer)
{
	struct witness *witness = container_of(timer, struct witness, timer);

	witness->expiries = witness->pooled->expiries;
	witness->done = true;
	return HRTIMER_NORESTART;
}

static void set_witness(struct witness *witness, struct pooled *pooled)
{
	memset(witness, 0, sizeof(*witness));
	witness->pooled = pooled;
	hrtimer_setup_on_stack(&witness->timer, witness_expired,
			       CLOCK_MONOTONIC, HRTIMER_MODE_ABS);
}

/* Exactly between the nanosecond before its expiry and the one after it. */
static void a_timer_expires_at_its_nanosecond(struct kunit *test)
{
	static const u32 periods[] = { 1, 7, 40 };
	struct witness earlier, later;
	u32 i, result;

	for (i = 0; i < ARRAY_SIZE(periods); i++) {
		struct pooled *const timer = take(test, 0);
		unsigned long flags;
		u64 expiry;

		set_witness(&earlier, timer);
		set_witness(&later, timer);
		local_irq_save(flags);
		result = start(timer, periods[i]);
		expiry = zt_hrt_expiry(timer->record);
		hrtimer_start(&earlier.timer, ns_to_ktime(expiry - 1),
			      HRTIMER_MODE_ABS);
		hrtimer_start(&later.timer, ns_to_ktime(expiry + 1),
			      HRTIMER_MODE_ABS);
		local_irq_restore(flags);
		ZT_WAIT_FOR(test, earlier.done && later.done, 1000);
		hrtimer_cancel(&earlier.timer);
		hrtimer_cancel(&later.timer);
		destroy_hrtimer_on_stack(&earlier.timer);
		destroy_hrtimer_on_stack(&later.timer);

		KUNIT_EXPECT_EQ(test, result, ZORVA_RC_OK);
		KUNIT_EXPECT_EQ(test, earlier.expiries, 0u);
		KUNIT_EXPECT_EQ(test, later.expiries, 1u);
		KUNIT_EXPECT_EQ(test, timer->expiries, 1u);
		KUNIT_EXPECT_GE(test, timer->time, expiry);
		KUNIT_EXPECT_TRUE(test, timer->right_context);
	}
}

/* An empty place takes part in the count, and is neither shown nor found. */
static void without_memory_for_a_timer_its_place_is_lost(struct kunit *test)
{
	const char *const report = zt_file(test, KIND.report);
	const u32 count = list ? list->count : 0;
	u32 id = POISON, result;

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, list);
	zt_fail_allocation(2);
	result = KIND.init(OWNER, &id, pooled_expired, 0, "a.c", 1);
	KUNIT_ASSERT_TRUE(test, zt_end_failing());
	zt_made(ZT_NODE_SIZE, 1);

	KUNIT_EXPECT_EQ(test, result, 0xFFFFFFFFu);
	KUNIT_EXPECT_EQ(test, id, POISON);
	KUNIT_EXPECT_EQ(test, list->count, count + 1);
	KUNIT_ASSERT_EQ(test, zt_report_count(), 1u);
	zt_expect_no_memory(test, 0, sizeof(struct zt_hrt_record),
			    "zorva_timer.cpp");

	/* What comes after it has the next ID, and is found and shown. */
	make(test, OTHER, pooled_expired, 77, &id);
	KUNIT_EXPECT_EQ(test, KIND.start(CALLER, &id, LONG_MSECS, "a.c", 1),
			ZORVA_RC_OK);
	ZT_EXPECT_FILE(test, KIND.report, "%s%s", report,
		       zt_running_row(test, OTHER, id, 77, LONG_MSECS, "a.c",
				      1));
	KUNIT_EXPECT_EQ(test, KIND.stop(CALLER, &id, "a.c", 1), ZORVA_RC_OK);
}

static void an_empty_place_that_cannot_be_added_is_freed(struct kunit *test)
{
	const char *const report = zt_file(test, KIND.report);
	const u32 count = list ? list->count : 0;
	u32 id = POISON, result;

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, list);
	zt_fail_allocation(2);
	ZT_WITH_WORD(list->magic, 0u,
		     result = KIND.init(OWNER, &id, pooled_expired, 0, "a.c",
					1));
	KUNIT_ASSERT_TRUE(test, zt_end_failing());

	KUNIT_EXPECT_EQ(test, result, 0x70000015u);
	KUNIT_EXPECT_EQ(test, id, POISON);
	KUNIT_EXPECT_EQ(test, list->count, count);
	KUNIT_ASSERT_EQ(test, zt_report_count(), 2u);
	zt_expect_no_memory(test, 0, sizeof(struct zt_hrt_record),
			    "zorva_timer.cpp");
	KUNIT_EXPECT_STREQ(test, (const char *)zt_report(test, 1)->text,
			   "Add timer node failed.");
	ZT_EXPECT_FILE(test, KIND.report, "%s", report);
}

static void
a_record_has_the_owners_data_and_a_monotonic_timer(struct kunit *test)
{
	const struct pooled *const timer = take(test, 1);
	const struct zt_hrt_record *const record = timer->record;

	KUNIT_EXPECT_EQ(test, record->comp, (u32)OWNER);
	KUNIT_EXPECT_EQ(test, record->id, timer->id);
	KUNIT_EXPECT_TRUE(test, record->callback == pooled_expired);
	KUNIT_EXPECT_EQ(test, record->started.data, 1u);
	KUNIT_EXPECT_EQ(test, (int)record->timer.base->clockid,
			CLOCK_MONOTONIC);
	KUNIT_EXPECT_EQ(test, zt_block_of(timer->record)->comp,
			ZORVA_COMPONENT_SELF);
	KUNIT_EXPECT_STREQ(test, (const char *)zt_block_of(timer->record)->file,
			   "zorva_timer.cp");
}

static struct kunit_case cases[] = {
	KUNIT_CASE(there_is_a_list_of_tick_timers_only),
	CASES_BEFORE_THE_FIRST_TIMER,
	CASES_OF_BOTH_KINDS,
	KUNIT_CASE(an_id_may_name_one_timer_of_each_kind),
	KUNIT_CASE(milliseconds_become_nanoseconds),
	KUNIT_CASE(the_longest_period_does_not_wrap),
	KUNIT_CASE(a_timer_expires_at_its_nanosecond),
	KUNIT_CASE(without_memory_for_a_timer_its_place_is_lost),
	KUNIT_CASE(an_empty_place_that_cannot_be_added_is_freed),
	KUNIT_CASE(a_record_has_the_owners_data_and_a_monotonic_timer),
	KUNIT_CASE(the_suites_that_follow_have_timers_left),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_hrt",
	.init = zt_timers_init,
	.exit = zt_timers_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("High-resolution timers of ZORVA");
