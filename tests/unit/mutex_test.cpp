// SPDX-License-Identifier: GPL-2.0
/* Tracked mutexes: their life, takes and gives. */
#include "mutex_fixture.h"

#include <string.h>

/* Create. */

TEST_F(TrackedMutex, RefusesWrongArgumentsOfItsCreationInOrder)
{
	const auto with = [](u32 compId, const char *file) {
		return [=] {
			return as_word(
				zorva_mutex_create_track(compId, "m", file, 7));
		};
	};

	refuses("zorva_sem.cpp", "zorva_mutex_create_track",
		{ { 0, with(0, "f.c"), with(0, nullptr) },
		  { 0, with(57, "f.c"), with(0xFFFFFFFF, nullptr) },
		  { 0, with(owner, nullptr), with(owner, nullptr) } });
	EXPECT_EQ(_zorvaMutexDbg.initialised, 0u);
}

TEST_F(TrackedMutex, StartsUnusedWithItsComponentAndName)
{
	zorva_mutex *const mutex = create("ports");

	ASSERT_NE(mutex, nullptr);
	EXPECT_EQ(mutex->component, owner);
	EXPECT_STREQ(mutex->name, "ports");
	EXPECT_EQ(mutex->active, 0u);
	EXPECT_EQ(mutex->historyHead, 0);
	EXPECT_EQ(mutex->locked, 0u);
	EXPECT_EQ(mutex->takeCount.counter, 0);
	EXPECT_EQ(mutex->lockerPid.counter, 0);
	EXPECT_STREQ(mutex->lockerName, "");
	EXPECT_EQ(history(mutex), texts());
	EXPECT_FALSE(mutex_is_locked(&mutex->mutex));
	EXPECT_EQ(fake::call_texts({ "mutex_init" }),
		  texts{ "mutex_init &pMutex->mutex" });
	EXPECT_EQ(new_reports(), "3 zorva_sem.cpp zorva_mutex_create_track: "
				 "Mutex 'ports' has been created\n");

	destroy(mutex);
}

TEST_F(TrackedMutex, IsChargedToItsComponentFromThisModulesFile)
{
	zorva_mutex *const mutex = create();
	const auto *const header =
		reinterpret_cast<zorva_mem_block_hdr_t *>(mutex) - 1;

	EXPECT_EQ(_zorvaMallocMemUsage[owner].currUsage, sizeof(zorva_mutex));
	EXPECT_STREQ(header->file, "zorva_sem.cpp");

	destroy(mutex);
	EXPECT_EQ(_zorvaMallocMemUsage[owner].currUsage, 0u);
}

TEST_F(TrackedMutex, IsNamedAfterItsComponentAndTheCallersLine)
{
	zorva_mutex *const mutex =
		zorva_mutex_create_track(9, nullptr, "caller.c", 42);

	zorva_mutex *const second = zorva_mutex_create_track(owner, nullptr,
							     "caller.c",
							     4000000000);

	EXPECT_STREQ(mutex->name, "ZORVA-42");
	EXPECT_STREQ(second->name, "PORT-4000000000");

	destroy(mutex);
	destroy(second);
}

TEST_F(TrackedMutex, KeepsNamesOf31Characters)
{
	const std::string name(40, 'n');
	zorva_mutex *const cut = create(name.c_str());
	zorva_mutex *const whole = create(name.substr(9).c_str());
	zorva_mutex *const empty = create("");

	EXPECT_EQ(cut->name, name.substr(0, 31));
	EXPECT_EQ(whole->name, name.substr(0, 31));
	EXPECT_STREQ(empty->name, "");

	destroy(cut);
	destroy(whole);
	destroy(empty);
}

TEST_F(TrackedMutex, IsNumberedFrom1AndNumbersAreNotReused)
{
	zorva_mutex *const first = create();
	zorva_mutex *const second = create();
	EXPECT_EQ(first->index, 1u);
	EXPECT_EQ(second->index, 2u);

	destroy(second);
	zorva_mutex *const third = create();

	EXPECT_EQ(third->index, 3u);
	EXPECT_EQ(_zorvaMutexDbg.lastIndex, 3u);
	EXPECT_EQ(_zorvaMutexDbg.count, 2u);
	destroy(first);
	destroy(third);
}

TEST_F(TrackedMutex, SetsUpTheRegistryWithTheFirst)
{
	EXPECT_EQ(_zorvaMutexDbg.initialised, 0u);
	EXPECT_EQ(_zorvaMutexDbg.head, nullptr);

	zorva_mutex *const first = create();
	zorva_mutex *const second = create();

	EXPECT_EQ(_zorvaMutexDbg.initialised, 1u);
	const auto made = fake::calls_to({ "sema_init" });
	ASSERT_EQ(made.size(), 1u);
	EXPECT_EQ(made[0].text, "sema_init 1");
	EXPECT_EQ(made[0].object, registry_lock);
	EXPECT_TRUE(made[0].at.holds(&_zorvaLockDbgLck));
	EXPECT_EQ(_zorvaSemDbg.initialised, 0u);

	destroy(first);
	destroy(second);
	EXPECT_EQ(_zorvaMutexDbg.initialised, 1u);
}

TEST_F(TrackedMutex, IsListedFirstUnderTheRegistrysLock)
{
	zorva_mutex *const first = create();
	zorva_mutex *at_down = nullptr;
	zorva_mutex *at_up = nullptr;
	fake::on_call([&](const fake::call &made) {
		if (made.object != registry_lock)
			return;
		if (made.text == "down")
			at_down = _zorvaMutexDbg.head;
		if (made.text == "up")
			at_up = _zorvaMutexDbg.head;
	});

	zorva_mutex *const second = create();

	EXPECT_EQ(at_down, first);
	EXPECT_EQ(at_up, second);
	EXPECT_EQ(listed(_zorvaMutexDbg),
		  (std::vector<zorva_mutex *>{ second, first }));
	EXPECT_EQ(listed_backwards(_zorvaMutexDbg),
		  (std::vector<zorva_mutex *>{ first, second }));
	EXPECT_FALSE(reports().back().at.has_taken(registry_lock));
	destroy(first);
	destroy(second);
}

TEST_F(TrackedMutex, IsCompleteWhenItIsListed)
{
	std::string name;
	u32 component = 0;
	const void *initialised = nullptr;
	fake::on_call([&](const fake::call &made) {
		if (made.object != registry_lock || made.text != "up")
			return;
		name = _zorvaMutexDbg.head->name;
		component = _zorvaMutexDbg.head->component;
		for (const fake::call &each : fake::calls_to({ "mutex_init" }))
			initialised = each.object;
	});

	zorva_mutex *const mutex = create("ports");

	EXPECT_EQ(name, "ports");
	EXPECT_EQ(component, owner);
	EXPECT_EQ(initialised, &mutex->mutex);
	fake::on_call(nullptr);
	destroy(mutex);
}

TEST_F(TrackedMutex, IsReportedWhenItIsListedAndWhenItNoLongerIs)
{
	std::vector<u32> counts;
	on_report([&](const report &) {
		counts.push_back(_zorvaMutexDbg.count);
	});

	destroy(create());

	EXPECT_EQ(counts, (std::vector<u32>{ 1, 0 }));
}

TEST_F(TrackedMutex, IsNotMadeWithoutMemory)
{
	const unsigned int allocations =
		fail_each_allocation([&](unsigned int nth) {
			zorva_mutex *const mutex = create();

			if (nth > 1) {
				destroy(mutex);
				return;
			}
			EXPECT_EQ(mutex, nullptr);
			EXPECT_EQ(reports().size(), 1u);
			EXPECT_EQ(reports()[0].file, "zorva_mem.cpp");
			EXPECT_EQ(_zorvaMutexDbg.initialised, 0u);
			EXPECT_TRUE(fake::calls().empty());
		});

	EXPECT_EQ(allocations, 1u);
	EXPECT_EQ(fake::log_text(), "<stack>\n");
}

/* Destroy. */

TEST_F(TrackedMutex, RefusesWrongArgumentsOfItsDestructionInOrder)
{
	zorva_mutex *const mutex = create();
	const auto with = [](u32 compId, zorva_mutex *which, const char *file) {
		return [=] {
			return zorva_mutex_destroy_track(compId, which, file,
							 7);
		};
	};
	new_reports();

	refuses("zorva_sem.cpp", "zorva_mutex_destroy_track",
		{ { bad_component, with(0, mutex, "f.c"),
		    with(0, nullptr, nullptr) },
		  { bad_component, with(57, mutex, "f.c"),
		    with(0xFFFFFFFF, nullptr, nullptr) },
		  { null_argument, with(owner, nullptr, "f.c"),
		    with(owner, nullptr, nullptr) },
		  { null_argument, with(owner, mutex, nullptr),
		    with(owner, mutex, nullptr) } });

	EXPECT_EQ(_zorvaMutexDbg.count, 1u);
	destroy(mutex);
}

TEST_F(TrackedMutex, LeavesTheListFromAnyPlace)
{
	for (int place = 0; place < 3; ++place) {
		std::vector<zorva_mutex *> left = { create("c"), create("b"),
						    create("a") };
		std::swap(left[0], left[2]);
		ASSERT_EQ(listed(_zorvaMutexDbg), left);

		destroy(left[place]);

		left.erase(left.begin() + place);
		EXPECT_EQ(listed(_zorvaMutexDbg), left);
		std::swap(left[0], left[1]);
		EXPECT_EQ(listed_backwards(_zorvaMutexDbg), left);
		EXPECT_EQ(_zorvaMutexDbg.count, 2u);
		destroy(left[0]);
		destroy(left[1]);
		EXPECT_EQ(_zorvaMutexDbg.head, nullptr);
		EXPECT_EQ(_zorvaMutexDbg.count, 0u);
	}
}

/* In whose name it is freed shows when its guard is torn. */
TEST_F(TrackedMutex, IsFreedInTheNameOfWhoeverDestroysIt)
{
	zorva_mutex *const mutex = create();
	tear_all();

	EXPECT_EQ(zorva_mutex_destroy_track(other, mutex, "caller.c", 9), ok);

	EXPECT_EQ(torn_frees(), texts{ "VLAN, zorva_sem.cpp" });
}

TEST_F(TrackedMutex, IsReportedAndFreedByAnyComponent)
{
	zorva_mutex *const mutex = create("ports");
	new_reports();

	EXPECT_EQ(zorva_mutex_destroy_track(other, mutex, "caller.c", 9), ok);

	EXPECT_EQ(new_reports(), "3 zorva_sem.cpp zorva_mutex_destroy_track: "
				 "Mutex 'ports' has been destroyed\n");
	EXPECT_FALSE(reports().back().at.has_taken(registry_lock));
	EXPECT_EQ(_zorvaMallocMemUsage[owner].currUsage, 0u);
}

TEST_F(TrackedMutex, LeavesTheListUnderTheRegistrysLock)
{
	zorva_mutex *const mutex = create();
	zorva_mutex *at_down = nullptr;
	u32 at_up = 1;
	fake::on_call([&](const fake::call &made) {
		if (made.object != registry_lock)
			return;
		if (made.text == "down")
			at_down = _zorvaMutexDbg.head;
		if (made.text == "up")
			at_up = _zorvaMutexDbg.count;
	});

	destroy(mutex);

	EXPECT_EQ(at_down, mutex);
	EXPECT_EQ(at_up, 0u);
}

TEST_F(TrackedMutex, IsDestroyedWhileItIsHeldAndWaitedFor)
{
	zorva_mutex *const mutex = create();
	take(mutex);
	const pid_t waiter = in_task("waiter", [&] {
		take(mutex);
	});
	fake::forget_calls();

	EXPECT_EQ(zorva_mutex_destroy_track(owner, mutex, "caller.c", 9), ok);

	EXPECT_EQ(fake::call_texts({ "mutex_unlock" }), texts());
	EXPECT_EQ(tracked_blocks(), 0u);
	EXPECT_EQ(fake::blocked_in(waiter), "mutex_lock");
	fake::leave_task(waiter);
	reports();
}

TEST_F(TrackedMutex, IsReportedAndFreedWithoutARegistry)
{
	auto *const mutex = static_cast<zorva_mutex *>(
		zorva_malloc_track(owner, sizeof(zorva_mutex), "caller.c", 7));
	strcpy(mutex->name, "stray");

	EXPECT_EQ(zorva_mutex_destroy_track(owner, mutex, "caller.c", 9), ok);

	EXPECT_EQ(new_reports(), "3 zorva_sem.cpp zorva_mutex_destroy_track: "
				 "Mutex 'stray' has been destroyed\n");
	EXPECT_TRUE(fake::calls().empty());
	EXPECT_EQ(_zorvaMutexDbg.count, 0u);
}

/* Take. */

TEST_F(TrackedMutex, RefusesWrongArgumentsOfATakeInOrder)
{
	zorva_mutex *const mutex = create();
	const auto with = [](u32 compId, zorva_mutex *which, const char *file) {
		return [=] {
			return zorva_mutex_take_track(compId, which, file, 7);
		};
	};
	new_reports();

	refuses("zorva_sem.cpp", "zorva_mutex_take_track",
		{ { bad_component, with(0, mutex, "f.c"),
		    with(0, nullptr, nullptr) },
		  { bad_component, with(57, mutex, "f.c"),
		    with(0xFFFFFFFF, nullptr, nullptr) },
		  { null_argument, with(owner, nullptr, "f.c"),
		    with(owner, nullptr, nullptr) },
		  { null_argument, with(owner, mutex, nullptr),
		    with(owner, mutex, nullptr) } });

	EXPECT_FALSE(mutex_is_locked(&mutex->mutex));
	destroy(mutex);
}

TEST_F(TrackedMutex, KnowsWhoHasTakenIt)
{
	fake::set_uptime(77 * sec);
	zorva_mutex *const mutex = create();

	EXPECT_EQ(take(mutex), ok);

	EXPECT_TRUE(mutex_is_locked(&mutex->mutex));
	EXPECT_EQ(mutex->takeCount.counter, 1);
	EXPECT_EQ(mutex->lockerPid.counter, 100);
	EXPECT_STREQ(mutex->lockerName, "main");
	EXPECT_EQ(mutex->active, 1u);
	EXPECT_EQ(mutex->locked, 1u);
	EXPECT_EQ(mutex->historyHead, 1);
	EXPECT_EQ(history(mutex), texts{ "0 caller.c:10 at 77" });
	give(mutex);
	destroy(mutex);
}

TEST_F(TrackedMutex, IsTakenByAnyComponent)
{
	zorva_mutex *const mutex = create();

	EXPECT_EQ(zorva_mutex_take_track(other, mutex, "caller.c", 1), ok);
	EXPECT_EQ(zorva_mutex_give_track(56, mutex, "caller.c", 2), ok);

	EXPECT_EQ(mutex->component, owner);
	EXPECT_FALSE(mutex_is_locked(&mutex->mutex));
	destroy(mutex);
}

TEST_F(TrackedMutex, MakesTheTakerWaitForItsHolder)
{
	zorva_mutex *const mutex = create();
	take(mutex);
	u32 result = 1;

	const pid_t waiter = in_task("waiter", [&] {
		result = take(mutex, 11);
		EXPECT_EQ(mutex->lockerPid.counter, zk_current_pid());
		EXPECT_STREQ(mutex->lockerName, "waiter");
		EXPECT_EQ(mutex->takeCount.counter, 1);
		give(mutex, 21);
	});

	EXPECT_EQ(fake::blocked_in(waiter), "mutex_lock");
	EXPECT_EQ(mutex->lockerPid.counter, 100);
	EXPECT_EQ(history(mutex),
		  texts({ "0 caller.c:11 at 0", "0 caller.c:10 at 0" }));
	give(mutex, 20);
	fake::run_others();
	EXPECT_EQ(result, ok);
	EXPECT_TRUE(fake::has_ended(waiter));
	EXPECT_EQ(history(mutex),
		  texts({ "1 caller.c:21 at 0", "1 caller.c:20 at 0",
			  "0 caller.c:11 at 0", "0 caller.c:10 at 0" }));
	destroy(mutex);
}

TEST_F(TrackedMutex, IsWaitedForWithoutTheRegistrysLock)
{
	zorva_mutex *const mutex = create();
	take(mutex);

	const pid_t waiter = in_task("waiter", [&] {
		take(mutex);
		give(mutex);
	});
	zorva_mutex *const second = create();
	give(mutex);
	fake::run_others();

	for (const fake::call &each : fake::calls_to({ "mutex_lock" }))
		EXPECT_FALSE(each.at.has_taken(registry_lock));
	EXPECT_TRUE(fake::has_ended(waiter));
	destroy(mutex);
	destroy(second);
}

TEST_F(TrackedMutex, IsNotNestedAndLeavesNoTraceOfASecondTake)
{
	zorva_mutex *const mutex = create();
	take(mutex);
	const std::string before = bytes_of(mutex);
	fake::forget_calls();

	EXPECT_EQ(take(mutex, 11), ok);
	EXPECT_EQ(take(mutex, 12), ok);

	EXPECT_TRUE(fake::calls().empty());
	EXPECT_EQ(bytes_of(mutex), before);
	EXPECT_EQ(give(mutex), ok);
	EXPECT_FALSE(mutex_is_locked(&mutex->mutex));
	EXPECT_EQ(mutex->takeCount.counter, 0);
	destroy(mutex);
}

TEST_F(TrackedMutex, IsTakenAgainByTheOneWhoGaveIt)
{
	zorva_mutex *const mutex = create();
	take(mutex);
	give(mutex);

	EXPECT_EQ(take(mutex, 11), ok);

	EXPECT_TRUE(mutex_is_locked(&mutex->mutex));
	EXPECT_EQ(history(mutex).size(), 3u);
	give(mutex);
	destroy(mutex);
}

TEST_F(TrackedMutex, IsTakenAgainByTheOneWhoGaveItTwice)
{
	zorva_mutex *const mutex = create();
	take(mutex);
	give(mutex);

	EXPECT_EQ(give(mutex), ok);
	EXPECT_EQ(mutex->takeCount.counter, 0);
	EXPECT_EQ(take(mutex, 11), ok);

	EXPECT_TRUE(mutex_is_locked(&mutex->mutex));
	EXPECT_EQ(history(mutex).size(), 4u);
	give(mutex);
	destroy(mutex);
}

TEST_F(TrackedMutex, NamesALockerThatCannotBeFoundUnknown)
{
	zorva_mutex *const mutex = create();
	take(mutex);
	give(mutex);
	fake::hide_pids();

	EXPECT_EQ(take(mutex), ok);

	EXPECT_STREQ(mutex->lockerName, "unknown");
	EXPECT_EQ(mutex->lockerPid.counter, 100);
	EXPECT_EQ(fake::call_texts({ "comm_of_pid" }),
		  texts({ "comm_of_pid 100", "comm_of_pid 100" }));
	give(mutex);
	destroy(mutex);
}

TEST_F(TrackedMutex, KeepsTheWholeCommandNameOfItsLocker)
{
	zorva_mutex *const mutex = create();
	fake::rename_self("fifteen-charact");
	take(mutex);
	EXPECT_STREQ(mutex->lockerName, "fifteen-charact");
	give(mutex);

	fake::rename_self("x");
	take(mutex);

	EXPECT_STREQ(mutex->lockerName, "x");
	give(mutex);
	destroy(mutex);
}

TEST_F(TrackedMutex, WarnsOfATakeInAnInterruptAndGoesOn)
{
	zorva_mutex *const mutex = create();
	std::string log_at_down;
	keep_log_at_down(registry_lock, log_at_down);

	const texts forbidden = complaints_of([&] {
		const fake::soft_interrupt interrupt;

		EXPECT_EQ(take(mutex), ok);
	});

	EXPECT_EQ(fake::log_text(), "\001c[ZORVA] zorva_mutex_take_track - "
				    "in_interrupt.(caller.c, 10)\n<stack>\n");
	EXPECT_EQ(log_at_down, fake::log_text());
	EXPECT_EQ(forbidden.size(), 2u);
	EXPECT_TRUE(mutex_is_locked(&mutex->mutex));
	EXPECT_EQ(history(mutex), texts{ "0 caller.c:10 at 0" });
	give(mutex);
	destroy(mutex);
}

TEST_F(TrackedMutex, WarnsOfANestedTakeInAnInterruptToo)
{
	zorva_mutex *const mutex = create();
	take(mutex);

	{
		const fake::hard_interrupt interrupt;

		EXPECT_EQ(take(mutex, 11), ok);
	}

	EXPECT_EQ(fake::log_text(), "\001c[ZORVA] zorva_mutex_take_track - "
				    "in_interrupt.(caller.c, 11)\n<stack>\n");
	give(mutex);
	destroy(mutex);
}

TEST_F(TrackedMutex, IsTakenAllTheSameWithoutARegistry)
{
	zorva_mutex *const mutex = create();
	new_reports();
	_zorvaMutexDbg.initialised = 0;

	EXPECT_EQ(zorva_mutex_take_track(owner, mutex, "caller.c", 10), ok);
	EXPECT_EQ(zorva_mutex_give_track(owner, mutex, "caller.c", 20), ok);

	EXPECT_EQ(new_reports(), "1 zorva_sem.cpp zorva_mutex_history_record: "
				 "invalid mutex debug lock.\n"
				 "1 zorva_sem.cpp zorva_mutex_history_record: "
				 "invalid mutex debug lock.\n");
	EXPECT_EQ(mutex->active, 0u);
	EXPECT_EQ(fake::call_texts({ "mutex_lock", "mutex_unlock" }).size(),
		  2u);
	_zorvaMutexDbg.initialised = 1;
	destroy(mutex);
}

/* Give. */

TEST_F(TrackedMutex, RefusesWrongArgumentsOfAGiveInOrder)
{
	zorva_mutex *const mutex = create();
	const auto with = [](u32 compId, zorva_mutex *which, const char *file) {
		return [=] {
			return zorva_mutex_give_track(compId, which, file, 7);
		};
	};
	take(mutex);
	new_reports();

	refuses("zorva_sem.cpp", "zorva_mutex_give_track",
		{ { bad_component, with(0, mutex, "f.c"),
		    with(0, nullptr, nullptr) },
		  { bad_component, with(57, mutex, "f.c"),
		    with(0xFFFFFFFF, nullptr, nullptr) },
		  { null_argument, with(owner, nullptr, "f.c"),
		    with(owner, nullptr, nullptr) },
		  { null_argument, with(owner, mutex, nullptr),
		    with(owner, mutex, nullptr) } });

	EXPECT_TRUE(mutex_is_locked(&mutex->mutex));
	give(mutex);
	destroy(mutex);
}

TEST_F(TrackedMutex, StillNamesItsLastLockerWhenGiven)
{
	zorva_mutex *const mutex = create();
	take(mutex);

	EXPECT_EQ(give(mutex), ok);

	EXPECT_FALSE(mutex_is_locked(&mutex->mutex));
	EXPECT_EQ(mutex->takeCount.counter, 0);
	EXPECT_EQ(mutex->lockerPid.counter, 100);
	EXPECT_STREQ(mutex->lockerName, "main");
	EXPECT_EQ(mutex->locked, 0u);
	EXPECT_EQ(history(mutex),
		  texts({ "1 caller.c:20 at 0", "0 caller.c:10 at 0" }));
	destroy(mutex);
}

TEST_F(TrackedMutex, RecordsAGiveBeforeItIsUnlocked)
{
	zorva_mutex *const mutex = create();
	take(mutex);
	fake::forget_calls();

	give(mutex);

	EXPECT_EQ(fake::call_texts({ "down", "up", "mutex_unlock" }),
		  texts({ "down", "up", "mutex_unlock" }));
	destroy(mutex);
}

TEST_F(TrackedMutex, RecordsAGiveThoughItWasNeverTaken)
{
	zorva_mutex *const mutex = create();

	EXPECT_EQ(give(mutex), ok);

	EXPECT_EQ(mutex->active, 1u);
	EXPECT_EQ(mutex->takeCount.counter, 0);
	EXPECT_EQ(history(mutex), texts{ "1 caller.c:20 at 0" });
	EXPECT_EQ(fake::call_texts({ "mutex_unlock" }), texts());
	destroy(mutex);
}

TEST_F(TrackedMutex, RecordsAndIgnoresTheGiveOfATaskThatDoesNotHoldIt)
{
	zorva_mutex *const mutex = create();
	u32 result = 1;
	take(mutex);

	in_task("meddler", [&] {
		result = give(mutex, 21);
	});

	EXPECT_EQ(result, ok);
	EXPECT_TRUE(mutex_is_locked(&mutex->mutex));
	EXPECT_EQ(mutex->takeCount.counter, 1);
	EXPECT_EQ(mutex->lockerPid.counter, 100);
	EXPECT_EQ(history(mutex),
		  texts({ "1 caller.c:21 at 0", "0 caller.c:10 at 0" }));
	give(mutex);
	destroy(mutex);
}

TEST_F(TrackedMutex, StaysLockedWhileItsTakeCountIsNotZero)
{
	zorva_mutex *const mutex = create();
	take(mutex);
	mutex->takeCount.counter = 2;

	EXPECT_EQ(give(mutex), ok);
	EXPECT_EQ(mutex->takeCount.counter, 1);
	EXPECT_TRUE(mutex_is_locked(&mutex->mutex));

	EXPECT_EQ(give(mutex), ok);
	EXPECT_FALSE(mutex_is_locked(&mutex->mutex));
	destroy(mutex);
}

TEST_F(TrackedMutex, WarnsOfAGiveInAnInterruptAndGoesOn)
{
	zorva_mutex *const mutex = create();
	take(mutex);
	std::string log_at_down;
	keep_log_at_down(registry_lock, log_at_down);

	const texts forbidden = complaints_of([&] {
		const fake::hard_interrupt interrupt;

		EXPECT_EQ(give(mutex), ok);
	});

	EXPECT_EQ(fake::log_text(), "\001c[ZORVA] zorva_mutex_give_track - "
				    "in_interrupt.(caller.c, 20)\n<stack>\n");
	EXPECT_EQ(log_at_down, fake::log_text());
	EXPECT_EQ(forbidden.size(), 1u);
	EXPECT_FALSE(mutex_is_locked(&mutex->mutex));
	destroy(mutex);
}

TEST_F(TrackedMutex, DoesNotWarnOfARefusedCallInAnInterrupt)
{
	zorva_mutex *const mutex = create();

	for (auto call : { zorva_mutex_take_track, zorva_mutex_give_track }) {
		const fake::soft_interrupt interrupt;

		EXPECT_EQ(call(0, mutex, "caller.c", 1), bad_component);
		EXPECT_EQ(call(57, mutex, "caller.c", 1), bad_component);
		EXPECT_EQ(call(owner, nullptr, "caller.c", 1), null_argument);
		EXPECT_EQ(call(owner, mutex, nullptr, 1), null_argument);
	}

	EXPECT_EQ(fake::log_text(), "");
	destroy(mutex);
}

TEST_F(TrackedMutex, DoesNotWarnOutsideInterrupts)
{
	zorva_mutex *const mutex = create();

	take(mutex);
	give(mutex);

	EXPECT_EQ(fake::log_text(), "");
	destroy(mutex);
}
