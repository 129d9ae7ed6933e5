// SPDX-License-Identifier: GPL-2.0
/*
 * The fake kernel's tasks, time and signals: that they are as the kernel's,
 * and that what the kernel forbids fails the test.
 */
#include "service_fixture.h"

namespace
{

class FakeTasks : public KernelTest {};
class FakeTime : public KernelTest {};
class FakeSignals : public KernelTest {};

texts order;

void note(const char *text)
{
	order.push_back(text);
}

struct in_words {
	const char *call;
	std::function<void()> make;
};

} // namespace

/* Tasks. */

TEST_F(FakeTasks, RunInTheOrderInWhichTheyBecameReady)
{
	needs_arrival_order();
	for (const char *comm : { "a", "b", "c" })
		fake::start_task(comm, [comm] {
			note(comm);
			yield();
			note(comm);
		});
	note("main");

	fake::run_others();

	EXPECT_EQ(order, texts({ "main", "a", "b", "c", "a", "b", "c" }));
}

TEST_F(FakeTasks, RunOnlyWhenTheOthersBlock)
{
	needs_arrival_order();
	bool ran = false;
	fake::start_task("other", [&] {
		ran = true;
	});

	zk_udelay(1000000);
	wake_up_process(zk_current());
	EXPECT_FALSE(ran);
	schedule();

	EXPECT_TRUE(ran);
}

TEST_F(FakeTasks, HavePidsNamesAndKinds)
{
	EXPECT_EQ(zk_current_pid(), 100);
	EXPECT_EQ(fake::comm_of(fake::main_pid), "main");
	EXPECT_FALSE(zk_current_is_kthread());
	const pid_t pid = fake::start_task("a name of more than 15", [] {
		EXPECT_TRUE(zk_current_is_kthread());
		EXPECT_EQ(zk_task_pid_nr(zk_current()), 101);
	});
	EXPECT_EQ(pid, 101);
	EXPECT_EQ(fake::comm_of(pid), "a name of more ");
	fake::start_task(
		"user",
		[] {
			EXPECT_FALSE(zk_current_is_kthread());
		},
		fake::kind::user_space);
	fake::become(fake::kind::kernel_thread);
	EXPECT_TRUE(zk_current_is_kthread());

	fake::run_others();
}

TEST_F(FakeTasks, StartAsThreadsOnlyWhenTheyAreWoken)
{
	needs_arrival_order();
	static int data;
	static void *given;
	struct task_struct *const task = kthread_create_on_node(
		[](void *argument) {
			given = argument;
			return 5;
		},
		&data, -1, "%s/%d", "worker", 7);

	EXPECT_EQ(fake::comm_of(101), "worker/7");
	EXPECT_EQ(zk_task_state(task), 2);
	fake::run_others();
	EXPECT_EQ(given, nullptr);
	EXPECT_EQ(wake_up_process(task), 1);
	EXPECT_EQ(wake_up_process(task), 0);
	fake::run_others();

	EXPECT_EQ(given, &data);
	EXPECT_EQ(fake::exit_code_of(101), 5);
}

TEST_F(FakeTasks, EndWithACodeFromAnywhere)
{
	const pid_t pid = fake::start_task("other", [] {
		zk_complete_and_exit(-3);
		note("not reached");
	});
	EXPECT_FALSE(fake::has_ended(pid));
	EXPECT_EQ(fake::exit_code_of(pid), -1);

	fake::run_others();

	EXPECT_TRUE(fake::has_ended(pid));
	EXPECT_EQ(fake::exit_code_of(pid), -3);
	EXPECT_EQ(order, texts());
}

TEST_F(FakeTasks, AreGoneWithTheirLastReference)
{
	needs_arrival_order();
	const pid_t pid = fake::start_task("other", [] {
	});
	struct task_struct *const task = fake::task_of(pid);
	zk_get_task_struct(task);
	fake::run_others();

	EXPECT_EQ(fake::references_to(pid), 1u);
	EXPECT_EQ(zk_task_pid_nr(task), pid);
	EXPECT_NE(fake::tasks_left(), "");
	zk_put_task_struct(task);

	EXPECT_EQ(fake::references_to(pid), 0u);
	EXPECT_DEATH(zk_task_pid_nr(task), "heap-use-after-free");
}

TEST_F(FakeTasks, AreMissedWhenTheyAreLeftBlocked)
{
	const pid_t pid = fake::start_task("other", [] {
		fake::sleep_for(sec);
	});
	fake::run_others();

	EXPECT_EQ(fake::tasks_left(), "other (101) is blocked in sleep_for\n");
	fake::leave_task(pid);
	EXPECT_EQ(fake::tasks_left(), "");
}

TEST_F(FakeTasks, EndTheTestWhenNoneCanEverRunAgain)
{
	semaphore never;
	zk_sema_init(&never, 0);
	fake::start_task("other", [&] {
		zk_get_task_struct(zk_current());
		down(&never);
	});
	fake::run_others();

	EXPECT_DEATH(down(&never), "deadlock, no task can ever run again:\n"
				   "main \\(100\\) is blocked in down\n"
				   "other \\(101\\) is blocked in down");
	fake::leave_task(101);
}

TEST_F(FakeTasks, AreNotSwitchedInAtomicContext)
{
	const fake::interrupts_off off;

	EXPECT_DEATH(schedule(), "schedule: scheduling while atomic");
}

TEST_F(FakeTasks, FailAsATestAsks)
{
	char comm[ZK_TASK_COMM_LEN];

	fake::refuse_threads(1);
	EXPECT_EQ(kthread_create_on_node(nullptr, nullptr, -1, "x"), nullptr);
	fake::refuse_scheduler(-1);
	EXPECT_EQ(zk_sched_setscheduler(zk_current(), 2, 90), -1);
	EXPECT_TRUE(zk_comm_of_pid(100, comm));
	EXPECT_STREQ(comm, "main");
	EXPECT_FALSE(zk_comm_of_pid(101, comm));
	fake::hide_pids();
	EXPECT_FALSE(zk_comm_of_pid(100, comm));
}

TEST_F(FakeTasks, HaveTheirCallsRecorded)
{
	texts seen;
	fake::on_call([&](const fake::call &made) {
		seen.push_back(made.text);
	});
	set_user_nice(zk_current(), -5);
	fake::advance(7);
	zk_udelay(3);
	fake::on_call(nullptr);
	zk_udelay(4);

	EXPECT_EQ(seen, texts({ "set_user_nice 100 -5", "udelay 3" }));
	EXPECT_EQ(fake::call_texts({ "udelay" }),
		  texts({ "udelay 3", "udelay 4" }));
	EXPECT_EQ(fake::calls()[1].when, 7);
	EXPECT_EQ(fake::calls()[1].by, 100);
	fake::forget_calls();
	EXPECT_TRUE(fake::calls().empty());
}

/* What may not sleep. */

TEST_F(FakeTasks, AreForbiddenToSleepInAtomicContext)
{
	semaphore sem;
	struct mutex lock;
	lock_class_key key;
	zk_sema_init(&sem, 9);
	__mutex_init(&lock, "lock", &key);
	const in_words calls[] = {
		{ "down",
		  [&] {
			  down(&sem);
		  } },
		{ "down_timeout",
		  [&] {
			  down_timeout(&sem, 1);
		  } },
		{ "mutex_lock",
		  [&] {
			  zk_mutex_lock(&lock);
			  mutex_unlock(&lock);
		  } },
		{ "kthread_create",
		  [] {
			  fake::refuse_threads(1);
			  kthread_create_on_node(nullptr, nullptr, -1, "x");
		  } },
		{ "unregister_netevent_notifier",
		  [] {
			  notifier_block block = {};
			  zk_unregister_netevent_notifier(&block);
		  } },
	};

	for (const in_words &each : calls) {
		EXPECT_EQ(complaints_of(each.make), texts());
		const texts said = complaints_of([&] {
			const unsigned long flags =
				zk_spin_lock_irqsave(&_zorvaTimerLock);
			each.make();
			zk_spin_unlock_irqrestore(&_zorvaTimerLock, flags);
		});
		ASSERT_EQ(said.size(), 1u) << each.call;
		EXPECT_NE(said[0].find(std::string(each.call) +
				       " under a spin lock"),
			  std::string::npos)
			<< said[0];
	}
}

/* Time. */

TEST_F(FakeTime, StandsStillWhileATaskCanRun)
{
	fake::start_task("other", [] {
		yield();
	});
	fake::set_yield_cost(0);

	fake::run_others();

	EXPECT_EQ(fake::now(), 0);
}

TEST_F(FakeTime, JumpsToTheNextEndOfASleep)
{
	fake::start_task("other", [] {
		fake::sleep_for(30);
		note("other");
	});
	fake::sleep_for(20);
	note("main");
	EXPECT_EQ(fake::now(), 20);
	fake::sleep_for(20);
	note("main");

	EXPECT_EQ(fake::now(), 40);
	EXPECT_EQ(order, texts({ "main", "other", "main" }));
}

TEST_F(FakeTime, PassesWhileATaskIsBusy)
{
	zk_udelay(3);
	EXPECT_EQ(fake::now(), 3000);
	fake::set_yield_cost(5);
	yield();
	EXPECT_EQ(fake::now(), 3005);
	usleep_range(2, 9);
	EXPECT_EQ(fake::now(), 5005);
	EXPECT_EQ(ktime_get_with_offset(TK_OFFS_BOOT), 5005);
}

TEST_F(FakeTime, CountsTicksFromFiveMinutesBeforeTheirWrap)
{
	EXPECT_EQ(jiffies, 0u - 30000);
	fake::advance(25 * msec);
	EXPECT_EQ(jiffies, 0u - 29998);
	fake::set_jiffies(0xFFFFFFFF);
	fake::advance(5 * msec);
	EXPECT_EQ(jiffies, 0u);
}

TEST_F(FakeTime, EndsSleepsOfTicksAtTheEdgesOfTicks)
{
	semaphore never;
	zk_sema_init(&never, 0);
	fake::advance(3 * msec);

	EXPECT_EQ(down_timeout(&never, 2), -62);

	EXPECT_EQ(fake::now(), 20 * msec);
}

TEST_F(FakeTime, ReturnsTheTicksThatASleepDidNotUse)
{
	const pid_t pid = fake::start_task("sleeper", [] {
		wait_queue_head queue;
		wait_queue_entry entry;
		lock_class_key key;

		__init_waitqueue_head(&queue, "q", &key);
		init_wait_entry(&entry, 0);
		prepare_to_wait_event(&queue, &entry, TASK_INTERRUPTIBLE);
		EXPECT_EQ(schedule_timeout(100), 70);
		finish_wait(&queue, &entry);
	});

	fake::sleep_for(305 * msec);
	wake_up_process(fake::task_of(pid));
	fake::run_others();

	EXPECT_TRUE(fake::has_ended(pid));
}

TEST_F(FakeTime, RefusesToSleepForLessThanNothing)
{
	EXPECT_EQ(schedule_timeout(-1), 0);

	EXPECT_EQ(fake::log_text(),
		  "\0013schedule_timeout: wrong timeout value ffffffff\n"
		  "<stack>\n");
}

TEST_F(FakeTime, ConvertsMillisecondsAsTheKernelDoes)
{
	EXPECT_EQ(__msecs_to_jiffies(0), 0ul);
	EXPECT_EQ(__msecs_to_jiffies(1), 1ul);
	EXPECT_EQ(__msecs_to_jiffies(10), 1ul);
	EXPECT_EQ(__msecs_to_jiffies(11), 2ul);
	EXPECT_EQ(__msecs_to_jiffies(0x7FFFFFFF), 214748365ul);
	EXPECT_EQ(__msecs_to_jiffies(0x80000000), 0x3FFFFFFEul);
	EXPECT_EQ(ktime_get_resolution_ns(), 1u);
	fake::set_resolution(10000000);
	EXPECT_EQ(ktime_get_resolution_ns(), 10000000u);
}

/* Signals. */

TEST_F(FakeSignals, AreNotSeenByThreadsThatDoNotAskForThem)
{
	fake::start_task("thread", [] {
		for (int signal : { SIGTERM, SIGKILL, 10 })
			EXPECT_EQ(kill_pid(zk_task_pid(zk_current()), signal,
					   1),
				  0);
		EXPECT_FALSE(zk_signal_pending());
		EXPECT_FALSE(zk_signal_is_pending(SIGKILL));
	});

	fake::run_others();
}

TEST_F(FakeSignals, ThatAreAllowedWaitForTheGroupAndAreNotFatal)
{
	fake::start_task("thread", [] {
		kernel_sigaction(SIGTERM, reinterpret_cast<__sighandler_t>(2));
		kill_pid(zk_task_pid(zk_current()), SIGTERM, 1);
		EXPECT_TRUE(zk_signal_pending());
		EXPECT_TRUE(zk_signal_is_pending(SIGTERM));
		EXPECT_FALSE(zk_signal_is_pending(SIGKILL));
		EXPECT_FALSE(zk_fatal_signal_pending());
		flush_signals(zk_current());
		EXPECT_FALSE(zk_signal_pending());
		EXPECT_FALSE(zk_signal_is_pending(SIGTERM));
	});

	fake::run_others();
}

TEST_F(FakeSignals, AreFatalOnceWhenTheyEndTheTask)
{
	struct task_struct *const self = zk_current();

	kill_pid(zk_task_pid(self), SIGTERM, 1);
	EXPECT_TRUE(zk_fatal_signal_pending());
	EXPECT_TRUE(zk_signal_is_pending(SIGKILL));
	EXPECT_TRUE(zk_signal_is_pending(SIGTERM));
	flush_signals(self);
	EXPECT_FALSE(zk_fatal_signal_pending());

	kill_pid(zk_task_pid(self), SIGKILL, 1);
	EXPECT_TRUE(zk_signal_pending());
	EXPECT_TRUE(zk_signal_is_pending(SIGKILL));
	EXPECT_FALSE(zk_fatal_signal_pending());
}

TEST_F(FakeSignals, EndSleepsThatAreInterruptibleOnly)
{
	semaphore sem;
	zk_sema_init(&sem, 0);
	const pid_t asleep = fake::start_task(
		"asleep",
		[&] {
			down(&sem);
		},
		fake::kind::user_space);
	fake::run_others();

	fake::send_signal(asleep, SIGKILL);
	fake::run_others();

	EXPECT_EQ(fake::blocked_in(asleep), "down");
	up(&sem);
	fake::run_others();
	EXPECT_TRUE(fake::has_ended(asleep));
}

TEST_F(FakeSignals, AreNotSentToTasksThatHaveEnded)
{
	needs_arrival_order();
	const pid_t pid = fake::start_task("ended", [] {
	});
	struct task_struct *const task = fake::task_of(pid);
	zk_get_task_struct(task);
	fake::run_others();

	EXPECT_EQ(kill_pid(zk_task_pid(task), SIGKILL, 1), -3);
	EXPECT_DEATH(fake::send_signal(pid, SIGKILL), "no task with PID 101");
	EXPECT_DEATH(fake::send_signal(100, 65), "there is no signal 65");
	zk_put_task_struct(task);
}
