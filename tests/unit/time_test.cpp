// SPDX-License-Identifier: GPL-2.0
/* The readings of time. */
#include "kernel_test.h"
#include "zorva/time.h"

#include <limits.h>
#include <random>

namespace
{

constexpr s64 msec = 1000000;
constexpr s64 sec = 1000000000;
constexpr s64 two_to_32 = 1ll << 32;

/* As many seconds as a clock of 63 bits of nanoseconds can reach. */
constexpr s64 last_sec = LLONG_MAX / sec;

class Uptime : public ModuleTest {};
class MonotonicTime : public ModuleTest {};

/*
 * Sets the coarse clock too to this very nanosecond: with all of it spent
 * suspended, no tick rounds it down.
 */
void set_exact_uptime(s64 nsecs)
{
	fake::set_uptime(nsecs, nsecs);
}

u32 uptime_secs_now()
{
	u32 secs = 0xdeadbeef;

	EXPECT_EQ(zorva_uptime_secs_get(&secs), 0u);
	return secs;
}

u32 uptime_now()
{
	u32 msecs = 0xdeadbeef;

	EXPECT_EQ(zorva_uptime_get(&msecs), 0u);
	return msecs;
}

u32 uptime_ticks_now()
{
	u32 ticks = 0xdeadbeef;

	EXPECT_EQ(zorva_uptime_ticks_get(&ticks), 0u);
	return ticks;
}

/* Readings at the edges of every unit, and many between them. */
std::vector<s64> interesting_times()
{
	std::vector<s64> times = { 0, LLONG_MAX, LLONG_MIN, LLONG_MIN + 1 };
	std::mt19937_64 random(1);

	for (s64 whole :
	     { 1ll, 2ll, 4ll, 5ll, 1ll << 31, (1ll << 31) - 1, two_to_32 - 1,
	       two_to_32, two_to_32 + 1, 2 * two_to_32, last_sec })
		for (s64 unit : { 10 * msec, sec })
			for (s64 off : { -1, 0, 1 }) {
				times.push_back(whole * unit + off);
				times.push_back(-whole * unit + off);
			}
	/* The last one that 32 bits of nanoseconds hold: 4.29 s. */
	for (s64 off : { -1, 0, 1 })
		times.push_back(two_to_32 + off);
	/* Where a shorter way of dividing gives up. */
	for (s64 off : { -1, 0, 1 })
		times.push_back((1ll << 61) + off);
	for (int i = 0; i < 10000; ++i)
		times.push_back(static_cast<s64>(random()) >> (i % 64));
	for (int i = 0; i < 10000; ++i)
		for (s64 off : { -1, 0, 1 })
			times.push_back(
				(static_cast<s64>(random()) / sec >> (i % 34)) *
					sec +
				off);
	return times;
}

} // namespace

TEST_F(Uptime, SecondsAreWholeSecondsSinceBoot)
{
	fake::set_uptime(2700 * msec);

	EXPECT_EQ(uptime_secs_now(), 2u);
}

TEST_F(Uptime, SecondsStartAtZero)
{
	fake::set_uptime(0);

	EXPECT_EQ(uptime_secs_now(), 0u);
	EXPECT_EQ(uptime_now(), 0u);
	EXPECT_EQ(uptime_ticks_now(), 0u);
}

TEST_F(Uptime, MillisecondsMoveInWholeSeconds)
{
	fake::set_uptime(2700 * msec);

	EXPECT_EQ(uptime_now(), 2000u);
}

TEST_F(Uptime, TicksAreTensOfMilliseconds)
{
	fake::set_uptime(1234 * msec);

	EXPECT_EQ(uptime_ticks_now(), 123u);
}

TEST_F(Uptime, SecondsAndMillisecondsReadTheCoarseClockAndTicksThePreciseOne)
{
	/* The clock of the boot is at 1 s; that of its last tick is not. */
	fake::set_uptime(sec, sec - 9 * msec);

	EXPECT_EQ(uptime_secs_now(), 0u);
	EXPECT_EQ(uptime_now(), 0u);
	EXPECT_EQ(uptime_ticks_now(), 100u);
}

TEST_F(Uptime, ReadsTheCoarseClockOnceInATick)
{
	fake::set_uptime(5 * sec);
	EXPECT_EQ(uptime_secs_now(), 5u);
	EXPECT_EQ(fake::coarse_readings().size(), 1u);

	/* The end of the same tick. */
	fake::set_uptime(5 * sec + 9 * msec);
	EXPECT_EQ(uptime_secs_now(), 5u);
	EXPECT_EQ(uptime_now(), 5000u);
	EXPECT_EQ(fake::coarse_readings().size(), 1u);

	fake::set_uptime(5 * sec + 10 * msec);
	EXPECT_EQ(uptime_secs_now(), 5u);
	EXPECT_EQ(fake::coarse_readings().size(), 2u);

	fake::set_uptime(6 * sec);
	EXPECT_EQ(uptime_secs_now(), 6u);
}

TEST_F(Uptime, IsRightWhenItIsFirstReadInTheTickInWhichTheCountPasses0)
{
	fake::set_uptime(300 * sec);
	ASSERT_EQ(jiffies, 0u);

	EXPECT_EQ(uptime_secs_now(), 300u);
}

TEST_F(Uptime, IsRightInTheFirstTickOfTheKernel)
{
	fake::set_uptime(0, 0);
	ASSERT_EQ(jiffies, static_cast<unsigned long>(ZK_INITIAL_JIFFIES));

	EXPECT_EQ(uptime_secs_now(), 0u);
	EXPECT_EQ(fake::coarse_readings().size(), 1u);
}

TEST_F(Uptime, ReadsTheClockWithInterruptsOff)
{
	EXPECT_EQ(uptime_secs_now(), 0u);

	EXPECT_TRUE(fake::coarse_readings()[0].interrupts_off);
	EXPECT_FALSE(fake::current_context().interrupts_off);
	{
		const fake::interrupts_off off;

		fake::set_uptime(sec);
		EXPECT_EQ(uptime_secs_now(), 1u);
		EXPECT_TRUE(fake::current_context().interrupts_off);
	}
}

TEST_F(Uptime, CountsTheTimeSpentSuspended)
{
	fake::set_uptime(10 * sec, 4 * sec);

	EXPECT_EQ(uptime_secs_now(), 10u);
	EXPECT_EQ(uptime_now(), 10000u);
	EXPECT_EQ(uptime_ticks_now(), 1000u);
}

TEST_F(Uptime, SecondsAreTheLow32BitsOfTheQuotient)
{
	for (const s64 time : interesting_times()) {
		set_exact_uptime(time);

		ASSERT_EQ(uptime_secs_now(), static_cast<u32>(time / sec))
			<< time;
	}
}

TEST_F(Uptime, MillisecondsAreAThousandTimesTheSecondsIn32Bits)
{
	for (const s64 time : interesting_times()) {
		set_exact_uptime(time);

		ASSERT_EQ(uptime_now(), static_cast<u32>(time / sec) * 1000u)
			<< time;
	}
}

TEST_F(Uptime, MillisecondsWrapAfter49Days)
{
	fake::set_uptime(4294967 * sec);
	EXPECT_EQ(uptime_now(), 4294967000u);

	fake::set_uptime(4294968 * sec);
	EXPECT_EQ(uptime_now(), 704u);
}

TEST_F(Uptime, TicksAreTheLow32BitsOfTheQuotient)
{
	for (const s64 time : interesting_times()) {
		fake::set_uptime(time);

		ASSERT_EQ(uptime_ticks_now(),
			  static_cast<u32>(time / 1000000 / 10))
			<< time;
	}
}

TEST_F(Uptime, RefusesANullPointerForSeconds)
{
	const u32 result = zorva_uptime_secs_get(nullptr);

	EXPECT_EQ(result, 0x7E000015u);
	EXPECT_EQ(all_reports(), "1 zorva_util.cpp zorva_uptime_secs_get: "
				 "invalid parameter\n");
	EXPECT_TRUE(fake::coarse_readings().empty());
}

TEST_F(Uptime, RefusesANullPointerForMilliseconds)
{
	const u32 result = zorva_uptime_get(nullptr);

	EXPECT_EQ(result, 0x7E000015u);
	EXPECT_EQ(all_reports(), "1 zorva_util.cpp zorva_uptime_get: "
				 "invalid parameter\n");
	EXPECT_TRUE(fake::coarse_readings().empty());
}

TEST_F(Uptime, CanBeReadInAHardInterrupt)
{
	const fake::hard_interrupt interrupt;

	fake::set_uptime(5 * sec);

	EXPECT_EQ(uptime_secs_now(), 5u);
	EXPECT_EQ(uptime_now(), 5000u);
	EXPECT_EQ(uptime_ticks_now(), 500u);
}

TEST_F(MonotonicTime, IsReadInThreeUnits)
{
	fake::set_uptime(7 * sec + 123456789);

	EXPECT_EQ(zorva_time_usecs_ret(), 7123456u);
	EXPECT_EQ(zorva_time_msecs_ret(), 7123u);
	EXPECT_EQ(zorva_time_secs_ret(), 7u);
}

TEST_F(MonotonicTime, IsRoundedDown)
{
	fake::set_uptime(2 * sec - 1);

	EXPECT_EQ(zorva_time_usecs_ret(), 1999999u);
	EXPECT_EQ(zorva_time_msecs_ret(), 1999u);
	EXPECT_EQ(zorva_time_secs_ret(), 1u);
}

TEST_F(MonotonicTime, DoesNotCountTheTimeSpentSuspended)
{
	fake::set_uptime(10 * sec, 4 * sec);

	EXPECT_EQ(zorva_time_usecs_ret(), 6000000u);
	EXPECT_EQ(zorva_time_msecs_ret(), 6000u);
	EXPECT_EQ(zorva_time_secs_ret(), 6u);
}

TEST_F(MonotonicTime, WrapsItsMicrosecondsAfter71Minutes)
{
	fake::set_uptime(two_to_32 * 1000 - 1);
	EXPECT_EQ(zorva_time_usecs_ret(), 0xFFFFFFFFu);

	fake::set_uptime(two_to_32 * 1000);
	EXPECT_EQ(zorva_time_usecs_ret(), 0u);
}

TEST_F(MonotonicTime, WrapsItsMillisecondsAfter49Days)
{
	fake::set_uptime(two_to_32 * msec - 1);
	EXPECT_EQ(zorva_time_msecs_ret(), 0xFFFFFFFFu);

	fake::set_uptime(two_to_32 * msec);
	EXPECT_EQ(zorva_time_msecs_ret(), 0u);
}

TEST_F(MonotonicTime, WrapsItsSecondsAfter136Years)
{
	fake::set_uptime(two_to_32 * sec - 1);
	EXPECT_EQ(zorva_time_secs_ret(), 0xFFFFFFFFu);

	fake::set_uptime(two_to_32 * sec);
	EXPECT_EQ(zorva_time_secs_ret(), 0u);
}

TEST_F(MonotonicTime, IsTheLow32BitsOfTheWholeComputation)
{
	for (s64 time : interesting_times()) {
		if (time < 0)
			continue;
		fake::set_uptime(time);

		ASSERT_EQ(zorva_time_usecs_ret(),
			  static_cast<u32>(time / sec * 1000000 +
					   time % sec / 1000))
			<< time;
		ASSERT_EQ(zorva_time_msecs_ret(),
			  static_cast<u32>(time / sec * 1000 +
					   time % sec / 1000000))
			<< time;
		ASSERT_EQ(zorva_time_secs_ret(), static_cast<u32>(time / sec))
			<< time;
	}
}

TEST_F(MonotonicTime, CanBeReadInAHardInterrupt)
{
	const fake::hard_interrupt interrupt;

	fake::set_uptime(3 * sec);

	EXPECT_EQ(zorva_time_secs_ret(), 3u);
}
