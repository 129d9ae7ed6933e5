// SPDX-License-Identifier: GPL-2.0
/*
 * Lives of the module, one after another in one process, and the orders in
 * which a test's threads run.
 *
 * A test that can be left has a stack of its own: whoever finds a failure goes
 * straight back to the runner, and all that ran in that life is forsaken.
 */
#include "host.h"

#include "zorva/host.h"

#include "zorva_lkm.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace
{

constexpr s64 nsecs_per_sec = 1000000000;

bool alive;
bool left_early;     /* any test so far */
bool can_leave;	     /* the life was begun by a runner */
fake::fiber *runner; /* what goes on when it ends */
std::string why;     /* before a failure's text: the order it came in */
u32 failures;	     /* of this life */
u64 failed_seed;
bool refused; /* an allocation of the last life */
s64 time_limit = 600 * nsecs_per_sec;
u32 allowed; /* a bit for each rule that is not looked at */
zorva_host_failure_fn failure_fn;
int (*check_fn)(void);

/* Splits "file:line" again; "" and 0 when it is none. */
void tell(const std::string &place, const std::string &text)
{
	const size_t colon = place.rfind(':');
	const bool known = colon != std::string::npos;
	const std::string file = known ? place.substr(0, colon) : "";
	const u32 line = known ? atoi(place.c_str() + colon + 1) : 0;

	++failures;
	if (failure_fn)
		failure_fn((why + text).c_str(), file.c_str(), line);
	else
		fprintf(stderr, "%s\n", (why + text).c_str());
}

/* What the test had on its stacks is lost. */
[[noreturn]] void leave_early()
{
	left_early = true;
	fake::running()->stack->end_for(*runner);
}

[[noreturn]] void leave()
{
	fake::running()->stack->end_for(*runner);
}

/* After a failure: the test is left, or goes on if its framework lets it. */
void leave_if_possible()
{
	if (can_leave)
		leave_early();
	if (!failure_fn)
		abort();
}

void fail_in_kernel(const std::string &what)
{
	if (alive)
		host::fail(what);
	else
		host::fail_at({}, what);
}

void end_process()
{
	if (can_leave)
		leave_early();
	abort();
}

/* Whatever it has left was told of at its end. */
void forget_life()
{
	fake::forsake();
	fake::restart();
	fake::forget_proc_entries();
}

void load()
{
	fake::on_failure(fail_in_kernel);
	fake::on_fatal(end_process);
	fake::on_deadlock(host::tell_of_deadlock);
	fake::on_task_end(host::check_end_of);
	forget_life();
	fake::restore_module();
	failures = 0;
	alive = true;
	zorva_init();
	host::print_anew();
	fake::fail_allocation(0);
	fake::set_time_limit(time_limit);
}

/* Tells of everything that is left; the test can no longer be left. */
void unload()
{
	can_leave = false;
	for (const host::leftover &each : host::leftovers())
		tell(host::place_of(each.made_by), each.text);
	alive = false;
}

struct run {
	void (*test)(void *argument);
	void *argument;
	u64 seed;
	u32 places;
	u32 failing_allocation;
};

/* What the task "main" runs, on its own stack. */
void run_main(void *argument)
{
	const run &self = *static_cast<const run *>(argument);

	self.test(self.argument);
	fake::set_order(0, 0, false);
	unload();
	leave();
}

bool was_refused()
{
	for (const fake::heap_call &each : fake::heap_calls())
		if (each.what == fake::heap_call::refused ||
		    each.what == fake::heap_call::kvrefused)
			return true;
	return false;
}

/* The period is 1, 2, 4, 8 or 16: some bugs need few switches, some many. */
bool passes(run &self)
{
	fake::fiber here;

	load();
	runner = &here;
	can_leave = true;
	fake::fail_allocation(self.failing_allocation);
	if (self.seed)
		fake::set_order(self.seed, 1u << self.seed % 5,
				self.places & ZORVA_HOST_KERNEL_CALLS);
	fake::let_time_pass(self.places & ZORVA_HOST_SLOWLY);
	fake::running()->stack = std::make_unique<fake::fiber>(run_main, &self);
	here.switch_to(*fake::running()->stack);
	can_leave = false;
	alive = false;
	refused = was_refused();
	forget_life();
	if (!failures && check_fn && check_fn())
		tell("", "a check has failed");
	return !failures;
}

void refuse_a_life_within_another(const char *caller)
{
	if (!alive)
		return;
	fprintf(stderr, "%s: a life of the module goes on\n", caller);
	abort();
}

} // namespace

/* The leak sanitizer asks: it would find what was dropped with the stacks. */
extern "C" [[gnu::weak]] int __lsan_is_turned_off()
{
	return left_early;
}

namespace host
{

bool is_alive()
{
	return alive;
}

bool allows(u32 what)
{
	return allowed & what;
}

void fail_at(const fake::firmware_call &where, const std::string &what)
{
	std::string text = what;

	if (where.function) {
		const std::string name = text_of(where);

		text = place_of(where) + ": " +
		       name.substr(0, name.find(" at ")) + ": " + what;
	}
	fail_by(where, text);
}

void fail_outside(const fake::firmware_call &where)
{
	fail_at(where, "is called before zorva_host_begin() or after its end");
	abort();
}

void fail_by(const fake::firmware_call &where, const std::string &text)
{
	tell(where.function ? place_of(where) : "", text);
	leave_if_possible();
}

void fail(const std::string &what)
{
	fail_at(fake::current_call(), what);
}

} // namespace host

void zorva_host_on_failure(zorva_host_failure_fn fn)
{
	failure_fn = fn;
}

void zorva_host_on_check(int (*failed)(void))
{
	check_fn = failed;
}

void zorva_host_fail(const char *text, const char *file, u32 line)
{
	const std::string place = fake::format("%s:%u", file, line);

	tell(place, place + ": " + text);
	leave_if_possible();
}

void zorva_host_begin(void)
{
	refuse_a_life_within_another(__func__);
	why.clear();
	can_leave = false;
	load();
}

u32 zorva_host_end(void)
{
	const u32 before = failures;

	unload();
	if (failures != before && !failure_fn)
		abort();
	forget_life();
	return failures != before;
}

u32 zorva_host_run(void (*test)(void *argument), void *argument)
{
	run self = { test, argument, 0, 0, 0 };

	refuse_a_life_within_another(__func__);
	why.clear();
	return !passes(self);
}

void zorva_host_time_limit(u32 secs)
{
	time_limit = secs ? secs * nsecs_per_sec : LLONG_MAX;
}

void zorva_host_allow(u32 rules)
{
	allowed = rules;
}

u32 zorva_host_repeat(void (*test)(void *argument), void *argument, u64 seed,
		      u32 places)
{
	run self = { test, argument, seed, places, 0 };

	refuse_a_life_within_another(__func__);
	why = fake::format("seed %llu: ", seed);
	return !passes(self);
}

u32 zorva_host_explore(void (*test)(void *argument), void *argument, u32 orders,
		       u32 places)
{
	const char *const only = getenv("ZORVA_HOST_SEED");

	failed_seed = 0;
	if (only && *only) {
		const u64 seed = strtoull(only, nullptr, 0);
		const u32 failed =
			zorva_host_repeat(test, argument, seed, places);

		failed_seed = failed ? seed : 0;
		return failed;
	}
	refuse_a_life_within_another(__func__);
	for (u64 seed = 1; seed <= orders; ++seed) {
		run self = { test, argument, seed, places, 0 };

		why = fake::
			format("seed %llu of %u (ZORVA_HOST_SEED=%llu repeats it): ",
			       seed, orders, seed);
		if (!passes(self)) {
			failed_seed = seed;
			return 1;
		}
	}
	return 0;
}

u64 zorva_host_failed_seed(void)
{
	return failed_seed;
}

u32 zorva_host_sweep(void (*test)(void *argument), void *argument)
{
	refuse_a_life_within_another(__func__);
	for (u32 nth = 1;; ++nth) {
		run self = { test, argument, 0, 0, nth };

		why = fake::format("with allocation %u failing: ", nth);
		if (!passes(self))
			return 1;
		if (!refused)
			return 0;
	}
}
