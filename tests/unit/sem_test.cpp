// SPDX-License-Identifier: GPL-2.0
/* Tracked semaphores: their life, takes and gives, and their history. */
#include "sem_fixture.h"

#include <string.h>

namespace
{

class SemaphoreHistory : public TrackedSemaphore {};

} // namespace

/* Create. */

TEST_F(TrackedSemaphore, RefusesWrongArgumentsOfItsCreationInOrder)
{
	const auto with = [](u32 compId, const char *file) {
		return [=] {
			return as_word(zorva_sem_create_track(compId, "s", 1,
							      file, 7));
		};
	};

	refuses("zorva_sem.cpp", "zorva_sem_create_track",
		{ { 0, with(0, "f.c"), with(0, nullptr) },
		  { 0, with(57, "f.c"), with(0xFFFFFFFF, nullptr) },
		  { 0, with(owner, nullptr), with(owner, nullptr) } });
	EXPECT_EQ(_zorvaSemDbg.initialised, 0u);
}

TEST_F(TrackedSemaphore, StartsUnusedWithItsCount)
{
	zorva_sem *const sem = create(3, "slots");

	ASSERT_NE(sem, nullptr);
	EXPECT_EQ(count(sem), 3u);
	EXPECT_EQ(sem->initialCount, 3u);
	EXPECT_EQ(sem->component, owner);
	EXPECT_STREQ(sem->name, "slots");
	EXPECT_EQ(sem->active, 0u);
	EXPECT_EQ(sem->historyHead, 0);
	EXPECT_EQ(history(sem), texts());
	EXPECT_EQ(new_reports(), "3 zorva_sem.cpp zorva_sem_create_track: "
				 "Semaphore 'slots' has been created\n");
	EXPECT_FALSE(reports().back().at.has_taken(registry_lock));

	destroy(sem);
}

TEST_F(TrackedSemaphore, StartsWithAnyCount)
{
	zorva_sem *const none = create(0);
	zorva_sem *const all = create(0xFFFFFFFF);

	EXPECT_EQ(count(none), 0u);
	EXPECT_EQ(count(all), 0xFFFFFFFFu);

	destroy(none);
	destroy(all);
}

TEST_F(TrackedSemaphore, IsChargedToItsComponentFromThisModulesFile)
{
	zorva_sem *const sem = create(1);
	const auto *const header =
		reinterpret_cast<zorva_mem_block_hdr_t *>(sem) - 1;

	EXPECT_EQ(_zorvaMallocMemUsage[owner].currUsage, sizeof(zorva_sem));
	EXPECT_STREQ(header->file, "zorva_sem.cpp");

	destroy(sem);
	EXPECT_EQ(_zorvaMallocMemUsage[owner].currUsage, 0u);
}

TEST_F(TrackedSemaphore, IsNamedAfterItsComponentAndTheCallersLine)
{
	zorva_sem *const sem =
		zorva_sem_create_track(owner, nullptr, 1, "caller.c", 7);

	EXPECT_STREQ(sem->name, "PORT-7");

	destroy(sem);
}

TEST_F(TrackedSemaphore, KeepsNamesOf31Characters)
{
	const std::string name(40, 'n');
	zorva_sem *const cut = create(1, name.c_str());
	zorva_sem *const whole = create(1, name.substr(9).c_str());

	EXPECT_EQ(cut->name, name.substr(0, 31));
	EXPECT_EQ(whole->name, name.substr(0, 31));

	destroy(cut);
	destroy(whole);
}

TEST_F(TrackedSemaphore, IsNumberedApartFromMutexes)
{
	zorva_mutex *const mutex =
		zorva_mutex_create_track(owner, "m", "caller.c", 7);
	zorva_sem *const first = create(1);
	zorva_sem *const second = create(1);
	EXPECT_EQ(first->index, 1u);
	EXPECT_EQ(second->index, 2u);

	destroy(first);
	destroy(second);
	zorva_sem *const third = create(1);

	EXPECT_EQ(third->index, 3u);
	EXPECT_EQ(_zorvaSemDbg.lastIndex, 3u);
	EXPECT_EQ(_zorvaSemDbg.count, 1u);
	EXPECT_EQ(_zorvaMutexDbg.count, 1u);
	destroy(third);
	zorva_mutex_destroy_track(owner, mutex, "caller.c", 7);
	reports();
}

TEST_F(TrackedSemaphore, SetsUpTheRegistryWithTheFirst)
{
	zorva_sem *const first = create(4);
	zorva_sem *const second = create(5);

	EXPECT_EQ(_zorvaSemDbg.initialised, 1u);
	EXPECT_EQ(_zorvaMutexDbg.initialised, 0u);
	const auto made = fake::calls_to({ "sema_init" });
	ASSERT_EQ(made.size(), 3u);
	EXPECT_EQ(made[0].object, &first->semaphore);
	EXPECT_EQ(made[1].text, "sema_init 1");
	EXPECT_EQ(made[1].object, registry_lock);
	EXPECT_TRUE(made[1].at.holds(&_zorvaLockDbgLck));
	EXPECT_EQ(made[2].object, &second->semaphore);

	destroy(first);
	destroy(second);
	EXPECT_EQ(_zorvaSemDbg.initialised, 1u);
}

TEST_F(TrackedSemaphore, IsListedFirst)
{
	zorva_sem *const first = create(1);
	zorva_sem *const second = create(1);

	EXPECT_EQ(listed(_zorvaSemDbg),
		  (std::vector<zorva_sem *>{ second, first }));
	EXPECT_EQ(listed_backwards(_zorvaSemDbg),
		  (std::vector<zorva_sem *>{ first, second }));
	destroy(first);
	destroy(second);
}

TEST_F(TrackedSemaphore, IsCompleteWhenItIsListed)
{
	std::string name;
	u32 component = 0;
	u32 initial_count = 0;
	fake::on_call([&](const fake::call &made) {
		if (made.object != registry_lock || made.text != "up")
			return;
		name = _zorvaSemDbg.head->name;
		component = _zorvaSemDbg.head->component;
		initial_count = _zorvaSemDbg.head->initialCount;
	});

	zorva_sem *const sem = create(3, "slots");

	EXPECT_EQ(name, "slots");
	EXPECT_EQ(component, owner);
	EXPECT_EQ(initial_count, 3u);
	fake::on_call(nullptr);
	destroy(sem);
}

TEST_F(TrackedSemaphore, IsReportedWhenItIsListedAndWhenItNoLongerIs)
{
	std::vector<u32> counts;
	on_report([&](const report &) {
		counts.push_back(_zorvaSemDbg.count);
	});

	destroy(create(1));

	EXPECT_EQ(counts, (std::vector<u32>{ 1, 0 }));
}

TEST_F(TrackedSemaphore, IsNotMadeWithoutMemory)
{
	const unsigned int allocations =
		fail_each_allocation([&](unsigned int nth) {
			zorva_sem *const sem = create(1);

			if (nth > 1) {
				destroy(sem);
				return;
			}
			EXPECT_EQ(sem, nullptr);
			EXPECT_EQ(reports().size(), 1u);
			EXPECT_EQ(reports()[0].file, "zorva_mem.cpp");
			EXPECT_EQ(_zorvaSemDbg.initialised, 0u);
			EXPECT_TRUE(fake::calls().empty());
		});

	EXPECT_EQ(allocations, 1u);
	EXPECT_EQ(fake::log_text(), "<stack>\n");
}

/* Destroy. */

TEST_F(TrackedSemaphore, RefusesWrongArgumentsOfItsDestructionInOrder)
{
	zorva_sem *const sem = create(1);
	const auto with = [](u32 compId, zorva_sem *which) {
		return [=] {
			return zorva_sem_destroy_track(compId, which, "f.c", 7);
		};
	};
	new_reports();

	refuses("zorva_sem.cpp", "zorva_sem_destroy_track",
		{ { bad_component, with(0, sem), with(0, nullptr) },
		  { bad_component, with(57, sem), with(0xFFFFFFFF, nullptr) },
		  { null_argument, with(owner, nullptr),
		    with(owner, nullptr) } });

	EXPECT_EQ(_zorvaSemDbg.count, 1u);
	destroy(sem);
}

/* In whose name it is freed shows when its guard is torn. */
TEST_F(TrackedSemaphore, IsFreedInTheNameOfWhoeverDestroysIt)
{
	zorva_sem *const sem = create(1);
	tear_all();

	EXPECT_EQ(zorva_sem_destroy_track(other, sem, "caller.c", 9), ok);

	EXPECT_EQ(torn_frees(), texts{ "VLAN, zorva_sem.cpp" });
}

TEST_F(TrackedSemaphore, IsDestroyedWithoutAFileByAnyComponent)
{
	zorva_sem *const sem = create(1, "slots");
	new_reports();

	EXPECT_EQ(zorva_sem_destroy_track(other, sem, nullptr, 9), ok);

	EXPECT_EQ(new_reports(), "3 zorva_sem.cpp zorva_sem_destroy_track: "
				 "Semaphore 'slots' has been destroyed\n");
	EXPECT_FALSE(reports().back().at.has_taken(registry_lock));
	EXPECT_EQ(_zorvaMallocMemUsage[owner].currUsage, 0u);
	EXPECT_EQ(_zorvaSemDbg.count, 0u);
	EXPECT_EQ(_zorvaSemDbg.head, nullptr);
}

TEST_F(TrackedSemaphore, LeavesTheListFromAnyPlace)
{
	for (int place = 0; place < 3; ++place) {
		std::vector<zorva_sem *> left = { create(1), create(1),
						  create(1) };
		std::swap(left[0], left[2]);
		ASSERT_EQ(listed(_zorvaSemDbg), left);

		destroy(left[place]);

		left.erase(left.begin() + place);
		EXPECT_EQ(listed(_zorvaSemDbg), left);
		std::swap(left[0], left[1]);
		EXPECT_EQ(listed_backwards(_zorvaSemDbg), left);
		EXPECT_EQ(_zorvaSemDbg.count, 2u);
		destroy(left[0]);
		destroy(left[1]);
	}
}

TEST_F(TrackedSemaphore, IsFreedUnderWhoeverWaitsForIt)
{
	zorva_sem *const sem = create(0);
	const pid_t waiter = in_task("waiter", [&] {
		take(sem, forever);
	});
	fake::forget_calls();

	EXPECT_EQ(zorva_sem_destroy_track(owner, sem, "caller.c", 9), ok);

	fake::run_others();
	EXPECT_EQ(fake::blocked_in(waiter), "down");
	EXPECT_EQ(tracked_blocks(), 0u);
	fake::leave_task(waiter);
	reports();
}

TEST_F(TrackedSemaphore, IsFreedSilentlyWithoutARegistry)
{
	auto *const sem = static_cast<zorva_sem *>(
		zorva_malloc_track(owner, sizeof(zorva_sem), "caller.c", 7));

	EXPECT_EQ(zorva_sem_destroy_track(owner, sem, "caller.c", 9), ok);

	EXPECT_EQ(all_reports(), "");
	EXPECT_TRUE(fake::calls().empty());
}

/* Take. */

TEST_F(TrackedSemaphore, RefusesWrongArgumentsOfATakeInOrder)
{
	zorva_sem *const sem = create(1);
	const auto with = [](u32 compId, zorva_sem *which, const char *file) {
		return [=] {
			return zorva_sem_take_track(compId, which, 0, file, 7);
		};
	};
	new_reports();

	refuses("zorva_sem.cpp", "zorva_sem_take_track",
		{ { bad_component, with(0, sem, "f.c"),
		    with(0, nullptr, nullptr) },
		  { bad_component, with(57, sem, "f.c"),
		    with(0xFFFFFFFF, nullptr, nullptr) },
		  { null_argument, with(owner, nullptr, "f.c"),
		    with(owner, nullptr, nullptr) },
		  { null_argument, with(owner, sem, nullptr),
		    with(owner, sem, nullptr) } });

	EXPECT_EQ(count(sem), 1u);
	destroy(sem);
}

TEST_F(TrackedSemaphore, IsTakenWhileThereAreUnits)
{
	zorva_sem *const sem = create(3);

	EXPECT_EQ(take(sem, 0), ok);
	EXPECT_EQ(take(sem, 100), ok);
	EXPECT_EQ(take(sem, forever), ok);

	EXPECT_EQ(count(sem), 0u);
	EXPECT_EQ(fake::now(), 0);
	destroy(sem);
}

TEST_F(TrackedSemaphore, IsNotWaitedForWithTimeout0)
{
	zorva_sem *const sem = create(0);
	fake::forget_calls();

	EXPECT_EQ(take(sem, 0), failed);

	EXPECT_EQ(fake::now(), 0);
	EXPECT_EQ(fake::call_texts({ "down_trylock", "down_timeout" }),
		  texts{ "down_trylock" });
	EXPECT_EQ(history(sem), texts{ "0 caller.c:10 at 0 (0)" });
	EXPECT_EQ(count(sem), 0u);
	new_reports();
	destroy(sem);
}

TEST_F(TrackedSemaphore, IsWaitedForUntilTheTimeIsUp)
{
	zorva_sem *const sem = create(0);
	new_reports();

	EXPECT_EQ(take(sem, 100), timed_out);

	EXPECT_EQ(fake::now(), 100 * msec);
	EXPECT_EQ(new_reports(), "");
	EXPECT_EQ(count(sem), 0u);
	EXPECT_EQ(history(sem), texts{ "0 caller.c:10 at 0 (100)" });
	destroy(sem);
}

TEST_F(TrackedSemaphore, TellsAnyOtherFailureOfAWaitFromALackOfTime)
{
	zorva_sem *const sem = create(1);

	fake::fail_timed_wait(-4);
	EXPECT_EQ(take(sem, 100), failed);
	fake::fail_timed_wait(1);
	EXPECT_EQ(take(sem, 100), failed);
	fake::fail_timed_wait(-62);
	EXPECT_EQ(take(sem, 100), timed_out);

	EXPECT_EQ(count(sem), 1u);
	destroy(sem);
}

TEST_F(TrackedSemaphore, IsWaitedForInWholeTicksRoundedUp)
{
	zorva_sem *const sem = create(1);

	for (u32 timeout :
	     { 1u, 10u, 11u, 100u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFEu }) {
		EXPECT_EQ(take(sem, timeout), ok);
		give(sem);
	}

	EXPECT_EQ(fake::call_texts({ "down_timeout" }),
		  texts({ "down_timeout 1", "down_timeout 1", "down_timeout 2",
			  "down_timeout 10", "down_timeout 214748365",
			  "down_timeout 1073741822",
			  "down_timeout 1073741822" }));
	destroy(sem);
}

TEST_F(TrackedSemaphore, WakesWhoWaitsInTime)
{
	zorva_sem *const sem = create(0);
	u32 result = 1;
	const pid_t waiter = in_task("waiter", [&] {
		result = take(sem, 100, 11);
	});
	EXPECT_EQ(fake::blocked_in(waiter), "down_timeout");

	fake::sleep_for(90 * msec);
	give(sem);
	fake::run_others();

	EXPECT_EQ(result, ok);
	EXPECT_EQ(count(sem), 0u);
	EXPECT_EQ(fake::now(), 90 * msec);
	destroy(sem);
}

TEST_F(TrackedSemaphore, IsWaitedForWithoutLimit)
{
	zorva_sem *const sem = create(0);
	u32 result = 1;
	const pid_t waiter = in_task("waiter", [&] {
		result = take(sem, forever);
	});
	fake::sleep_for(1000 * sec);
	EXPECT_EQ(fake::blocked_in(waiter), "down");

	give(sem);
	fake::run_others();

	EXPECT_EQ(result, ok);
	EXPECT_EQ(count(sem), 0u);
	destroy(sem);
}

TEST_F(TrackedSemaphore, ServesThoseWhoWaitInTheirOrder)
{
	needs_arrival_order();
	zorva_sem *const sem = create(0);
	texts served;

	for (const char *comm : { "first", "second", "third" })
		in_task(comm, [&served, sem, comm] {
			take(sem, forever);
			served.push_back(comm);
		});
	for (int i = 0; i < 3; ++i)
		give(sem);
	fake::run_others();

	EXPECT_EQ(served, texts({ "first", "second", "third" }));
	destroy(sem);
}

TEST_F(TrackedSemaphore, IsWaitedForWithoutTheRegistrysLock)
{
	zorva_sem *const sem = create(0);
	in_task("first", [&] {
		take(sem, forever);
	});
	in_task("second", [&] {
		take(sem, 1000);
	});

	give(sem);
	give(sem);
	fake::run_others();
	take(sem, 0);

	for (const fake::call &each :
	     fake::calls_to({ "down", "down_timeout", "down_trylock", "up" }))
		if (each.object == &sem->semaphore) {
			EXPECT_FALSE(each.at.has_taken(registry_lock));
		}
	destroy(sem);
}

TEST_F(TrackedSemaphore, WarnsOfATakeInAnInterruptAndGoesOn)
{
	zorva_sem *const sem = create(1);
	std::string log_at_down;
	keep_log_at_down(registry_lock, log_at_down);

	const texts forbidden = complaints_of([&] {
		const fake::soft_interrupt interrupt;

		EXPECT_EQ(take(sem, 0), ok);
	});

	EXPECT_EQ(fake::log_text(), "\001c[ZORVA] zorva_sem_take_track - "
				    "in_interrupt.(caller.c, 10)\n<stack>\n");
	EXPECT_EQ(log_at_down, fake::log_text());
	EXPECT_EQ(forbidden.size(), 1u);
	EXPECT_EQ(count(sem), 0u);
	EXPECT_EQ(history(sem), texts{ "0 caller.c:10 at 0 (0)" });
	destroy(sem);
}

TEST_F(TrackedSemaphore, DoesNotWarnOfARefusedTakeInAnInterrupt)
{
	zorva_sem *const sem = create(1);
	const auto call = zorva_sem_take_track;

	{
		const fake::soft_interrupt interrupt;

		EXPECT_EQ(call(0, sem, 0, "caller.c", 1), bad_component);
		EXPECT_EQ(call(57, sem, 0, "caller.c", 1), bad_component);
		EXPECT_EQ(call(owner, nullptr, 0, "caller.c", 1),
			  null_argument);
		EXPECT_EQ(call(owner, sem, 0, nullptr, 1), null_argument);
	}

	EXPECT_EQ(fake::log_text(), "");
	destroy(sem);
}

TEST_F(TrackedSemaphore, DoesNotWarnOfAGiveInAnInterrupt)
{
	zorva_sem *const sem = create(1);

	const texts forbidden = complaints_of([&] {
		const fake::soft_interrupt interrupt;

		EXPECT_EQ(give(sem), ok);
	});

	EXPECT_EQ(fake::log_text(), "");
	EXPECT_EQ(forbidden.size(), 1u);
	EXPECT_EQ(count(sem), 2u);
	destroy(sem);
}

TEST_F(TrackedSemaphore, IsTakenAndGivenAllTheSameWithoutARegistry)
{
	zorva_sem *const sem = create(1);
	new_reports();
	_zorvaSemDbg.initialised = 0;

	EXPECT_EQ(zorva_sem_take_track(owner, sem, 0, "caller.c", 10), ok);
	EXPECT_EQ(count(sem), 0u);
	EXPECT_EQ(zorva_sem_give_track(owner, sem, "caller.c", 20), ok);

	EXPECT_EQ(new_reports(), "1 zorva_sem.cpp zorva_sem_history_record: "
				 "invalid sem debug lock.\n"
				 "1 zorva_sem.cpp zorva_sem_history_record: "
				 "invalid sem debug lock.\n");
	EXPECT_EQ(count(sem), 1u);
	EXPECT_EQ(sem->active, 0u);
	_zorvaSemDbg.initialised = 1;
	destroy(sem);
}

/* Give. */

TEST_F(TrackedSemaphore, RefusesWrongArgumentsOfAGiveInOrder)
{
	zorva_sem *const sem = create(1);
	const auto with = [](u32 compId, zorva_sem *which, const char *file) {
		return [=] {
			return zorva_sem_give_track(compId, which, file, 7);
		};
	};
	new_reports();

	refuses("zorva_sem.cpp", "zorva_sem_give_track",
		{ { bad_component, with(0, sem, "f.c"),
		    with(0, nullptr, nullptr) },
		  { bad_component, with(57, sem, "f.c"),
		    with(0xFFFFFFFF, nullptr, nullptr) },
		  { null_argument, with(owner, nullptr, "f.c"),
		    with(owner, nullptr, nullptr) },
		  { null_argument, with(owner, sem, nullptr),
		    with(owner, sem, nullptr) } });

	EXPECT_EQ(count(sem), 1u);
	destroy(sem);
}

TEST_F(TrackedSemaphore, CountsPastItsInitialCount)
{
	zorva_sem *const sem = create(1);
	new_reports();

	for (int i = 0; i < 5; ++i)
		EXPECT_EQ(give(sem), ok);

	EXPECT_EQ(count(sem), 6u);
	EXPECT_EQ(sem->initialCount, 1u);
	EXPECT_EQ(new_reports(), "");
	destroy(sem);
}

TEST_F(TrackedSemaphore, RecordsAGiveBeforeTheUnitIsThere)
{
	zorva_sem *const sem = create(0);
	fake::forget_calls();

	give(sem, 21);

	texts order;
	for (const fake::call &each : fake::calls_to({ "down", "up" }))
		order.push_back(each.text + (each.object == registry_lock
						     ? " registry"
						     : ""));
	EXPECT_EQ(order, texts({ "down registry", "up registry", "up" }));
	EXPECT_EQ(history(sem), texts{ "1 caller.c:21 at 0 (0)" });
	EXPECT_EQ(sem->active, 1u);
	destroy(sem);
}

/* The history. */

TEST_F(SemaphoreHistory, KeepsTheNewest8Of9Calls)
{
	zorva_sem *const sem = create(9);
	texts expected;

	for (u32 line = 1; line <= 9; ++line) {
		fake::set_uptime(line * sec);
		if (line % 2)
			take(sem, line * 100, line);
		else
			give(sem, line);
		expected.insert(expected.begin(),
				fake::format("%u caller.c:%u at %u (%u)",
					     line % 2 ? 0 : 1, line, line,
					     line % 2 ? line * 100 : 0));
	}

	expected.pop_back();
	EXPECT_EQ(history(sem), expected);
	EXPECT_EQ(sem->historyHead, 1);
	destroy(sem);
}

TEST_F(SemaphoreHistory, StartsInTheSecondSlotAndWrapsAfterTheLast)
{
	zorva_sem *const sem = create(0);

	for (int i = 1; i <= 8; ++i) {
		give(sem, i);
		EXPECT_EQ(sem->historyHead, i % 8);
		EXPECT_EQ(sem->history[i % 8].line, static_cast<u32>(i));
	}

	destroy(sem);
}

TEST_F(SemaphoreHistory, KeepsThe15FirstCharactersOfAFile)
{
	zorva_sem *const sem = create(0);

	zorva_sem_give_track(owner, sem, "twenty-characters-.c", 1);

	EXPECT_EQ(history(sem), texts{ "1 twenty-characte:1 at 0 (0)" });
	destroy(sem);
}

TEST_F(SemaphoreHistory, ReadsTheTimeUnderTheRegistrysLock)
{
	zorva_sem *const sem = create(1);
	fake::set_uptime(5 * sec);
	fake::on_call([](const fake::call &made) {
		if (made.text == "down")
			fake::set_uptime(9 * sec);
	});
	const size_t read = fake::coarse_readings().size();

	take(sem, 0);

	EXPECT_EQ(history(sem), texts{ "0 caller.c:10 at 9 (0)" });
	ASSERT_EQ(fake::coarse_readings().size(), read + 1);
	EXPECT_TRUE(fake::coarse_readings().back().has_taken(registry_lock));
	destroy(sem);
}

TEST_F(SemaphoreHistory, IsWrittenUnderTheRegistrysLock)
{
	zorva_sem *const sem = create(0);
	const std::string before = bytes_of(sem);
	fake::set_uptime(5 * sec);

	const auto [at_down, at_up] = bytes_at(registry_lock, sem, [&] {
		zorva_sem_history_record(sem, 123, 7, "caller.c", 33);
	});

	EXPECT_EQ(at_down, before);
	EXPECT_EQ(at_up, bytes_of(sem));
	EXPECT_NE(at_up, before);
	destroy(sem);
}

TEST_F(SemaphoreHistory, KeepsWhatItIsGiven)
{
	zorva_sem *const sem = create(0);

	zorva_sem_history_record(sem, 123, 7, "caller.c", 0xFFFFFFFF);

	EXPECT_EQ(history(sem), texts{ "7 caller.c:4294967295 at 0 (123)" });
	EXPECT_EQ(sem->active, 1u);
	destroy(sem);
}

TEST_F(SemaphoreHistory, IsNotWrittenWithoutARegistry)
{
	zorva_sem *const sem = create(0);
	new_reports();
	_zorvaSemDbg.initialised = 0;
	fake::forget_calls();

	zorva_sem_history_record(sem, 0, 0, "caller.c", 1);

	EXPECT_EQ(new_reports(), "1 zorva_sem.cpp zorva_sem_history_record: "
				 "invalid sem debug lock.\n");
	EXPECT_TRUE(fake::calls().empty());
	EXPECT_EQ(sem->active, 0u);
	_zorvaSemDbg.initialised = 1;
	destroy(sem);
}
