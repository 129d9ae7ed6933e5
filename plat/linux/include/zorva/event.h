/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Event flags: setters add bits to a set of 64, one waiter takes all of them
 * at once.
 *
 * All calls may sleep and belong in thread context. An event object is made of
 * a semaphore, for which zorva/sem.h tells what time limits and fatal signals
 * come to, and of a mutex, for which the wait has no limit.
 */
#ifndef ZORVA_EVENT_H
#define ZORVA_EVENT_H

#include "sem.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct zorva_event zorva_event_t;

/**
 * zorva_event_create() - makes an event object
 * @compId: the owner, 1 to 56
 * @name: its name, of which 31 characters are kept; null for the owner's short
 *        name
 *
 * The object's semaphore and mutex get the same name; without one, the owner's
 * short name, a dash and a line of this module.
 *
 * Context: Thread; may sleep.
 * Return: The event object with no bits set, or null, which was reported; then
 * nothing was made.
 */
zorva_event_t *zorva_event_create(u32 compId, const char *name);

/**
 * zorva_event_destroy() - frees an event object
 * @compId: the caller, 1 to 56
 * @event: the event object
 *
 * A waiter is not woken, and nobody may use the object afterwards, which
 * includes a peer that has set its bits, or been signalled, but is still inside
 * its call.
 *
 * Context: Thread; may sleep.
 * Return: %ZORVA_RC_OK: freed. %ZORVA_RC_BAD_COMPONENT, %ZORVA_RC_NULL_ARG
 * (@event is null) or %ZORVA_RC_FAIL (@event is not completely made):
 * reported, nothing done. %ZORVA_RC_FAIL is also returned when the semaphore
 * or the mutex could not be destroyed; reported.
 */
u32 zorva_event_destroy(u32 compId, zorva_event_t *event);

/**
 * zorva_event_set() - adds bits to those pending, and signals the waiter
 * @compId: the caller, 1 to 56
 * @event: the event object
 * @bits: the bits, as two words; may be empty, which signals all the same
 *
 * Context: Thread; may sleep.
 * Return: %ZORVA_RC_OK: added and signalled. %ZORVA_RC_BAD_COMPONENT or
 * %ZORVA_RC_NULL_ARG (@event or @bits is null): reported, nothing done. Any
 * other code of the locks: reported.
 */
u32 zorva_event_set(u32 compId, zorva_event_t *event, const u32 bits[2]);

/**
 * zorva_event_wait() - waits for a signal and takes all pending bits
 * @compId: the caller, 1 to 56
 * @event: the event object
 * @bits: where to write the bits, as two words; not tested, must not be null
 * @timeout: milliseconds to wait at most, as for zorva_sem_take_track()
 *
 * Each set signals once, and a wait takes the bits of all of them: as many
 * later waits return at once, with an empty set, as there were further sets.
 *
 * Context: Thread; sleeps.
 * Return: %ZORVA_RC_OK: @bits holds what was pending. %ZORVA_RC_TIMEOUT: no
 * signal came in time; not reported, @bits is empty. %ZORVA_RC_FAIL: there was
 * none and @timeout is 0; not reported, @bits is empty. %ZORVA_RC_FAIL is also
 * returned when @event is not completely made. %ZORVA_RC_BAD_COMPONENT,
 * %ZORVA_RC_NULL_ARG (@event is null): reported, nothing done. Any other code
 * of the locks: reported.
 */
u32 zorva_event_wait(u32 compId, zorva_event_t *event, u32 bits[2],
		     u32 timeout);

#ifdef __cplusplus
}
#endif

#endif
