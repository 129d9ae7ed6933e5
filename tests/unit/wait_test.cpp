// SPDX-License-Identifier: GPL-2.0
/* Wait modules. */
#include "service_fixture.h"
#include "zorva_wait.h"

namespace
{

class WaitModule : public ServiceTest {
protected:
	/* The ID of a new wait module. */
	static u32 create()
	{
		u32 id = 4711;

		EXPECT_EQ(silently([&] {
				  return zorva_wait_module_create_track(owner,
									&id,
									"caller.c",
									7);
			  }),
			  ok);
		return id;
	}

	static u32 destroy(u32 id)
	{
		return silently([&] {
			return zorva_wait_module_destroy_track(owner, id,
							       "caller.c", 8);
		});
	}

	static u32 wait(u32 id)
	{
		return silently([&] {
			return zorva_wait_event_track(owner, id, "caller.c", 9);
		});
	}

	static u32 wake(u32 id)
	{
		return silently([&] {
			return zorva_wake_up_track(owner, id, "caller.c", 10);
		});
	}

	/* A task that waits, until it is blocked or done. */
	static pid_t waiter(u32 id)
	{
		const pid_t pid = fake::start_task("waiter", [id] {
			EXPECT_EQ(wait(id), ok);
		});

		fake::run_others();
		return pid;
	}

	static std::vector<wait_module *> listed()
	{
		std::vector<wait_module *> found;

		for (auto *each = _zorvaWaitHead; each; each = each->next)
			found.push_back(each);
		return found;
	}

	static texts ids()
	{
		texts found;

		for (const wait_module *each : listed())
			found.push_back(std::to_string(each->waitId));
		return found;
	}

	/* Destroys from the youngest to the oldest, as it must be done. */
	static void destroy_all()
	{
		while (_zorvaWaitHead)
			EXPECT_EQ(destroy(listed().back()->waitId), ok);
	}
};

class WaitEvent : public WaitModule {};

class WakeUp : public WaitModule {};

} // namespace

/* Create. */

TEST_F(WaitModule, RefusesWrongArgumentsOfItsCreationInOrder)
{
	static u32 id = 4711;
	const auto with = [](u32 compId, u32 *to, const char *file) {
		return [=] {
			return zorva_wait_module_create_track(compId, to, file,
							      7);
		};
	};

	refuses("zorva_wait.cpp", "zorva_wait_module_create_track",
		{ { bad_component, with(0, &id, "f.c"),
		    with(0, nullptr, nullptr) },
		  { bad_component, with(57, &id, "f.c"),
		    with(0xFFFFFFFF, nullptr, nullptr) },
		  { null_argument, with(owner, nullptr, "f.c"),
		    with(owner, nullptr, nullptr) },
		  { null_argument, with(owner, &id, nullptr),
		    with(owner, &id, nullptr) } });

	EXPECT_EQ(id, 4711u);
	EXPECT_EQ(_zorvaWaitHead, nullptr);
}

TEST_F(WaitModule, StartsIdleWithId0)
{
	EXPECT_EQ(create(), 0u);

	const wait_module *const module = _zorvaWaitHead;
	ASSERT_NE(module, nullptr);
	EXPECT_EQ(sizeof(*module), 32u);
	EXPECT_EQ(module->component, owner);
	EXPECT_EQ(module->waitId, 0u);
	EXPECT_EQ(module->state, 1u);
	EXPECT_EQ(module->count, 0);
	EXPECT_EQ(module->previous, nullptr);
	EXPECT_EQ(module->next, nullptr);
	EXPECT_EQ(fake::call_texts({ "init_waitqueue_head" }),
		  texts{ "init_waitqueue_head &p->queue" });
	EXPECT_EQ(new_reports(), "");
	destroy_all();
}

TEST_F(WaitModule, BelongsToThisModuleAndIsMadeUnderTheListsLock)
{
	create();

	ASSERT_EQ(fake::heap_calls().size(), 1u);
	EXPECT_TRUE(fake::heap_calls()[0].at.holds(&_waitListLck));
	EXPECT_TRUE(fake::calls()[0].at.holds(&_waitListLck));
	EXPECT_EQ(_zorvaMallocMemUsage[9].currUsage, 32u);
	EXPECT_EQ(_zorvaMallocMemUsage[owner].allocCount, 0u);

	destroy_all();
	EXPECT_EQ(_zorvaMallocMemUsage[9].currUsage, 0u);
}

TEST_F(WaitModule, IsListedLastWithTheNextId)
{
	EXPECT_EQ(create(), 0u);
	EXPECT_EQ(create(), 1u);
	EXPECT_EQ(create(), 2u);

	const auto modules = listed();
	ASSERT_EQ(modules.size(), 3u);
	EXPECT_EQ(ids(), texts({ "0", "1", "2" }));
	EXPECT_EQ(modules[0]->previous, nullptr);
	EXPECT_EQ(modules[1]->previous, modules[0]);
	EXPECT_EQ(modules[2]->previous, modules[1]);
	destroy_all();
}

TEST_F(WaitModule, GetsTheIdOfADestroyedOneAgain)
{
	create();
	create();
	EXPECT_EQ(destroy(1), ok);
	EXPECT_EQ(create(), 1u);

	destroy_all();
	EXPECT_EQ(create(), 0u);
	destroy_all();
}

TEST_F(WaitModule, CountsOnFromTheLastOneWhateverTheOthersHave)
{
	create();
	create();
	create();
	EXPECT_EQ(destroy(1), ok);
	EXPECT_EQ(create(), 3u);
	listed()[2]->waitId = 0xFFFFFFFF;

	EXPECT_EQ(create(), 0u);

	EXPECT_EQ(ids(), texts({ "0", "2", "4294967295", "0" }));
	EXPECT_EQ(_zorva_wait_module_find(0), listed()[0]);
	listed()[3]->waitId = 3;
	destroy_all();
}

TEST_F(WaitModule, IsNotMadeWithoutMemory)
{
	create();
	const unsigned int allocations =
		fail_each_allocation([&](unsigned int nth) {
			u32 id = 4711;
			const u32 result =
				zorva_wait_module_create_track(owner, &id,
							       "caller.c", 7);

			if (nth > 1)
				return;
			EXPECT_EQ(result, failed);
			EXPECT_EQ(id, 4711u);
			EXPECT_EQ(ids(), texts{ "0" });
			EXPECT_EQ(last_report(),
				  "1 zorva_wait.cpp "
				  "zorva_wait_module_create_track: "
				  "allocate memory failed.(32 bytes)");
			EXPECT_TRUE(reports().back().at.holds(&_waitListLck));
		});

	EXPECT_EQ(allocations, 1u);
	EXPECT_EQ(reports().size(), 2u);
	EXPECT_EQ(fake::log_text(), "<stack>\n");
	EXPECT_EQ(ids(), texts({ "0", "1" }));
	destroy_all();
}

TEST_F(WaitModule, IsNotMadeWithoutMemoryAsTheFirst)
{
	u32 id = 4711;
	fake::fail_allocation(1);

	EXPECT_EQ(zorva_wait_module_create_track(owner, &id, "caller.c", 7),
		  failed);

	EXPECT_EQ(id, 4711u);
	EXPECT_EQ(_zorvaWaitHead, nullptr);
	EXPECT_EQ(reports().size(), 2u);
	fake::log_text();
}

TEST_F(WaitModule, IsMadeWokenAndDestroyedInAnyContext)
{
	const fake::hard_interrupt interrupt;

	EXPECT_EQ(create(), 0u);
	EXPECT_EQ(wake(0), ok);
	EXPECT_EQ(destroy(0), ok);
}

/* Find. */

TEST_F(WaitModule, IsFoundUnderTheListsLockOnceItIsMade)
{
	create();
	create();
	std::vector<const void *> taken;
	fake::after_spin_lock([&](const void *lock) {
		taken.push_back(lock);
	});

	EXPECT_EQ(_zorva_wait_module_find(1), listed()[1]);
	EXPECT_EQ(_zorva_wait_module_find(2), nullptr);
	EXPECT_EQ(taken, std::vector<const void *>(2, &_waitListLck));

	for (u32 state : { 0, 2 }) {
		listed()[1]->state = state;
		EXPECT_EQ(_zorva_wait_module_find(1), nullptr);
		EXPECT_EQ(wake(1), failed);
	}
	listed()[1]->state = 1;
	destroy_all();
}

/* Who is woken may destroy it at once. */
TEST_F(WaitModule, IsWokenUnderTheListsLockWhereOthersComeInBetween)
{
	std::vector<bool> locked;
	create();
	waiter(0);
	fake::on_call([&](const fake::call &made) {
		if (made.text.starts_with("wake_up"))
			locked.push_back(made.at.holds(&_waitListLck));
	});

	fake::use_several_processors();
	EXPECT_EQ(wake(0), ok);
	fake::on_call(nullptr);

	EXPECT_EQ(locked, std::vector<bool>{ true });
	fake::sleep_for(sec);
	destroy_all();
}

/* Destroy. */

TEST_F(WaitModule, RefusesWrongArgumentsOfItsDestructionInOrder)
{
	create();
	const auto with = [](u32 compId, const char *file) {
		return [=] {
			return zorva_wait_module_destroy_track(compId, 0, file,
							       7);
		};
	};

	refuses("zorva_wait.cpp", "zorva_wait_module_destroy_track",
		{ { bad_component, with(0, "f.c"), with(0, nullptr) },
		  { bad_component, with(57, "f.c"), with(0xFFFFFFFF, nullptr) },
		  { null_argument, with(owner, nullptr),
		    with(owner, nullptr) } });

	EXPECT_EQ(ids(), texts{ "0" });
	destroy_all();
}

/* In whose name it is freed shows when its guard is torn. */
TEST_F(WaitModule, IsFreedInTheNameOfThisModule)
{
	const u32 id = create();
	tear_all();

	EXPECT_EQ(zorva_wait_module_destroy_track(other, id, "caller.c", 8),
		  ok);

	EXPECT_EQ(torn_frees(), texts{ "ZORVA, zorva_wait.cpp" });
}

TEST_F(WaitModule, LeavesTheListFromTheMiddleAndTheEnd)
{
	create();
	create();
	create();
	const auto modules = listed();

	EXPECT_EQ(zorva_wait_module_destroy_track(other, 1, "caller.c", 8), ok);
	EXPECT_EQ(ids(), texts({ "0", "2" }));
	EXPECT_EQ(modules[2]->previous, modules[0]);
	EXPECT_EQ(destroy(2), ok);
	EXPECT_EQ(ids(), texts{ "0" });
	EXPECT_EQ(modules[0]->next, nullptr);
	EXPECT_EQ(destroy(0), ok);

	EXPECT_EQ(_zorvaWaitHead, nullptr);
	EXPECT_EQ(tracked_blocks(), 0u);
	EXPECT_EQ(new_reports(), "");
}

TEST_F(WaitModule, LeavesTheNextOnesLinkToItselfWhenItIsTheFirst)
{
	create();
	create();
	create();
	const auto modules = listed();

	EXPECT_EQ(destroy(0), ok);

	EXPECT_EQ(_zorvaWaitHead, modules[1]);
	EXPECT_EQ(modules[1]->previous, modules[0]);
	EXPECT_EQ(ids(), texts({ "1", "2" }));
	modules[1]->previous = nullptr;
	destroy_all();
}

TEST_F(WaitModule, WritesToTheFreedFirstOneWhenTheNextIsDestroyed)
{
	create();
	create();
	create();
	const auto modules = listed();
	EXPECT_EQ(destroy(0), ok);

	EXPECT_DEATH(destroy(1), "use-after-poison");

	fake::allow_access_to_freed(&modules[0]->next, sizeof(void *));
	EXPECT_EQ(destroy(1), ok);
	EXPECT_EQ(modules[0]->next, modules[2]);
	EXPECT_EQ(modules[2]->previous, modules[0]);
	EXPECT_EQ(_zorvaWaitHead, modules[1]);
	EXPECT_EQ(tracked_blocks(), 1u);
	leave(modules[2]);
}

TEST_F(WaitModule, LeavesTheListWithoutItsLock)
{
	create();
	const size_t taken = fake::spin_locks_taken();

	EXPECT_EQ(destroy(0), ok);

	/* One to find it, one of the memory. */
	EXPECT_EQ(fake::spin_locks_taken(), taken + 2);
	EXPECT_TRUE(fake::heap_calls().back().at.may_sleep());
}

TEST_F(WaitModule, DoesNotWakeWhoWaitsWhenDestroyed)
{
	const pid_t pid = waiter(create());
	fake::forget_calls();

	EXPECT_EQ(destroy(0), ok);

	fake::run_others();
	EXPECT_EQ(fake::blocked_in(pid), "schedule");
	EXPECT_TRUE(fake::calls().empty());
	fake::leave_task(pid);
}

TEST_F(WaitModule, IsNotFoundByAnIdThatNobodyHas)
{
	EXPECT_EQ(destroy(0), failed);
	EXPECT_EQ(wait(0), failed);
	EXPECT_EQ(wake(0), failed);
	create();

	EXPECT_EQ(destroy(1), failed);
	EXPECT_EQ(wait(0xFFFFFFFF), failed);
	EXPECT_EQ(wake(1), failed);

	EXPECT_EQ(new_reports(), "");
	EXPECT_EQ(_zorvaWaitHead->count, 0);
	destroy_all();
}

/* Wait. */

TEST_F(WaitEvent, RefusesWrongArgumentsInOrder)
{
	create();
	const auto with = [](u32 compId, const char *file) {
		return [=] {
			return zorva_wait_event_track(compId, 0, file, 7);
		};
	};

	refuses("zorva_wait.cpp", "zorva_wait_event_track",
		{ { bad_component, with(0, "f.c"), with(0, nullptr) },
		  { bad_component, with(57, "f.c"), with(0xFFFFFFFF, nullptr) },
		  { null_argument, with(owner, nullptr),
		    with(owner, nullptr) } });

	EXPECT_EQ(_zorvaWaitHead->count, 0);
	destroy_all();
}

TEST_F(WaitEvent, SleepsUntilItIsWoken)
{
	create();
	fake::forget_calls();
	const pid_t pid = waiter(0);

	EXPECT_EQ(_zorvaWaitHead->count, 1);
	fake::sleep_for(1000 * sec);
	EXPECT_EQ(fake::blocked_in(pid), "schedule");
	EXPECT_EQ(zk_task_state(fake::task_of(pid)), 1);
	EXPECT_EQ(wake(0), ok);
	EXPECT_EQ(_zorvaWaitHead->count, 0);
	fake::run_others();

	EXPECT_TRUE(fake::has_ended(pid));
	EXPECT_EQ(_zorvaWaitHead->count, 0);
	EXPECT_EQ(new_reports(), "");
	texts said;
	for (const fake::call &each : fake::calls())
		said.push_back(each.text);
	EXPECT_EQ(said, texts({ "init_wait_entry 0", "prepare_to_wait_event 1",
				"schedule", "wake_up 1 1 none",
				"prepare_to_wait_event 1", "finish_wait" }));
	destroy_all();
}

TEST_F(WaitEvent, SleepsWithoutTheListsLock)
{
	create();
	const pid_t pid = waiter(0);

	wake(0);
	fake::run_others();

	EXPECT_TRUE(fake::has_ended(pid));
	for (const fake::call &each :
	     fake::calls_to({ "schedule", "wake_up", "finish_wait" }))
		EXPECT_TRUE(each.at.may_sleep());
	destroy_all();
}

TEST_F(WaitEvent, ReturnsAtOnceAfterAWakeUpOfAnyComponent)
{
	create();
	EXPECT_EQ(zorva_wake_up_track(other, 0, "caller.c", 7), ok);
	fake::forget_calls();

	EXPECT_EQ(zorva_wait_event_track(other, 0, "caller.c", 8), ok);

	EXPECT_TRUE(fake::calls().empty());
	EXPECT_EQ(_zorvaWaitHead->count, 0);
	destroy_all();
}

TEST_F(WaitEvent, UsesUpAllWakeUpsAtOnce)
{
	create();
	wake(0);
	wake(0);
	wake(0);
	EXPECT_EQ(_zorvaWaitHead->count, -3);

	EXPECT_EQ(wait(0), ok);
	EXPECT_EQ(_zorvaWaitHead->count, 0);
	const pid_t pid = waiter(0);

	EXPECT_EQ(fake::blocked_in(pid), "schedule");
	wake(0);
	fake::run_others();
	destroy_all();
}

TEST_F(WaitEvent, CountsSeveralThatWaitAsOneAndWakesAllOfThem)
{
	create();
	std::vector<pid_t> waiters;
	for (int i = 0; i < 3; ++i)
		waiters.push_back(waiter(0));
	EXPECT_EQ(_zorvaWaitHead->count, 1);

	wake(0);
	fake::run_others();

	for (pid_t pid : waiters)
		EXPECT_TRUE(fake::has_ended(pid));
	EXPECT_EQ(_zorvaWaitHead->count, 0);
	destroy_all();
}

TEST_F(WaitEvent, DiscardsSignalsAndGoesOn)
{
	create();
	const pid_t pid = fake::start_task(
		"victim",
		[] {
			EXPECT_EQ(wait(0), ok);
			EXPECT_FALSE(zk_signal_pending());
		},
		fake::kind::user_space);
	fake::run_others();
	fake::forget_calls();

	for (int signal : { SIGTERM, SIGKILL, 10 }) {
		fake::send_signal(pid, signal);
		fake::run_others();
		EXPECT_EQ(fake::blocked_in(pid), "schedule");
	}

	EXPECT_EQ(fake::call_texts({ "flush_signals", "init_wait_entry" }),
		  texts({ "flush_signals 101", "init_wait_entry 0",
			  "flush_signals 101", "init_wait_entry 0",
			  "flush_signals 101", "init_wait_entry 0" }));
	EXPECT_EQ(_zorvaWaitHead->count, 1);
	wake(0);
	fake::run_others();
	EXPECT_TRUE(fake::has_ended(pid));
	destroy_all();
}

/* A signal is discarded only by a wait that goes on. */
TEST_F(WaitEvent, EndsWhenWokenTogetherWithASignal)
{
	needs_arrival_order();
	create();
	for (const bool signal_first : { true, false }) {
		bool pending = false;
		/* Threads let no signals through, unless they ask for them. */
		const pid_t pid = fake::start_task("victim", [&pending] {
			kernel_sigaction(SIGTERM, nullptr);
			EXPECT_EQ(wait(0), ok);
			pending = zk_signal_pending();
		});
		fake::leave_task(pid);
		fake::run_others();
		EXPECT_EQ(fake::blocked_in(pid), "schedule");
		fake::forget_calls();

		if (signal_first)
			fake::send_signal(pid, SIGTERM);
		wake(0);
		if (!signal_first)
			fake::send_signal(pid, SIGTERM);
		fake::run_others();

		EXPECT_TRUE(fake::has_ended(pid));
		EXPECT_TRUE(pending);
		EXPECT_EQ(fake::call_texts({ "prepare_to_wait_event",
					     "finish_wait", "flush_signals" }),
			  texts({ "prepare_to_wait_event 1", "finish_wait" }));
		EXPECT_EQ(_zorvaWaitHead->count, 0);
	}
	destroy_all();
}

TEST_F(WaitEvent, SleepsOnWhenItIsWokenForNothing)
{
	create();
	const pid_t pid = waiter(0);
	fake::forget_calls();

	wake_up_process(fake::task_of(pid));
	fake::run_others();

	EXPECT_EQ(fake::call_texts({ "prepare_to_wait_event", "schedule" }),
		  texts({ "prepare_to_wait_event 1", "schedule" }));
	wake(0);
	fake::run_others();
	EXPECT_TRUE(fake::has_ended(pid));
	destroy_all();
}

/* Wake. */

TEST_F(WakeUp, RefusesWrongArgumentsInOrder)
{
	create();
	const auto with = [](u32 compId, const char *file) {
		return [=] {
			return zorva_wake_up_track(compId, 0, file, 7);
		};
	};

	refuses("zorva_wait.cpp", "zorva_wake_up_track",
		{ { bad_component, with(0, "f.c"), with(0, nullptr) },
		  { bad_component, with(57, "f.c"), with(0xFFFFFFFF, nullptr) },
		  { null_argument, with(owner, nullptr),
		    with(owner, nullptr) } });

	EXPECT_EQ(_zorvaWaitHead->count, 0);
	destroy_all();
}

TEST_F(WakeUp, IsRememberedWhenNobodyWaits)
{
	create();

	EXPECT_EQ(wake(0), ok);
	EXPECT_EQ(wake(0), ok);

	EXPECT_EQ(_zorvaWaitHead->count, -2);
	EXPECT_EQ(fake::call_texts({ "wake_up" }), texts());
	destroy_all();
}

TEST_F(WakeUp, ReachesOnlyTheWaitModuleThatItNames)
{
	create();
	create();
	const pid_t pid = waiter(0);

	wake(1);
	fake::run_others();
	EXPECT_EQ(fake::blocked_in(pid), "schedule");
	wake(0);
	fake::run_others();

	EXPECT_TRUE(fake::has_ended(pid));
	EXPECT_EQ(listed()[1]->count, -1);
	destroy_all();
}

TEST_F(WakeUp, IsDoneFromAHardInterrupt)
{
	create();
	const pid_t pid = waiter(0);

	{
		const fake::hard_interrupt interrupt;

		EXPECT_EQ(wake(0), ok);
	}
	fake::run_others();

	EXPECT_TRUE(fake::has_ended(pid));
	destroy_all();
}

/* The report. */

TEST_F(WaitModule, HasAnEmptyReport)
{
	create();

	const report_run run = run_report(zorva_wait_module_dump, 4096);

	EXPECT_EQ(run.result, 0);
	EXPECT_EQ(run.text, "");
	destroy_all();
}
