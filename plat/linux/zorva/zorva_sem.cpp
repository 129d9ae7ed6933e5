// SPDX-License-Identifier: GPL-2.0
/*
 * Tracked mutexes and semaphores: the kernel's own, each in a record with a
 * name and a history of the last eight calls, and two registries of all.
 *
 * A registry's lock sleeps, so every call here belongs in thread context. It
 * is released before an object's own lock is waited for, and the two
 * registries are never held together. A call is recorded before it waits: who
 * is blocked shows as the newest taker.
 *
 * _zorvaLockDbgLck guards that a registry is set up once and, on kernels where
 * another task may come in between, that the PID and the name of a mutex's
 * holder are those of one task.
 */
#include "zorva_sem.h"
#include "zorva_atomic.h"
#include "zorva_clock.h"
#include "zorva_debug.h"
#include "zorva_guard.h"
#include "zorva_thread.h"
#include "zorva/mem.h"

constinit lock_registry<zorva_mutex> _zorvaMutexDbg = {};
constinit lock_registry<zorva_sem> _zorvaSemDbg = {};

namespace
{

constinit lock_class_key mutex_key = {};

/* Makes a registry's lock with its first object. */
template <class Record>
[[gnu::always_inline]] inline void initialise(lock_registry<Record> &registry)
{
	const irq_spin_guard lock(_zorvaLockDbgLck);

	if (registry.initialised)
		return;
	zk_sema_init(&registry.lock, 1);
	/* A report may look meanwhile; all others have an object. */
	store_release(registry.initialised, 1u);
}

/* Puts a record first in its registry and gives it the next index. */
template <class Record>
void insert(lock_registry<Record> &registry, Record *record)
{
	initialise(registry);

	const sema_guard lock(registry.lock);

	if (registry.head)
		registry.head->previous = record;
	record->next = registry.head;
	record->previous = nullptr;
	registry.head = record;
	record->index = ++registry.lastIndex;
	++registry.count;
}

/* Takes a record out of its registry, which has been initialised. */
template <class Record>
void remove(lock_registry<Record> &registry, Record *record)
{
	const sema_guard lock(registry.lock);

	if (registry.head == record)
		registry.head = record->next;
	if (record->next)
		record->next->previous = record->previous;
	if (record->previous)
		record->previous->next = record->next;
	--registry.count;
}

/* Turns to the slot after the newest; the registry is held. */
template <class Record>
[[gnu::always_inline]] inline typename Record::entry &next_entry(Record *record)
{
	const u32 head = (record->historyHead + 1) % history_slots;

	record->active = 1;
	record->historyHead = head;
	return record->history[head];
}

/* Records a call of take or give. Made part of both: they are called often. */
[[gnu::always_inline]] inline void record(zorva_mutex *mutex, u32 action,
					  const char *file, u32 line)
{
	if (unlikely(!_zorvaMutexDbg.initialised)) {
		ZORVA_ERROR_IN("zorva_mutex_history_record",
			       "invalid mutex debug lock.");
		return;
	}

	/* Read before the lock is taken, unlike a semaphore's. */
	const u32 now = uptime_secs();
	const sema_guard lock(_zorvaMutexDbg.lock);

	mutex->locked = action ^ 1;

	mutex_entry &slot = next_entry(mutex);

	slot.time = now;
	slot.line = line;
	slot.action = action;
	copy_file(slot.file, file);
}

[[gnu::always_inline]] inline void
record(zorva_sem *sem, u32 timeout, u32 action, const char *file, u32 line)
{
	if (unlikely(!_zorvaSemDbg.initialised)) {
		ZORVA_ERROR_IN("zorva_sem_history_record",
			       "invalid sem debug lock.");
		return;
	}

	const sema_guard lock(_zorvaSemDbg.lock);
	/* Read under the lock, unlike a mutex's. */
	const u32 now = uptime_secs();
	sem_entry &slot = next_entry(sem);

	slot.time = now;
	slot.timeout = timeout;
	slot.line = line;
	slot.action = action;
	copy_file(slot.file, file);
}

/*
 * Notes the calling task as the holder, whose name a report may be reading. The
 * count comes last, and is read first by those who ask whether they are the
 * holder: until it says that there is one, the PID may be that of the last.
 */
[[gnu::always_inline]] inline void note_holder(zorva_mutex *mutex)
{
	{
		const interleave_guard lock(_zorvaLockDbgLck);

		atomic_set(mutex->lockerPid, current_pid());
		if (!comm_of_this_task(mutex->lockerName))
			copy_text(mutex->lockerName, "unknown",
				  sizeof(mutex->lockerName));
	}
	zk_smp_wmb();
	atomic_add(mutex->takeCount, 1);
}

/* Sleeping in an interrupt is warned about, not refused. */
[[gnu::cold, gnu::noinline]] void warn_of_interrupt(const char *func,
						    const char *file, u32 line)
{
	printk(KERN_CONT "[ZORVA] %s - in_interrupt.(%s, %d)\n", func, file,
	       line);
	dump_stack();
}

} // namespace

[[gnu::cold]] zorva_mutex_t *zorva_mutex_create_track(u32 compId,
						      const char *name,
						      const char *file,
						      u32 line)
{
	ZORVA_CHECK(compId != 0, nullptr);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, nullptr);
	ZORVA_CHECK(file, nullptr);

	auto *const mutex = static_cast<zorva_mutex *>(
		zorva_malloc(compId, sizeof(zorva_mutex)));

	if (!mutex)
		return nullptr;
	__mutex_init(&mutex->mutex, "&pMutex->mutex", &mutex_key);
	mutex->component = compId;
	name_object(mutex->name, name, compId, line);
	insert(_zorvaMutexDbg, mutex);
	ZORVA_INFO("Mutex '%s' has been created", mutex->name);
	return mutex;
}

[[gnu::cold]] u32 zorva_mutex_destroy_track(u32 compId, zorva_mutex_t *mutex,
					    const char *file, u32 line)
{
	ZORVA_CHECK(compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(mutex, ZORVA_RC_NULL_ARG);
	ZORVA_CHECK(file, ZORVA_RC_NULL_ARG);

	if (_zorvaMutexDbg.initialised)
		remove(_zorvaMutexDbg, mutex);
	/* A held mutex is meant to be freed all the same. */
	ZORVA_INFO("Mutex '%s' has been destroyed", mutex->name);
	zorva_free(compId, mutex);
	return ZORVA_RC_OK;
}

u32 zorva_mutex_take_track(u32 compId, zorva_mutex_t *mutex, const char *file,
			   u32 line)
{
	ZORVA_CHECK(compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(mutex, ZORVA_RC_NULL_ARG);
	ZORVA_CHECK(file, ZORVA_RC_NULL_ARG);
	if (unlikely(in_interrupt()))
		warn_of_interrupt(__func__, file, line);

	/* Nesting is not counted: one give will release the mutex. */
	if (atomic_read(mutex->takeCount) != 0) {
		zk_smp_rmb();
		if (atomic_read(mutex->lockerPid) == current_pid())
			return ZORVA_RC_OK;
	}

	record(mutex, action_take, file, line);
	zk_mutex_lock(&mutex->mutex);
	note_holder(mutex);
	return ZORVA_RC_OK;
}

u32 zorva_mutex_give_track(u32 compId, zorva_mutex_t *mutex, const char *file,
			   u32 line)
{
	ZORVA_CHECK(compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(mutex, ZORVA_RC_NULL_ARG);
	ZORVA_CHECK(file, ZORVA_RC_NULL_ARG);
	if (unlikely(in_interrupt()))
		warn_of_interrupt(__func__, file, line);
	/* A give that is then ignored is meant to be recorded, too. */
	record(mutex, action_give, file, line);

	if (atomic_read(mutex->takeCount) == 0)
		return ZORVA_RC_OK;
	zk_smp_rmb();
	if (atomic_read(mutex->lockerPid) != current_pid())
		return ZORVA_RC_OK;
	if (atomic_add(mutex->takeCount, -1) != 0)
		return ZORVA_RC_OK;
	mutex_unlock(&mutex->mutex);
	return ZORVA_RC_OK;
}

u32 zorva_mutex_is_locked_track(u32 compId, zorva_mutex_t *mutex)
{
	ZORVA_CHECK(compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(mutex, ZORVA_RC_NULL_ARG);
	if (!_zorvaMutexDbg.initialised) {
		ZORVA_ERROR("invalid mutex debug lock.");
		return 0;
	}

	const s32 locker = atomic_read(mutex->lockerPid);
	const sema_guard lock(_zorvaMutexDbg.lock);

	return locker == current_pid() ? mutex->locked : 0;
}

[[gnu::cold]] void zorva_mutex_history_record(zorva_mutex *mutex, u32 action,
					      const char *file, u32 line)
{
	record(mutex, action, file, line);
}

[[gnu::cold]] zorva_sem_t *zorva_sem_create_track(u32 compId, const char *name,
						  u32 initialCount,
						  const char *file, u32 line)
{
	ZORVA_CHECK(compId != 0, nullptr);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, nullptr);
	ZORVA_CHECK(file, nullptr);

	auto *const sem = static_cast<zorva_sem *>(
		zorva_malloc(compId, sizeof(zorva_sem)));

	if (!sem)
		return nullptr;
	zk_sema_init(&sem->semaphore, initialCount);
	sem->initialCount = initialCount;
	sem->component = compId;
	name_object(sem->name, name, compId, line);
	insert(_zorvaSemDbg, sem);
	ZORVA_INFO("Semaphore '%s' has been created", sem->name);
	return sem;
}

/* The file is meant not to be tested, unlike that of a mutex. */
[[gnu::cold]] u32 zorva_sem_destroy_track(u32 compId, zorva_sem_t *sem,
					  const char *, u32)
{
	ZORVA_CHECK(compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(sem, ZORVA_RC_NULL_ARG);

	/* The message belongs to this branch, unlike that of a mutex. */
	if (_zorvaSemDbg.initialised) {
		remove(_zorvaSemDbg, sem);
		ZORVA_INFO("Semaphore '%s' has been destroyed", sem->name);
	}
	/* Tasks that wait for it are meant to be left alone. */
	zorva_free(compId, sem);
	return ZORVA_RC_OK;
}

namespace
{

/* Waits for a unit, by the kind of time limit. */
u32 wait_for_unit(zorva_sem *sem, u32 timeout)
{
	if (timeout == ZORVA_WAIT_FOREVER) {
		down(&sem->semaphore);
		return ZORVA_RC_OK;
	}
	if (timeout == ZORVA_NO_WAIT)
		return down_trylock(&sem->semaphore) ? ZORVA_RC_FAIL
						     : ZORVA_RC_OK;

	const int error =
		down_timeout(&sem->semaphore, __msecs_to_jiffies(timeout));

	if (error == -ETIME)
		return ZORVA_RC_TIMEOUT;
	return error ? ZORVA_RC_FAIL : ZORVA_RC_OK;
}

} // namespace

u32 zorva_sem_take_track(u32 compId, zorva_sem_t *sem, u32 timeout,
			 const char *file, u32 line)
{
	ZORVA_CHECK(compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(sem, ZORVA_RC_NULL_ARG);
	ZORVA_CHECK(file, ZORVA_RC_NULL_ARG);
	if (unlikely(in_interrupt()))
		warn_of_interrupt(__func__, file, line);
	record(sem, timeout, action_take, file, line);

	const u32 result = wait_for_unit(sem, timeout);

	if (likely(!fatal_signal_pending()))
		return result;

	/* Told to end: a unit goes back whether or not one was taken. */
	flush_signals(zk_current());

	u32 error = zorva_sem_give(compId, sem);

	if (error) {
		ZORVA_ERROR("error 0x%x", error);
		return error;
	}
	error = zorva_thread_exit(compId, exit_code_killed);
	if (error) {
		ZORVA_ERROR("error 0x%x", error);
		return error;
	}
	return result;
}

u32 zorva_sem_give_track(u32 compId, zorva_sem_t *sem, const char *file,
			 u32 line)
{
	ZORVA_CHECK(compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(sem, ZORVA_RC_NULL_ARG);
	ZORVA_CHECK(file, ZORVA_RC_NULL_ARG);
	record(sem, 0, action_give, file, line);
	up(&sem->semaphore);
	if (likely(!fatal_signal_pending()))
		return ZORVA_RC_OK;

	/* Told to end: the count is meant to rise by two. */
	flush_signals(zk_current());

	const u32 error = zorva_sem_give(compId, sem);

	if (error) {
		ZORVA_ERROR("error 0x%x", error);
		return error;
	}
	zorva_thread_exit(compId, exit_code_killed);
	return ZORVA_RC_OK;
}

[[gnu::cold]] void zorva_sem_history_record(zorva_sem *sem, u32 timeout,
					    u32 action, const char *file,
					    u32 line)
{
	record(sem, timeout, action, file, line);
}
