// SPDX-License-Identifier: GPL-2.0
/*
 * The fake kernel's tasks, time, locks and signals: that they are as the
 * kernel's, and that what the kernel forbids fails the test.
 */
#include "service_fixture.h"
#include "fake/internal.h"

#include <string.h>

namespace
{

class FakeTasks : public KernelTest {};
class FakeTime : public KernelTest {};
class FakeLocks : public KernelTest {
protected:
	semaphore sem;
	struct mutex lock;
	lock_class_key key;
};
class FakeSignals : public KernelTest {};
class FakeTimers : public KernelTest {};
class FakeWaitQueue : public KernelTest {};
class FakeLists : public KernelTest {};
class FakeNetevents : public KernelTest {};

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
	EXPECT_STREQ(zk_task_comm(zk_current()), "main");
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
	EXPECT_EQ(zk_jiffies(), 0u - 30000);
	fake::advance(25 * msec);
	EXPECT_EQ(zk_jiffies(), 0u - 29998);
	fake::set_jiffies(0xFFFFFFFF);
	fake::advance(5 * msec);
	EXPECT_EQ(zk_jiffies(), 0u);
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

/* Locks. */

TEST_F(FakeLocks, HandUnitsOfASemaphoreToWhoWaitsLongest)
{
	zk_sema_init(&sem, 1);
	down(&sem);
	EXPECT_EQ(zk_sema_count(&sem), 0u);
	EXPECT_EQ(down_trylock(&sem), 1);
	for (const char *comm : { "a", "b" })
		fake::start_task(comm, [this, comm] {
			down(&sem);
			note(comm);
		});
	fake::run_others();

	up(&sem);
	EXPECT_EQ(zk_sema_count(&sem), 0u);
	EXPECT_EQ(down_trylock(&sem), 1);
	fake::run_others();
	EXPECT_EQ(order, texts{ "a" });
	up(&sem);
	up(&sem);
	fake::run_others();

	EXPECT_EQ(order, texts({ "a", "b" }));
	EXPECT_EQ(zk_sema_count(&sem), 1u);
	EXPECT_EQ(down_trylock(&sem), 0);
}

TEST_F(FakeLocks, StopWaitingForASemaphoreInTime)
{
	zk_sema_init(&sem, 0);
	EXPECT_EQ(down_timeout(&sem, 3), -62);
	EXPECT_EQ(fake::now(), 30 * msec);
	EXPECT_EQ(down_timeout(&sem, 0), -62);
	EXPECT_EQ(fake::now(), 30 * msec);
	up(&sem);
	EXPECT_EQ(zk_sema_count(&sem), 1u);
	EXPECT_EQ(down_timeout(&sem, 3), 0);
	fake::fail_timed_wait(-4);
	EXPECT_EQ(down_timeout(&sem, 3), -4);
}

TEST_F(FakeLocks, HandAMutexToWhoWaitsLongest)
{
	__mutex_init(&lock, "lock", &key);
	zk_mutex_lock(&lock);
	for (const char *comm : { "a", "b" })
		fake::start_task(comm, [this, comm] {
			zk_mutex_lock(&lock);
			note(comm);
			yield();
			mutex_unlock(&lock);
		});
	fake::run_others();

	EXPECT_TRUE(mutex_is_locked(&lock));
	mutex_unlock(&lock);
	EXPECT_FALSE(mutex_is_locked(&lock));
	fake::run_others();

	EXPECT_EQ(order, texts({ "a", "b" }));
	EXPECT_FALSE(mutex_is_locked(&lock));
}

TEST_F(FakeLocks, KnowWhatTheRunningTaskHasTaken)
{
	zk_sema_init(&sem, 1);
	__mutex_init(&lock, "lock", &key);
	down(&sem);
	zk_mutex_lock(&lock);
	EXPECT_TRUE(fake::current_context().has_taken(&sem));
	EXPECT_TRUE(fake::current_context().has_taken(&lock));
	fake::start_task("other", [this] {
		EXPECT_FALSE(fake::current_context().has_taken(&sem));
		up(&sem);
	});
	fake::run_others();
	EXPECT_FALSE(fake::current_context().has_taken(&sem));
	mutex_unlock(&lock);
	EXPECT_FALSE(fake::current_context().has_taken(&lock));
}

TEST_F(FakeLocks, ForbidToUnlockAMutexOfAnotherTask)
{
	__mutex_init(&lock, "lock", &key);
	EXPECT_EQ(complaints_of([this] {
			  mutex_unlock(&lock);
		  }).size(),
		  1u);
	zk_mutex_lock(&lock);
	fake::start_task("other", [this] {
		const texts said = complaints_of([this] {
			mutex_unlock(&lock);
		});
		EXPECT_EQ(said.size(), 1u);
	});
	fake::run_others();

	EXPECT_TRUE(mutex_is_locked(&lock));
	mutex_unlock(&lock);
}

TEST_F(FakeLocks, EndTheTestThatLocksAMutexTwice)
{
	__mutex_init(&lock, "lock", &key);
	zk_mutex_lock(&lock);

	EXPECT_DEATH(zk_mutex_lock(&lock),
		     "deadlock: a task locks a mutex that it holds");
	mutex_unlock(&lock);
}

TEST_F(FakeLocks, EndTheTestThatUsesWhatWasNotInitialised)
{
	memset(&sem, 0, sizeof(sem));
	memset(&lock, 0, sizeof(lock));
	timer_list timer = {};
	hrtimer high = {};
	wait_queue_head queue = {};
	wait_queue_entry entry = {};
	lock_class_key unused;

	EXPECT_DEATH(up(&sem), "a semaphore that was not initialised");
	EXPECT_DEATH(zk_mutex_lock(&lock), "a mutex that was not initialised");
	EXPECT_DEATH(zk_add_timer(&timer, 1), "a timer that was not");
	EXPECT_DEATH(hrtimer_cancel(&high), "a high-resolution timer that was");
	EXPECT_DEATH(__wake_up(&queue, 1, 1, nullptr),
		     "a wait queue that was not initialised");
	__init_waitqueue_head(&queue, "q", &unused);
	EXPECT_DEATH(prepare_to_wait_event(&queue, &entry, 1),
		     "a wait queue's entry that was not initialised");
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

/* Timers. */

namespace
{

std::vector<fake::context> fired;

void note_tick(struct timer_list *)
{
	fired.push_back(fake::current_context());
	note("tick");
}

enum hrtimer_restart note_hrt(struct hrtimer *)
{
	fired.push_back(fake::current_context());
	note("hrt");
	return HRTIMER_NORESTART;
}

enum hrtimer_restart restart(struct hrtimer *)
{
	return HRTIMER_RESTART;
}

} // namespace

TEST_F(FakeTimers, ExpireInTheirInterruptsInTheOrderOfTime)
{
	timer_list timer;
	hrtimer high;
	init_timer_key(&timer, note_tick, 0, nullptr, nullptr);
	hrtimer_init(&high, 1, HRTIMER_MODE_REL);
	zk_hrtimer_set_function(&high, note_hrt);

	zk_add_timer(&timer, 2);
	hrtimer_start_range_ns(&high, 19 * msec, 0, HRTIMER_MODE_REL);
	EXPECT_TRUE(fake::is_pending(&timer));
	EXPECT_EQ(fake::expiry_of(&timer), zk_jiffies() + 2);
	EXPECT_EQ(fake::expiry_of(&high), 19 * msec);
	fake::advance(18 * msec);
	EXPECT_EQ(order, texts());
	fake::advance(2 * msec);

	EXPECT_EQ(order, texts({ "hrt", "tick" }));
	EXPECT_TRUE(fired[0].in_interrupt && fired[0].interrupts_off);
	EXPECT_TRUE(fired[1].in_interrupt && !fired[1].interrupts_off);
	EXPECT_FALSE(fake::is_pending(&timer));
	EXPECT_DEATH(fake::expiry_of(&timer), "is not pending");
	EXPECT_DEATH(fake::expiry_of(&high), "is not pending");
}

TEST_F(FakeTimers, WaitWhileInterruptsAreOff)
{
	hrtimer high;
	hrtimer_init(&high, 1, HRTIMER_MODE_REL);
	zk_hrtimer_set_function(&high, note_hrt);
	hrtimer_start_range_ns(&high, msec, 0, HRTIMER_MODE_REL);

	{
		const fake::interrupts_off off;
		zk_udelay(5000);
		EXPECT_EQ(order, texts());
	}
	zk_udelay(0);

	EXPECT_EQ(order, texts{ "hrt" });
	EXPECT_EQ(fake::now(), 5 * msec);
}

TEST_F(FakeTimers, DoNotExpireOnceTheyAreCancelled)
{
	timer_list timer;
	hrtimer high;
	init_timer_key(&timer, note_tick, 0, nullptr, nullptr);
	hrtimer_init(&high, 1, HRTIMER_MODE_REL);
	zk_hrtimer_set_function(&high, note_hrt);
	zk_add_timer(&timer, 2);
	hrtimer_start_range_ns(&high, msec, 0, HRTIMER_MODE_REL);

	EXPECT_EQ(del_timer(&timer), 1);
	EXPECT_EQ(del_timer(&timer), 0);
	EXPECT_EQ(hrtimer_cancel(&high), 1);
	EXPECT_EQ(hrtimer_cancel(&high), 0);
	fake::advance(sec);

	EXPECT_EQ(order, texts());
}

TEST_F(FakeTimers, AreArmedAnewWhenTheyArePending)
{
	timer_list timer;
	init_timer_key(&timer, note_tick, 0, nullptr, nullptr);
	zk_add_timer(&timer, 2);

	zk_add_timer(&timer, 5);

	fake::advance(49 * msec);
	EXPECT_EQ(order, texts());
	fake::advance(sec);
	EXPECT_EQ(order, texts{ "tick" });
}

TEST_F(FakeTimers, ForbidWhatTheKernelDoes)
{
	hrtimer high;
	hrtimer_init(&high, 1, HRTIMER_MODE_REL);
	EXPECT_EQ(complaints_of([&] {
			  hrtimer_start_range_ns(&high, 1, 0, HRTIMER_MODE_ABS);
		  }).size(),
		  1u);
	hrtimer_start_range_ns(&high, 1, 0, HRTIMER_MODE_REL);
	EXPECT_DEATH(fake::advance(1), "timer without a function");
	zk_hrtimer_set_function(&high, restart);
	EXPECT_EQ(complaints_of([] {
			  fake::advance(1);
		  }).size(),
		  1u);
}

TEST_F(FakeTimers, ExpireAtTheEndOfTimeWhenTheyAreBeyondIt)
{
	hrtimer high;
	hrtimer_init(&high, 1, HRTIMER_MODE_REL);
	zk_hrtimer_set_function(&high, note_hrt);
	fake::advance(5);

	hrtimer_start_range_ns(&high, LLONG_MAX, 0, HRTIMER_MODE_REL);

	EXPECT_EQ(fake::expiry_of(&high), LLONG_MAX);
}

/* Wait queues. */

TEST_F(FakeWaitQueue, WakesAllThatAreNotExclusiveAndSoManyThatAre)
{
	wait_queue_head queue;
	lock_class_key key;
	const auto wait = [&](const char *comm, int flags) {
		fake::start_task(comm, [&queue, comm, flags] {
			wait_queue_entry entry;

			init_wait_entry(&entry, flags);
			prepare_to_wait_event(&queue, &entry,
					      TASK_INTERRUPTIBLE);
			schedule();
			finish_wait(&queue, &entry);
			note(comm);
		});
		fake::run_others();
	};
	__init_waitqueue_head(&queue, "q", &key);
	wait("first", 0);
	wait("exclusive 1", 1);
	wait("second", 0);
	wait("exclusive 2", 1);

	__wake_up(&queue, 1, 1, nullptr);
	fake::run_others();
	EXPECT_EQ(order, texts({ "second", "first", "exclusive 1" }));
	__wake_up(&queue, 2, 1, nullptr);
	fake::run_others();
	EXPECT_EQ(order.size(), 3u);
	__wake_up(&queue, 1, 1, nullptr);
	fake::run_others();

	EXPECT_EQ(order.size(), 4u);
}

TEST_F(FakeWaitQueue, IsNotEnteredWithASignalPending)
{
	wait_queue_head queue;
	wait_queue_entry entry;
	lock_class_key key;
	__init_waitqueue_head(&queue, "q", &key);
	init_wait_entry(&entry, 0);

	EXPECT_EQ(prepare_to_wait_event(&queue, &entry, 1), 0);
	EXPECT_EQ(zk_task_state(zk_current()), 1);
	fake::send_signal(100, SIGTERM);
	EXPECT_EQ(prepare_to_wait_event(&queue, &entry, 1), -512);
	__wake_up(&queue, 1, 1, nullptr);

	EXPECT_EQ(zk_task_state(zk_current()), 0);
}

TEST_F(FakeWaitQueue, DoesNotLoseAWakeUpBeforeTheTaskBlocks)
{
	wait_queue_head queue;
	wait_queue_entry entry;
	lock_class_key key;
	__init_waitqueue_head(&queue, "q", &key);
	init_wait_entry(&entry, 0);
	prepare_to_wait_event(&queue, &entry, 1);

	__wake_up(&queue, 1, 1, nullptr);
	schedule();
	finish_wait(&queue, &entry);

	EXPECT_EQ(fake::now(), 0);
}

/* Lists. */

TEST_F(FakeLists, LinkFirstAndPoisonWhatIsTakenOut)
{
	list_head one;
	list_head two;

	EXPECT_EQ(zk_list_next(&kthread_list), &kthread_list);
	zk_list_add(&one, &kthread_list);
	zk_list_add(&two, &kthread_list);
	EXPECT_EQ(zk_list_next(&kthread_list), &two);
	EXPECT_EQ(zk_list_next(&two), &one);
	EXPECT_EQ(zk_list_next(&one), &kthread_list);
	zk_list_del(&two);
	EXPECT_EQ(zk_list_next(&kthread_list), &one);
	EXPECT_EQ(memcmp(&two, "\x00\x01\0\0\x22\x01\0\0", 8), 0);
	EXPECT_EQ(complaints_of([&] {
			  zk_list_del(&two);
		  }).size(),
		  1u);
	zk_list_del(&one);

	EXPECT_EQ(zk_list_next(&kthread_list), &kthread_list);
}

TEST_F(FakeLists, LinkLastAtAnyAddress)
{
	char bytes[32];
	void *const one = bytes + 1;
	void *const two = bytes + 11;

	zk_list_add_tail_unaligned(one, &zorva_msgq_list);
	zk_list_add_tail_unaligned(two, &zorva_msgq_list);
	EXPECT_EQ(zk_list_next_unaligned(&zorva_msgq_list), one);
	EXPECT_EQ(zk_list_next_unaligned(one), two);
	EXPECT_EQ(zk_list_next_unaligned(two), &zorva_msgq_list);
	zk_list_del_unaligned(one);
	EXPECT_EQ(memcmp(one, "\x00\x01\0\0\x22\x01\0\0", 8), 0);
	EXPECT_EQ(complaints_of([&] {
			  zk_list_del_unaligned(one);
		  }).size(),
		  1u);
	zk_list_del_unaligned(two);

	EXPECT_EQ(zk_list_next_unaligned(&zorva_msgq_list), &zorva_msgq_list);
}

/* Network events. */

TEST_F(FakeNetevents, ReachThoseOfTheSamePriorityInTheirOrder)
{
	notifier_block first = {};
	notifier_block second = {};
	zk_notifier_init(&first,
			 [](notifier_block *, unsigned long event, void *) {
				 note("first");
				 return event == 5 ? 0x8001 : 1;
			 });
	zk_notifier_init(&second, [](notifier_block *, unsigned long, void *) {
		note("second");
		return 2;
	});

	EXPECT_EQ(zk_register_netevent_notifier(&first), 0);
	EXPECT_EQ(zk_register_netevent_notifier(&second), 0);
	EXPECT_EQ(complaints_of([&] {
			  zk_register_netevent_notifier(&second);
		  }).size(),
		  1u);
	EXPECT_EQ(fake::raise_netevent(1, nullptr), 2);
	EXPECT_EQ(fake::raise_netevent(5, nullptr), 0x8001);
	EXPECT_EQ(order, texts({ "first", "second", "first" }));
	EXPECT_EQ(zk_unregister_netevent_notifier(&first), 0);
	EXPECT_EQ(zk_unregister_netevent_notifier(&first), -2);
	EXPECT_EQ(zk_unregister_netevent_notifier(&second), 0);
	fake::refuse_netevents(-12);
	EXPECT_EQ(zk_register_netevent_notifier(&first), -12);
}
