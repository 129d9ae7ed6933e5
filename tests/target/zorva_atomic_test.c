// SPDX-License-Identifier: GPL-2.0
/* Atomic counters: their values, in every context and against interrupts. */
#include <linux/atomic.h>
#include <linux/hrtimer.h>
#include <linux/module.h>
#include <linux/string.h>

#include "zorva_lock_test.h"

static s32 value_of(const zorva_atomic_t *counter)
{
	return atomic_read(counter);
}

static void inc_adds_1_and_returns_0(struct kunit *test)
{
	zorva_atomic_t counter = ATOMIC_INIT(5);

	KUNIT_EXPECT_EQ(test, zorva_atomic_inc(&counter), ZORVA_RC_OK);

	KUNIT_EXPECT_EQ(test, value_of(&counter), 6);
	ZT_EXPECT_NO_REPORTS(test);
}

static void add_returns_what_it_leaves(struct kunit *test)
{
	zorva_atomic_t counter = ATOMIC_INIT(2);

	KUNIT_EXPECT_EQ(test, zorva_atomic_add_return(5, &counter), 7);
	KUNIT_EXPECT_EQ(test, value_of(&counter), 7);

	KUNIT_EXPECT_EQ(test, zorva_atomic_add_return(-10, &counter), -3);
	KUNIT_EXPECT_EQ(test, zorva_atomic_add_return(0, &counter), -3);
	KUNIT_EXPECT_EQ(test, value_of(&counter), -3);
	ZT_EXPECT_NO_REPORTS(test);
}

static void sub_returns_what_it_leaves(struct kunit *test)
{
	zorva_atomic_t counter = ATOMIC_INIT(2);

	KUNIT_EXPECT_EQ(test, zorva_atomic_sub_return(5, &counter), -3);
	KUNIT_EXPECT_EQ(test, value_of(&counter), -3);

	KUNIT_EXPECT_EQ(test, zorva_atomic_sub_return(-10, &counter), 7);
	KUNIT_EXPECT_EQ(test, zorva_atomic_sub_return(0, &counter), 7);
	KUNIT_EXPECT_EQ(test, value_of(&counter), 7);
	ZT_EXPECT_NO_REPORTS(test);
}

static void dec_of_0_is_minus_1(struct kunit *test)
{
	zorva_atomic_t counter = ATOMIC_INIT(0);

	KUNIT_EXPECT_EQ(test, (u32)zorva_atomic_dec_return(&counter),
			0xFFFFFFFFu);
	KUNIT_EXPECT_EQ(test, value_of(&counter), -1);

	KUNIT_EXPECT_EQ(test, zorva_atomic_dec_return(&counter), -2);
	ZT_EXPECT_NO_REPORTS(test);
}

static void set_stores_and_read_tells_all_32_bits(struct kunit *test)
{
	static const s32 values[] = { 0, 1, -1, 0x12345678, INT_MIN, INT_MAX };
	const s32 *value;

	for (value = values; value < values + ARRAY_SIZE(values); value++) {
		zorva_atomic_t counter = ATOMIC_INIT(0x5a5a5a5a);

		KUNIT_EXPECT_EQ(test, zorva_atomic_set(&counter, *value),
				ZORVA_RC_OK);

		KUNIT_EXPECT_EQ(test, value_of(&counter), *value);
		KUNIT_EXPECT_EQ(test, zorva_atomic_read(&counter), *value);
	}
	ZT_EXPECT_NO_REPORTS(test);
}

static void counters_wrap(struct kunit *test)
{
	zorva_atomic_t counter = ATOMIC_INIT(INT_MAX);

	zorva_atomic_inc(&counter);
	KUNIT_EXPECT_EQ(test, value_of(&counter), INT_MIN);

	KUNIT_EXPECT_EQ(test, zorva_atomic_dec_return(&counter), INT_MAX);
	KUNIT_EXPECT_EQ(test, zorva_atomic_add_return(INT_MAX, &counter), -2);
	zorva_atomic_set(&counter, 0);
	KUNIT_EXPECT_EQ(test, zorva_atomic_sub_return(INT_MIN, &counter),
			INT_MIN);
}

static void nothing_beside_the_counter_changes(struct kunit *test)
{
	struct {
		u32 before;
		zorva_atomic_t counter;
		u32 after;
	} words = { 0x11111111, ATOMIC_INIT(-1), 0x22222222 };

	zorva_atomic_inc(&words.counter);
	zorva_atomic_add_return(-1, &words.counter);
	zorva_atomic_sub_return(-1, &words.counter);
	zorva_atomic_dec_return(&words.counter);
	zorva_atomic_set(&words.counter, 0);

	KUNIT_EXPECT_EQ(test, words.before, 0x11111111u);
	KUNIT_EXPECT_EQ(test, words.after, 0x22222222u);
}

static void expect_null_refused(struct kunit *test, u32 result,
				const char *func)
{
	struct zt_checks checks = ZT_CHECKS("zorva_atomic.cpp", func);

	KUNIT_EXPECT_EQ(test, result, ZORVA_RC_NULL_ARG);
	zt_expect_refused(test, &checks, 0);
}

static void a_null_counter_is_reported_by_all_six(struct kunit *test)
{
	expect_null_refused(test, zorva_atomic_inc(NULL), "zorva_atomic_inc");
	expect_null_refused(test, zorva_atomic_add_return(1, NULL),
			    "zorva_atomic_add_return");
	expect_null_refused(test, zorva_atomic_set(NULL, 1),
			    "zorva_atomic_set");
	expect_null_refused(test, zorva_atomic_dec_return(NULL),
			    "zorva_atomic_dec_return");
	expect_null_refused(test, zorva_atomic_sub_return(1, NULL),
			    "zorva_atomic_sub_return");
	expect_null_refused(test, zorva_atomic_read(NULL), "zorva_atomic_read");
}

/* What a counter that starts with 10 went through there. */
struct visit {
	const struct zt_call_context *context;
	bool right_context;
	zorva_atomic_t counter;
	s32 result[6];
};

static void count_here(void *arg)
{
	struct visit *visit = arg;

	visit->result[0] = zorva_atomic_inc(&visit->counter);
	visit->result[1] = zorva_atomic_add_return(5, &visit->counter);
	visit->result[2] = zorva_atomic_sub_return(7, &visit->counter);
	visit->result[3] = zorva_atomic_dec_return(&visit->counter);
	visit->result[4] = zorva_atomic_set(&visit->counter, -3);
	visit->result[5] = zorva_atomic_read(&visit->counter);
	visit->right_context = visit->context->is_current();
}

static void any_context_may_count(struct kunit *test)
{
	static const s32 want[] = { 0, 16, 9, 8, 0, -3 };
	const struct zt_call_context *context;

	ZT_FOR_EACH_CONTEXT(context) {
		struct visit visit = {
			.context = context,
			.counter = ATOMIC_INIT(10),
		};

		context->run(count_here, &visit);

		KUNIT_EXPECT_TRUE_MSG(test, visit.right_context, "%s",
				      context->name);
		KUNIT_EXPECT_EQ_MSG(test,
				    memcmp(visit.result, want, sizeof(want)), 0,
				    "%s", context->name);
	}
	ZT_EXPECT_NO_REPORTS(test);
}

/*
 * An interrupt that comes every 50 microseconds changes a counter that a
 * thread is changing all the time, and no change is lost. The emulator takes
 * interrupts between blocks of code only: that there is no gap within a change
 * is for check_atomics.sh to see.
 */
#define INTERRUPTS 2000u

struct shared {
	zorva_atomic_t counter;
	struct hrtimer timer;
	unsigned int interrupts;
};

static enum hrtimer_restart change_in_interrupt(struct hrtimer *timer)
{
	struct shared *shared = container_of(timer, struct shared, timer);

	zorva_atomic_inc(&shared->counter);
	zorva_atomic_add_return(1000, &shared->counter);
	zorva_atomic_sub_return(1, &shared->counter);
	zorva_atomic_dec_return(&shared->counter);
	if (++shared->interrupts == INTERRUPTS)
		return HRTIMER_NORESTART;
	hrtimer_forward_now(timer, ns_to_ktime(50000));
	return HRTIMER_RESTART;
}

static void an_interrupt_loses_no_change(struct kunit *test)
{
	static struct shared shared;
	u32 rounds = 0, want;

	atomic_set(&shared.counter, 0);
	shared.interrupts = 0;
	hrtimer_setup(&shared.timer, change_in_interrupt, CLOCK_MONOTONIC,
		      HRTIMER_MODE_REL);
	hrtimer_start(&shared.timer, ns_to_ktime(50000), HRTIMER_MODE_REL);
	while (READ_ONCE(shared.interrupts) < INTERRUPTS) {
		zorva_atomic_inc(&shared.counter);
		zorva_atomic_add_return(4, &shared.counter);
		zorva_atomic_dec_return(&shared.counter);
		zorva_atomic_sub_return(3, &shared.counter);
		rounds++;
	}
	hrtimer_cancel(&shared.timer);

	want = rounds + INTERRUPTS * 999;
	KUNIT_EXPECT_EQ(test, (u32)value_of(&shared.counter), want);
	KUNIT_EXPECT_GT(test, rounds, 100u);
}

static void md5_is_minus_1_and_writes_nothing(struct kunit *test)
{
	u8 digest[16];

	memset(digest, 0x5a, sizeof(digest));
	KUNIT_EXPECT_EQ(test, zorva_md5_hash("text", 4, digest), 0xFFFFFFFFu);
	ZT_EXPECT_NULL(test, memchr_inv(digest, 0x5a, sizeof(digest)));

	KUNIT_EXPECT_EQ(test, zorva_md5_hash(NULL, 0, NULL), 0xFFFFFFFFu);
	KUNIT_EXPECT_EQ(test, zorva_md5_hash(NULL, 0xFFFFFFFF, digest),
			0xFFFFFFFFu);
	ZT_EXPECT_NO_REPORTS(test);
}

static struct kunit_case cases[] = {
	KUNIT_CASE(inc_adds_1_and_returns_0),
	KUNIT_CASE(add_returns_what_it_leaves),
	KUNIT_CASE(sub_returns_what_it_leaves),
	KUNIT_CASE(dec_of_0_is_minus_1),
	KUNIT_CASE(set_stores_and_read_tells_all_32_bits),
	KUNIT_CASE(counters_wrap),
	KUNIT_CASE(nothing_beside_the_counter_changes),
	KUNIT_CASE(a_null_counter_is_reported_by_all_six),
	KUNIT_CASE(any_context_may_count),
	KUNIT_CASE(an_interrupt_loses_no_change),
	KUNIT_CASE(md5_is_minus_1_and_writes_nothing),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_atomic",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Atomic counters of ZORVA");
