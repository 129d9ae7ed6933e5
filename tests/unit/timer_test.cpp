// SPDX-License-Identifier: GPL-2.0
/* Tick timers, and what high-resolution timers have in common with them. */
#include "timer_fixture.h"

#include <limits.h>

namespace
{

template <class Kind>
class Timer : public TimerTest<Kind> {
};

struct kind_names {
	template <class Kind>
	static std::string GetName(int)
	{
		return Kind::in_hard_interrupt ? "HighResolution" : "Tick";
	}
};

using kinds = ::testing::Types<tick, hrt>;
TYPED_TEST_SUITE(Timer, kinds, kind_names);

class TickTimer : public TimerTest<tick> {};

} // namespace

#define KIND TypeParam
#define USING_FIXTURE                                                          \
	using fixture = Timer<TypeParam>;                                      \
	using record [[maybe_unused]] = typename TypeParam::record;            \
	constexpr u32 owner [[maybe_unused]] = fixture::owner;                 \
	constexpr u32 other [[maybe_unused]] = fixture::other

/* Creation. */

TYPED_TEST(Timer, RefusesWrongArgumentsOfItsCreationInOrder)
{
	USING_FIXTURE;
	static u32 id = 4711;
	const auto with = [](u32 compId, u32 *to, timer_callback callback,
			     const char *file) {
		return [=] {
			return KIND::init(compId, to, callback, 0, file, 7);
		};
	};

	this->refuses("zorva_timer.cpp", this->func("init"),
		      { { bad_component, with(0, &id, note_expiry, "f.c"),
			  with(0, nullptr, nullptr, nullptr) },
			{ bad_component, with(57, &id, note_expiry, "f.c"),
			  with(0xFFFFFFFF, nullptr, nullptr, nullptr) },
			{ null_argument,
			  with(owner, nullptr, note_expiry, "f.c"),
			  with(owner, nullptr, nullptr, nullptr) },
			{ null_argument, with(owner, &id, nullptr, "f.c"),
			  with(owner, &id, nullptr, nullptr) },
			{ null_argument, with(owner, &id, note_expiry, nullptr),
			  with(owner, &id, note_expiry, nullptr) } });

	EXPECT_EQ(id, 4711u);
	EXPECT_EQ(KIND::list(), nullptr);
}

TYPED_TEST(Timer, StartsIdleWithTheFirstId)
{
	USING_FIXTURE;
	u32 id = 0;

	EXPECT_EQ(KIND::init(owner, &id, note_expiry, 0xFFFFFFFF, "caller.c",
			     7),
		  ok);

	EXPECT_EQ(id, 1u);
	ASSERT_EQ(this->listed().size(), 1u);
	const record *const timer = this->newest();
	EXPECT_EQ(timer->component, owner);
	EXPECT_EQ(timer->timerId, 1u);
	EXPECT_EQ(timer->callback, note_expiry);
	EXPECT_EQ(timer->data, 0xFFFFFFFFu);
	EXPECT_EQ(this->state(timer), "0 0 0 ");
	EXPECT_FALSE(fake::is_pending(&timer->timer));
	EXPECT_EQ(this->new_reports(), "");
}

TYPED_TEST(Timer, IsNumberedInTheOrderOfCreation)
{
	USING_FIXTURE;

	EXPECT_EQ(this->make(), 1u);
	EXPECT_EQ(this->make(), 2u);
	EXPECT_EQ(this->make(), 3u);

	EXPECT_EQ(KIND::index(), 3u);
	EXPECT_EQ(KIND::list()->count, 3u);
	EXPECT_EQ(this->listed()[0]->timerId, 1u);
	EXPECT_EQ(this->listed()[2]->timerId, 3u);
}

TYPED_TEST(Timer, BelongsToThisModuleAndIsMadeUnderTheTimerLock)
{
	USING_FIXTURE;
	this->make();

	const auto &calls = fake::heap_calls();
	ASSERT_EQ(calls.size(), 3u);
	EXPECT_EQ(calls[0].size, 20u + 56);
	EXPECT_EQ(calls[1].size, 8u + 56);
	EXPECT_EQ(calls[2].size, KIND::record_size + 56);
	for (const fake::heap_call &each : calls)
		EXPECT_TRUE(each.at.holds(&_zorvaTimerLock));
	EXPECT_EQ(_zorvaMallocMemUsage[9].currUsage,
		  20 + 8 + KIND::record_size);
	EXPECT_EQ(_zorvaMallocMemUsage[owner].allocCount, 0u);
	EXPECT_EQ(KIND::list()->compId, 9u);
}

TYPED_TEST(Timer, IsMadeInAnyContext)
{
	const fake::hard_interrupt interrupt;

	EXPECT_EQ(this->make(), 1u);
	EXPECT_EQ(this->start(1, 100), ok);
	EXPECT_EQ(this->refresh(1, 100), ok);
	EXPECT_EQ(this->stop(1), ok);
}

TYPED_TEST(Timer, IsNotMadeWithoutAList)
{
	USING_FIXTURE;
	fake::fail_allocation(1);
	u32 id = 4711;

	EXPECT_EQ(KIND::init(owner, &id, note_expiry, 0, "caller.c", 7),
		  failed);

	EXPECT_EQ(this->own_reports(),
		  this->said("init", "Create linked-list failed."));
	EXPECT_EQ(fake::log_text(),
		  "<stack>\n\001csys_sll_init: allocate memory failed.\n");
	EXPECT_EQ(id, 4711u);
	EXPECT_EQ(KIND::list(), nullptr);
	EXPECT_EQ(KIND::index(), 0u);
	EXPECT_EQ(this->make(), 1u);
}

TYPED_TEST(Timer, IsNotMadeWithoutANode)
{
	USING_FIXTURE;
	fake::fail_allocation(2);
	u32 id = 4711;

	EXPECT_EQ(KIND::init(owner, &id, note_expiry, 0, "caller.c", 7),
		  failed);

	EXPECT_EQ(this->own_reports(), "");
	EXPECT_EQ(fake::log_text(), "<stack>\n");
	EXPECT_EQ(id, 4711u);
	EXPECT_EQ(KIND::list()->count, 0u);
	EXPECT_EQ(tracked_blocks(), 1u);
	EXPECT_EQ(this->make(), 1u);
}

/* The list is there from then on: it is an ID that is not, without a report. */
TYPED_TEST(Timer, IsNotFoundWhenTheFirstOneCouldNotBeMade)
{
	USING_FIXTURE;
	for (const unsigned int nth : { 2, 3 }) {
		u32 id = 0;

		fake::fail_allocation(KIND::list() ? nth - 1 : nth);
		EXPECT_EQ(KIND::init(owner, &id, note_expiry, 0, "caller.c", 7),
			  failed);
		this->own_reports();

		EXPECT_EQ(this->start(1, 100), not_found);
		EXPECT_EQ(this->stop(1), not_found);
		EXPECT_EQ(this->own_reports(), "");
	}
	fake::log_text();
}

/* Without a list, which a wrong argument would be reported for as well. */
TYPED_TEST(Timer, IsRefusedWithAReportWhenNotEvenTheListCouldBeMade)
{
	USING_FIXTURE;
	u32 id = 0;

	fake::fail_allocation(1);
	EXPECT_EQ(KIND::init(owner, &id, note_expiry, 0, "caller.c", 7),
		  failed);
	this->own_reports();

	EXPECT_EQ(this->start(1, 100), failed);
	EXPECT_EQ(this->own_reports(),
		  this->said("start", "invalid parameter"));
	EXPECT_EQ(this->stop(1), failed);
	EXPECT_EQ(this->own_reports(), this->said("stop", "invalid parameter"));
	fake::log_text();
}

TYPED_TEST(Timer, IsNotMadeWithoutARecord)
{
	USING_FIXTURE;
	fake::fail_allocation(3);
	u32 id = 4711;

	EXPECT_EQ(KIND::init(owner, &id, note_expiry, 0, "caller.c", 7),
		  failed);

	EXPECT_EQ(this->own_reports(), "");
	EXPECT_EQ(fake::log_text(), "<stack>\n");
	EXPECT_EQ(id, 4711u);
	EXPECT_EQ(KIND::index(), 0u);
	/* The node of a high-resolution timer stays, empty. */
	EXPECT_EQ(KIND::list()->count, KIND::keeps_empty_node ? 1u : 0u);
	EXPECT_EQ(tracked_blocks(), KIND::keeps_empty_node ? 2u : 1u);
	EXPECT_EQ(this->make(), 1u);
	EXPECT_EQ(this->start(1, 100), ok);
	EXPECT_EQ(this->start(2, 100), not_found);
}

TYPED_TEST(Timer, MakesTwoAllocationsOnceThereIsAList)
{
	this->make();
	u32 made = 0;

	EXPECT_EQ(this->fail_each_allocation([&](unsigned int) {
		made = this->make();
	}),
		  2u);

	EXPECT_EQ(made, 2u);
	reports();
	fake::log_text();
}

TYPED_TEST(Timer, LosesItsIdWhenItCannotBeListed)
{
	USING_FIXTURE;
	EXPECT_EQ(this->make(), 1u);
	const size_t blocks = tracked_blocks();
	u32 id = 4711;
	KIND::list()->magic = 0;

	EXPECT_EQ(KIND::init(owner, &id, note_expiry, 0, "caller.c", 7),
		  bad_value);

	EXPECT_EQ(this->new_reports(),
		  this->said("init", "Add timer node failed."));
	EXPECT_EQ(id, 4711u);
	EXPECT_EQ(KIND::index(), 2u);
	EXPECT_EQ(KIND::list()->count, 1u);
	EXPECT_EQ(tracked_blocks(), blocks);
	KIND::list()->magic = 0xDEADBEEF;
	EXPECT_EQ(this->start(2, 100), not_found);
	EXPECT_EQ(this->make(), 3u);
	EXPECT_EQ(this->listed().size(), 2u);
}

/* In whose name a block is freed shows when its guard is torn. */
TYPED_TEST(Timer, IsFreedInTheNameOfThisModuleWhenItCannotBeMade)
{
	USING_FIXTURE;
	this->make();
	on_report([](const report &) {
		tear_all();
	});
	u32 id = 4711;

	fake::fail_allocation(2);
	EXPECT_EQ(KIND::init(owner, &id, note_expiry, 0, "caller.c", 7),
		  failed);
	EXPECT_EQ(this->torn_frees(), texts(KIND::keeps_empty_node ? 0 : 1,
					    "ZORVA, zorva_timer.cpp"));

	KIND::list()->magic = 0;
	EXPECT_EQ(KIND::init(owner, &id, note_expiry, 0, "caller.c", 7),
		  bad_value);
	KIND::list()->magic = 0xDEADBEEF;
	EXPECT_EQ(this->torn_frees(), texts(2, "ZORVA, zorva_timer.cpp"));
}

TYPED_TEST(Timer, ReportsItsCreationUnderTheTimerLockAndItsRefreshWithoutIt)
{
	USING_FIXTURE;
	std::vector<bool> locked;
	this->make();
	KIND::list()->magic = 0;
	on_report([&](const report &made) {
		locked.push_back(made.at.holds(&_zorvaTimerLock));
	});

	this->make();
	this->refresh(1, 100);

	EXPECT_EQ(locked, (std::vector<bool>{ true, false }));
	reports();
}

TYPED_TEST(Timer, IsLimitedInNumber)
{
	USING_FIXTURE;
	for (u32 i = 1; i <= KIND::limit; ++i)
		ASSERT_EQ(this->make(), i);
	const size_t allocated = fake::heap_calls().size();
	u32 id = 4711;

	EXPECT_EQ(KIND::init(owner, &id, note_expiry, 0, "caller.c", 7),
		  failed);

	EXPECT_EQ(this->new_reports(),
		  this->said("init", fake::format("Maximum timer(=%d) has been "
						  "reached",
						  KIND::limit)));
	EXPECT_EQ(id, 4711u);
	EXPECT_EQ(fake::heap_calls().size(), allocated);
	EXPECT_EQ(KIND::list()->count, KIND::limit);
	EXPECT_EQ(this->start(1, 100), ok);
	EXPECT_EQ(this->start(KIND::limit, 100), ok);
	EXPECT_EQ(this->start(KIND::limit + 1, 100), not_found);
}

/* Look-up. */

TYPED_TEST(Timer, IsFoundWhenALaterOneHasItsPlaceInTheTable)
{
	USING_FIXTURE;
	EXPECT_EQ(this->make(), 1u);
	EXPECT_EQ(this->make(), 2u);
	/* IDs are lost until two that are a whole table apart can meet. */
	KIND::list()->magic = 0;
	for (u32 i = 2; i < KIND::limit; ++i)
		EXPECT_EQ(this->make(), 0u);
	KIND::list()->magic = 0xDEADBEEF;
	const u32 colliding = this->make();
	this->new_reports();
	ASSERT_EQ(colliding, KIND::limit + 1);

	EXPECT_EQ(this->start(1, 100, "one.c"), ok);
	EXPECT_EQ(this->start(colliding, 200, "other.c"), ok);
	EXPECT_EQ(this->start(2, 300, "two.c"), ok);

	EXPECT_EQ(this->state(this->listed()[0]), "100 1 10 one.c");
	EXPECT_EQ(this->state(this->listed()[1]), "300 1 10 two.c");
	EXPECT_EQ(this->state(this->listed()[2]), "200 1 10 other.c");
	EXPECT_EQ(this->stop(1), ok);
	EXPECT_EQ(this->listed()[0]->running, 0u);
	EXPECT_EQ(this->listed()[2]->running, 1u);
	EXPECT_EQ(this->start(2 * KIND::limit + 1, 100), not_found);
}

TYPED_TEST(Timer, IsNotFoundInAListWithoutItsMagic)
{
	USING_FIXTURE;
	const u32 id = this->make();
	this->start(id, 100);
	KIND::list()->magic = 0;
	fake::forget_calls();

	EXPECT_EQ(this->start(id, 200), not_found);
	EXPECT_EQ(this->stop(id), not_found);
	EXPECT_EQ(this->new_reports(), "");
	EXPECT_EQ(this->refresh(id, 200), not_found);

	EXPECT_EQ(this->new_reports(),
		  this->said("refresh", std::string("Stop ") +
						KIND::kind_in_text +
						" failed. (caller.c,30)"));
	EXPECT_TRUE(fake::calls().empty());
	KIND::list()->magic = 0xDEADBEEF;
	EXPECT_EQ(this->state(this->newest()), "100 1 10 caller.c");
}

TYPED_TEST(Timer, IsNotFoundByAnIdThatNobodyHas)
{
	USING_FIXTURE;
	this->make();

	for (u32 id : { 0u, 2u, KIND::limit, KIND::limit + 1, 0xFFFFFFFFu }) {
		EXPECT_EQ(this->start(id, 100), not_found);
		EXPECT_EQ(this->stop(id), not_found);
	}

	EXPECT_EQ(this->new_reports(), "");
}

/* Start. */

TYPED_TEST(Timer, RefusesWrongArgumentsOfItsStartInOrder)
{
	USING_FIXTURE;
	static const u32 id = 1;
	const auto with = [](u32 compId, const u32 *which, u32 msecs,
			     const char *file) {
		return [=] {
			return KIND::start(compId, which, msecs, file, 7);
		};
	};

	/* Nothing was ever made, so that the last test fails as well. */
	this->refuses("zorva_timer.cpp", this->func("start"),
		      { { bad_component, with(0, &id, 1, "f.c"),
			  with(0, nullptr, 0, nullptr) },
			{ bad_component, with(57, &id, 1, "f.c"),
			  with(0xFFFFFFFF, nullptr, 0, nullptr) },
			{ null_argument, with(owner, nullptr, 1, "f.c"),
			  with(owner, nullptr, 0, nullptr) },
			{ bad_value, with(owner, &id, 0, "f.c"),
			  with(owner, &id, 0, nullptr) },
			{ null_argument, with(owner, &id, 1, nullptr),
			  with(owner, &id, 1, nullptr) },
			{ failed, with(owner, &id, 1, "f.c"),
			  with(owner, &id, 1, "f.c") } });
}

TYPED_TEST(Timer, RunsOnceStartedByAnyComponent)
{
	USING_FIXTURE;
	const u32 id = this->make();

	EXPECT_EQ(KIND::start(other, &id, 100, "caller.c", 10), ok);

	EXPECT_EQ(this->state(this->newest()), "100 1 10 caller.c");
	EXPECT_TRUE(fake::is_pending(&this->newest()->timer));
	EXPECT_EQ(this->newest()->component, owner);
	EXPECT_EQ(this->new_reports(), "");
}

TYPED_TEST(Timer, KeepsThe15FirstCharactersOfTheFileThatStartedIt)
{
	const u32 id = this->make();
	const std::string name = "fifteen-charac.c";

	for (size_t i = 0; i < 4; ++i) {
		alignas(4) char file[32] = {};
		name.copy(file + i, name.size());
		EXPECT_EQ(this->start(id, 100, file + i), ok);

		EXPECT_STREQ(this->newest()->startFile, "fifteen-charac.");
		this->stop(id);
	}
	EXPECT_EQ(this->start(id, 100, name.c_str() + 1), ok);
	EXPECT_STREQ(this->newest()->startFile, "ifteen-charac.c");
}

TYPED_TEST(Timer, IsStartedUnderOneLockUnlessItsFileIsNotAtAWord)
{
	const u32 id = this->make();
	alignas(4) const char file[] = "file.c";

	for (u32 i = 0; i < 4; ++i) {
		const size_t taken = fake::spin_locks_taken();

		EXPECT_EQ(this->start(id, 100, file + i), ok);

		EXPECT_EQ(fake::spin_locks_taken() - taken, i ? 2u : 1u) << i;
		this->stop(id);
	}
}

TYPED_TEST(Timer, GoesOnAsItWasWhenStartedTwice)
{
	const u32 id = this->make();
	this->start(id, 100, "first.c", 10);
	fake::forget_calls();

	EXPECT_EQ(this->start(id, 200, "second.c", 11), failed);

	EXPECT_EQ(this->new_reports(), "");
	EXPECT_EQ(this->state(this->newest()), "100 1 10 first.c");
	EXPECT_TRUE(fake::calls().empty());
	fake::sleep_for(100 * msec);
	EXPECT_EQ(expiries.size(), 1u);
}

TYPED_TEST(Timer, IsArmedAndDisarmedUnderTheTimerLock)
{
	const u32 id = this->make();
	fake::forget_calls();

	this->start(id, 100);
	this->stop(id);

	EXPECT_EQ(fake::calls().size(), 2u);
	for (const fake::call &each : fake::calls())
		EXPECT_TRUE(each.at.holds(&_zorvaTimerLock));
}

TYPED_TEST(Timer, IsCompleteBeforeTheLockIsGiven)
{
	USING_FIXTURE;
	static u32 id;
	static texts seen;
	const auto look = [this](const void *lock) {
		if (lock != &_zorvaTimerLock)
			return;
		const record *const timer = this->newest();
		const int pending = fake::is_pending(&timer->timer);

		seen.push_back(fake::format("%u: %s, %d", id,
					    this->state(timer).c_str(),
					    pending));
	};
	fake::before_spin_unlock(look);

	KIND::init(owner, &id, note_expiry, 0, "caller.c", 7);
	this->start(id, 100);
	this->stop(id);
	this->start(id, 200);
	fake::sleep_for(200 * msec);
	fake::before_spin_unlock(nullptr);

	EXPECT_EQ(expiries.size(), 1u);
	EXPECT_EQ(seen, texts({ "1: 0 0 0 , 0", "1: 100 1 10 caller.c, 1",
				"1: 0 0 0 , 0", "1: 200 1 10 caller.c, 1",
				"1: 0 0 0 , 0" }));
}

/* Stop. */

TYPED_TEST(Timer, RefusesWrongArgumentsOfItsStopInOrder)
{
	USING_FIXTURE;
	static const u32 id = 1;
	const auto with = [](u32 compId, const u32 *which, const char *file) {
		return [=] {
			return KIND::stop(compId, which, file, 7);
		};
	};

	this->refuses("zorva_timer.cpp", this->func("stop"),
		      { { bad_component, with(0, &id, "f.c"),
			  with(0, nullptr, nullptr) },
			{ bad_component, with(57, &id, "f.c"),
			  with(0xFFFFFFFF, nullptr, nullptr) },
			{ null_argument, with(owner, nullptr, "f.c"),
			  with(owner, nullptr, nullptr) },
			{ null_argument, with(owner, &id, nullptr),
			  with(owner, &id, nullptr) },
			{ failed, with(owner, &id, "f.c"),
			  with(owner, &id, "f.c") } });
}

TYPED_TEST(Timer, IsIdleAndDoesNotExpireWhenStopped)
{
	USING_FIXTURE;
	const u32 id = this->make();
	this->start(id, 100);
	fake::forget_calls();

	EXPECT_EQ(KIND::stop(other, &id, "caller.c", 20), ok);

	EXPECT_EQ(fake::call_texts({ KIND::disarm }), texts{ KIND::disarm });
	EXPECT_EQ(this->state(this->newest()), "0 0 0 ");
	for (char byte : this->newest()->startFile)
		EXPECT_EQ(byte, '\0');
	fake::sleep_for(sec);
	EXPECT_TRUE(expiries.empty());
	EXPECT_EQ(this->new_reports(), "");
}

TYPED_TEST(Timer, MayBeStoppedWhenIdleWhichClearsItAllTheSame)
{
	const u32 id = this->make();
	this->newest()->period = 1;
	this->newest()->startLine = 2;
	for (char &byte : this->newest()->startFile)
		byte = 'x';
	fake::forget_calls();

	EXPECT_EQ(this->stop(id), ok);

	EXPECT_TRUE(fake::calls().empty());
	EXPECT_EQ(this->state(this->newest()), "0 0 0 ");
	for (char byte : this->newest()->startFile)
		EXPECT_EQ(byte, '\0');
}

/* Refresh. */

TYPED_TEST(Timer, RefusesWrongArgumentsOfItsRefreshInOrder)
{
	USING_FIXTURE;
	static const u32 id = 1;
	const auto with = [](u32 compId, const u32 *which, u32 msecs,
			     const char *file) {
		return [=] {
			return KIND::refresh(compId, which, msecs, file, 7);
		};
	};

	this->refuses("zorva_timer.cpp", this->func("refresh"),
		      { { bad_component, with(0, &id, 1, "f.c"),
			  with(0, nullptr, 0, nullptr) },
			{ bad_component, with(57, &id, 1, "f.c"),
			  with(0xFFFFFFFF, nullptr, 0, nullptr) },
			{ null_argument, with(owner, nullptr, 1, "f.c"),
			  with(owner, nullptr, 0, nullptr) },
			{ bad_value, with(owner, &id, 0, "f.c"),
			  with(owner, &id, 0, nullptr) },
			{ null_argument, with(owner, &id, 1, nullptr),
			  with(owner, &id, 1, nullptr) } });
}

TYPED_TEST(Timer, StartsAnewWhenRefreshed)
{
	USING_FIXTURE;
	const u32 id = this->make();
	this->start(id, 100);
	fake::sleep_for(60 * msec);

	EXPECT_EQ(KIND::refresh(other, &id, 100, "caller.c", 30), ok);

	EXPECT_EQ(this->state(this->newest()), "100 1 30 caller.c");
	fake::sleep_for(90 * msec);
	EXPECT_TRUE(expiries.empty());
	fake::sleep_for(10 * msec);
	ASSERT_EQ(expiries.size(), 1u);
	EXPECT_EQ(expiries[0].when, 160 * msec);
	EXPECT_EQ(this->new_reports(), "");
}

TYPED_TEST(Timer, StartsWhenRefreshedThoughItWasIdle)
{
	const u32 id = this->make();

	EXPECT_EQ(this->refresh(id, 100), ok);

	EXPECT_EQ(this->newest()->running, 1u);
}

TYPED_TEST(Timer, IsStoppedWithoutTheLockInTheMiddleOfARefresh)
{
	const u32 id = this->make();
	this->start(id, 100);
	const size_t taken = fake::spin_locks_taken();

	this->refresh(id, 100);

	EXPECT_EQ(fake::spin_locks_taken(), taken + 2);
}

TYPED_TEST(Timer, SaysThatARefreshCouldNotStopIt)
{
	USING_FIXTURE;

	EXPECT_EQ(this->refresh(1, 100), failed);
	EXPECT_EQ(this->new_reports(),
		  this->said("stop", "invalid parameter") +
			  this->said("refresh",
				     fake::format("Stop %s failed. "
						  "(caller.c,30)",
						  KIND::kind_in_text)));

	this->make();
	EXPECT_EQ(this->refresh(2, 100), not_found);
	EXPECT_EQ(this->new_reports(),
		  this->said("refresh",
			     fake::format("Stop %s failed. (caller.c,30)",
					  KIND::kind_in_text)));
}

TYPED_TEST(Timer, SaysThatARefreshCouldNotStartIt)
{
	USING_FIXTURE;
	const u32 id = this->make();
	this->start(id, 100);
	fake::on_call([this](const fake::call &made) {
		if (made.text == KIND::disarm)
			this->newest()->timerId = 4711;
	});

	EXPECT_EQ(this->refresh(id, 100), not_found);

	EXPECT_EQ(this->new_reports(),
		  this->said("refresh",
			     fake::format("Start %s failed. (caller.c,30)",
					  KIND::kind_in_text)));
	EXPECT_EQ(this->newest()->running, 0u);
}

TYPED_TEST(Timer, SaysAnyLineWhereARefreshFails)
{
	USING_FIXTURE;
	const u32 id = this->make();
	const auto refresh_fails = [&](const char *what) {
		EXPECT_EQ(KIND::refresh(owner, &id, 100, "caller.c",
					4000000000),
			  not_found);
		EXPECT_EQ(this->new_reports(),
			  this->said("refresh",
				     fake::format("%s %s failed. "
						  "(caller.c,4000000000)",
						  what, KIND::kind_in_text)));
	};
	this->start(id, 100);
	fake::on_call([this](const fake::call &made) {
		if (made.text == KIND::disarm)
			this->newest()->timerId = 4711;
	});

	refresh_fails("Start");
	refresh_fails("Stop");
}

/* Expiry. */

TYPED_TEST(Timer, CallsItsCallbackOnceInItsInterruptWithoutTheLock)
{
	USING_FIXTURE;
	const u32 id = this->make(0xFFFFFFFF);
	std::string state_then;
	on_expiry = [&](unsigned long) {
		state_then = this->state(this->newest());
	};
	this->start(id, 100);

	fake::sleep_for(99 * msec);
	EXPECT_TRUE(expiries.empty());
	fake::sleep_for(10 * sec);

	ASSERT_EQ(expiries.size(), 1u);
	EXPECT_EQ(expiries[0].data, 0xFFFFFFFFul);
	EXPECT_EQ(expiries[0].when, 100 * msec);
	EXPECT_TRUE(expiries[0].at.in_interrupt);
	EXPECT_EQ(expiries[0].at.interrupts_off, KIND::in_hard_interrupt);
	EXPECT_TRUE(expiries[0].at.locks.empty());
	EXPECT_EQ(state_then, "0 0 0 ");
	for (char byte : this->newest()->startFile)
		EXPECT_EQ(byte, '\0');
}

TYPED_TEST(Timer, ExpiresWhileATaskIsBusy)
{
	this->start(this->make(), 100);

	zk_udelay(150000);

	ASSERT_EQ(expiries.size(), 1u);
	EXPECT_EQ(expiries[0].when, 100 * msec);
}

TYPED_TEST(Timer, MayBeStartedAgainByItsCallback)
{
	const u32 id = this->make();
	on_expiry = [&](unsigned long) {
		if (expiries.size() < 3) {
			EXPECT_EQ(this->start(id, 50, "again.c", 77), ok);
		}
	};
	this->start(id, 100);

	fake::sleep_for(120 * msec);
	EXPECT_EQ(this->state(this->newest()), "50 1 77 again.c");
	fake::sleep_for(10 * sec);

	ASSERT_EQ(expiries.size(), 3u);
	EXPECT_EQ(expiries[1].when, 150 * msec);
	EXPECT_EQ(expiries[2].when, 200 * msec);
	EXPECT_EQ(this->newest()->running, 0u);
}

TYPED_TEST(Timer, MayBeRefreshedOnceByItsCallback)
{
	const u32 id = this->make();
	on_expiry = [&](unsigned long) {
		if (expiries.size() < 2) {
			EXPECT_EQ(this->refresh(id, 50), ok);
		}
	};
	this->start(id, 100);

	fake::sleep_for(10 * sec);

	ASSERT_EQ(expiries.size(), 2u);
	EXPECT_EQ(expiries[1].when, 150 * msec);
}

TYPED_TEST(Timer, MayBeStoppedByTheCallbackOfAnother)
{
	const u32 first = this->make(1);
	const u32 second = this->make(2);
	on_expiry = [&](unsigned long) {
		EXPECT_EQ(this->stop(second), ok);
	};
	this->start(first, 100);
	this->start(second, 110);

	fake::sleep_for(10 * sec);

	ASSERT_EQ(expiries.size(), 1u);
	EXPECT_EQ(expiries[0].data, 1u);
}

/* The report. */

TYPED_TEST(Timer, HasAReportOfItsHeaderOnlyBeforeTheFirst)
{
	EXPECT_EQ(file_text(TypeParam::entry), timer_report_header);
}

TYPED_TEST(Timer, IsReportedRunningOrIdleInTheOrderOfCreation)
{
	USING_FIXTURE;
	u32 id = 0;
	this->make(5);
	KIND::init(other, &id, note_expiry, 0xFFFFFFFF, "caller.c", 7);
	KIND::init(9, &id, note_expiry, 123456, "caller.c", 7);
	this->start(2, 1000, "somebody-else.c", 4000000000);
	this->start(3, 1234567890, "x.c", 1);

	EXPECT_EQ(file_text(KIND::entry),
		  std::string(timer_report_header) +
			  "PORT       1        5     0        0        --\n"
			  "VLAN       2        42949672951000     1        "
			  "somebody-else.c, 4000000000\n"
			  "ZORVA      3        1234561234567890"
			  "1        x.c, 1\n");
	this->stop(2);
	this->stop(3);
	EXPECT_EQ(file_text(KIND::entry),
		  std::string(timer_report_header) +
			  "PORT       1        5     0        0        --\n"
			  "VLAN       2        42949672950        0        "
			  "--\n"
			  "ZORVA      3        1234560        0        --\n");
}

TYPED_TEST(Timer, IsReportedIdleOnceItHasExpired)
{
	this->start(this->make(), 100);
	fake::sleep_for(sec);

	EXPECT_EQ(file_text(TypeParam::entry),
		  std::string(timer_report_header) +
			  "PORT       1        5     0        0        --\n");
}

TYPED_TEST(Timer, IsCopiedUnderTheTimerLockAndReportedWithoutIt)
{
	this->make();
	this->make();
	const size_t locked = fake::spin_locks_taken();

	const report_run run = run_report(TypeParam::dump, 4096);

	EXPECT_EQ(run.result, 0);
	EXPECT_EQ(run.prints.size(), 6u);
	/* Once to count, and once to copy. */
	EXPECT_EQ(fake::spin_locks_taken(), locked + 2);
	for (const fake::seq_print &each : run.prints)
		EXPECT_TRUE(each.at.may_sleep()) << each.text;
}

TYPED_TEST(Timer, IsReportedUnderTheTimerLockWithoutMemoryForACopy)
{
	this->make();
	this->start(this->make(), 100);
	const report_run copied = run_report(TypeParam::dump, 4096);

	const report_run run = run_report_without_copy(TypeParam::dump, 4096);

	EXPECT_EQ(run.result, 0);
	EXPECT_EQ(run.text, copied.text);
	ASSERT_EQ(run.prints.size(), 6u);
	for (size_t i = 2; i < 6; ++i)
		EXPECT_TRUE(run.prints[i].at.holds(&_zorvaTimerLock));
	this->stop(2);
}

TYPED_TEST(Timer, IsReportedWithThoseThatWereMadeWhileMemoryWasTaken)
{
	this->make();
	fake::before_kvmalloc([this] {
		this->make();
	});

	const report_run run = run_report(TypeParam::dump, 4096);

	EXPECT_EQ(run.prints.size(), 6u);
}

TYPED_TEST(Timer, IsReportedWithNumbersWithoutASign)
{
	this->make(0xFFFFFFFF);
	auto *const timer = this->newest();
	timer->timerId = 0xFFFFFFFE;
	timer->period = 0xFFFFFFFD;
	timer->running = 0xFFFFFFFC;
	timer->startLine = 0xFFFFFFFB;

	EXPECT_EQ(file_text(TypeParam::entry),
		  std::string(timer_report_header) +
			  "PORT       4294967294429496729542949672934294967292"
			  ", 4294967291\n");
}

TYPED_TEST(Timer, IsNeitherFoundNorReportedWithoutARecord)
{
	USING_FIXTURE;
	this->make();
	KIND::list()->pFirst->pData = nullptr;

	EXPECT_EQ(this->start(2, 100), not_found);
	EXPECT_EQ(file_text(KIND::entry), timer_report_header);
}

/* What only tick timers have. */

TEST_F(TickTimer, IsPreparedForTheKernelWithoutNameAndFlags)
{
	make();

	const auto made = fake::calls_to({ "init_timer_key" });
	ASSERT_EQ(made.size(), 1u);
	EXPECT_EQ(made[0].text, "init_timer_key 0 (null) none");
	EXPECT_EQ(made[0].object, &newest()->timer);
}

TEST_F(TickTimer, ExpiresAfterWholeTicksRoundedDown)
{
	const struct {
		u32 msecs;
		const char *ticks;
	} cases[] = {
		{ 1, "0" },
		{ 5, "0" },
		{ 9, "0" },
		{ 10, "1" },
		{ 15, "1" },
		{ 19, "1" },
		{ 20, "2" },
		{ 1000, "100" },
		{ 42949672, "4294967" },
		/* From here on the product with 100 wraps. */
		{ 42949673, "0" },
		{ 42949683, "1" },
		{ 0x80000000, "0" },
		{ 0xFFFFFFFF, "4294967" },
	};
	const u32 id = make();

	for (const auto &each : cases) {
		fake::forget_calls();

		EXPECT_EQ(start(id, each.msecs), ok);

		EXPECT_EQ(fake::call_texts({ "add_timer" }),
			  texts{ std::string("add_timer ") + each.ticks })
			<< each.msecs;
		EXPECT_EQ(newest()->period, each.msecs);
		stop(id);
	}
}

TEST_F(TickTimer, ExpiresAtTheCountOfTicksThatLiesAhead)
{
	const u32 id = make();

	fake::set_jiffies(1000);
	start(id, 1000);
	EXPECT_EQ(fake::expiry_of(&newest()->timer), 1100ul);
	stop(id);
	start(id, 5);
	EXPECT_EQ(fake::expiry_of(&newest()->timer), 1000ul);
	fake::sleep_for(10 * msec);

	ASSERT_EQ(expiries.size(), 1u);
	EXPECT_EQ(expiries[0].when, 10 * msec);
}

TEST_F(TickTimer, ExpiresAcrossTheWrapOfTheCountOfTicks)
{
	const u32 id = make();
	fake::set_jiffies(0xFFFFFFF0);

	start(id, 1000);

	EXPECT_EQ(fake::expiry_of(&newest()->timer), 0x54ul);
	fake::sleep_for(999 * msec);
	EXPECT_TRUE(expiries.empty());
	fake::sleep_for(msec);
	EXPECT_EQ(expiries.size(), 1u);
}

/*
 * An interrupt refreshes the timer when it is no longer pending, and not yet
 * marked as expired; the expiry that is under way then calls the callback.
 */
TEST_F(TickTimer, IsArmedAnewByItsCallbackWhenItIsPending)
{
	const u32 id = make();
	on_expiry = [&](unsigned long) {
		if (expiries.size() < 2) {
			EXPECT_EQ(start(id, 50), ok);
		}
	};
	EXPECT_EQ(refresh(id, 100), ok);

	_zorva_timer_wrapper(&newest()->timer);
	EXPECT_EQ(expiries.size(), 1u);
	fake::sleep_for(sec);

	ASSERT_EQ(expiries.size(), 2u);
	EXPECT_EQ(expiries[1].when, 50 * msec);
}

/* The same; then it is stopped, but counts as not running any more. */
TEST_F(TickTimer, ExpiresThoughStoppedWhenTheExpiryUnderWayHasMarkedIt)
{
	const u32 id = make();
	EXPECT_EQ(refresh(id, 100), ok);

	_zorva_timer_wrapper(&newest()->timer);
	EXPECT_EQ(state(newest()), "0 0 0 ");
	fake::forget_calls();
	EXPECT_EQ(stop(id), ok);

	EXPECT_EQ(fake::call_texts({ "del_timer" }), texts());
	EXPECT_TRUE(fake::is_pending(&newest()->timer));
	fake::sleep_for(sec);
	ASSERT_EQ(expiries.size(), 2u);
	EXPECT_EQ(expiries[1].when, 100 * msec);
}

TEST_F(TickTimer, HasNoRecordWhenTheKernelHasNoTimer)
{
	_zorva_timer_wrapper(reinterpret_cast<timer_list *>(
		__builtin_offsetof(tick_timer, timer)));

	EXPECT_EQ(fake::spin_locks_taken(), 0u);
}
