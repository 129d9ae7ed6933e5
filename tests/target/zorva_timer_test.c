// SPDX-License-Identifier: GPL-2.0
/*
 * Tick timers: the cases of both kinds, and the arithmetic of ticks, which is
 * looked at where it ends up: in the kernel's timer.
 */
#include <linux/interrupt.h>

#include "zorva_timer_test.h"

static bool in_right_context(void)
{
	return in_serving_softirq() && !in_hardirq() && !irqs_disabled();
}

#define KIND zt_tick
#include "zorva_timer_cases.h"

/*
 * No tick comes between two readings while interrupts are off, but on another
 * processor: then they are made again.
 */
static u32 ticks_to_expiry(struct pooled *timer, u32 msecs, u32 *result)
{
	const struct zt_tick_record *const record = timer->record;
	unsigned long flags, before;
	bool ticked;
	u32 ticks;

	do {
		local_irq_save(flags);
		before = jiffies;
		*result = start(timer, msecs);
		ticks = record->timer.expires - before;
		ticked = jiffies != before;
		if (ticked)
			stop(timer);
		local_irq_restore(flags);
	} while (ticked);
	return ticks;
}

static void expect_ticks(struct kunit *test, u32 msecs, u32 ticks)
{
	struct pooled *const timer = take(test, 0);
	u32 result;

	KUNIT_EXPECT_EQ_MSG(test, ticks_to_expiry(timer, msecs, &result), ticks,
			    "%u ms", msecs);
	KUNIT_EXPECT_EQ(test, result, ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, stop(timer), ZORVA_RC_OK);
}

static void below_10_ms_a_timer_expires_at_this_tick(struct kunit *test)
{
	expect_ticks(test, 1, 0);
	expect_ticks(test, 5, 0);
	expect_ticks(test, 9, 0);
}

static void milliseconds_become_ticks_rounded_down(struct kunit *test)
{
	expect_ticks(test, 10, 1);
	expect_ticks(test, 15, 1);
	expect_ticks(test, 19, 1);
	expect_ticks(test, 20, 2);
	expect_ticks(test, 999, 99);
	expect_ticks(test, 1000, 100);
	expect_ticks(test, 40000000, 4000000);
}

static void the_product_of_a_long_period_wraps(struct kunit *test)
{
	expect_ticks(test, 42949672, 4294967);
	expect_ticks(test, 42949673, 0);
	expect_ticks(test, 42949683, 1);
	expect_ticks(test, 85899346, 0);
	expect_ticks(test, 0x80000000, 0);
	expect_ticks(test, 0xFFFFFFFF, 4294967);
}

static void a_period_that_wrapped_to_nothing_expires_at_once(struct kunit *test)
{
	struct pooled *const timer = take(test, 0);

	KUNIT_EXPECT_EQ(test, start(timer, 42949673), ZORVA_RC_OK);
	ZT_WAIT_FOR(test, timer->expiries, 500);
}

/* A timer of the kernel's own, which expires at the same tick. */
struct witness {
	struct timer_list timer;
	unsigned long jiffies;
	bool done;
};

static void witness_expired(struct timer_list *timer)
{
	struct witness *witness = container_of(timer, struct witness, timer);

	witness->jiffies = jiffies;
	witness->done = true;
}

/* As exact as the kernel's own: that one may be late, but never early. */
static void a_timer_expires_with_the_kernels_own(struct kunit *test)
{
	static const u32 periods[] = { 5, 15, 40, 150 };
	u32 i, result;

	for (i = 0; i < ARRAY_SIZE(periods); i++) {
		struct pooled *const timer = take(test, 0);
		struct zt_tick_record *const record = timer->record;
		struct witness witness = {};
		unsigned long flags, expiry;

		timer_setup_on_stack(&witness.timer, witness_expired, 0);
		local_irq_save(flags);
		result = start(timer, periods[i]);
		expiry = record->timer.expires;
		witness.timer.expires = expiry;
		add_timer(&witness.timer);
		local_irq_restore(flags);
		ZT_WAIT_FOR(test, witness.done && timer->expiries, 1000);
		timer_destroy_on_stack(&witness.timer);

		KUNIT_EXPECT_EQ(test, result, ZORVA_RC_OK);
		KUNIT_EXPECT_EQ(test, timer->expiries, 1u);
		KUNIT_EXPECT_GE(test, (long)(timer->jiffies - expiry), 0l);
		KUNIT_EXPECT_LE_MSG(test,
				    abs((long)(timer->jiffies -
					       witness.jiffies)),
				    1l, "%u ms", periods[i]);
		KUNIT_EXPECT_TRUE(test, timer->right_context);
	}
}

/*
 * What an interrupt can do that starts a timer again after the kernel has taken
 * it for expired, and before its expiry is marked.
 */
static void a_timer_left_pending_is_armed_anew(struct kunit *test)
{
	struct pooled *const timer = take(test, 0);
	struct zt_tick_record *const record = timer->record;
	unsigned long expiry;
	u32 result;

	KUNIT_EXPECT_EQ(test, start(timer, LONG_MSECS), ZORVA_RC_OK);
	if (IS_ENABLED(CONFIG_SMP)) {
		/* The start counts, and not the expiry that it came after. */
		record->timer.function(&record->timer);
		KUNIT_EXPECT_EQ(test, timer->expiries, 0u);
		KUNIT_EXPECT_EQ(test, start(timer, 20), ZORVA_RC_FAIL);
		KUNIT_EXPECT_TRUE(test, timer_pending(&record->timer));
		KUNIT_EXPECT_EQ(test, stop(timer), ZORVA_RC_OK);
		KUNIT_EXPECT_FALSE(test, timer_pending(&record->timer));
		return;
	}
	local_bh_disable();
	record->timer.function(&record->timer);
	expect_cleared(test, &record->started);
	KUNIT_EXPECT_TRUE(test, timer_pending(&record->timer));
	result = start(timer, 20);
	expiry = record->timer.expires;
	local_bh_enable();

	KUNIT_EXPECT_EQ(test, result, ZORVA_RC_OK);
	ZT_WAIT_FOR(test, timer->expiries == 2, 500);
	KUNIT_EXPECT_GE(test, (long)(timer->jiffies - expiry), 0l);
	KUNIT_EXPECT_FALSE(test, timer_pending(&record->timer));
}

static void a_record_has_the_owners_data_and_a_plain_timer(struct kunit *test)
{
	const struct pooled *const timer = take(test, 1);
	const struct zt_tick_record *const record = timer->record;

	KUNIT_EXPECT_EQ(test, record->comp, (u32)OWNER);
	KUNIT_EXPECT_EQ(test, record->id, timer->id);
	KUNIT_EXPECT_TRUE(test, record->callback == pooled_expired);
	KUNIT_EXPECT_EQ(test, record->started.data, 1u);
	KUNIT_EXPECT_EQ(test,
			record->timer.flags & (TIMER_DEFERRABLE |
					       TIMER_IRQSAFE | TIMER_PINNED),
			0u);
	KUNIT_EXPECT_EQ(test, zt_block_of(timer->record)->comp,
			ZORVA_COMPONENT_SELF);
	KUNIT_EXPECT_STREQ(test, (const char *)zt_block_of(timer->record)->file,
			   "zorva_timer.cp");
}

static struct kunit_case cases[] = {
	CASES_BEFORE_THE_FIRST_TIMER,
	CASES_OF_BOTH_KINDS,
	KUNIT_CASE(below_10_ms_a_timer_expires_at_this_tick),
	KUNIT_CASE(milliseconds_become_ticks_rounded_down),
	KUNIT_CASE(the_product_of_a_long_period_wraps),
	KUNIT_CASE(a_period_that_wrapped_to_nothing_expires_at_once),
	KUNIT_CASE(a_timer_expires_with_the_kernels_own),
	KUNIT_CASE(a_timer_left_pending_is_armed_anew),
	KUNIT_CASE(a_record_has_the_owners_data_and_a_plain_timer),
	KUNIT_CASE(the_suites_that_follow_have_timers_left),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_timer",
	.init = zt_timers_init,
	.exit = zt_timers_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Tick timers of ZORVA");
