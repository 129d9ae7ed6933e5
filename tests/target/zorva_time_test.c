// SPDX-License-Identifier: GPL-2.0
/* The readings of time, against the kernel's own clocks. */
#include <linux/delay.h>
#include <linux/math64.h>
#include <linux/module.h>
#include <linux/timekeeping.h>

#include "zorva_test.h"

/*
 * Uptime beyond what 32 bits of nanoseconds hold. A reading that is right
 * before that time need not be right after it.
 */
#define LONG_UPTIME_MS 4300u

static void wait_for_long_uptime(void)
{
	while (ktime_to_ms(ktime_get_boottime()) < LONG_UPTIME_MS)
		msleep(50);
}

/* The same readings from the kernel's clocks. */
static u32 own_uptime_msecs(void)
{
	return zt_uptime_secs() * 1000;
}

static u32 own_uptime_ticks(void)
{
	return div_u64(div_u64(ktime_get_boottime_ns(), 1000000), 10);
}

static u32 own_usecs(void)
{
	return div_u64(ktime_get_ns(), 1000);
}

static u32 own_msecs(void)
{
	return div_u64(ktime_get_ns(), 1000000);
}

static u32 own_secs(void)
{
	return div_u64(ktime_get_ns(), 1000000000);
}

static u32 zorva_uptime_msecs(void)
{
	u32 msecs = 0;

	zorva_uptime_get(&msecs);
	return msecs;
}

static u32 zorva_uptime_secs(void)
{
	u32 secs = 0;

	zorva_uptime_secs_get(&secs);
	return secs;
}

static u32 zorva_uptime_ticks(void)
{
	u32 ticks = 0;

	zorva_uptime_ticks_get(&ticks);
	return ticks;
}

static const struct reading {
	const char *name;
	u32 (*read)(void);
	u32 (*own)(void);
} readings[] = {
	{ "zorva_uptime_get", zorva_uptime_msecs, own_uptime_msecs },
	{ "zorva_uptime_secs_get", zorva_uptime_secs, zt_uptime_secs },
	{ "zorva_uptime_ticks_get", zorva_uptime_ticks, own_uptime_ticks },
	{ "zorva_time_usecs_ret", zorva_time_usecs_ret, own_usecs },
	{ "zorva_time_msecs_ret", zorva_time_msecs_ret, own_msecs },
	{ "zorva_time_secs_ret", zorva_time_secs_ret, own_secs },
};

/*
 * A reading lies between two of the kernel's own. Rounds in which those two
 * are the same, which most are but for microseconds, leave it no choice. There
 * is no pause between the rounds, over ten ticks: two clocks may differ for no
 * more than an instant in each. Where there are several processors a reading
 * may be a tick old, and so the second that it tells, once.
 */
static void expect_readings_in_step(struct kunit *test)
{
	const struct reading *reading;

	for (reading = readings; reading < readings + ARRAY_SIZE(readings);
	     reading++) {
		const ktime_t end = ktime_add_ms(ktime_get(), 100);
		bool was_old = num_online_cpus() == 1;
		u32 last = reading->read();

		do {
			const u32 before = reading->own();
			const u32 value = reading->read();
			const u32 after = reading->own();

			if (value - before > after - before && !was_old) {
				KUNIT_ASSERT_EQ(test, value, last);
				was_old = true;
				mdelay(20);
				continue;
			}
			KUNIT_ASSERT_LE_MSG(test, value - before,
					    after - before,
					    "%s: %u, but %u before, %u after",
					    reading->name, value, before,
					    after);
			last = value;
		} while (ktime_before(ktime_get(), end));
	}
}

static void readings_agree_with_the_kernels_clocks(struct kunit *test)
{
	expect_readings_in_step(test);
	ZT_EXPECT_NO_REPORTS(test);
}

static void readings_agree_also_late_in_a_second(struct kunit *test)
{
	struct timespec64 now;

	do {
		msleep(20);
		ktime_get_boottime_ts64(&now);
	} while (now.tv_nsec < 700 * NSEC_PER_MSEC);

	expect_readings_in_step(test);
}

static void readings_agree_after_a_long_uptime(struct kunit *test)
{
	wait_for_long_uptime();

	expect_readings_in_step(test);
	KUNIT_EXPECT_GE(test, zorva_uptime_secs(), LONG_UPTIME_MS / 1000);
	KUNIT_EXPECT_GE(test, zorva_uptime_ticks(), LONG_UPTIME_MS / 10);
	KUNIT_EXPECT_LT(test, zorva_uptime_secs(), 3600u);
}

static void uptime_in_milliseconds_moves_in_seconds(struct kunit *test)
{
	const u32 first = zorva_uptime_msecs();
	u32 now;

	KUNIT_EXPECT_EQ(test, first % 1000, 0u);
	do {
		msleep(10);
		now = zorva_uptime_msecs();
		KUNIT_ASSERT_EQ(test, now % 1000, 0u);
	} while (now == first);
	KUNIT_EXPECT_GT(test, now, first);
}

static void ticks_are_10_milliseconds_long(struct kunit *test)
{
	const u32 before_start = own_uptime_ticks();
	const u32 start = zorva_uptime_ticks();
	const u32 after_start = own_uptime_ticks();
	u32 before_end, end, after_end;

	msleep(500);
	before_end = own_uptime_ticks();
	end = zorva_uptime_ticks();
	after_end = own_uptime_ticks();

	KUNIT_EXPECT_GE(test, end - start, 50u);
	KUNIT_EXPECT_GE(test, end - start, before_end - after_start);
	KUNIT_EXPECT_LE(test, end - start, after_end - before_start);
}

static void monotonic_time_never_goes_back(struct kunit *test)
{
	u32 last = zorva_time_usecs_ret();
	int i;

	for (i = 0; i < 2000; i++) {
		const u32 now = zorva_time_usecs_ret();

		KUNIT_ASSERT_GE(test, (s32)(now - last), 0);
		last = now;
	}
}

static void uptime_needs_a_place_for_its_result(struct kunit *test)
{
	KUNIT_EXPECT_EQ(test, zorva_uptime_get(NULL), 0x7E000015u);

	ZT_EXPECT_REPORTS(test, ZT_ERROR("zorva_util.cpp", "zorva_uptime_get",
					 "invalid parameter"));
}

static void uptime_in_seconds_needs_a_place_for_its_result(struct kunit *test)
{
	KUNIT_EXPECT_EQ(test, zorva_uptime_secs_get(NULL), 0x7E000015u);

	ZT_EXPECT_REPORTS(test,
			  ZT_ERROR("zorva_util.cpp", "zorva_uptime_secs_get",
				   "invalid parameter"));
}

static void uptimes_return_success_and_write_one_word(struct kunit *test)
{
	u32 place[3];

	memset(place, 0xff, sizeof(place));
	KUNIT_EXPECT_EQ(test, zorva_uptime_get(&place[1]), ZORVA_RC_OK);
	KUNIT_EXPECT_NE(test, place[1], ~0u);
	place[1] = ~0u;
	KUNIT_EXPECT_EQ(test, zorva_uptime_secs_get(&place[1]), ZORVA_RC_OK);
	KUNIT_EXPECT_NE(test, place[1], ~0u);
	place[1] = ~0u;
	KUNIT_EXPECT_EQ(test, zorva_uptime_ticks_get(&place[1]), ZORVA_RC_OK);
	KUNIT_EXPECT_NE(test, place[1], ~0u);

	KUNIT_EXPECT_EQ(test, place[0], ~0u);
	KUNIT_EXPECT_EQ(test, place[2], ~0u);
}

struct reading_in_context {
	const struct reading *reading;
	bool (*is_current)(void);
	bool right_context;
	u32 before;
	u32 value;
	u32 after;
	bool right_context_after;
};

static void read_in_a_context(void *arg)
{
	struct reading_in_context *result = arg;

	result->right_context = result->is_current();
	result->before = result->reading->own();
	result->value = result->reading->read();
	result->after = result->reading->own();
	result->right_context_after = result->is_current();
}

static void time_can_be_read_in_every_context(struct kunit *test)
{
	const struct zt_call_context *context;
	size_t i;

	ZT_FOR_EACH_CONTEXT(context)
		for (i = 0; i < ARRAY_SIZE(readings); i++) {
			struct reading_in_context result = {
				.reading = &readings[i],
				.is_current = context->is_current,
			};

			context->run(read_in_a_context, &result);

			KUNIT_EXPECT_TRUE_MSG(test, result.right_context, "%s",
					      context->name);
			KUNIT_EXPECT_TRUE_MSG(test, result.right_context_after,
					      "%s", context->name);
			KUNIT_EXPECT_LE_MSG(test, result.value - result.before,
					    result.after - result.before,
					    "%s, %s", readings[i].name,
					    context->name);
		}
}

static struct kunit_case cases[] = {
	KUNIT_CASE(readings_agree_with_the_kernels_clocks),
	KUNIT_CASE(readings_agree_also_late_in_a_second),
	KUNIT_CASE(readings_agree_after_a_long_uptime),
	KUNIT_CASE(uptime_in_milliseconds_moves_in_seconds),
	KUNIT_CASE(ticks_are_10_milliseconds_long),
	KUNIT_CASE(monotonic_time_never_goes_back),
	KUNIT_CASE(uptime_needs_a_place_for_its_result),
	KUNIT_CASE(uptime_in_seconds_needs_a_place_for_its_result),
	KUNIT_CASE(uptimes_return_success_and_write_one_word),
	KUNIT_CASE(time_can_be_read_in_every_context),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_time",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Time readings of ZORVA");
