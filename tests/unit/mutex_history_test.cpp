// SPDX-License-Identifier: GPL-2.0
/* Tracked mutexes: their history, and who holds them. */
#include "mutex_fixture.h"

#include <string.h>
#include <sys/mman.h>

namespace
{

class MutexHistory : public TrackedMutex {};

class MutexIsLocked : public TrackedMutex {};

} // namespace

/* The history. */

TEST_F(MutexHistory, KeepsTheNewest8Of9Calls)
{
	zorva_mutex *const mutex = create();
	texts expected;

	for (u32 line = 1; line <= 9; ++line) {
		fake::set_uptime(line * sec);
		if (line % 2)
			take(mutex, line);
		else
			give(mutex, line);
		expected.insert(expected.begin(),
				fake::format("%u caller.c:%u at %u",
					     line % 2 ? 0 : 1, line, line));
	}

	expected.pop_back();
	EXPECT_EQ(history(mutex), expected);
	EXPECT_EQ(mutex->historyHead, 1);
	give(mutex);
	destroy(mutex);
}

TEST_F(MutexHistory, StartsInTheSecondSlotAndWrapsAfterTheLast)
{
	zorva_mutex *const mutex = create();

	for (int i = 1; i <= 8; ++i) {
		give(mutex, i);
		EXPECT_EQ(mutex->historyHead, i % 8);
		EXPECT_EQ(mutex->history[i % 8].line, static_cast<u32>(i));
	}

	destroy(mutex);
}

TEST_F(MutexHistory, KeepsThe15FirstCharactersOfAFile)
{
	zorva_mutex *const mutex = create();
	alignas(4) const char name[32] = "xxxxfifteen-charac.c";
	const char *const files[] = { name,	 name + 1,  name + 2,
				      name + 3,	 name + 4,  name + 5,
				      name + 16, name + 17, name + 20 };

	for (const char *file : files) {
		zorva_mutex_give_track(owner, mutex, file, 1);

		EXPECT_EQ(mutex->history[mutex->historyHead].file,
			  std::string(file).substr(0, 15));
	}

	destroy(mutex);
}

TEST_F(MutexHistory, KeepsAnyLineAndAnyAction)
{
	zorva_mutex *const mutex = create();

	zorva_mutex_history_record(mutex, 7, "caller.c", 0xFFFFFFFF);
	EXPECT_EQ(mutex->locked, 6u);
	fake::set_uptime(5 * sec);
	zorva_mutex_history_record(mutex, 0, "caller.c", 0);
	EXPECT_EQ(mutex->locked, 1u);
	EXPECT_EQ(mutex->history[2].time, 5u);

	EXPECT_EQ(history(mutex), texts{ "7 caller.c:4294967295 at 0" });
	EXPECT_EQ(mutex->historyHead, 2);
	destroy(mutex);
}

TEST_F(MutexHistory, ReadsAFileNoFurtherThanTheWordWithItsEnd)
{
	const size_t page = 4096;
	void *const pages = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE,
				 MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
	zorva_mutex *const mutex = create();

	ASSERT_NE(pages, MAP_FAILED);
	char *const end = static_cast<char *>(pages) + page;
	ASSERT_EQ(mprotect(end, page, PROT_NONE), 0);
	for (size_t length = 0; length < 20; ++length) {
		const std::string name(length, 'x');
		char *const file = end - (length / 4 + 1) * 4;

		memset(file, 'z', end - file);
		strcpy(file, name.c_str());
		zorva_mutex_history_record(mutex, 0, file, 1);

		EXPECT_EQ(mutex->history[mutex->historyHead].file,
			  name.substr(0, 15));
	}
	destroy(mutex);
}

TEST_F(MutexHistory, KeepsBytesOfEveryValueOfAFile)
{
	zorva_mutex *const mutex = create();

	for (int byte = 1; byte < 256; ++byte) {
		const std::string name(15, static_cast<char>(byte));
		alignas(4) char file[16];

		strcpy(file, name.c_str());
		zorva_mutex_history_record(mutex, 0, file, 1);

		EXPECT_EQ(mutex->history[mutex->historyHead].file, name)
			<< byte;
	}
	destroy(mutex);
}

TEST_F(MutexHistory, ReadsTheTimeBeforeItTakesTheRegistrysLock)
{
	zorva_mutex *const mutex = create();
	fake::set_uptime(5 * sec);
	fake::on_call([](const fake::call &made) {
		if (made.text == "down")
			fake::set_uptime(9 * sec);
	});
	const size_t read = fake::coarse_readings().size();

	take(mutex);

	EXPECT_EQ(history(mutex), texts{ "0 caller.c:10 at 5" });
	ASSERT_EQ(fake::coarse_readings().size(), read + 1);
	EXPECT_FALSE(fake::coarse_readings().back().has_taken(registry_lock));
	give(mutex);
	destroy(mutex);
}

TEST_F(MutexHistory, IsWrittenUnderTheRegistrysLock)
{
	fake::set_uptime(5 * sec);
	zorva_mutex *const mutex = create();
	const std::string before = bytes_of(mutex);

	const auto [at_down, at_up] = bytes_at(registry_lock, mutex, [&] {
		zorva_mutex_history_record(mutex, 7, "caller.c", 33);
	});

	EXPECT_EQ(at_down, before);
	EXPECT_EQ(at_up, bytes_of(mutex));
	EXPECT_NE(at_up, before);
	destroy(mutex);
}

TEST_F(MutexHistory, IsNotWrittenWithoutARegistry)
{
	zorva_mutex *const mutex = create();
	new_reports();
	_zorvaMutexDbg.initialised = 0;
	fake::forget_calls();

	zorva_mutex_history_record(mutex, 0, "caller.c", 1);

	EXPECT_EQ(new_reports(), "1 zorva_sem.cpp zorva_mutex_history_record: "
				 "invalid mutex debug lock.\n");
	EXPECT_TRUE(fake::calls().empty());
	EXPECT_EQ(mutex->active, 0u);
	_zorvaMutexDbg.initialised = 1;
	destroy(mutex);
}

/* Is it locked? */

TEST_F(MutexIsLocked, RefusesWrongArgumentsInOrder)
{
	zorva_mutex *const mutex = create();
	const auto with = [](u32 compId, zorva_mutex *which) {
		return [=] {
			return zorva_mutex_is_locked_track(compId, which);
		};
	};
	new_reports();

	refuses("zorva_sem.cpp", "zorva_mutex_is_locked_track",
		{ { bad_component, with(0, mutex), with(0, nullptr) },
		  { bad_component, with(57, mutex), with(0xFFFFFFFF, nullptr) },
		  { null_argument, with(owner, nullptr),
		    with(owner, nullptr) } });

	destroy(mutex);
}

TEST_F(MutexIsLocked, TellsTheHolderOnly)
{
	zorva_mutex *const mutex = create();
	u32 to_other = 1;

	EXPECT_EQ(is_locked(mutex), 0u);
	take(mutex);
	EXPECT_EQ(is_locked(mutex), 1u);
	in_task("other", [&] {
		to_other = is_locked(mutex);
	});
	EXPECT_EQ(to_other, 0u);
	give(mutex);
	EXPECT_EQ(is_locked(mutex), 0u);

	destroy(mutex);
}

TEST_F(MutexIsLocked, TellsTheHolderWhileAnotherTaskWaits)
{
	zorva_mutex *const mutex = create();
	take(mutex);
	in_task("waiter", [&] {
		take(mutex);
		give(mutex);
	});

	EXPECT_EQ(is_locked(mutex), 1u);

	give(mutex);
	fake::run_others();
	destroy(mutex);
}

TEST_F(MutexIsLocked, IsWrongForATaskThatGotTheMutexAfterWaiting)
{
	zorva_mutex *const mutex = create();
	u32 to_holder = 1;
	take(mutex);
	in_task("waiter", [&] {
		take(mutex);
		EXPECT_TRUE(mutex_is_locked(&mutex->mutex));
		to_holder = is_locked(mutex);
		give(mutex);
	});

	give(mutex);
	fake::run_others();

	EXPECT_EQ(to_holder, 0u);
	destroy(mutex);
}

TEST_F(MutexIsLocked, IsRightAgainWhenTheNextTaskWaitsForThatOne)
{
	needs_arrival_order();
	zorva_mutex *const mutex = create();
	texts answers;
	take(mutex);
	in_task("second", [&] {
		take(mutex);
		answers.push_back(std::to_string(is_locked(mutex)));
		in_task("third", [&] {
			take(mutex);
			give(mutex);
		});
		answers.push_back(std::to_string(is_locked(mutex)));
		give(mutex);
	});

	give(mutex);
	fake::run_others();

	EXPECT_EQ(answers, texts({ "0", "1" }));
	destroy(mutex);
}

TEST_F(MutexIsLocked, IsWrongAfterAnotherTaskHasTriedToGiveTheMutex)
{
	zorva_mutex *const mutex = create();
	take(mutex);

	in_task("meddler", [&] {
		give(mutex);
	});

	EXPECT_TRUE(mutex_is_locked(&mutex->mutex));
	EXPECT_EQ(is_locked(mutex), 0u);
	give(mutex);
	destroy(mutex);
}

TEST_F(MutexIsLocked, ReadsTheLockerBeforeAndTheFlagUnderTheRegistrysLock)
{
	zorva_mutex *const mutex = create();
	take(mutex);
	fake::on_call([&](const fake::call &made) {
		if (made.text == "down") {
			mutex->lockerPid.counter = 4711;
			mutex->locked = 5;
		}
	});

	EXPECT_EQ(is_locked(mutex), 5u);

	fake::on_call(nullptr);
	mutex->lockerPid.counter = 100;
	give(mutex);
	destroy(mutex);
}

TEST_F(MutexIsLocked, SaysNoWithoutARegistry)
{
	zorva_mutex *const mutex = create();
	take(mutex);
	new_reports();
	_zorvaMutexDbg.initialised = 0;

	EXPECT_EQ(is_locked(mutex), 0u);

	EXPECT_EQ(new_reports(), "1 zorva_sem.cpp zorva_mutex_is_locked_track: "
				 "invalid mutex debug lock.\n");
	_zorvaMutexDbg.initialised = 1;
	give(mutex);
	destroy(mutex);
}
