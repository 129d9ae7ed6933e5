/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Readings of uptime and of monotonic time.
 *
 * All of them may be taken in any context and take no lock. Every result is
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

#ifdef __cplusplus
}
#endif

#endif
