// SPDX-License-Identifier: GPL-2.0
/*
 * Semaphores and mutexes, in the storage that the module has for them: as in
 * the kernel, who waits is linked to it from his own stack, first come first
 * served.
 */
#include "scheduler.h"

struct fake_mutex {
	task_struct *owner;
	fake_link waiters;
};

/* The module's mutex that has a static initialiser. */
fake_mutex queue_list_lock asm("zorva_msgq_list_lock") = {
	nullptr, { &queue_list_lock.waiters, &queue_list_lock.waiters }
};

namespace
{

struct fake_semaphore {
	u32 count;
	fake_link waiters;
};

static_assert(sizeof(fake_semaphore) == sizeof(semaphore));
static_assert(sizeof(fake_mutex) == sizeof(struct mutex));

struct waiter {
	fake_link link; /* first: the list's links are taken for waiters */
	task_struct *task;
	bool served;
};

waiter *first_of(const fake_link &waiters)
{
	return reinterpret_cast<waiter *>(waiters.next);
}

void enqueue(waiter &self, fake_link &waiters)
{
	self.task = fake::running();
	fake::insert_after(&self.link, waiters.prev);
}

fake_semaphore &view(struct semaphore *sem)
{
	auto &seen = *reinterpret_cast<fake_semaphore *>(sem);

	if (!seen.waiters.next)
		fake::fatal("a semaphore that was not initialised");
	return seen;
}

fake_mutex &view(struct mutex *lock)
{
	auto &seen = *reinterpret_cast<fake_mutex *>(lock);

	if (!seen.waiters.next)
		fake::fatal("a mutex that was not initialised");
	return seen;
}

/* Whoever waits for himself will do so for ever, whatever the others do. */
void complain_of_circle(const task_struct *self)
{
	const auto owner_of_awaited = [](const task_struct *task) {
		const auto *const lock =
			static_cast<const fake_mutex *>(task->waits_for);

		return lock ? lock->owner : nullptr;
	};

	for (const task_struct *next = owner_of_awaited(self); next;
	     next = owner_of_awaited(next))
		if (next == self) {
			fake::note_circle();
			return;
		}
}

/* Blocks until a unit is handed over, or the time is up. */
bool wait_for_unit(fake_semaphore &sem, long ticks, const char *caller)
{
	waiter self = {};

	enqueue(self, sem.waiters);
	for (;;) {
		if (ticks <= 0) {
			fake::unlink(&self.link);
			return false;
		}
		fake::running()->state = state_uninterruptible;
		ticks = fake::sleep_at_most(ticks, caller);
		if (self.served)
			return true;
	}
}

bool take(struct semaphore *sem, long ticks, const char *caller)
{
	fake_semaphore &seen = view(sem);

	fake::might_sleep(caller);
	if (seen.count)
		--seen.count;
	else if (!wait_for_unit(seen, ticks, caller))
		return false;
	fake::note_taken(sem);
	return true;
}

int next_error; /* of a wait with a time limit */

const fake::at_restart succeed([] {
	next_error = 0;
	queue_list_lock.owner = nullptr;
	fake::init_list(&queue_list_lock.waiters);
});

} // namespace

namespace fake
{

void fail_timed_wait(int error)
{
	next_error = error;
}

} // namespace fake

void zk_sema_init(struct semaphore *sem, u32 count)
{
	auto &seen = *reinterpret_cast<fake_semaphore *>(sem);

	fake::record(fake::format("sema_init %u", count), sem);
	seen.count = count;
	fake::init_list(&seen.waiters);
}

u32 zk_sema_count(const struct semaphore *sem)
{
	fake::record("sema_count", sem);
	return reinterpret_cast<const fake_semaphore *>(sem)->count;
}

void down(struct semaphore *sem)
{
	fake::record("down", sem);
	take(sem, LONG_MAX, "down");
}

int down_trylock(struct semaphore *sem)
{
	fake_semaphore &seen = view(sem);

	fake::record("down_trylock", sem);
	if (!seen.count)
		return 1;
	--seen.count;
	fake::note_taken(sem);
	return 0;
}

int down_timeout(struct semaphore *sem, long jiffies)
{
	fake::record(fake::format("down_timeout %ld", jiffies), sem);
	if (next_error)
		return next_error;
	return take(sem, jiffies, "down_timeout") ? 0 : -ETIME;
}

void up(struct semaphore *sem)
{
	fake_semaphore &seen = view(sem);

	fake::record("up", sem);
	fake::note_given(sem);
	if (fake::is_empty(&seen.waiters)) {
		++seen.count;
		return;
	}

	waiter *const first = first_of(seen.waiters);

	fake::unlink(&first->link);
	first->served = true;
	fake::wake(first->task, state_uninterruptible);
}

void __mutex_init(struct mutex *lock, const char *name, struct lock_class_key *)
{
	auto &seen = *reinterpret_cast<fake_mutex *>(lock);

	fake::record(fake::format("mutex_init %s", name), lock);
	seen.owner = nullptr;
	fake::init_list(&seen.waiters);
}

void zk_mutex_lock(struct mutex *lock)
{
	fake_mutex &seen = view(lock);
	task_struct *const self = fake::running();

	fake::record("mutex_lock", lock);
	fake::might_sleep("mutex_lock");
	if (seen.owner == self)
		fake::fatal("deadlock: a task locks a mutex that it holds");
	if (seen.owner) {
		waiter place = {};

		enqueue(place, seen.waiters);
		self->waits_for = &seen;
		complain_of_circle(self);
		while (seen.owner) {
			self->state = state_uninterruptible;
			fake::switch_tasks("mutex_lock");
		}
		fake::unlink(&place.link);
		self->waits_for = nullptr;
	}
	seen.owner = self;
	fake::note_taken(lock);
}

void mutex_unlock(struct mutex *lock)
{
	fake_mutex &seen = view(lock);

	fake::record("mutex_unlock", lock);
	if (seen.owner != fake::running()) {
		fake::complain("unlocking a mutex that the task does not hold");
		return;
	}
	fake::note_given(lock);
	seen.owner = nullptr;
	if (!fake::is_empty(&seen.waiters))
		fake::wake(first_of(seen.waiters)->task, state_uninterruptible);
}

bool mutex_is_locked(struct mutex *lock)
{
	fake::record("mutex_is_locked", lock);
	return view(lock).owner;
}
