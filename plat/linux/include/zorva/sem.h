/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Counting semaphores that remember their last eight calls.
 *
 * All calls may sleep and belong in thread context. In an interrupt, take
 * warns with a stack dump and then goes on.
 *
 * A thread of this module that was told to end does so inside take and give:
 * it puts a unit back and ends with exit code 1. Mutexes that it holds stay
 * locked. In any other task with a fatal signal pending, a process included,
 * the unit is put back, the signal is discarded and the task lives on.
 */
#ifndef ZORVA_SEM_H
#define ZORVA_SEM_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct zorva_sem zorva_sem_t;

/* Time limits of a take, in milliseconds. */
#define ZORVA_NO_WAIT 0x00000000u
#define ZORVA_WAIT_FOREVER 0xFFFFFFFFu

/**
 * zorva_sem_create_track() - makes a semaphore
 * @compId: the owner, 1 to 56
 * @name: its name, of which 31 characters are kept; null for the owner's short
 *        name, a dash and @line
 * @initialCount: the units it starts with; 0 is allowed
 * @file: basename of the caller's source file
 * @line: the caller's line
 *
 * Context: Thread; may sleep.
 * Return: The semaphore, or null: "invalid parameter" or the allocator's
 * failure was reported, and nothing was made.
 */
zorva_sem_t *zorva_sem_create_track(u32 compId, const char *name,
				    u32 initialCount, const char *file,
				    u32 line);
#define zorva_sem_create(compId, name, initialCount)                           \
	zorva_sem_create_track(compId, name, initialCount, ZORVA_FILE, __LINE__)

/**
 * zorva_sem_destroy_track() - frees a semaphore
 * @compId: the caller, 1 to 56
 * @sem: the semaphore
 * @file: not read, may be null
 * @line: not read
 *
 * Tasks that wait for it are neither woken nor looked for: nobody may use it
 * afterwards. That includes a task that has given a unit, but is still inside
 * its call, as is possible with preemption or on another processor.
 *
 * Context: Thread; may sleep.
 * Return: %ZORVA_RC_OK: freed. %ZORVA_RC_BAD_COMPONENT or %ZORVA_RC_NULL_ARG
 * (@sem is null): reported, nothing done.
 */
u32 zorva_sem_destroy_track(u32 compId, zorva_sem_t *sem, const char *file,
			    u32 line);
#define zorva_sem_destroy(compId, sem)                                         \
	zorva_sem_destroy_track(compId, sem, ZORVA_FILE, __LINE__)

/**
 * zorva_sem_take_track() - takes a unit
 * @compId: the caller, 1 to 56
 * @sem: the semaphore
 * @timeout: milliseconds to wait at most, rounded up to whole ticks: 11 ms are
 *           2 ticks; from 2^31 on, on a 32-bit machine, it counts as
 *           1,073,741,822 ticks. %ZORVA_WAIT_FOREVER for no limit,
 *           %ZORVA_NO_WAIT for none at all
 * @file: basename of the caller's source file, of which 15 characters are kept
 * @line: the caller's line
 *
 * A signal does not end the wait. A thread told to end waits on, and when the
 * wait is over, whatever its result, gives a unit back and ends.
 *
 * Context: Thread; sleeps.
 * Return: %ZORVA_RC_OK: a unit was taken. %ZORVA_RC_TIMEOUT: none came in
 * time. %ZORVA_RC_FAIL: none was free and @timeout is 0, or the wait failed.
 * %ZORVA_RC_BAD_COMPONENT or %ZORVA_RC_NULL_ARG (@sem or @file is null):
 * reported, nothing done. When a fatal signal is pending in a task that is no
 * thread of this module, a unit was given back and %ZORVA_RC_NOT_FOUND is
 * returned; reported.
 */
u32 zorva_sem_take_track(u32 compId, zorva_sem_t *sem, u32 timeout,
			 const char *file, u32 line);
#define zorva_sem_take(compId, sem, timeout)                                   \
	zorva_sem_take_track(compId, sem, timeout, ZORVA_FILE, __LINE__)

/**
 * zorva_sem_give_track() - gives a unit
 * @compId: the caller, 1 to 56
 * @sem: the semaphore
 * @file: basename of the caller's source file, of which 15 characters are kept
 * @line: the caller's line
 *
 * There is no upper bound: the count may rise past what it started with. A
 * thread told to end gives two units and ends.
 *
 * Context: Thread; may sleep.
 * Return: %ZORVA_RC_OK: a unit was given; or two, when a fatal signal was
 * pending in a task that is no thread of this module, and the failure to end it
 * was reported. %ZORVA_RC_BAD_COMPONENT or %ZORVA_RC_NULL_ARG (@sem or @file is
 * null): reported, nothing done.
 */
u32 zorva_sem_give_track(u32 compId, zorva_sem_t *sem, const char *file,
			 u32 line);
#define zorva_sem_give(compId, sem)                                            \
	zorva_sem_give_track(compId, sem, ZORVA_FILE, __LINE__)

#ifdef __cplusplus
}
#endif

#endif
