/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Wait modules: numbered places where a thread sleeps until another context
 * wakes it. A wake-up that comes first is remembered.
 */
#ifndef ZORVA_WAIT_H
#define ZORVA_WAIT_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * zorva_wait_module_create_track() - makes a wait module
 * @compId: the owner, 1 to 56
 * @waitId: where to write its ID
 * @file: basename of the caller's source file
 * @line: not used
 *
 * The ID is 0 when there is no other wait module, otherwise one more than that
 * of the youngest: the ID of a destroyed wait module can be given out again.
 * Its memory is charged to this module's own component, not to @compId.
 *
 * Context: Any; does not sleep.
 * Return: %ZORVA_RC_OK: made. %ZORVA_RC_BAD_COMPONENT or %ZORVA_RC_NULL_ARG
 * (@waitId or @file is null): reported, nothing done. %ZORVA_RC_FAIL: no
 * memory; reported.
 */
u32 zorva_wait_module_create_track(u32 compId, u32 *waitId, const char *file,
				   u32 line);
#define zorva_wait_module_create(compId, waitId)                               \
	zorva_wait_module_create_track(compId, waitId, ZORVA_FILE, __LINE__)

/**
 * zorva_wait_module_destroy_track() - frees a wait module
 * @compId: the caller, 1 to 56; need not be the owner
 * @waitId: its ID
 * @file: basename of the caller's source file
 * @line: not used
 *
 * Waiters are not woken, and nobody may use the wait module afterwards. A
 * waiter that has been woken uses it until its call returns: to wake it and
 * then to destroy is a use of freed memory. The waiter itself may destroy it as
 * soon as its call has returned, even while the one who woke it is still in
 * his. Destroying the oldest leaves the next one with a link to freed memory,
 * through which destroying that one writes: destroy wait modules from the
 * youngest to the oldest.
 *
 * Context: Any; does not sleep.
 * Return: %ZORVA_RC_OK: freed. %ZORVA_RC_BAD_COMPONENT or %ZORVA_RC_NULL_ARG
 * (@file is null): reported, nothing done. %ZORVA_RC_FAIL: no wait module has
 * that ID; not reported.
 */
u32 zorva_wait_module_destroy_track(u32 compId, u32 waitId, const char *file,
				    u32 line);
#define zorva_wait_module_destroy(compId, waitId)                              \
	zorva_wait_module_destroy_track(compId, waitId, ZORVA_FILE, __LINE__)

/**
 * zorva_wait_event_track() - sleeps until somebody wakes the wait module
 * @compId: the caller, 1 to 56; need not be the owner
 * @waitId: its ID
 * @file: basename of the caller's source file
 * @line: not used
 *
 * Returns at once when there was a wake-up since the last wait returned; any
 * number of them counts once. There is no time limit, and signals do not end
 * the wait: those that come before the wake-up are discarded, that of
 * zorva_thread_destroy_track() as well, which is lost then. One that is pending
 * when the wait need not sleep, or has been woken, stays so.
 *
 * Context: Thread; sleeps.
 * Return: %ZORVA_RC_OK: woken. %ZORVA_RC_BAD_COMPONENT or %ZORVA_RC_NULL_ARG
 * (@file is null): reported, nothing done. %ZORVA_RC_FAIL: no wait module has
 * that ID; not reported.
 */
u32 zorva_wait_event_track(u32 compId, u32 waitId, const char *file, u32 line);
#define zorva_wait_event(compId, waitId)                                       \
	zorva_wait_event_track(compId, waitId, ZORVA_FILE, __LINE__)

/**
 * zorva_wake_up_track() - wakes who waits, or is remembered
 * @compId: the caller, 1 to 56; need not be the owner
 * @waitId: its ID
 * @file: basename of the caller's source file
 * @line: not used
 *
 * All that wait at this moment are woken; but when one of them waits again
 * before others have run, those sleep on. A wake-up between the one that wakes
 * a waiter and the return of its call is forgotten.
 *
 * Context: Any; does not sleep.
 * Return: %ZORVA_RC_OK: woken or remembered. %ZORVA_RC_BAD_COMPONENT or
 * %ZORVA_RC_NULL_ARG (@file is null): reported, nothing done. %ZORVA_RC_FAIL:
 * no wait module has that ID; not reported.
 */
u32 zorva_wake_up_track(u32 compId, u32 waitId, const char *file, u32 line);
#define zorva_wake_up(compId, waitId)                                          \
	zorva_wake_up_track(compId, waitId, ZORVA_FILE, __LINE__)

#ifdef __cplusplus
}
#endif

#endif
