/* SPDX-License-Identifier: GPL-2.0 */
/*
 * One-shot timers, named by small numbers: tick timers, and high-resolution
 * timers. Each kind has IDs of its own, starting at 1.
 *
 * A callback runs once for each start, unless the timer is stopped before. It
 * may start its timer again.
 *
 * With several processors, a callback may run on one of them while a stop or a
 * refresh of its timer is called on another. Called by a thread that has
 * interrupts and bottom halves on, they wait for it: when they return, no
 * callback is running, and none comes but for a later start. The thread must
 * then hold nothing that the callback waits for. Called with interrupts or
 * bottom halves off, in an interrupt, or in the callback itself, they do not
 * wait: a callback that has begun may still be running when they return, and
 * may start its timer again; one that has not begun does not come. So what a
 * callback uses, its module included, may go away after a stop of the first
 * kind, when nobody starts the timer any more. On one processor no callback can
 * be running where a thread is.
 */
#ifndef ZORVA_TIMER_H
#define ZORVA_TIMER_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Tick timers: their callbacks run in soft-interrupt context and must not
 * sleep.
 */

/**
 * zorva_timer_init_track() - makes a tick timer
 * @compId: the owner, 1 to 56
 * @timerId: where to write its ID, which is never used again
 * @callback: what to call when it expires
 * @data: what @callback is given
 * @file: basename of the caller's source file
 * @line: not used
 *
 * There is no call that deletes one: at most 1024 can be made for as long
 * as the module is loaded. Its memory is charged to this module's own
 * component, not to @compId.
 *
 * Context: Any; does not sleep.
 * Return: %ZORVA_RC_OK: made, not running. %ZORVA_RC_BAD_COMPONENT or
 * %ZORVA_RC_NULL_ARG (@timerId, @callback or @file is null): reported, nothing
 * done. %ZORVA_RC_FAIL: the limit is reached, which was reported, or there is
 * no memory. %ZORVA_RC_BAD_VALUE: the list of timers was overwritten; reported.
 */
u32 zorva_timer_init_track(u32 compId, u32 *timerId,
			   void (*callback)(unsigned long data), u32 data,
			   const char *file, u32 line);
#define zorva_timer_init(compId, timerId, callback, data)                      \
	zorva_timer_init_track(compId, timerId, callback, data, ZORVA_FILE,    \
			       __LINE__)

/**
 * zorva_timer_start_track() - starts a tick timer that is not running
 * @compId: the caller, 1 to 56; need not be the owner
 * @timerId: where its ID is
 * @msecs: after how many milliseconds it expires, at least 1; in whole ticks of
 *         10 ms, rounded down, so below 10 ms it expires on the next tick; from
 *         42,949,673 on the product with 100 wraps
 * @file: basename of the caller's source file, of which 15 characters are kept
 * @line: the caller's line
 *
 * Context: Any, its own callback included; does not sleep.
 * Return: %ZORVA_RC_OK: running. %ZORVA_RC_FAIL: it was running already and
 * goes on as it was, or, which was reported, no tick timer was ever asked for,
 * or not even their list could be made. %ZORVA_RC_NOT_FOUND: there is none with
 * that ID, also when all that were asked for failed. %ZORVA_RC_BAD_COMPONENT,
 * %ZORVA_RC_BAD_VALUE (@msecs is 0), %ZORVA_RC_NULL_ARG (@timerId or @file is
 * null): reported, nothing done.
 */
u32 zorva_timer_start_track(u32 compId, const u32 *timerId, u32 msecs,
			    const char *file, u32 line);
#define zorva_timer_start(compId, timerId, msecs)                              \
	zorva_timer_start_track(compId, timerId, msecs, ZORVA_FILE, __LINE__)

/**
 * zorva_timer_stop_track() - stops a tick timer
 * @compId: the caller, 1 to 56; need not be the owner
 * @timerId: where its ID is
 * @file: basename of the caller's source file
 * @line: the caller's line
 *
 * A callback that another processor is running is waited for as said at the
 * head of this file. On one processor, a stop in an interrupt may come in the
 * middle of an expiry: the callback is then still called. And when an interrupt
 * has refreshed the timer there, the timer counts as not running though the
 * kernel's is armed: a stop leaves it so, and the callback may still come for
 * that start, too.
 *
 * Context: Any; does not sleep.
 * Return: %ZORVA_RC_OK: not running, also when it was not before.
 * %ZORVA_RC_NOT_FOUND: there is none with that ID, also when all that were
 * asked for failed. %ZORVA_RC_FAIL: no tick timer was ever asked for, or not
 * even their list could be made; reported. %ZORVA_RC_BAD_COMPONENT or
 * %ZORVA_RC_NULL_ARG (@timerId or @file is null): reported, nothing done.
 */
u32 zorva_timer_stop_track(u32 compId, const u32 *timerId, const char *file,
			   u32 line);
#define zorva_timer_stop(compId, timerId)                                      \
	zorva_timer_stop_track(compId, timerId, ZORVA_FILE, __LINE__)

/**
 * zorva_timer_refresh_track() - stops a tick timer and starts it again
 * @compId: the caller, 1 to 56; need not be the owner
 * @timerId: where its ID is
 * @msecs: after how many milliseconds it expires, at least 1
 * @file: basename of the caller's source file, of which 15 characters are kept
 * @line: the caller's line
 *
 * Between the two the timer is stopped. A callback that was under way is
 * treated as zorva_timer_stop_track() does.
 *
 * Context: As zorva_timer_stop_track().
 * Return: %ZORVA_RC_OK: running anew. %ZORVA_RC_BAD_COMPONENT,
 * %ZORVA_RC_NULL_ARG (@timerId or @file is null), %ZORVA_RC_BAD_VALUE (@msecs
 * is 0): reported, nothing done. Any code of stop or start: reported.
 */
u32 zorva_timer_refresh_track(u32 compId, const u32 *timerId, u32 msecs,
			      const char *file, u32 line);
#define zorva_timer_refresh(compId, timerId, msecs)                            \
	zorva_timer_refresh_track(compId, timerId, msecs, ZORVA_FILE, __LINE__)

/*
 * High-resolution timers: their callbacks run in hard-interrupt context and
 * must not sleep.
 */

/**
 * zorva_hrt_timer_init_track() - makes a high-resolution timer
 * @compId: the owner, 1 to 56
 * @timerId: where to write its ID, which is never used again
 * @callback: what to call when it expires
 * @data: what @callback is given
 * @file: basename of the caller's source file
 * @line: not used
 *
 * There is no call that deletes one: at most 64 can be made for as long
 * as the module is loaded. Its memory is charged to this module's own
 * component, not to @compId.
 *
 * Context: Any; does not sleep.
 * Return: %ZORVA_RC_OK: made, not running. %ZORVA_RC_BAD_COMPONENT or
 * %ZORVA_RC_NULL_ARG (@timerId, @callback or @file is null): reported, nothing
 * done. %ZORVA_RC_FAIL: the limit is reached, which was reported, or there is
 * no memory. When there is no memory for the timer itself, its place is lost
 * for good and counts towards the limit. %ZORVA_RC_BAD_VALUE: the list of
 * timers was overwritten; reported.
 */
u32 zorva_hrt_timer_init_track(u32 compId, u32 *timerId,
			       void (*callback)(unsigned long data), u32 data,
			       const char *file, u32 line);
#define zorva_hrt_timer_init(compId, timerId, callback, data)                  \
	zorva_hrt_timer_init_track(compId, timerId, callback, data,            \
				   ZORVA_FILE, __LINE__)

/**
 * zorva_hrt_timer_start_track() - starts a high-resolution timer that is not
 * running
 * @compId: the caller, 1 to 56; need not be the owner
 * @timerId: where its ID is
 * @msecs: after how many milliseconds it expires, at least 1; to the
 *         nanosecond, as far as the hardware goes
 * @file: basename of the caller's source file, of which 15 characters are kept
 * @line: the caller's line
 *
 * Context: Any, its own callback included; does not sleep.
 * Return: %ZORVA_RC_OK: running. %ZORVA_RC_FAIL: it was running already and
 * goes on as it was, or, which was reported, no such timer was ever asked for,
 * or not even their list could be made. %ZORVA_RC_NOT_FOUND: there is none with
 * that ID, also when all that were asked for failed. %ZORVA_RC_BAD_COMPONENT,
 * %ZORVA_RC_BAD_VALUE (@msecs is 0), %ZORVA_RC_NULL_ARG (@timerId or @file is
 * null): reported, nothing done.
 */
u32 zorva_hrt_timer_start_track(u32 compId, const u32 *timerId, u32 msecs,
				const char *file, u32 line);
#define zorva_hrt_timer_start(compId, timerId, msecs)                          \
	zorva_hrt_timer_start_track(compId, timerId, msecs, ZORVA_FILE,        \
				    __LINE__)

/**
 * zorva_hrt_timer_stop_track() - stops a high-resolution timer
 * @compId: the caller, 1 to 56; need not be the owner
 * @timerId: where its ID is
 * @file: basename of the caller's source file
 * @line: the caller's line
 *
 * A callback that another processor is running is waited for as said at the
 * head of this file. On one processor, a callback that has started its own
 * timer again must not stop or refresh it: it would wait for itself for ever,
 * with interrupts off.
 *
 * Context: Any but a callback of the same timer that has started it; does not
 * sleep.
 * Return: %ZORVA_RC_OK: not running, also when it was not before.
 * %ZORVA_RC_NOT_FOUND: there is none with that ID, also when all that were
 * asked for failed. %ZORVA_RC_FAIL: no such timer was ever asked for, or not
 * even their list could be made; reported. %ZORVA_RC_BAD_COMPONENT or
 * %ZORVA_RC_NULL_ARG (@timerId or @file is null): reported, nothing done.
 */
u32 zorva_hrt_timer_stop_track(u32 compId, const u32 *timerId, const char *file,
			       u32 line);
#define zorva_hrt_timer_stop(compId, timerId)                                  \
	zorva_hrt_timer_stop_track(compId, timerId, ZORVA_FILE, __LINE__)

/**
 * zorva_hrt_timer_refresh_track() - stops a high-resolution timer and starts it
 * again
 * @compId: the caller, 1 to 56; need not be the owner
 * @timerId: where its ID is
 * @msecs: after how many milliseconds it expires, at least 1
 * @file: basename of the caller's source file, of which 15 characters are kept
 * @line: the caller's line
 *
 * Between the two the timer is stopped. A callback that was under way is
 * treated as zorva_hrt_timer_stop_track() does.
 *
 * Context: As zorva_hrt_timer_stop_track().
 * Return: %ZORVA_RC_OK: running anew. %ZORVA_RC_BAD_COMPONENT,
 * %ZORVA_RC_NULL_ARG (@timerId or @file is null), %ZORVA_RC_BAD_VALUE (@msecs
 * is 0): reported, nothing done. Any code of stop or start: reported.
 */
u32 zorva_hrt_timer_refresh_track(u32 compId, const u32 *timerId, u32 msecs,
				  const char *file, u32 line);
#define zorva_hrt_timer_refresh(compId, timerId, msecs)                        \
	zorva_hrt_timer_refresh_track(compId, timerId, msecs, ZORVA_FILE,      \
				      __LINE__)

#ifdef __cplusplus
}
#endif

#endif
