/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Mutexes that remember who took them last and their last eight calls.
 *
 * All calls may sleep and belong in thread context. In an interrupt, take and
 * give warn with a stack dump and then go on.
 *
 * A mutex stays locked when its holder ends, also when that happens inside
 * another call of this module.
 */
#ifndef ZORVA_MUTEX_H
#define ZORVA_MUTEX_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct zorva_mutex zorva_mutex_t;

/**
 * zorva_mutex_create_track() - makes a mutex
 * @compId: the owner, 1 to 56
 * @name: its name, of which 31 characters are kept; null for the owner's short
 *        name, a dash and @line
 * @file: basename of the caller's source file
 * @line: the caller's line
 *
 * Context: Thread; may sleep.
 * Return: The mutex, not held, or null: "invalid parameter" or the allocator's
 * failure was reported, and nothing was made.
 */
zorva_mutex_t *zorva_mutex_create_track(u32 compId, const char *name,
					const char *file, u32 line);
#define zorva_mutex_create(compId, name)                                       \
	zorva_mutex_create_track(compId, name, ZORVA_FILE, __LINE__)

/**
 * zorva_mutex_destroy_track() - frees a mutex
 * @compId: the caller, 1 to 56
 * @mutex: the mutex
 * @file: basename of the caller's source file
 * @line: the caller's line
 *
 * Whether the mutex is held or waited for is not looked at: it is freed all
 * the same, and nobody may use it afterwards. That includes a task that has
 * given it, but is still inside its call, as is possible with preemption or on
 * another processor.
 *
 * Context: Thread; may sleep.
 * Return: %ZORVA_RC_OK: freed. %ZORVA_RC_BAD_COMPONENT or %ZORVA_RC_NULL_ARG
 * (@mutex or @file is null): reported, nothing done.
 */
u32 zorva_mutex_destroy_track(u32 compId, zorva_mutex_t *mutex,
			      const char *file, u32 line);
#define zorva_mutex_destroy(compId, mutex)                                     \
	zorva_mutex_destroy_track(compId, mutex, ZORVA_FILE, __LINE__)

/**
 * zorva_mutex_take_track() - takes a mutex, waiting for it without limit
 * @compId: the caller, 1 to 56
 * @mutex: the mutex
 * @file: basename of the caller's source file, of which 15 characters are kept
 * @line: the caller's line
 *
 * Takes do not nest: a take by the task that holds the mutex returns at once
 * and leaves no trace, and one give releases it, however many takes there
 * were.
 *
 * Context: Thread; sleeps.
 * Return: %ZORVA_RC_OK: the calling task holds the mutex.
 * %ZORVA_RC_BAD_COMPONENT or %ZORVA_RC_NULL_ARG (@mutex or @file is null):
 * reported, nothing done.
 */
u32 zorva_mutex_take_track(u32 compId, zorva_mutex_t *mutex, const char *file,
			   u32 line);
#define zorva_mutex_take(compId, mutex)                                        \
	zorva_mutex_take_track(compId, mutex, ZORVA_FILE, __LINE__)

/**
 * zorva_mutex_give_track() - gives a mutex back
 * @compId: the caller, 1 to 56
 * @mutex: the mutex
 * @file: basename of the caller's source file, of which 15 characters are kept
 * @line: the caller's line
 *
 * A give of a mutex that is not held, or that another task holds, is recorded
 * in its history and otherwise ignored.
 *
 * Context: Thread; may sleep.
 * Return: %ZORVA_RC_OK: the calling task does not hold the mutex.
 * %ZORVA_RC_BAD_COMPONENT or %ZORVA_RC_NULL_ARG (@mutex or @file is null):
 * reported, nothing done.
 */
u32 zorva_mutex_give_track(u32 compId, zorva_mutex_t *mutex, const char *file,
			   u32 line);
#define zorva_mutex_give(compId, mutex)                                        \
	zorva_mutex_give_track(compId, mutex, ZORVA_FILE, __LINE__)

/**
 * zorva_mutex_is_locked_track() - tells whether the calling task holds a mutex
 * @compId: the caller, 1 to 56
 * @mutex: the mutex
 *
 * The answer goes by the latest call of take or give, not by the lock. It is
 * wrong for a holder that got the mutex after waiting, and once another task
 * has tried to give it, until another task calls take; and for the last
 * holder, while another task is about to take what is free.
 *
 * Context: Thread; may sleep.
 * Return: 1 when the calling task holds the mutex, otherwise 0.
 * %ZORVA_RC_BAD_COMPONENT or %ZORVA_RC_NULL_ARG: reported; a caller that tests
 * for non-zero only takes them for a held mutex.
 */
u32 zorva_mutex_is_locked_track(u32 compId, zorva_mutex_t *mutex);
#define zorva_mutex_is_locked(compId, mutex)                                   \
	zorva_mutex_is_locked_track(compId, mutex)

#ifdef __cplusplus
}
#endif

#endif
