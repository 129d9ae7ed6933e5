// SPDX-License-Identifier: GPL-2.0
/*
 * The fake kernel's locks, timers, wait queues, lists and notifiers: that they
 * are as the kernel's, and that what the kernel forbids fails the test.
 */
#include "service_fixture.h"

#include <limits.h>
#include <string.h>

namespace
{

class FakeLocks : public KernelTest {
protected:
	semaphore sem;
	struct mutex lock;
	lock_class_key key;
};
class FakeTimers : public KernelTest {};
class FakeWaitQueue : public KernelTest {};
class FakeLists : public KernelTest {};
class FakeNetevents : public KernelTest {};

texts order;

void note(const char *text)
{
	order.push_back(text);
}

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

/* Locks. */

TEST_F(FakeLocks, HandUnitsOfASemaphoreToWhoWaitsLongest)
{
	needs_arrival_order();
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
	needs_arrival_order();
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

/* Timers. */

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
	EXPECT_EQ(fake::expiry_of(&timer), jiffies + 2);
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
	needs_arrival_order();
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
