// SPDX-License-Identifier: GPL-2.0
/*
 * Time that passes, and what happens in it: expiries of timers in their
 * interrupts, and ends of sleeps. Ticks are those of the target, 100 a second.
 */
#include "scheduler.h"

#include <algorithm>
#include <map>

namespace
{

constexpr s64 nsecs_per_tick = 10000000;
constexpr s64 nsecs_per_usec = 1000;
constexpr u32 msecs_per_tick = 10;
constexpr long longest_timeout = (LONG_MAX >> 1) - 1;

u32 resolution = 1;
s64 yield_cost = 1000;
s64 time_limit = LLONG_MAX;

struct event {
	s64 when;
	u64 order;
	std::function<void()> what;
};

std::map<const void *, event> events;
u64 next_order;

const fake::at_restart start_over([] {
	if (!events.empty() && !fake::is_forsaken())
		fake::complain("an expiry or the end of a sleep is left");
	events.clear();
	next_order = 0;
	resolution = 1;
	yield_cost = 1000;
});

auto next_event()
{
	return std::min_element(events.begin(), events.end(),
				[](const auto &a, const auto &b) {
					return std::pair(a.second.when,
							 a.second.order) <
					       std::pair(b.second.when,
							 b.second.order);
				});
}

bool interrupts_can_come()
{
	const fake::context now = fake::current_context();

	return !now.interrupts_off && !now.in_interrupt;
}

/* The clock never moves back: what is due has waited. */
void run(std::map<const void *, event>::iterator next)
{
	const std::function<void()> what = std::move(next->second.what);

	if (fake::now() < next->second.when)
		fake::set_monotonic_time(next->second.when);
	events.erase(next);
	what();
}

struct fake_timer {
	void (*function)(struct timer_list *timer);
	unsigned long expires;
	u32 initialised;
	unsigned long in_callback;
	void *unused;
};

struct fake_hrtimer {
	enum hrtimer_restart (*function)(struct hrtimer *timer);
	s64 expires;
	u32 initialised;
	u32 in_callback;
	u32 unused[7];
};

static_assert(sizeof(fake_timer) == sizeof(timer_list));
static_assert(sizeof(fake_hrtimer) == sizeof(hrtimer));

constexpr u32 is_initialised = 0x7173;

fake_timer &view(struct timer_list *timer)
{
	auto &seen = *reinterpret_cast<fake_timer *>(timer);

	if (seen.initialised != is_initialised)
		fake::fatal("a timer that was not initialised");
	return seen;
}

fake_hrtimer &view(struct hrtimer *timer)
{
	auto &seen = *reinterpret_cast<fake_hrtimer *>(timer);

	if (seen.initialised != is_initialised)
		fake::fatal("a high-resolution timer that was not initialised");
	return seen;
}

void expire(struct timer_list *timer)
{
	const fake::soft_interrupt interrupt;
	fake_timer &seen = view(timer);

	seen.in_callback = 1;
	seen.function(timer);
	seen.in_callback = 0;
}

void expire(struct hrtimer *timer)
{
	const fake::hard_interrupt interrupt;
	fake_hrtimer &seen = view(timer);

	if (!seen.function)
		fake::fatal("a high-resolution timer without a function");
	seen.in_callback = 1;
	if (seen.function(timer) != HRTIMER_NORESTART)
		fake::complain("a timer that restarts and does not move on");
	seen.in_callback = 0;
}

} // namespace

namespace fake
{

s64 now()
{
	return monotonic_time();
}

void set_time_limit(s64 nsecs)
{
	time_limit = nsecs;
}

void set_event(const void *owner, s64 when, std::function<void()> what)
{
	events[owner] = { when, next_order++, std::move(what) };
}

bool cancel_event(const void *owner)
{
	return events.erase(owner);
}

bool has_event(const void *owner)
{
	return events.count(owner);
}

void run_due_events()
{
	while (interrupts_can_come()) {
		const auto next = next_event();

		if (next == events.end() || next->second.when > now())
			return;
		run(next);
	}
}

void run_event_within(s64 nsecs)
{
	const auto next = next_event();

	if (next != events.end() && next->second.when - now() <= nsecs)
		run(next);
}

bool run_next_event()
{
	const auto next = next_event();

	if (next == events.end())
		return false;
	if (next->second.when > time_limit)
		fatal_deadlock("");
	run(next);
	return true;
}

void advance(s64 nsecs)
{
	const s64 end = now() + nsecs;

	while (interrupts_can_come()) {
		const auto next = next_event();

		if (next == events.end() || next->second.when > end)
			break;
		run(next);
	}
	set_monotonic_time(std::max(now(), end));
}

s64 time_of_tick(unsigned long tick)
{
	const long ahead = static_cast<long>(tick - jiffies);

	return (ticks_now() + std::max(ahead, 1l)) * nsecs_per_tick;
}

void sleep_until(s64 when, const char *caller)
{
	task_struct *const self = running();
	bool over = false;

	set_event(self, when, [&] {
		const soft_interrupt interrupt;

		over = true;
		wake(self, state_uninterruptible);
	});
	while (!over) {
		self->state = state_uninterruptible;
		switch_tasks(caller);
	}
}

void sleep_for(s64 nsecs)
{
	might_sleep("sleep_for");
	sleep_until(now() + nsecs, "sleep_for");
}

long sleep_at_most(long ticks, const char *caller)
{
	task_struct *const self = running();

	if (ticks == LONG_MAX) {
		switch_tasks(caller);
		return ticks;
	}

	const unsigned long end = jiffies + ticks;

	set_event(self, time_of_tick(end), [self] {
		const soft_interrupt interrupt;

		wake(self, state_interruptible | state_uninterruptible);
	});
	switch_tasks(caller);
	cancel_event(self);

	const long left = static_cast<long>(end - jiffies);

	return std::max(left, 0l);
}

void set_resolution(u32 nsecs)
{
	resolution = nsecs;
}

void set_yield_cost(s64 nsecs)
{
	yield_cost = nsecs;
}

unsigned long expiry_of(const struct timer_list *timer)
{
	if (!has_event(timer))
		fatal("a timer that is not pending has no expiry");
	return reinterpret_cast<const fake_timer *>(timer)->expires;
}

s64 expiry_of(const struct hrtimer *timer)
{
	if (!has_event(timer))
		fatal("a timer that is not pending has no expiry");
	return reinterpret_cast<const fake_hrtimer *>(timer)->expires;
}

bool is_pending(const void *timer)
{
	return has_event(timer);
}

} // namespace fake

unsigned long __msecs_to_jiffies(const unsigned int msecs)
{
	if (static_cast<int>(msecs) < 0)
		return longest_timeout;
	return (msecs + msecs_per_tick - 1) / msecs_per_tick;
}

signed long schedule_timeout(signed long timeout)
{
	fake::record(fake::format("schedule_timeout %ld", timeout));
	if (timeout < 0) {
		printk("\0013schedule_timeout: wrong timeout value %lx\n",
		       timeout);
		dump_stack();
		fake::running()->state = state_running;
		return 0;
	}
	return fake::sleep_at_most(timeout, "schedule_timeout");
}

void usleep_range(unsigned long min, unsigned long max)
{
	fake::record(fake::format("usleep_range %lu %lu", min, max));
	fake::might_sleep("usleep_range");
	fake::sleep_until(fake::now() + min * nsecs_per_usec, "usleep_range");
}

void yield(void)
{
	fake::record("yield");
	fake::might_sleep("yield");
	fake::advance(yield_cost);
	fake::switch_tasks("yield");
}

void zk_udelay(unsigned long usecs)
{
	fake::record(fake::format("udelay %lu", usecs));
	fake::advance(usecs * nsecs_per_usec);
}

u32 ktime_get_resolution_ns(void)
{
	return resolution;
}

void init_timer_key(struct timer_list *timer,
		    void (*function)(struct timer_list *timer),
		    unsigned int flags, const char *name,
		    struct lock_class_key *key)
{
	fake::record(fake::format("init_timer_key %u %s %s", flags, name,
				  key ? "key" : "none"),
		     timer);
	*reinterpret_cast<fake_timer *>(timer) = { function, 0, is_initialised,
						   0, 0 };
}

/* One that is pending is armed anew. */
void zk_add_timer(struct timer_list *timer, unsigned long ticks)
{
	fake_timer &seen = view(timer);

	fake::record(fake::format("add_timer %lu", ticks), timer);
	seen.expires = jiffies + ticks;
	fake::set_event(timer, fake::time_of_tick(seen.expires), [timer] {
		expire(timer);
	});
}

int del_timer(struct timer_list *timer)
{
	view(timer);
	fake::record("del_timer", timer);
	return fake::cancel_event(timer);
}

void hrtimer_init(struct hrtimer *timer, clockid_t clock,
		  enum hrtimer_mode mode)
{
	fake::record(fake::format("hrtimer_init %d %d", clock, mode), timer);
	*reinterpret_cast<fake_hrtimer *>(
		timer) = { nullptr, 0, is_initialised, 0, {} };
}

void zk_hrtimer_set_function(
	struct hrtimer *timer,
	enum hrtimer_restart (*function)(struct hrtimer *timer))
{
	view(timer).function = function;
}

void hrtimer_start_range_ns(struct hrtimer *timer, ktime_t expires, u64 slack,
			    const enum hrtimer_mode mode)
{
	fake_hrtimer &seen = view(timer);

	fake::record(fake::format("hrtimer_start_range_ns %lld %llu %d",
				  expires, slack, mode),
		     timer);
	if (mode != HRTIMER_MODE_REL) {
		fake::complain("a timer that is not relative");
		return;
	}
	if (__builtin_add_overflow(fake::now(), expires, &seen.expires))
		seen.expires = LLONG_MAX;
	fake::set_event(timer, seen.expires, [timer] {
		expire(timer);
	});
}

int hrtimer_cancel(struct hrtimer *timer)
{
	const fake_hrtimer &seen = view(timer);

	fake::record("hrtimer_cancel", timer);
	if (seen.in_callback)
		fake::fatal("deadlock: a timer's callback waits for itself");
	return fake::cancel_event(timer);
}

bool zk_timer_is_armed(const struct timer_list *timer)
{
	return fake::is_pending(timer);
}

bool zk_timer_runs(struct timer_list *timer)
{
	fake::record("timer_runs", timer);
	if (fake::is_pending(timer))
		fake::complain("asking of an armed timer whether it runs");
	return view(timer).in_callback;
}

bool zk_hrtimer_is_armed(struct hrtimer *timer)
{
	return fake::is_pending(timer);
}

/* As in the kernel, one that runs stays armed. */
bool zk_hrtimer_cancel_or_runs(struct hrtimer *timer)
{
	fake::record("hrtimer_try_to_cancel", timer);
	if (view(timer).in_callback)
		return true;
	fake::cancel_event(timer);
	return false;
}
