/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Readings of uptime and of monotonic time, sleeps, and busy delays.
 *
 * The readings may be taken in any context and take no lock. Every result is
 * the low 32 bits of the reading: subtract two of them as unsigned numbers to
 * measure an interval.
 */
#ifndef ZORVA_TIME_H
#define ZORVA_TIME_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * zorva_uptime_get() - tells the time since boot, in milliseconds
 * @msecs: where to write it
 *
 * The reading moves in whole seconds: it is always a multiple of 1000, as far
 * as 32 bits reach. Time spent suspended counts.
 *
 * Context: Any.
 * Return: %ZORVA_RC_OK, or %ZORVA_RC_NULL_ARG when @msecs is null, which was
 * reported.
 */
u32 zorva_uptime_get(u32 *msecs);

/**
 * zorva_uptime_secs_get() - tells the time since boot, in seconds
 * @secs: where to write it
 *
 * Time spent suspended counts.
 *
 * Context: Any.
 * Return: %ZORVA_RC_OK, or %ZORVA_RC_NULL_ARG when @secs is null, which was
 * reported.
 */
u32 zorva_uptime_secs_get(u32 *secs);

/**
 * zorva_uptime_ticks_get() - tells the time since boot, in ticks of 10 ms
 * @ticks: where to write it; not tested, must not be null
 *
 * Time spent suspended counts.
 *
 * Context: Any.
 * Return: %ZORVA_RC_OK always.
 */
u32 zorva_uptime_ticks_get(u32 *ticks);

/**
 * zorva_time_usecs_ret() - tells the monotonic time in microseconds
 *
 * Context: Any.
 * Return: Microseconds; they wrap about every 71.6 minutes.
 */
u32 zorva_time_usecs_ret(void);

/**
 * zorva_time_msecs_ret() - tells the monotonic time in milliseconds
 *
 * Context: Any.
 * Return: Milliseconds; they wrap about every 49.7 days.
 */
u32 zorva_time_msecs_ret(void);

/**
 * zorva_time_secs_ret() - tells the monotonic time in seconds
 *
 * Context: Any.
 * Return: Seconds.
 */
u32 zorva_time_secs_ret(void);

/**
 * zorva_time_usleep() - sleeps for microseconds
 * @usecs: how long. Below 10,000 it sleeps at least that long: at most 3
 *         microseconds more where high-resolution timers are in use, and up to
 *         the next tick elsewhere. Where the kernel's clock itself goes by
 *         ticks, it yields until the time is over. From 10,000 on it is
 *         rounded down to ticks of 10 ms.
 *
 * Signals are looked at in a sleep of ticks only. One that comes is discarded,
 * and the sleep goes on; but SIGKILL and SIGTERM end a kernel thread of this
 * module with exit code 1, inside the call: what it holds stays locked, what
 * it allocated stays allocated. In any other task they make the call return
 * early, which is reported for a kernel thread, and are discarded: the task
 * does not see them afterwards, and a process outlives them.
 *
 * Context: Thread. In an interrupt, or with bottom halves off, it returns at
 * once.
 */
void zorva_time_usleep(u32 usecs);

/**
 * zorva_time_sleep() - sleeps for seconds
 * @secs: how long; on a 32-bit machine at most 21,474,836. Beyond that the
 *        call returns at once with a complaint of the kernel's, or, as the
 *        ticks wrap from 42,949,673 on, sleeps too short.
 *
 * A signal is discarded, and the sleep goes on; but SIGKILL and SIGTERM end a
 * thread of this module with exit code 1, inside the call: what it holds stays
 * locked, what it allocated stays allocated. In any other task they make the
 * call return early, which is reported, and are discarded: the task does not
 * see them afterwards, and a process outlives them.
 *
 * Context: Thread. In an interrupt, or with bottom halves off, it returns at
 * once.
 */
void zorva_time_sleep(u32 secs);

/**
 * zorva_time_udelay() - waits busily for microseconds
 * @usecs: how long
 *
 * Context: Any; interrupts stay as they are.
 */
void zorva_time_udelay(u32 usecs);

/**
 * zorva_time_mdelay() - waits busily for milliseconds
 * @msecs: how long
 *
 * Context: Any; interrupts stay as they are.
 */
void zorva_time_mdelay(u32 msecs);

#ifdef __cplusplus
}
#endif

#endif
