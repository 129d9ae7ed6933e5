// SPDX-License-Identifier: GPL-2.0
/* Event flags. */
#include "lock_fixture.h"
#include "zorva_event.h"

#include <string.h>

namespace
{

constexpr u32 forever = 0xFFFFFFFF;

class EventFlags : public LockTest {
protected:
	static std::string said_of_event(const std::string &call,
					 const std::string &name)
	{
		const std::string done = call == "create" ? "created"
							  : "destroyed";

		return "3 zorva_event.cpp zorva_event_" + call + ": Event '" +
		       name + "' has been " + done + "\n";
	}

	static zorva_event *create(const char *name = "e")
	{
		const auto call = [&] {
			return zorva_event_create(owner, name);
		};

		return reported(call, [](const zorva_event *event) {
			return said_of_sem(event->signal->name) +
			       said_of_mutex(event->lock->name) +
			       said_of_event("create", event->name);
		});
	}

	static u32 set(zorva_event *event, u32 first, u32 second = 0)
	{
		const u32 bits[2] = { first, second };

		return silently([&] {
			return zorva_event_set(owner, event, bits);
		});
	}

	/* "0x0: 0x5 0x100", what a wait returned and then the bits. */
	static std::string wait(zorva_event *event, u32 timeout = 0)
	{
		u32 bits[2] = { 0xdead, 0xbeef };
		const u32 error = silently([&] {
			return zorva_event_wait(owner, event, bits, timeout);
		});

		return fake::format("0x%x: 0x%x 0x%x", error, bits[0], bits[1]);
	}

	static u32 signals(const zorva_event *event)
	{
		return zk_sema_count(&event->signal->semaphore);
	}

	void destroy(zorva_event *event)
	{
		const std::string expected =
			said_of_sem(event->signal->name, "destroyed") +
			said_of_mutex(event->lock->name, "destroyed") +
			said_of_event("destroy", event->name);
		const auto call = [&] {
			return zorva_event_destroy(owner, event);
		};

		EXPECT_EQ(reported(call, expected), ok);
		new_reports();
	}
};

class EventSet : public EventFlags {};

class EventWait : public EventFlags {};

} // namespace

/* Create. */

TEST_F(EventFlags, AreRefusedToAWrongComponent)
{
	const auto with = [](u32 compId) {
		return [=] {
			return as_word(zorva_event_create(compId, "e"));
		};
	};

	refuses("zorva_event.cpp", "zorva_event_create",
		{ { 0, with(0), with(0) }, { 0, with(57), with(0xFFFFFFFF) } });
}

TEST_F(EventFlags, StartEmptyWithTheirNameForAll)
{
	zorva_event *const event = create("links");

	ASSERT_NE(event, nullptr);
	EXPECT_EQ(sizeof(*event), 52u);
	EXPECT_EQ(event->component, owner);
	EXPECT_EQ(event->pending[0], 0u);
	EXPECT_EQ(event->pending[1], 0u);
	EXPECT_STREQ(event->name, "links");
	EXPECT_STREQ(event->signal->name, "links");
	EXPECT_STREQ(event->lock->name, "links");
	EXPECT_EQ(event->signal->component, owner);
	EXPECT_EQ(event->lock->component, owner);
	EXPECT_EQ(signals(event), 0u);
	EXPECT_EQ(new_reports(), "3 zorva_sem.cpp zorva_sem_create_track: "
				 "Semaphore 'links' has been created\n"
				 "3 zorva_sem.cpp zorva_mutex_create_track: "
				 "Mutex 'links' has been created\n"
				 "3 zorva_event.cpp zorva_event_create: "
				 "Event 'links' has been created\n");

	destroy(event);
}

TEST_F(EventFlags, AreNamedAfterTheirComponentAndTheirLocksAfterALine)
{
	zorva_event *const event = create(nullptr);

	EXPECT_STREQ(event->name, "PORT");
	EXPECT_EQ(std::string(event->signal->name).find("PORT-"), 0u);
	EXPECT_EQ(std::string(event->lock->name).find("PORT-"), 0u);

	destroy(event);
}

TEST_F(EventFlags, AreChargedToTheirComponent)
{
	zorva_event *const event = create();

	EXPECT_EQ(_zorvaMallocMemUsage[owner].currUsage,
		  52 + sizeof(zorva_mutex) + sizeof(zorva_sem));

	destroy(event);
	EXPECT_EQ(_zorvaMallocMemUsage[owner].currUsage, 0u);
}

TEST_F(EventFlags, KeepNamesOf31Characters)
{
	const std::string name(40, 'n');
	zorva_event *const event = create(name.c_str());

	EXPECT_EQ(event->name, name.substr(0, 31));
	EXPECT_EQ(event->lock->name, name.substr(0, 31));

	destroy(event);
}

TEST_F(EventFlags, AreCompleteOnlyWhenTheComponentIsWritten)
{
	u32 at_mutex = 1;
	fake::on_call([&](const fake::call &made) {
		const auto *const event = reinterpret_cast<zorva_event *>(
			fake::heap_calls()[0].block
				? static_cast<char *>(const_cast<void *>(
					  fake::heap_calls()[0].block)) +
					  52
				: nullptr);

		if (made.text == "mutex_init &pMutex->mutex")
			at_mutex = event->component;
	});

	zorva_event *const event = create();

	EXPECT_EQ(at_mutex, 0u);
	EXPECT_EQ(event->component, owner);
	destroy(event);
}

TEST_F(EventFlags, LeaveNothingWithoutMemory)
{
	const texts expected = {
		"1 zorva_event.cpp zorva_event_create: "
		"allocate memory failed. (52 bytes)\n",
		"1 zorva_event.cpp zorva_event_create: "
		"create semaphore failed.\n",
		"3 zorva_sem.cpp zorva_sem_create_track: "
		"Semaphore 'e' has been created\n"
		"1 zorva_event.cpp zorva_event_create: "
		"create mutex failed.\n"
		"3 zorva_sem.cpp zorva_sem_destroy_track: "
		"Semaphore 'e' has been destroyed\n",
	};

	const unsigned int allocations =
		fail_each_allocation([&](unsigned int nth) {
			SCOPED_TRACE(nth);
			zorva_event *const event = create();

			if (nth > expected.size()) {
				destroy(event);
				return;
			}
			EXPECT_EQ(event, nullptr);
			EXPECT_EQ(own_reports(), expected[nth - 1]);
			EXPECT_EQ(tracked_blocks(), 0u);
		});

	EXPECT_EQ(allocations, 3u);
	EXPECT_EQ(fake::log_size(), 3u);
	fake::log_text();
}

/* Destroy. */

TEST_F(EventFlags, RefuseWrongArgumentsOfTheirDestructionInOrder)
{
	zorva_event *const event = create();
	zorva_event incomplete = {};
	const auto with = [](u32 compId, zorva_event *which) {
		return [=] {
			return zorva_event_destroy(compId, which);
		};
	};
	new_reports();

	refuses("zorva_event.cpp", "zorva_event_destroy",
		{ { bad_component, with(0, event), with(0, nullptr) },
		  { bad_component, with(57, event), with(0xFFFFFFFF, nullptr) },
		  { null_argument, with(owner, nullptr), with(owner, nullptr) },
		  { failed, with(owner, &incomplete),
		    with(owner, &incomplete) } });

	destroy(event);
}

TEST_F(EventFlags, AreFreedWithTheirLocksByAnyComponent)
{
	zorva_event *const event = create("links");
	new_reports();

	EXPECT_EQ(zorva_event_destroy(other, event), ok);

	EXPECT_EQ(new_reports(), "3 zorva_sem.cpp zorva_sem_destroy_track: "
				 "Semaphore 'links' has been destroyed\n"
				 "3 zorva_sem.cpp zorva_mutex_destroy_track: "
				 "Mutex 'links' has been destroyed\n"
				 "3 zorva_event.cpp zorva_event_destroy: "
				 "Event 'links' has been destroyed\n");
	EXPECT_EQ(tracked_blocks(), 0u);
	fake::allow_access_to_freed(&event->component, 4);
	EXPECT_EQ(event->component, owner);
}

/* In whose name a block is freed shows when its guard is torn. */
TEST_F(EventFlags, AreFreedInTheNameOfWhoeverDestroysThem)
{
	zorva_event *const event = create();
	tear_all();

	EXPECT_EQ(zorva_event_destroy(other, event), ok);

	EXPECT_EQ(torn_frees(),
		  texts({ "VLAN, zorva_sem.cpp", "VLAN, zorva_sem.cpp",
			  "VLAN, zorva_event.cpp" }));
}

TEST_F(EventFlags, AreFreedInTheirComponentsNameWithoutMemory)
{
	on_report([](const report &made) {
		if (made.text.starts_with("create "))
			tear_all();
	});

	fake::fail_allocation(2);
	EXPECT_EQ(create(), nullptr);
	EXPECT_EQ(torn_frees(), texts{ "PORT, zorva_event.cpp" });

	fake::fail_allocation(3);
	EXPECT_EQ(create(), nullptr);
	EXPECT_EQ(torn_frees(),
		  texts({ "PORT, zorva_sem.cpp", "PORT, zorva_event.cpp" }));
}

TEST_F(EventFlags, StayWhenALockCannotBeDestroyed)
{
	zorva_event *const event = create("links");
	zorva_sem *const signal = event->signal;
	zorva_mutex *const lock = event->lock;
	new_reports();

	event->signal = nullptr;
	EXPECT_EQ(zorva_event_destroy(owner, event), failed);
	EXPECT_EQ(new_reports(),
		  "1 zorva_sem.cpp zorva_sem_destroy_track: invalid parameter\n"
		  "1 zorva_event.cpp zorva_event_destroy: "
		  "destroy semaphore failed.\n");
	EXPECT_EQ(_zorvaMutexDbg.count, 1u);

	event->signal = signal;
	event->lock = nullptr;
	EXPECT_EQ(zorva_event_destroy(owner, event), failed);
	EXPECT_EQ(new_reports(), "3 zorva_sem.cpp zorva_sem_destroy_track: "
				 "Semaphore 'links' has been destroyed\n"
				 "1 zorva_sem.cpp zorva_mutex_destroy_track: "
				 "invalid parameter\n"
				 "1 zorva_event.cpp zorva_event_destroy: "
				 "destroy mutex failed.\n");

	EXPECT_EQ(event->component, owner);
	event->signal = zorva_sem_create_track(owner, "s", 0, "caller.c", 7);
	event->lock = lock;
	destroy(event);
}

/* Set. */

TEST_F(EventSet, RefusesWrongArgumentsInOrder)
{
	zorva_event *const event = create();
	static const u32 bits[2] = { 1, 1 };
	const auto with = [](u32 compId, zorva_event *which, const u32 *set) {
		return [=] {
			return zorva_event_set(compId, which, set);
		};
	};
	new_reports();

	refuses("zorva_event.cpp", "zorva_event_set",
		{ { bad_component, with(0, event, bits),
		    with(0, nullptr, nullptr) },
		  { bad_component, with(57, event, bits),
		    with(0xFFFFFFFF, nullptr, nullptr) },
		  { null_argument, with(owner, nullptr, bits),
		    with(owner, nullptr, nullptr) },
		  { null_argument, with(owner, event, nullptr),
		    with(owner, event, nullptr) } });

	destroy(event);
}

TEST_F(EventSet, MergesTheBitsAndSignalsEachTime)
{
	zorva_event *const event = create();

	EXPECT_EQ(set(event, 0x1, 0), ok);
	EXPECT_EQ(set(event, 0x4, 0x100), ok);
	EXPECT_EQ(set(event, 0x4, 0x100), ok);

	EXPECT_EQ(event->pending[0], 0x5u);
	EXPECT_EQ(event->pending[1], 0x100u);
	EXPECT_EQ(signals(event), 3u);
	destroy(event);
}

TEST_F(EventSet, IsMadeByAnyComponentEvenOnAnIncompleteEvent)
{
	zorva_event *const event = create();
	const u32 bits[2] = { 0x80000000, 0x1 };
	event->component = 0;

	EXPECT_EQ(zorva_event_set(other, event, bits), ok);

	EXPECT_EQ(event->pending[0], 0x80000000u);
	EXPECT_EQ(event->pending[1], 1u);
	event->component = owner;
	destroy(event);
}

TEST_F(EventSet, GivesTheLockBeforeItSignals)
{
	zorva_event *const event = create();
	texts states;
	fake::forget_calls();
	fake::on_call([&](const fake::call &made) {
		if (made.object == &event->lock->mutex)
			states.push_back(std::to_string(event->pending[0]));
	});

	set(event, 5);

	texts order;
	for (const fake::call &each : fake::calls())
		if (each.object == &event->lock->mutex ||
		    each.object == &event->signal->semaphore)
			order.push_back(each.text);
	EXPECT_EQ(order, texts({ "mutex_lock", "mutex_unlock", "up" }));
	EXPECT_EQ(states, texts({ "0", "5" }));
	destroy(event);
}

TEST_F(EventSet, RecordsThisModulesFileInTheHistories)
{
	zorva_event *const event = create();

	set(event, 1);
	wait(event);

	for (const std::string &entry : history(event->lock))
		EXPECT_EQ(entry.substr(2, 15), "zorva_event.cpp");
	for (const std::string &entry : history(event->signal))
		EXPECT_EQ(entry.substr(2, 15), "zorva_event.cpp");
	EXPECT_EQ(history(event->lock).size(), 4u);
	EXPECT_EQ(history(event->signal).size(), 2u);
	destroy(event);
}

TEST_F(EventSet, FailsWhenTheLockCannotBeTakenOrGiven)
{
	zorva_event *const event = create();
	zorva_mutex *const lock = event->lock;
	new_reports();

	event->lock = nullptr;
	EXPECT_EQ(set(event, 1), null_argument);
	EXPECT_EQ(new_reports(),
		  "1 zorva_sem.cpp zorva_mutex_take_track: invalid parameter\n"
		  "1 zorva_event.cpp zorva_event_set: error 0x7e000015\n");
	EXPECT_EQ(event->pending[0], 0u);

	event->lock = lock;
	fake::on_call([&](const fake::call &made) {
		if (made.text == "mutex_lock")
			event->lock = nullptr;
	});
	EXPECT_EQ(set(event, 1), null_argument);
	EXPECT_EQ(new_reports(),
		  "1 zorva_sem.cpp zorva_mutex_give_track: invalid parameter\n"
		  "1 zorva_event.cpp zorva_event_set: error 0x7e000015\n");
	EXPECT_EQ(event->pending[0], 1u);
	EXPECT_EQ(signals(event), 0u);

	fake::on_call(nullptr);
	event->lock = lock;
	zorva_mutex_give_track(owner, lock, "caller.c", 9);
	destroy(event);
}

TEST_F(EventSet, FailsWhenItCannotSignal)
{
	zorva_event *const event = create();
	zorva_sem *const signal = event->signal;
	new_reports();
	event->signal = nullptr;

	EXPECT_EQ(set(event, 1), null_argument);

	EXPECT_EQ(new_reports(),
		  "1 zorva_sem.cpp zorva_sem_give_track: invalid parameter\n"
		  "1 zorva_event.cpp zorva_event_set: error 0x7e000015\n");
	EXPECT_EQ(event->pending[0], 1u);
	EXPECT_FALSE(mutex_is_locked(&event->lock->mutex));
	event->signal = signal;
	destroy(event);
}

/* Wait. */

TEST_F(EventWait, RefusesWrongArgumentsInOrderAndNeitherTestsNorWritesBits)
{
	zorva_event *const event = create();
	zorva_event incomplete = {};
	u32 bits[2] = { 7, 8 };
	const auto with = [](u32 compId, zorva_event *which, u32 *to) {
		return [=] {
			return zorva_event_wait(compId, which, to, 0);
		};
	};
	new_reports();

	refuses("zorva_event.cpp", "zorva_event_wait",
		{ { bad_component, with(0, event, bits),
		    with(0, nullptr, nullptr) },
		  { bad_component, with(57, event, bits),
		    with(0xFFFFFFFF, nullptr, nullptr) },
		  { null_argument, with(owner, nullptr, bits),
		    with(owner, nullptr, nullptr) },
		  { failed, with(owner, &incomplete, bits),
		    with(owner, &incomplete, nullptr) } });

	EXPECT_EQ(bits[0], 7u);
	EXPECT_EQ(bits[1], 8u);
	destroy(event);
}

TEST_F(EventWait, TakesAllBitsAndLaterWaitsFindNone)
{
	zorva_event *const event = create();
	set(event, 0x1, 0);
	set(event, 0x4, 0x100);
	new_reports();

	EXPECT_EQ(wait(event), "0x0: 0x5 0x100");
	EXPECT_EQ(event->pending[0], 0u);
	EXPECT_EQ(event->pending[1], 0u);
	EXPECT_EQ(wait(event), "0x0: 0x0 0x0");
	EXPECT_EQ(wait(event), "0xffffffff: 0x0 0x0");

	EXPECT_EQ(new_reports(), "");
	destroy(event);
}

TEST_F(EventWait, EndsSilentlyWhenTheTimeIsUp)
{
	zorva_event *const event = create();
	new_reports();

	EXPECT_EQ(wait(event, 50), "0x7000002a: 0x0 0x0");
	EXPECT_EQ(fake::now(), 50 * msec);
	EXPECT_EQ(wait(event, 0), "0xffffffff: 0x0 0x0");
	EXPECT_EQ(fake::now(), 50 * msec);

	EXPECT_EQ(new_reports(), "");
	destroy(event);
}

TEST_F(EventWait, IsWokenByASet)
{
	zorva_event *const event = create();
	std::string first;
	std::string second;
	const pid_t waiter = in_task("waiter", [&] {
		first = wait(event, forever);
		second = wait(event, 1000);
	});
	EXPECT_EQ(fake::blocked_in(waiter), "down");

	set(event, 0x80000000, 3);
	fake::run_others();
	EXPECT_EQ(first, "0x0: 0x80000000 0x3");
	EXPECT_EQ(fake::blocked_in(waiter), "down_timeout");
	set(event, 0, 0);
	fake::run_others();

	EXPECT_EQ(second, "0x0: 0x0 0x0");
	destroy(event);
}

TEST_F(EventWait, ClearsTheBitsBeforeItWaits)
{
	zorva_event *const event = create();
	u32 bits[2] = { 7, 8 };
	in_task("waiter", [&] {
		zorva_event_wait(owner, event, bits, forever);
	});

	EXPECT_EQ(bits[0], 0u);
	EXPECT_EQ(bits[1], 0u);

	set(event, 1, 2);
	fake::run_others();
	EXPECT_EQ(bits[0], 1u);
	EXPECT_EQ(bits[1], 2u);
	destroy(event);
}

TEST_F(EventWait, TakesTheSignalBeforeTheLock)
{
	zorva_event *const event = create();
	texts states;
	set(event, 5);
	fake::forget_calls();
	fake::on_call([&](const fake::call &made) {
		if (made.object == &event->lock->mutex)
			states.push_back(std::to_string(event->pending[0]));
	});

	wait(event, 250);

	texts order;
	for (const fake::call &each : fake::calls())
		if (each.object == &event->lock->mutex ||
		    each.object == &event->signal->semaphore)
			order.push_back(each.text);
	EXPECT_EQ(order,
		  texts({ "down_timeout 25", "mutex_lock", "mutex_unlock" }));
	EXPECT_EQ(states, texts({ "5", "0" }));
	destroy(event);
}

TEST_F(EventWait, FailsWhenTheLockCannotBeTakenOrGiven)
{
	zorva_event *const event = create();
	zorva_mutex *const lock = event->lock;
	set(event, 1, 2);
	set(event, 4, 8);
	new_reports();

	event->lock = nullptr;
	EXPECT_EQ(wait(event), "0x7e000015: 0x0 0x0");
	EXPECT_EQ(new_reports(),
		  "1 zorva_sem.cpp zorva_mutex_take_track: invalid parameter\n"
		  "1 zorva_event.cpp zorva_event_wait: error 0x7e000015\n");
	EXPECT_EQ(event->pending[0], 5u);
	EXPECT_EQ(signals(event), 1u);

	event->lock = lock;
	fake::on_call([&](const fake::call &made) {
		if (made.text == "mutex_lock")
			event->lock = nullptr;
	});
	EXPECT_EQ(wait(event), "0x7e000015: 0x5 0xa");
	EXPECT_EQ(new_reports(),
		  "1 zorva_sem.cpp zorva_mutex_give_track: invalid parameter\n"
		  "1 zorva_event.cpp zorva_event_wait: error 0x7e000015\n");
	EXPECT_EQ(event->pending[0], 0u);

	fake::on_call(nullptr);
	event->lock = lock;
	zorva_mutex_give_track(owner, lock, "caller.c", 9);
	destroy(event);
}

TEST_F(EventWait, FailsAfterTheReportOfASignalThatIsNotThere)
{
	zorva_event *const event = create();
	zorva_sem *const signal = event->signal;
	new_reports();
	event->signal = nullptr;

	EXPECT_EQ(wait(event), "0x7e000015: 0x0 0x0");

	EXPECT_EQ(new_reports(),
		  "1 zorva_sem.cpp zorva_sem_take_track: invalid parameter\n");
	event->signal = signal;
	destroy(event);
}

TEST_F(EventWait, EndsAThreadInTheNameOfItsCaller)
{
	zorva_event *const event = create();
	set(event, 1);

	EXPECT_EQ(ends_in_the_name_of(
			  [&] {
				  u32 bits[2];

				  zorva_event_wait(other, event, bits, 0);
			  },
			  "down_trylock", &event->signal->semaphore),
		  texts{ "VLAN, zorva_thread.cpp" });

	destroy(event);
}

TEST_F(EventSet, EndsAThreadInTheNameOfItsCaller)
{
	zorva_event *const event = create();

	EXPECT_EQ(ends_in_the_name_of(
			  [&] {
				  const u32 bits[2] = { 1, 0 };

				  zorva_event_set(other, event, bits);
			  },
			  "mutex_unlock", &event->lock->mutex),
		  texts{ "VLAN, zorva_thread.cpp" });

	destroy(event);
}
