// SPDX-License-Identifier: GPL-2.0
/*
 * What a test says to the simulated kernel and asks of it while a life goes on,
 * and the calls of zorva that the host has itself.
 */
#include "host.h"

#include "zorva/host.h"
#include "zorva/host_thread.h"

extern "C" {
decltype(zorva_proc_printf) zorva_module_zorva_proc_printf;
}

namespace
{

constexpr s64 nsecs_per_usec = 1000;
constexpr s64 look_nsecs = 10000000;

/* A call of the host's own header. */
fake::firmware_call here(const char *function, const void *from)
{
	return { function, from, nullptr, 0, nullptr, 0 };
}

void needs_life(const fake::firmware_call &call)
{
	if (!host::is_alive())
		host::fail_outside(call);
}

void needs_thread(const fake::firmware_call &call)
{
	needs_life(call);
	if (const char *const forbidden = host::what_forbids_sleep())
		host::fail_at(call, std::string("may sleep, and is called ") +
					    forbidden);
}

} // namespace

#define HERE here(__func__, __builtin_return_address(0))

void zorva_host_fail_allocation(u32 nth)
{
	needs_life(HERE);
	fake::fail_allocation(nth);
}

void zorva_host_pass_time(u64 usecs)
{
	needs_life(HERE);
	fake::advance(usecs * nsecs_per_usec);
}

void zorva_host_sleep(u64 usecs)
{
	needs_thread(HERE);
	fake::sleep_for(usecs * nsecs_per_usec);
}

void zorva_host_settle(void)
{
	needs_thread(HERE);
	fake::run_others();
}

u64 zorva_host_now(void)
{
	needs_life(HERE);
	return fake::now() / nsecs_per_usec;
}

void zorva_host_hard_interrupt(void (*fn)(void *argument), void *argument)
{
	needs_life(HERE);
	if (fake::current_context().interrupts_off)
		host::fail_at(HERE, "comes while interrupts are off");

	const fake::hard_interrupt interrupt;

	fn(argument);
}

void zorva_host_soft_interrupt(void (*fn)(void *argument), void *argument)
{
	needs_life(HERE);
	if (const char *const forbidden = host::what_forbids_sleep())
		host::fail_at(HERE, std::string("comes ") + forbidden);

	const fake::soft_interrupt interrupt;

	fn(argument);
}

void zorva_host_without_interrupts(void (*fn)(void *argument), void *argument)
{
	needs_life(HERE);

	const fake::interrupts_off off;

	fn(argument);
}

int zorva_host_network_event(unsigned long event, void *data)
{
	needs_thread(HERE);
	return fake::raise_netevent(event, data);
}

int zorva_host_thread_has_ended(u32 pid)
{
	needs_life(HERE);
	return fake::has_ended(pid);
}

const char *zorva_host_report(const char *name)
{
	static std::string text;
	const std::string path = std::string("zorva/") + name;

	needs_thread(HERE);
	if (fake::proc_file(path).error())
		return nullptr;
	text = fake::read_report(path);
	return text.c_str();
}

const char *zorva_host_log(void)
{
	static std::string text;

	needs_life(HERE);
	text = fake::log_text();
	return text.c_str();
}

/* The module has this one as well, with a list of arguments that cannot be
 * handed on. */
void zorva_proc_printf(struct seq_file *seq, const char *format, ...)
{
	const host::entry entered(__func__, __builtin_return_address(0),
				  nullptr, 0, host::nothing);
	va_list args;

	va_start(args, format);
	const std::string text = fake::vformat(format, args);
	va_end(args);

	zorva_module_zorva_proc_printf(seq, "%s", text.c_str());
}

/* In the module's place this asks the kernel, and is not part of the module. */
void zorva_thread_wait(u32 pid)
{
	const host::entry entered(__func__, __builtin_return_address(0),
				  nullptr, 0, host::nothing);
	const auto number = static_cast<pid_t>(pid);

	if (number == fake::running()->number)
		host::fail(
			"deadlock: a thread waits until it has ended itself");
	while (fake::look_up(number) && !fake::has_ended(number))
		fake::sleep_for(look_nsecs);
}
