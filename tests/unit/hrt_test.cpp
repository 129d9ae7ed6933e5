// SPDX-License-Identifier: GPL-2.0
/* What only high-resolution timers have. */
#include "timer_fixture.h"

namespace
{

class HighResolutionTimer : public TimerTest<hrt> {};

/* The same with threads, for what ends the process. */
using HighResolutionTimerDeathTest = HighResolutionTimer;

} // namespace

TEST_F(HighResolutionTimer, IsPreparedForTheMonotonicClockAndRelative)
{
	make();

	const auto made = fake::calls_to({ "hrtimer_init" });
	ASSERT_EQ(made.size(), 1u);
	EXPECT_EQ(made[0].text, "hrtimer_init 1 1");
	EXPECT_EQ(made[0].object, &newest()->timer);
}

TEST_F(HighResolutionTimer, IsArmedInNanosecondsWithoutAWrap)
{
	const u32 id = make();

	for (u32 msecs : { 1u, 4294u, 4295u, 0x80000000u, 0xFFFFFFFFu }) {
		fake::forget_calls();
		fake::advance(777);

		EXPECT_EQ(start(id, msecs), ok);

		EXPECT_EQ(fake::call_texts({ "hrtimer_start_range_ns" }),
			  texts{ fake::format("hrtimer_start_range_ns %llu 0 1",
					      msecs * 1000000ull) });
		EXPECT_EQ(fake::expiry_of(&newest()->timer),
			  fake::now() + static_cast<s64>(msecs * 1000000ull));
		stop(id);
	}
}

TEST_F(HighResolutionTimer, ExpiresBetweenTicks)
{
	fake::advance(3 * msec + 5);
	start(make(), 1);

	fake::sleep_for(10 * msec);

	ASSERT_EQ(expiries.size(), 1u);
	EXPECT_EQ(expiries[0].when, 4 * msec + 5);
}

TEST_F(HighResolutionTimer, IsNumberedAndLimitedApartFromTickTimers)
{
	u32 tick_id = 0;

	for (u32 i = 1; i <= 64; ++i)
		ASSERT_EQ(make(), i);
	EXPECT_EQ(make(), 0u);
	zorva_timer_init_track(owner, &tick_id, note_expiry, 0, "caller.c", 7);

	EXPECT_EQ(tick_id, 1u);
	EXPECT_EQ(_pZorvaTimerList->count, 1u);
	EXPECT_EQ(_pZorvaHrtTimerList->count, 64u);
	EXPECT_EQ(zorva_timer_start_track(owner, &tick_id, 100, "caller.c", 8),
		  ok);
	EXPECT_EQ(listed()[0]->running, 0u);
	EXPECT_EQ(zorva_timer_stop_track(owner, &tick_id, "caller.c", 9), ok);
	reports();
}

TEST_F(HighResolutionTimer, LosesAPlaceForGoodWithoutMemoryForItsRecord)
{
	fake::fail_allocation(3);
	EXPECT_EQ(make(), 0u);
	own_reports();
	fake::log_text();

	for (u32 i = 1; i <= 63; ++i)
		ASSERT_EQ(make(), i);
	EXPECT_EQ(make(), 0u);

	EXPECT_EQ(own_reports(),
		  said("init", "Maximum timer(=64) has been reached"));
	EXPECT_EQ(listed()[0], nullptr);
	EXPECT_EQ(start(63, 100), ok);
	const std::string text = file_text("zorva.hrt");
	EXPECT_EQ(text.find("PORT       1        "),
		  sizeof(timer_report_header) - 1);
}

TEST_F(HighResolutionTimer, LeavesNoEmptyNodeThatCannotBeListed)
{
	make();
	_pZorvaHrtTimerList->magic = 0;
	fake::fail_allocation(2);
	const size_t blocks = tracked_blocks();
	u32 id = 4711;

	EXPECT_EQ(zorva_hrt_timer_init_track(owner, &id, note_expiry, 0,
					     "caller.c", 7),
		  bad_value);

	EXPECT_EQ(own_reports(), said("init", "Add timer node failed."));
	EXPECT_EQ(tracked_blocks(), blocks);
	EXPECT_EQ(_hrtTimerIndex, 1u);
	EXPECT_EQ(id, 4711u);
	_pZorvaHrtTimerList->magic = 0xDEADBEEF;
	EXPECT_EQ(listed().size(), 1u);
	fake::log_text();
}

TEST_F(HighResolutionTimer, DoesNothingWithoutACallbackOrARecord)
{
	make();
	hrt_timer *const timer = newest();
	start(1, 100);
	const std::string before = state(timer);
	const size_t locks = fake::spin_locks_taken();
	timer->callback = nullptr;

	EXPECT_EQ(_zorva_hrt_timer_wrapper(&timer->timer), HRTIMER_NORESTART);
	EXPECT_EQ(_zorva_hrt_timer_wrapper(reinterpret_cast<hrtimer *>(
			  __builtin_offsetof(hrt_timer, timer))),
		  HRTIMER_NORESTART);

	EXPECT_EQ(state(timer), before);
	EXPECT_EQ(fake::spin_locks_taken(), locks);
}

TEST_F(HighResolutionTimer, DoesNotRestartItself)
{
	make();
	start(1, 100);

	EXPECT_EQ(_zorva_hrt_timer_wrapper(&newest()->timer),
		  HRTIMER_NORESTART);

	EXPECT_EQ(expiries.size(), 1u);
	EXPECT_EQ(newest()->running, 0u);
}

TEST_F(HighResolutionTimerDeathTest, WaitsForItselfWhenItsCallbackStopsItAnew)
{
	const u32 id = make();
	on_expiry = [&](unsigned long) {
		start(id, 100);
		stop(id);
	};
	start(id, 100);

	EXPECT_DEATH(fake::advance(sec),
		     "deadlock: a timer's callback waits for itself");
}
