// SPDX-License-Identifier: GPL-2.0
/*
 * The debug-print path and the readings of time.
 *
 * Nothing here takes a lock. The registered debug-print function is stored
 * once, by a plain test and store; a clock is read through the kernel, which
 * retries a reading that a tick has torn.
 */
#include "zorva_util.h"

constinit sys_dbg_pr_fn_t _sys_dbg_pr_fn = nullptr;

namespace
{

constexpr u32 nsecs_per_sec = 1000000000;
constexpr u32 nsecs_per_tick = 10000000;
constexpr size_t report_size = 257;

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

static_assert(divide<nsecs_per_sec>(0) == 0);
static_assert(divide<nsecs_per_sec>(999999999) == 0);
static_assert(divide<nsecs_per_sec>(1000000000) == 1);
static_assert(divide<nsecs_per_sec>(~0ull) == ~0ull / nsecs_per_sec);
static_assert(divide<nsecs_per_sec>(4294967295999999999) == 4294967295);
static_assert(divide<nsecs_per_sec>(4294967296000000000) == 4294967296);
static_assert(divide<nsecs_per_tick>(1239999999) == 123);
static_assert(divide<nsecs_per_tick>(1240000000) == 124);

/* Divides as C does, towards zero, and keeps the low 32 bits. */
template <u32 divisor>
constexpr u32 divide_time(ktime_t nsecs)
{
	if (unlikely(nsecs < 0))
		return -static_cast<u32>(
			divide<divisor>(-static_cast<u64>(nsecs)));
	return divide<divisor>(nsecs);
}

} // namespace

u32 uptime_secs()
{
	return divide_time<nsecs_per_sec>(
		ktime_get_coarse_with_offset(TK_OFFS_BOOT));
}

u32 zorva_debug_pr_fn_register(sys_dbg_pr_fn_t fn)
{
	if (!_sys_dbg_pr_fn)
		_sys_dbg_pr_fn = fn;
	return ZORVA_RC_OK;
}

void zorva_debug_print(u32 level, const char *file, const char *func, s32 line,
		       const char *format, ...)
{
	char text[report_size] = {};
	va_list args;

	if (!_sys_dbg_pr_fn)
		return;

	va_start(args, format);
	vsnprintf(text, sizeof(text), format, args);
	va_end(args);
	_sys_dbg_pr_fn(ZORVA_COMPONENT_SELF, -1, level, file, func, line, "%s",
		       text);
}

u32 zorva_uptime_get(u32 *msecs)
{
	ZORVA_CHECK(msecs, ZORVA_RC_NULL_ARG);

	*msecs = uptime_secs() * 1000;
	return ZORVA_RC_OK;
}

u32 zorva_uptime_secs_get(u32 *secs)
{
	ZORVA_CHECK(secs, ZORVA_RC_NULL_ARG);

	*secs = uptime_secs();
	return ZORVA_RC_OK;
}

u32 zorva_uptime_ticks_get(u32 *ticks)
{
	*ticks = divide_time<nsecs_per_tick>(
		ktime_get_with_offset(TK_OFFS_BOOT));
	return ZORVA_RC_OK;
}

u32 zorva_time_usecs_ret(void)
{
	s64 secs;
	u32 nsecs;

	zk_ktime_get_ts64(&secs, &nsecs);
	return static_cast<u32>(secs) * 1000000 + nsecs / 1000;
}

u32 zorva_time_msecs_ret(void)
{
	s64 secs;
	u32 nsecs;

	zk_ktime_get_ts64(&secs, &nsecs);
	return static_cast<u32>(secs) * 1000 + nsecs / 1000000;
}

u32 zorva_time_secs_ret(void)
{
	s64 secs;
	u32 nsecs;

	zk_ktime_get_ts64(&secs, &nsecs);
	return static_cast<u32>(secs);
}
