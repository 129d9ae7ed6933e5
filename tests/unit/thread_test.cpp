// SPDX-License-Identifier: GPL-2.0
/* Tracked kernel threads. */
#include "service_fixture.h"
#include "zorva_thread.h"

#include <limits.h>
#include <string.h>

namespace
{

constexpr s32 nice_5 = 100; /* a priority: 100 * 39 / 255 - 20 is -5 */

/* What the threads of a test do, and what they were given. */
std::function<void()> body;
std::vector<void *> arguments;

void run_body(void *argument)
{
	arguments.push_back(argument);
	if (body)
		body();
}

/* Blocks until the test lets it go on, and then ends. */
semaphore gate;

void wait_at_gate(void *)
{
	down(&gate);
}

class TrackedThread : public ServiceTest {
protected:
	void SetUp() override
	{
		ServiceTest::SetUp();
		zk_sema_init(&gate, 0);
		arguments.clear();
		body = nullptr;
		fake::forget_calls();
	}

	/* A thread of the owner's, from caller.c:7. */
	static pid_t create(const char *name, s32 priority = nice_5,
			    void (*entry)(void *) = wait_at_gate)
	{
		pid_t pid = 0;
		const std::string said = reports_during([&] {
			pid = zorva_thread_create_track(owner, name, 0,
							priority, entry, &gate,
							"caller.c", 7);
		});

		if (pid) {
			EXPECT_EQ(said,
				  "3 zorva_thread.cpp "
				  "zorva_thread_create_track: Thread '" +
					  std::string(name).substr(0, 31) +
					  "' has been created\n");
		}
		return pid;
	}

	/* Lets so many threads go on, and run until they end. */
	void open_gate(int count)
	{
		while (count--)
			up(&gate);
		fake::run_others();
		new_reports();
	}

	/* The record of the newest thread, which is the newest block. */
	static char *newest_record()
	{
		return reinterpret_cast<char *>(_pZorvaMallocMemList + 1);
	}
};

class ThreadReport : public TrackedThread {};

/* A thread with that priority sets itself this nice value. */
struct nice_case {
	s32 priority;
	const char *nice;
};

class ThreadPriority : public TrackedThread {};

} // namespace

/* Create. */

TEST_F(TrackedThread, RefusesWrongArgumentsInOrder)
{
	const auto with = [](u32 compId, u32 stack, s32 priority,
			     void (*entry)(void *), const char *file) {
		return [=]() -> u32 {
			return zorva_thread_create_track(compId, "x", stack,
							 priority, entry,
							 nullptr, file, 7);
		};
	};
	constexpr u32 bad_stack = 0x7FFFFFFF;

	refuses("zorva_thread.cpp", "zorva_thread_create_track",
		{ { 0, with(0, 0, 0, run_body, "f.c"),
		    with(0, bad_stack, 256, nullptr, nullptr) },
		  { 0, with(57, 0, 0, run_body, "f.c"),
		    with(0xFFFFFFFF, bad_stack, 256, nullptr, nullptr) },
		  { 0, with(owner, bad_stack, 0, run_body, "f.c"),
		    with(owner, bad_stack, INT_MAX, nullptr, nullptr) },
		  { 0, with(owner, 0, 256, run_body, "f.c"),
		    with(owner, 0, INT_MAX, nullptr, nullptr) },
		  { 0, with(owner, 0, 0, nullptr, "f.c"),
		    with(owner, 0, 0, nullptr, nullptr) },
		  { 0, with(owner, 0, 0, run_body, nullptr),
		    with(owner, 0, 0, run_body, nullptr) } });
}

TEST_F(TrackedThread, IsMadeForAnyStackSizeButOne)
{
	for (u32 size : { 0u, 1u, 0x7FFFFFFEu, 0x80000000u, 0xFFFFFFFFu })
		EXPECT_NE(zorva_thread_create_track(1, "x", size, 0, run_body,
						    nullptr, "caller.c", 7),
			  0u);

	fake::run_others();
	EXPECT_EQ(arguments.size(), 5u);
	reports();
}

TEST_F(TrackedThread, MakesItsCallsToTheKernelInOrder)
{
	const pid_t pid = create("worker");

	EXPECT_EQ(pid, 101);
	EXPECT_EQ(new_reports(),
		  "3 zorva_thread.cpp zorva_thread_create_track: "
		  "Thread 'worker' has been created\n");
	texts said;
	for (const fake::call &each : fake::calls())
		said.push_back(std::to_string(each.by) + ": " + each.text);
	EXPECT_EQ(said, texts({ "100: sema_init 0",
				"100: kthread_create_on_node -1 %s worker",
				"100: wake_up_process 101", "100: down",
				"101: kernel_sigaction 9 2",
				"101: kernel_sigaction 15 2",
				"101: kernel_sigaction 9 0",
				"101: set_user_nice 101 -5",
				"101: get_task_struct 101", "101: up",
				"101: down" }));

	open_gate(1);
	EXPECT_TRUE(fake::has_ended(pid));
}

TEST_F(TrackedThread, RunsItsEntryWithItsArgument)
{
	int argument;
	pid_t ran = 0;
	body = [&] {
		ran = zk_current_pid();
	};

	const pid_t pid = zorva_thread_create_track(owner, "worker", 0, 0,
						    run_body, &argument,
						    "caller.c", 7);
	fake::run_others();

	EXPECT_EQ(arguments, std::vector<void *>{ &argument });
	EXPECT_EQ(ran, pid);
	reports();
}

TEST_F(TrackedThread, IsListedBeforeItsCreatorGoesOn)
{
	needs_arrival_order();
	const pid_t pid = create("worker");

	EXPECT_NE(file_text("zorva.thread"), "");
	EXPECT_EQ(fake::blocked_in(pid), "down");

	open_gate(1);
}

/* The count is the last word of a record. */
TEST_F(TrackedThread, IsListedCountedAndFreedUnderTheListsLock)
{
	texts seen;
	const auto look = [&seen](const char *when, const void *lock) {
		const auto *const block = _pZorvaMallocMemList;
		size_t listed = 0;
		u32 users;

		if (lock != &_zorvaThreadLock)
			return;
		for (auto *link = zk_list_next(&kthread_list);
		     link != &kthread_list; link = zk_list_next(link))
			++listed;
		memcpy(&users, newest_record() + block->size - sizeof(users),
		       sizeof(users));
		seen.push_back(fake::format("%s: %zu listed, %u users", when,
					    listed, users));
	};
	fake::after_spin_lock([&](const void *lock) {
		look("taken", lock);
	});
	fake::before_spin_unlock([&](const void *lock) {
		look("given", lock);
	});

	create("worker");
	open_gate(1);

	EXPECT_EQ(seen, texts({ "taken: 0 listed, 2 users",
				"given: 1 listed, 2 users",
				"taken: 1 listed, 2 users",
				"given: 1 listed, 1 users",
				"taken: 1 listed, 1 users",
				"given: 0 listed, 1 users",
				"taken: 0 listed, 1 users",
				"given: 0 listed, 0 users" }));
}

TEST_F(TrackedThread, IsNamedAndListedBeforeItWakesItsCreator)
{
	std::string listed;
	std::string name;
	fake::on_call([&](const fake::call &made) {
		if (made.text == "set_user_nice 101 -5")
			fake::rename_self("another");
		if (made.text == "up" && made.by == 101) {
			listed = run_report(zorva_thread_dump, 4096).text;
			name = fake::comm_of(101);
		}
	});

	create("worker");

	EXPECT_EQ(listed, "Component : PORT\n"
			  "Name      : worker\n"
			  "PID       : 101\n"
			  "State     : 0\n"
			  "Priority  : 100\n"
			  "\n");
	EXPECT_EQ(name, "worker");
	open_gate(1);
}

TEST_F(TrackedThread, LetsItsCreatorGoOnBeforeItsEntryEnds)
{
	const pid_t pid = create("worker");

	EXPECT_FALSE(fake::has_ended(pid));

	open_gate(1);
	EXPECT_TRUE(fake::has_ended(pid));
}

TEST_F(TrackedThread, MayEndBeforeItsCreatorGoesOn)
{
	needs_arrival_order();
	const pid_t pid = create("worker", nice_5, run_body);

	EXPECT_TRUE(fake::has_ended(pid));
	EXPECT_EQ(fake::references_to(pid), 0u);
	EXPECT_EQ(tracked_blocks(), 0u);
	EXPECT_EQ(new_reports(),
		  "3 zorva_thread.cpp zorva_thread_exit_track: "
		  "Thread 'worker' exit\n"
		  "3 zorva_thread.cpp zorva_thread_create_track: "
		  "Thread 'worker' has been created\n");
}

TEST_F(TrackedThread, BelongsToItsComponent)
{
	create("worker");

	const u32 size = _zorvaMallocMemUsage[owner].currUsage;
	EXPECT_GE(size, 76u);
	EXPECT_EQ(_zorvaMallocMemUsage[ZORVA_COMPONENT_SELF].currUsage, 0u);
	EXPECT_STREQ(_pZorvaMallocMemList->file, "zorva_thread.c");

	open_gate(1);
	EXPECT_EQ(_zorvaMallocMemUsage[owner].currUsage, 0u);
}

TEST_F(TrackedThread, IsNamedAfterItsComponentAndTheCallersLine)
{
	const pid_t pid = zorva_thread_create_track(9, nullptr, 0, 0,
						    wait_at_gate, nullptr,
						    "caller.c", 88);

	EXPECT_EQ(new_reports(),
		  "3 zorva_thread.cpp zorva_thread_create_track: "
		  "Thread 'ZORVA-88' has been created\n");
	EXPECT_EQ(fake::comm_of(pid), "ZORVA-88");

	open_gate(1);
}

TEST_F(TrackedThread, KeepsNamesOf31CharactersAndCommandNamesOf15)
{
	const std::string name = "0123456789abcdefghijklmnopqrstuvwxyz";

	const pid_t pid = create(name.c_str());

	EXPECT_EQ(new_reports(),
		  "3 zorva_thread.cpp zorva_thread_create_track: Thread '" +
			  name.substr(0, 31) + "' has been created\n");
	EXPECT_EQ(fake::comm_of(pid), name.substr(0, 15));
	EXPECT_EQ(fake::call_texts({ "kthread_create_on_node" }),
		  texts{ "kthread_create_on_node -1 %s " +
			 name.substr(0, 31) });

	open_gate(1);
}

TEST_F(TrackedThread, DoesNotReadAPercentSignInItsName)
{
	const pid_t pid = create("100%s%n");

	EXPECT_EQ(fake::comm_of(pid), "100%s%n");

	open_gate(1);
}

TEST_F(TrackedThread, SetsItsCommandNameToItsName)
{
	fake::on_call([](const fake::call &made) {
		if (made.text == "set_user_nice 101 -5")
			fake::rename_self("another");
	});

	const pid_t pid = create("worker");

	EXPECT_EQ(fake::comm_of(pid), "worker");
	open_gate(1);
}

TEST_F(TrackedThread, KeepsItsCommandNameWhenItsNameIsEmpty)
{
	fake::on_call([](const fake::call &made) {
		if (made.text == "set_user_nice 101 -5")
			fake::rename_self("another");
	});

	const pid_t pid = create("");

	EXPECT_EQ(fake::comm_of(pid), "another");
	open_gate(1);
}

TEST_F(TrackedThread, IsNotMadeWithoutMemory)
{
	fake::fail_allocation(1);

	EXPECT_EQ(create("worker"), 0);

	ASSERT_EQ(reports().size(), 2u);
	EXPECT_EQ(reports()[0].file, "zorva_mem.cpp");
	EXPECT_EQ(last_report(),
		  "1 zorva_thread.cpp zorva_thread_create_track: "
		  "allocate memory failed. (caller.c, 7)");
	EXPECT_EQ(fake::log_text(), "<stack>\n");
	EXPECT_TRUE(fake::calls().empty());
	EXPECT_EQ(file_text("zorva.thread"), "");
}

TEST_F(TrackedThread, IsNotMadeWithoutAThreadOfTheKernel)
{
	fake::refuse_threads(1);

	EXPECT_EQ(create("worker"), 0);

	EXPECT_EQ(new_reports(),
		  "1 zorva_thread.cpp zorva_thread_create_track: "
		  "create thread failed. (caller.c, 7)\n");
	EXPECT_EQ(tracked_blocks(), 0u);
	EXPECT_EQ(_zorvaMallocMemUsage[owner].freeCount, 1u);
	EXPECT_EQ(fake::call_texts({ "wake_up_process", "down" }), texts());
	EXPECT_EQ(file_text("zorva.thread"), "");
}

TEST_F(TrackedThread, IsReportedAsNotMadeBeforeItsRecordIsFreed)
{
	fake::on_call([](const fake::call &made) {
		if (made.text == "kthread_create_on_node -1 %s worker")
			tear(newest_record());
	});
	fake::refuse_threads(1);

	create("worker");

	ASSERT_EQ(reports().size(), 2u);
	EXPECT_EQ(reports()[0].text, "create thread failed. (caller.c, 7)");
	expect_torn_free("PORT", "zorva_thread.cpp");
}

/* The kernel's oops ends its creator. */
TEST_F(TrackedThread, IsWokenEvenWhenItIsAnError)
{
	fake::fail_threads(-12);
	fake::start_task("creator", [] {
		create("worker");
	});

	EXPECT_EQ(complaints_of(fake::run_others),
		  texts{ "Failed\nthe kernel forbids: "
			 "waking up an error pointer" });

	EXPECT_EQ(fake::call_texts({ "wake_up_process" }),
		  texts{ "wake_up_process -12" });
	EXPECT_EQ(all_reports(), "");
	leave(newest_record());
}

/* Priorities. */

TEST_F(ThreadPriority, BecomesANiceValue)
{
	needs_arrival_order();
	const nice_case cases[] = {
		{ 0, "-20" },  { 1, "-20" },	{ 6, "-20" },  { 7, "-19" },
		{ 29, "-16" }, { 31, "-16" },	{ 128, "-1" }, { 130, "-1" },
		{ 131, "0" },  { 254, "18" },	{ 255, "19" }, { -1, "-20" },
		{ -7, "-21" }, { -255, "-59" },
	};
	pid_t pid = 100;

	for (const nice_case &each : cases) {
		fake::forget_calls();

		create("worker", each.priority, run_body);

		EXPECT_EQ(fake::call_texts(
				  { "set_user_nice", "sched_setscheduler" }),
			  texts{ "set_user_nice " + std::to_string(++pid) +
				 " " + each.nice })
			<< each.priority;
	}
	reports();
}

TEST_F(ThreadPriority, SelectsRoundRobinSchedulingWhen30)
{
	needs_arrival_order();
	create("worker", 30, run_body);

	EXPECT_EQ(fake::call_texts({ "set_user_nice", "sched_setscheduler" }),
		  texts{ "sched_setscheduler 101 2 90" });
	reports();
}

TEST_F(ThreadPriority, ThatCannotBeSetIsReportedAndTheThreadRuns)
{
	needs_arrival_order();
	fake::refuse_scheduler(-38);

	const pid_t pid = create("worker", 30, run_body);

	EXPECT_NE(pid, 0);
	EXPECT_EQ(new_reports(),
		  "1 zorva_thread.cpp _zorva_thread_wrapper: "
		  "Set thread worker scheduler failed.\n"
		  "3 zorva_thread.cpp zorva_thread_exit_track: "
		  "Thread 'worker' exit\n"
		  "3 zorva_thread.cpp zorva_thread_create_track: "
		  "Thread 'worker' has been created\n");
	EXPECT_EQ(arguments.size(), 1u);
}

TEST_F(ThreadPriority, CannotBeSetWhateverResultIsNotZero)
{
	needs_arrival_order();
	fake::refuse_scheduler(1);

	create("worker", 30, run_body);

	EXPECT_EQ(new_reports().find(
			  "1 zorva_thread.cpp _zorva_thread_wrapper: "
			  "Set thread worker scheduler failed.\n"),
		  0u);
}

/* Exit. */

TEST_F(TrackedThread, EndsWithCode0WhenItsEntryReturns)
{
	const pid_t pid = create("worker");
	char *const record = newest_record();
	new_reports();
	fake::forget_calls();

	up(&gate);
	fake::run_others();

	EXPECT_EQ(fake::exit_code_of(pid), 0);
	EXPECT_EQ(new_reports(), "3 zorva_thread.cpp zorva_thread_exit_track: "
				 "Thread 'worker' exit\n");
	EXPECT_EQ(fake::call_texts({ "put_task_struct", "kill_pid",
				     "complete_and_exit" }),
		  texts({ "put_task_struct 101", "kill_pid 101 9 1",
			  "complete_and_exit 0" }));
	EXPECT_EQ(fake::references_to(pid), 0u);
	EXPECT_EQ(tracked_blocks(), 0u);
	EXPECT_EQ(file_text("zorva.thread"), "");
	/* Its links are poisoned: they lie behind the component. */
	fake::allow_access_to_freed(record + 4, 8);
	EXPECT_EQ(memcmp(record + 4, "\x00\x01\0\0\x22\x01\0\0", 8), 0);
}

TEST_F(TrackedThread, EndsItselfWithACodeOfItsOwn)
{
	needs_arrival_order();
	bool returned = false;
	body = [&] {
		zorva_thread_exit_track(owner, -7, "body.c", 3);
		returned = true;
	};

	const pid_t pid = create("worker", nice_5, run_body);

	EXPECT_EQ(fake::exit_code_of(pid), -7);
	EXPECT_FALSE(returned);
	EXPECT_EQ(tracked_blocks(), 0u);
	reports();
}

TEST_F(TrackedThread, MayBelongToTheLastComponent)
{
	needs_arrival_order();
	body = [] {
		zorva_thread_exit_track(56, 3, "body.c", 3);
	};

	const pid_t pid = zorva_thread_create_track(56, "worker", 0, nice_5,
						    run_body, nullptr,
						    "caller.c", 7);

	EXPECT_EQ(fake::exit_code_of(pid), 3);
	EXPECT_EQ(_zorvaMallocMemUsage[56].freeCount, 1u);
	EXPECT_EQ(tracked_blocks(), 0u);
	reports();
}

/* Whose name its record is freed in shows when its guard is torn. */
TEST_F(TrackedThread, EndsForAnyComponent)
{
	for (bool waits : { false, true }) {
		body = [&] {
			if (waits)
				down(&gate);
			tear(newest_record());
			zorva_thread_exit_track(other, 0, "body.c", 3);
		};

		/* Its creator may be the one that frees it. */
		zorva_thread_create_track(owner, "worker", 0, nice_5, run_body,
					  nullptr, "caller.c", 7);
		if (waits)
			up(&gate);
		fake::run_others();

		expect_torn_free("VLAN", "zorva_thread.cpp");
		EXPECT_EQ(_zorvaMallocMemUsage[owner].currUsage, 0u);
		EXPECT_EQ(_zorvaMallocMemUsage[owner].freeCount, waits + 1u);
	}
	EXPECT_EQ(fake::log_text(), "<stack>\n<stack>\n");
	reports();
}

TEST_F(TrackedThread, EndsForItsOwnComponentWhenItsEntryReturns)
{
	needs_arrival_order();
	body = [] {
		tear(newest_record());
	};

	zorva_thread_create_track(56, "worker", 0, nice_5, run_body, nullptr,
				  "caller.c", 7);

	expect_torn_free("DIAG", "zorva_thread.cpp");
}

TEST_F(TrackedThread, IsTakenOutOfTheListBeforeItIsReportedToEnd)
{
	needs_arrival_order();
	std::string listed = "nothing was reported";
	on_report([&](const report &made) {
		if (made.text == "Thread 'worker' exit")
			listed = run_report(zorva_thread_dump, 4096).text;
	});

	create("worker", nice_5, run_body);

	EXPECT_EQ(listed, "");
	reports();
}

TEST_F(TrackedThread, RefusesWrongArgumentsOfItsEndInOrder)
{
	needs_arrival_order();
	const auto with = [](u32 compId, const char *file) {
		return [=] {
			return zorva_thread_exit_track(compId, 1, file, 7);
		};
	};
	body = [&] {
		refuses("zorva_thread.cpp", "zorva_thread_exit_track",
			{ { bad_component, with(0, "f.c"), with(0, nullptr) },
			  { bad_component, with(57, "f.c"),
			    with(0xFFFFFFFF, nullptr) },
			  { null_argument, with(owner, nullptr),
			    with(owner, nullptr) } });
	};

	create("worker", nice_5, run_body);

	EXPECT_EQ(fake::exit_code_of(101), 0);
	EXPECT_EQ(reports().size(), 8u);
}

TEST_F(TrackedThread, IsNotEndedInATaskOfOthers)
{
	u32 from_kthread = 0;
	const pid_t bystander = create("bystander");
	new_reports();
	fake::start_task("stranger", [&] {
		from_kthread = zorva_thread_exit_track(owner, 1, "body.c", 3);
	});
	fake::run_others();

	EXPECT_EQ(zorva_thread_exit_track(owner, 1, "caller.c", 9), not_found);
	EXPECT_EQ(from_kthread, not_found);

	EXPECT_EQ(new_reports(), "1 zorva_thread.cpp zorva_thread_exit_track: "
				 "cannot find target thread. (body.c, 3)\n"
				 "1 zorva_thread.cpp zorva_thread_exit_track: "
				 "cannot find target thread. (caller.c, 9)\n");
	EXPECT_EQ(fake::call_texts({ "kill_pid", "complete_and_exit" }),
		  texts());
	EXPECT_FALSE(fake::has_ended(bystander));
	open_gate(1);
}

TEST_F(TrackedThread, StaysListedWhenItEndsInAnyOtherWay)
{
	needs_arrival_order();
	body = [] {
		zk_complete_and_exit(5);
	};

	const pid_t pid = create("worker", nice_5, run_body);

	EXPECT_EQ(fake::exit_code_of(pid), 5);
	EXPECT_EQ(fake::references_to(pid), 1u);
	EXPECT_EQ(file_text("zorva.thread"), "Component : PORT\n"
					     "Name      : worker\n"
					     "PID       : 101\n"
					     "State     : 128\n"
					     "Priority  : 100\n"
					     "\n");
	EXPECT_EQ(zorva_thread_destroy_track(owner, pid, "caller.c", 9), ok);
	leave(newest_record());
	fake::leave_task(pid);
	reports();
}

/* Destroy. */

TEST_F(TrackedThread, RefusesWrongArgumentsOfItsDestructionInOrder)
{
	const pid_t pid = create("worker");
	const auto with = [](u32 compId, u32 number, const char *file) {
		return [=] {
			return zorva_thread_destroy_track(compId, number, file,
							  7);
		};
	};
	new_reports();

	refuses("zorva_thread.cpp", "zorva_thread_destroy_track",
		{ { bad_component, with(0, pid, "f.c"), with(0, 0, nullptr) },
		  { bad_component, with(57, pid, "f.c"),
		    with(0xFFFFFFFF, 0, nullptr) },
		  { bad_value, with(owner, 0, "f.c"), with(owner, 0, nullptr) },
		  { null_argument, with(owner, pid, nullptr),
		    with(owner, pid, nullptr) } });

	open_gate(1);
}

TEST_F(TrackedThread, IsToldToEndAndStaysListed)
{
	needs_arrival_order();
	bool told = false;
	body = [&] {
		down(&gate);
		told = zk_fatal_signal_pending();
	};
	const pid_t pid = create("worker", nice_5, run_body);
	const std::string listed = file_text("zorva.thread");
	new_reports();
	fake::forget_calls();

	EXPECT_EQ(zorva_thread_destroy_track(other, pid, "caller.c", 9), ok);

	EXPECT_EQ(new_reports(),
		  "3 zorva_thread.cpp zorva_thread_destroy_track: "
		  "Thread 'worker' has been destroyed\n");
	EXPECT_EQ(fake::call_texts({ "kill_pid" }),
		  texts{ "kill_pid 101 9 1" });
	EXPECT_EQ(file_text("zorva.thread"), listed);
	EXPECT_EQ(tracked_blocks(), 1u);
	fake::run_others();
	EXPECT_FALSE(fake::has_ended(pid));
	open_gate(1);
	EXPECT_TRUE(told);
}

TEST_F(TrackedThread, CannotGoWhileItIsToldToEnd)
{
	const pid_t pid = create("worker");
	new_reports();

	zorva_thread_destroy_track(owner, pid, "caller.c", 9);

	const auto kills = fake::calls_to({ "kill_pid" });
	ASSERT_EQ(kills.size(), 1u);
	EXPECT_TRUE(kills[0].at.holds(&_zorvaThreadLock));
	EXPECT_TRUE(reports().back().at.may_sleep());
	open_gate(1);
}

TEST_F(TrackedThread, IsToldToEndBeforeThatIsReported)
{
	const pid_t pid = create("worker");
	size_t told = 0;
	on_report([&](const report &) {
		told = fake::calls_to({ "kill_pid" }).size();
	});

	zorva_thread_destroy_track(owner, pid, "caller.c", 9);

	EXPECT_EQ(told, 1u);
	open_gate(1);
}

TEST_F(TrackedThread, IsFoundAmongOthersByItsPid)
{
	create("first");
	const pid_t pid = create("second");
	create("third");
	new_reports();

	EXPECT_EQ(zorva_thread_destroy_track(owner, pid, "caller.c", 9), ok);

	EXPECT_EQ(new_reports(),
		  "3 zorva_thread.cpp zorva_thread_destroy_track: "
		  "Thread 'second' has been destroyed\n");
	open_gate(3);
}

TEST_F(TrackedThread, IsNotFoundWhenItIsOfOthersOrHasEnded)
{
	needs_arrival_order();
	const pid_t stranger = fake::start_task("stranger", [] {
		down(&gate);
	});
	const pid_t ended = create("worker", nice_5, run_body);
	new_reports();

	EXPECT_EQ(zorva_thread_destroy_track(owner, stranger, "caller.c", 9),
		  not_found);
	EXPECT_EQ(zorva_thread_destroy_track(owner, ended, "caller.c", 10),
		  not_found);

	EXPECT_EQ(new_reports(),
		  "1 zorva_thread.cpp zorva_thread_destroy_track: "
		  "cannot find target thread. (caller.c, 9)\n"
		  "1 zorva_thread.cpp zorva_thread_destroy_track: "
		  "cannot find target thread. (caller.c, 10)\n");
	open_gate(1);
}

TEST_F(TrackedThread, SeesOnlyItsFirstSigkillAsFatalOnceItWasDiscarded)
{
	bool first = false;
	bool second = true;
	body = [&] {
		down(&gate);
		first = zk_fatal_signal_pending();
		flush_signals(zk_current());
		down(&gate);
		second = zk_fatal_signal_pending();
	};
	const pid_t pid = create("worker", nice_5, run_body);

	zorva_thread_destroy_track(owner, pid, "caller.c", 9);
	up(&gate);
	fake::run_others();
	zorva_thread_destroy_track(owner, pid, "caller.c", 9);
	open_gate(1);

	EXPECT_TRUE(first);
	EXPECT_FALSE(second);
}

/* The report. */

TEST_F(ThreadReport, IsEmptyWithoutThreads)
{
	EXPECT_EQ(file_text("zorva.thread"), "");
}

TEST_F(ThreadReport, ShowsTheNewestThreadFirst)
{
	zorva_thread_create_track(owner, "first", 0, 30, wait_at_gate, nullptr,
				  "caller.c", 7);
	body = [] {
		fake::sleep_for(10 * sec);
	};
	zorva_thread_create_track(other, nullptr, 0, -255, run_body, nullptr,
				  "caller.c", 4711);

	EXPECT_EQ(file_text("zorva.thread"), "Component : VLAN\n"
					     "Name      : VLAN-4711\n"
					     "PID       : 102\n"
					     "State     : 2\n"
					     "Priority  : -255\n"
					     "\n"
					     "Component : PORT\n"
					     "Name      : first\n"
					     "PID       : 101\n"
					     "State     : 2\n"
					     "Priority  : 30\n"
					     "\n");
	fake::sleep_for(10 * sec);
	open_gate(1);
}

TEST_F(ThreadReport, ShowsAReaderOfItsOwnFileAsRunning)
{
	needs_arrival_order();
	std::string text;
	body = [&] {
		text = run_report(zorva_thread_dump, 4096).text;
	};

	create("worker", 255, run_body);

	EXPECT_EQ(text, "Component : PORT\n"
			"Name      : worker\n"
			"PID       : 101\n"
			"State     : 0\n"
			"Priority  : 255\n"
			"\n");
	reports();
}

TEST_F(ThreadReport, CopiesUnderTheLockAndPrintsWithoutIt)
{
	create("first");
	create("second");
	const size_t locked = fake::spin_locks_taken();

	const report_run run = run_report(zorva_thread_dump, 4096);

	EXPECT_EQ(run.result, 0);
	EXPECT_EQ(run.prints.size(), 12u);
	/* Once to count, and once to copy. */
	EXPECT_EQ(fake::spin_locks_taken(), locked + 2);
	for (const fake::seq_print &each : run.prints)
		EXPECT_TRUE(each.at.may_sleep()) << each.text;
	open_gate(2);
}

TEST_F(ThreadReport, WithoutMemoryForACopyIsTheSamePrintedUnderTheLock)
{
	needs_arrival_order();
	create("first");
	create("second");
	const report_run copied = run_report(zorva_thread_dump, 4096);

	const report_run run = run_report_without_copy(zorva_thread_dump, 4096);

	EXPECT_EQ(run.result, 0);
	EXPECT_EQ(run.text, copied.text);
	EXPECT_EQ(run.prints.size(), 12u);
	for (const fake::seq_print &each : run.prints)
		EXPECT_TRUE(each.at.holds(&_zorvaThreadLock));
	open_gate(2);
}

TEST_F(ThreadReport, ShowsAThreadThatEndsBeforeItIsPrinted)
{
	create("first");
	bool first = true;
	fake::on_seq_print([&](const fake::seq_print &) {
		if (first)
			open_gate(1);
		first = false;
	});

	const report_run run = run_report(zorva_thread_dump, 4096);

	fake::on_seq_print(nullptr);
	EXPECT_NE(run.text.find("PID       : 101\n"), std::string::npos);
	EXPECT_EQ(run_report(zorva_thread_dump, 4096).text, "");
}
