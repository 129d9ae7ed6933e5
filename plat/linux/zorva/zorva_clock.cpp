// SPDX-License-Identifier: GPL-2.0
/*
 * The reading of the clock, once in a tick for all that is stamped in it.
 *
 * There is no lock; interrupts are off from the tick's reading to the stores,
 * so that nobody finds what another one had read a while before.
 */
#include "zorva_clock.h"

constinit volatile tick_seconds _zorvaTickSeconds = { ZK_INITIAL_JIFFIES - 1ul,
						      0 };

namespace
{

/* The upper 64 bits of a 128-bit product. */
constexpr u64 multiply_high(u64 a, u64 b)
{
	const u64 a_low = static_cast<u32>(a), a_high = a >> 32;
	const u64 b_low = static_cast<u32>(b), b_high = b >> 32;
	const u64 middle = a_high * b_low + ((a_low * b_low) >> 32);

	return a_high * b_high + (middle >> 32) +
	       ((a_low * b_high + static_cast<u32>(middle)) >> 32);
}

/*
 * Divides by a constant without a division: the kernel's own takes several
 * hundred instructions on a 32-bit machine. The product with the divisor's
 * reciprocal, rounded down, is the quotient or one less than it.
 */
constexpr u64 divide(u64 dividend, u32 divisor, u64 reciprocal)
{
	const u64 quotient = multiply_high(dividend, reciprocal);

	return quotient + (dividend - quotient * divisor >= divisor);
}

/* Divides as C does, towards zero, and keeps the low 32 bits. */
constexpr u32 divide_time(ktime_t nsecs, u32 divisor, u64 reciprocal)
{
	const bool negative = nsecs < 0;
	const u64 size = negative ? -static_cast<u64>(nsecs) : nsecs;
	const u32 quotient = divide(size, divisor, reciprocal);

	return negative ? -quotient : quotient;
}

constexpr u32 nsecs_per_sec = 1000000000;
constexpr u64 per_sec = ~0ull / nsecs_per_sec;
constexpr u64 per_tick = ~0ull / nsecs_per_tick;

static_assert(divide(~0ull, nsecs_per_sec, per_sec) == ~0ull / nsecs_per_sec);
static_assert(divide_time(0, nsecs_per_sec, per_sec) == 0);
static_assert(divide_time(999999999, nsecs_per_sec, per_sec) == 0);
static_assert(divide_time(1000000000, nsecs_per_sec, per_sec) == 1);
static_assert(divide_time(4294967295999999999, nsecs_per_sec, per_sec) ==
	      4294967295);
static_assert(divide_time(4294967296000000000, nsecs_per_sec, per_sec) == 0);
static_assert(divide_time(-1, nsecs_per_sec, per_sec) == 0);
static_assert(divide_time(-1000000000, nsecs_per_sec, per_sec) == 0xFFFFFFFF);
static_assert(divide_time(19999999, nsecs_per_tick, per_tick) == 1);

/* One for both, as it is long and nobody calls it often. */
[[gnu::noinline]] u32 quotient_of(ktime_t nsecs, u32 divisor, u64 reciprocal)
{
	return divide_time(nsecs, divisor, reciprocal);
}

} // namespace

u32 ticks_of(ktime_t nsecs)
{
	return quotient_of(nsecs, nsecs_per_tick, per_tick);
}

u32 read_uptime_secs()
{
	const unsigned long flags = zk_local_irq_save();
	const unsigned long tick = jiffies;
	const u32 secs = quotient_of(ktime_get_coarse_with_offset(TK_OFFS_BOOT),
				     nsecs_per_sec, per_sec);

	_zorvaTickSeconds.secs = secs;
	_zorvaTickSeconds.tick = tick;
	zk_local_irq_restore(flags);
	return secs;
}
