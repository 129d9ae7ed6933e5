/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The module's clock: seconds since boot, stamped on every block and on every
 * history entry, and so made to cost little.
 */
#ifndef ZORVA_CLOCK_H
#define ZORVA_CLOCK_H

#include "zk.h"

inline constexpr u32 nsecs_per_sec = 1000000000;

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
template <u32 divisor>
constexpr u64 divide(u64 dividend)
{
	constexpr u64 reciprocal = ~0ull / divisor;
	const u64 quotient = multiply_high(dividend, reciprocal);

	return quotient + (dividend - quotient * divisor >= divisor);
}

static_assert(divide<nsecs_per_sec>(~0ull) == ~0ull / nsecs_per_sec);

/* Divides as C does, towards zero, and keeps the low 32 bits. */
template <u32 divisor>
constexpr u32 divide_time(ktime_t nsecs)
{
	if (unlikely(nsecs < 0))
		return -static_cast<u32>(
			divide<divisor>(-static_cast<u64>(nsecs)));
	return divide<divisor>(nsecs);
}

/*
 * The same for seconds, which every block and every history entry is stamped
 * with: in the first 73 years one multiplication gives the quotient or one
 * less than it.
 */
constexpr u32 seconds_of(ktime_t nsecs)
{
	constexpr u32 reciprocal = (1ull << 61) / nsecs_per_sec;
	const u64 high = static_cast<u64>(nsecs) >> 29;

	if (unlikely(high >> 32))
		return divide_time<nsecs_per_sec>(nsecs);

	const u32 secs = (high * reciprocal) >> 32;
	const u32 rest = static_cast<u32>(nsecs) - secs * nsecs_per_sec;

	return secs + (rest >= nsecs_per_sec);
}

static_assert(seconds_of(0) == 0);
static_assert(seconds_of(999999999) == 0);
static_assert(seconds_of(1000000000) == 1);
static_assert(seconds_of((1ll << 61) - 1) == 2305843009);
static_assert(seconds_of(1ll << 61) == 2305843009);
static_assert(seconds_of(4294967295999999999) == 4294967295);
static_assert(seconds_of(4294967296000000000) == 0);
static_assert(seconds_of(-1) == 0);
static_assert(seconds_of(-1000000000) == 0xFFFFFFFF);

/* Seconds since boot, as zorva_uptime_secs_get() tells them. */
inline u32 uptime_secs()
{
	return seconds_of(ktime_get_coarse_with_offset(TK_OFFS_BOOT));
}

#endif
