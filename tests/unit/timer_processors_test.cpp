// SPDX-License-Identifier: GPL-2.0
/*
 * Timers that expire on one processor while another one uses them: what a
 * callback and a call may find of each other, whichever comes first.
 */
#include "interleave.h"
#include "timer_fixture.h"

#include <optional>

namespace
{

constexpr unsigned int some_rounds = 3;

template <class Kind>
class TimerOnProcessors : public TimerTest<Kind> {
protected:
	void SetUp() override
	{
		TimerTest<Kind>::SetUp();
		needs_arrival_order();
		fake::use_several_processors();
		on_expiry = [this](unsigned long data) {
			called_back(data);
		};
	}

	/* Takes its time, so that the others get on meanwhile. */
	void called_back(unsigned long data)
	{
		++inside;
		for (int i = 0; i < 3; ++i)
			zk_cpu_relax();
		if (in_callback)
			in_callback(data);
		for (int i = 0; i < 3; ++i)
			zk_cpu_relax();
		--inside;
	}

	/* A processor on which whatever is due in that time happens. */
	static pid_t expiring_processor(s64 nsecs = 20 * msec)
	{
		return fake::start_task("processor", [nsecs] {
			fake::advance(nsecs);
		});
	}

	/* What is left of the old start does not cut the new one short. */
	void expect_whole_start_by_refresh(bool with_interrupts_off)
	{
		const u32 id = this->make();
		const auto round = [&](const interrupted_call &interrupted) {
			std::optional<fake::interrupts_off> off;

			expiries.clear();
			this->start(id, 10);
			expiring_processor();
			if (with_interrupts_off)
				off.emplace();
			EXPECT_EQ(interrupted(Kind::refresh, this->owner, &id,
					      500, "caller.c", 30),
				  ok);
			off.reset();

			fake::sleep_for(100 * msec);
			ASSERT_EQ(this->newest()->running, 1u);
			ASSERT_TRUE(fake::is_pending(&this->newest()->timer));
			const size_t calls = expiries.size();
			ASSERT_LE(calls, 1u);
			fake::sleep_for(sec);
			ASSERT_EQ(expiries.size(), calls + 1);
		};

		EXPECT_GE(interrupt_anywhere(interleave::others::processors,
					     round),
			  some_rounds);
	}

	bool is_idle(u32 id)
	{
		const auto *const timer = this->listed()[id - 1];

		return this->state(timer) == "0 0 0 " &&
		       !fake::is_pending(&timer->timer);
	}

	unsigned int inside = 0;
	std::function<void(unsigned long)> in_callback;
};

struct kind_names {
	template <class Kind>
	static std::string GetName(int)
	{
		return Kind::in_hard_interrupt ? "HighResolution" : "Tick";
	}
};

using kinds = ::testing::Types<tick, hrt>;
TYPED_TEST_SUITE(TimerOnProcessors, kinds, kind_names);

} // namespace

TYPED_TEST(TimerOnProcessors, IsNotCalledBackOnceItsStopHasReturned)
{
	const u32 id = this->make();

	EXPECT_GE(interrupt_anywhere(interleave::others::processors,
				     [&](const interrupted_call &interrupted) {
					     expiries.clear();
					     this->start(id, 10);
					     this->expiring_processor();

					     interrupted(TypeParam::stop,
							 this->owner, &id,
							 "caller.c", 20);

					     ASSERT_EQ(this->inside, 0u);
					     ASSERT_TRUE(this->is_idle(id));
					     const size_t calls =
						     expiries.size();
					     fake::sleep_for(sec);
					     ASSERT_EQ(expiries.size(), calls);
				     }),
		  some_rounds);
}

TYPED_TEST(TimerOnProcessors, IsStoppedForGoodThoughItsCallbackStartsIt)
{
	const u32 id = this->make();
	this->in_callback = [&](unsigned long) {
		this->start(id, 10);
	};

	EXPECT_GE(interrupt_anywhere(interleave::others::processors,
				     [&](const interrupted_call &interrupted) {
					     this->start(id, 10);
					     this->expiring_processor(15 *
								      msec);

					     interrupted(TypeParam::stop,
							 this->owner, &id,
							 "caller.c", 20);

					     ASSERT_EQ(this->inside, 0u);
					     ASSERT_TRUE(this->is_idle(id));
				     }),
		  some_rounds);
	fake::sleep_for(sec);
}

TYPED_TEST(TimerOnProcessors, WaitsForNobodyWithInterruptsOff)
{
	const u32 id = this->make();
	bool met = false;
	this->in_callback = [&](unsigned long) {
		this->start(id, 10);
	};

	EXPECT_GE(interrupt_anywhere(interleave::others::processors,
				     [&](const interrupted_call &interrupted) {
					     this->start(id, 10);
					     this->expiring_processor(15 *
								      msec);

					     {
						     const fake::interrupts_off
							     off;

						     interrupted(TypeParam::stop,
								 this->owner,
								 &id,
								 "caller.c",
								 20);
					     }
					     met |= this->inside;

					     /* The callback may still start it:
					      * once more. */
					     fake::run_others();
					     this->stop(id);
					     const size_t calls =
						     expiries.size();
					     fake::sleep_for(sec);
					     ASSERT_EQ(expiries.size(), calls);
					     ASSERT_EQ(this->newest()->running,
						       0u);
				     }),
		  some_rounds);
	EXPECT_TRUE(met);
}

/* What the kernel took for expired belongs to a start that is over. */
TYPED_TEST(TimerOnProcessors, RunsAfterARefreshThatMeetsAnExpiry)
{
	this->expect_whole_start_by_refresh(false);
}

/* Nor may a refresh wait that has interrupts off. */
TYPED_TEST(TimerOnProcessors, IsNotExpiredByAnExpiryThatARefreshHasOvertaken)
{
	this->expect_whole_start_by_refresh(true);
}

TYPED_TEST(TimerOnProcessors, EndsEachStartWithACallbackOrAStop)
{
	const u32 id = this->make();

	EXPECT_GE(interrupt_anywhere(interleave::others::processors,
				     [&](const interrupted_call &interrupted) {
					     expiries.clear();
					     this->start(id, 10);
					     this->expiring_processor();

					     const u32 started =
						     interrupted(TypeParam::start,
								 this->owner,
								 &id, 500,
								 "caller.c",
								 10);

					     fake::sleep_for(sec);
					     ASSERT_EQ(expiries.size(),
						       started == ok ? 2u : 1u);
				     }),
		  some_rounds);
}

TYPED_TEST(TimerOnProcessors, IsStoppedByACallbackThatItsOwnWouldStop)
{
	const u32 ids[] = { this->make(1), this->make(0) };
	this->in_callback = [&](unsigned long other) {
		EXPECT_EQ(this->stop(ids[other]), ok);
	};
	for (u32 id : ids)
		this->start(id, 10);

	this->expiring_processor(10 * msec);
	this->expiring_processor(10 * msec);
	fake::sleep_for(sec);

	EXPECT_GE(expiries.size(), 1u);
	for (u32 id : ids)
		EXPECT_TRUE(this->is_idle(id));
}

TYPED_TEST(TimerOnProcessors, IsStoppedInItsOwnCallbackWithoutAWait)
{
	const u32 id = this->make();
	this->in_callback = [&](unsigned long) {
		EXPECT_EQ(this->start(id, 10), ok);
		EXPECT_EQ(this->stop(id), ok);
	};
	this->start(id, 10);

	fake::sleep_for(sec);

	EXPECT_EQ(expiries.size(), 1u);
	EXPECT_EQ(this->newest()->running, 0u);
}

TYPED_TEST(TimerOnProcessors, IsNotFoundByAnIdThatNobodyHas)
{
	this->make();

	EXPECT_EQ(this->stop(2), not_found);
	/* It has the place of the first in the table. */
	EXPECT_EQ(this->stop(TypeParam::limit + 1), not_found);
	TypeParam::list()->magic = 0;
	EXPECT_EQ(this->stop(1), not_found);
	TypeParam::list()->magic = 0xDEADBEEF;
	EXPECT_EQ(this->stop(1), ok);
}
