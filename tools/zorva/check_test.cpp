// SPDX-License-Identifier: GPL-2.0
#include "check.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace zorva
{
namespace
{

/* A switch on which all is well, before a test changes it. */
class Check : public testing::Test {
protected:
	Check()
	{
		for (lock_report &one : now_.locks)
			one.state = whole();
		now_.blocks.state = whole();
		now_.threads.state = whole();
		now_.queues.state = whole();
		now_.blocks.components.resize(1);
		now_.blocks.components[0].name = "PORT";
	}

	static report_state whole()
	{
		report_state state;

		state.present = state.whole = true;
		state.now = 100;
		return state;
	}

	/* A block of each of these times, all of one place. */
	void allocate(const std::vector<uint64_t> &times)
	{
		now_.blocks.sites.push_back({ "a.c", 7 });
		for (const uint64_t time : times) {
			block one;

			one.address = 0x1000 * (now_.blocks.blocks.size() + 1);
			one.time = time;
			one.size = 10;
			one.site = static_cast<uint32_t>(
				now_.blocks.sites.size() - 1);
			now_.blocks.blocks.push_back(one);
		}

		component_usage &owner = now_.blocks.components[0];

		owner.allocs = owner.delta =
			static_cast<uint32_t>(now_.blocks.blocks.size());
		owner.current = owner.max = 10 * owner.delta;
	}

	void add_mutex(const std::string &name, int64_t locker, uint64_t time)
	{
		lock one;

		one.mutex = true;
		one.name = name;
		one.component = "PORT";
		one.taken = true;
		one.locker_pid = locker;
		one.locker_name = "t" + name;
		one.history.push_back({ .time = time,
					.give = false,
					.from = { "m.c", 5 },
					.timeout_ms = {},
					.at = {} });
		now_.locks[1].locks.push_back(one);
	}

	/* The kinds that are found, and whether they are wrong. */
	std::string found()
	{
		const waits of = find_waits(now_, {});
		std::string text;

		problems_ = find_problems({ &now_ }, of);
		for (const problem &one : problems_)
			text += fmt::format("{}{} ", trouble_name(one.what),
					    one.wrong() ? "" : "(note)");
		return text;
	}

	model now_;
	std::vector<problem> problems_;
};

TEST_F(Check, FindsNothingOnASoundSwitch)
{
	allocate({ 1, 1, 1, 2, 2, 50, 99 });
	add_mutex("m", 10, 99);

	EXPECT_EQ(found(), "");
}

TEST_F(Check, SuspectsWhatComesOneByOneAndStays)
{
	std::vector<uint64_t> times;

	for (uint64_t time = 60; time < 100; ++time)
		times.push_back(time);
	allocate(times);

	EXPECT_EQ(found(), "leak ");
	EXPECT_EQ(problems_[0].title,
		  "GROWS, probably a leak: PORT at a.c:7, 40 blocks, 400 B");
	ASSERT_EQ(problems_[0].sites.size(), 1u);
	EXPECT_EQ(problems_[0].sites[0].line, 7);
}

TEST_F(Check, DoesNotSuspectWhatCameAtOnce)
{
	allocate(std::vector<uint64_t>(500, 3));

	EXPECT_EQ(found(), "");
}

TEST_F(Check, DoesNotSuspectWhatStoppedLongAgo)
{
	std::vector<uint64_t> times;

	for (uint64_t time = 1; time < 40; ++time)
		times.push_back(time);
	allocate(times);

	EXPECT_EQ(found(), "");
}

TEST_F(Check, DoesNotSuspectAComponentThatHadMoreBefore)
{
	std::vector<uint64_t> times;

	for (uint64_t time = 60; time < 100; ++time)
		times.push_back(time);
	allocate(times);
	now_.blocks.components[0].max *= 2;

	EXPECT_EQ(found(), "");
}

TEST_F(Check, TellsAQueueThatIsFullFromOneThatWas)
{
	queue one;

	one.name = "q";
	one.component = "PORT";
	one.max_depth = 4;
	one.depth = one.max_seen = 4;
	now_.queues.queues = { one };
	one.depth = 0;
	now_.queues.queues.push_back(one);
	one.max_seen = 3;
	now_.queues.queues.push_back(one);

	EXPECT_EQ(found(), "full_queue was_full(note) ");
	EXPECT_EQ(problems_[0].title,
		  "FULL QUEUE 'q' of PORT: 4 of 4 messages");
	ASSERT_EQ(problems_[0].details.size(), 1u);
	EXPECT_EQ(problems_[0].details[0], "nobody has received from it");
}

TEST_F(Check, NamesADamagedBlockByItsPlace)
{
	allocate({ 3 });
	torn_block one;

	one.header = 0x9000;
	now_.blocks.torn.push_back(one);
	now_.blocks.components[0].delta = 2;

	EXPECT_EQ(found(), "damaged_block ");
	EXPECT_EQ(problems_[0].title,
		  "DAMAGED BLOCK of PORT, allocated at a.c:7");
}

TEST_F(Check, KnowsAMutexWhoseHolderHasEnded)
{
	task init;

	init.pid = 1;
	now_.tasks.push_back(init);
	add_mutex("m", 77, 50);

	EXPECT_EQ(found(), "lost_lock ");
	EXPECT_EQ(problems_[0].title,
		  "LOST: mutex 'm' is held by tm (77), which has ended");
}

TEST_F(Check, KnowsThatMemoryIsLow)
{
	now_.kernel_memory = { { "MemTotal", 1000000, {} },
			       { "MemAvailable", 10000, {} } };

	EXPECT_EQ(found(), "low_memory ");
}

TEST_F(Check, KnowsThatTimersRunOut)
{
	now_.hr_timers.timers.resize(58);

	EXPECT_EQ(found(), "timers_gone ");
}

TEST_F(Check, EscapesWhatItNames)
{
	queue one;

	one.name = "q\x1b]0;";
	one.component = "\r\n";
	one.max_depth = 1;
	one.depth = 1;
	now_.queues.queues = { one };
	found();

	ASSERT_EQ(problems_.size(), 1u);
	EXPECT_EQ(problems_[0].title,
		  "FULL QUEUE 'q\\x1b]0;' of \\x0d\\x0a: 1 of 1 messages");
}

} // namespace
} // namespace zorva
