// SPDX-License-Identifier: GPL-2.0
/*
 * The clocks. All run off one monotonic clock; that of the boot adds the time
 * spent suspended, and the coarse one stands still between two ticks.
 */
#include "internal.h"

namespace
{

constexpr s64 nsecs_per_tick = 10000000;
constexpr s64 nsecs_per_sec = 1000000000;

/* They wrap five minutes after the boot. */
constexpr unsigned long initial_jiffies = ZK_INITIAL_JIFFIES;

s64 monotonic;
s64 boot_offset;
unsigned long jiffies_at_0 = initial_jiffies;
std::vector<fake::context> coarse;

const fake::at_restart set_back([] {
	monotonic = 0;
	boot_offset = 0;
	jiffies_at_0 = initial_jiffies;
	jiffies = initial_jiffies;
	coarse.clear();
});

/* Rounds down, below 0 too. */
s64 floor_to(s64 value, s64 unit)
{
	const s64 above = value % unit;

	return value - above - (above < 0 ? unit : 0);
}

void check_offset(enum tk_offsets offs)
{
	if (offs != TK_OFFS_BOOT)
		fake::complain("a clock other than that of the boot");
}

} // namespace

unsigned long volatile jiffies = initial_jiffies;

namespace fake
{

s64 ticks_now()
{
	const s64 above = monotonic % nsecs_per_tick;

	return (monotonic - above) / nsecs_per_tick - (above < 0);
}

/* A suspend takes a tick at least, for the coarse clock has to move with it. */
void set_uptime(s64 nsecs, s64 suspended)
{
	if (boot_offset != suspended)
		++jiffies_at_0;
	boot_offset = suspended;
	set_monotonic_time(nsecs - suspended);
}

s64 monotonic_time()
{
	return monotonic;
}

void set_monotonic_time(s64 nsecs)
{
	monotonic = nsecs;
	jiffies = jiffies_at_0 + static_cast<unsigned long>(ticks_now());
}

void set_jiffies(unsigned long value)
{
	jiffies_at_0 = value - static_cast<unsigned long>(ticks_now());
	jiffies = value;
}

const std::vector<context> &coarse_readings()
{
	return coarse;
}

} // namespace fake

ktime_t ktime_get_coarse_with_offset(enum tk_offsets offs)
{
	check_offset(offs);
	coarse.push_back(fake::current_context());
	return floor_to(monotonic, nsecs_per_tick) + boot_offset;
}

ktime_t ktime_get_with_offset(enum tk_offsets offs)
{
	check_offset(offs);
	return monotonic + boot_offset;
}

void zk_ktime_get_ts64(s64 *secs, u32 *nsecs)
{
	const s64 whole = floor_to(monotonic, nsecs_per_sec);

	*secs = whole / nsecs_per_sec;
	*nsecs = monotonic - whole;
}
