/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The module's clock: seconds since boot, stamped on every block and on every
 * history entry, and so made to cost little.
 */
#ifndef ZORVA_CLOCK_H
#define ZORVA_CLOCK_H

#include "zk.h"

inline constexpr u32 nsecs_per_tick = 10000000; /* 100 ticks a second */

/* Divides as C does, towards zero, and keeps the low 32 bits. */
u32 ticks_of(ktime_t nsecs);

/*
 * What was read last: the clock moves with the tick only, so it holds until
 * the next one. Before the first reading it is the tick before the kernel's
 * first, and not 0, which jiffies passes five minutes after the boot.
 */
struct tick_seconds {
	unsigned long tick;
	u32 secs;
};

extern volatile tick_seconds _zorvaTickSeconds;

/* Reads the clock, and keeps what it says for the rest of the tick. */
u32 read_uptime_secs();

/*
 * Seconds since boot, as zorva_uptime_secs_get() tells them; any context.
 *
 * There is no lock, and the target needs none: who interrupts this between the
 * tick and the seconds leaves later seconds there. Where there are several
 * processors, one may see the tick before the clock has moved with it, or one
 * of the two stores before the other: then a stamp is one tick old. So it is
 * on any machine in the tick in which the clock is set.
 */
[[gnu::always_inline]] inline u32 uptime_secs()
{
	if (likely(_zorvaTickSeconds.tick == jiffies))
		return _zorvaTickSeconds.secs;
	return read_uptime_secs();
}

#endif
