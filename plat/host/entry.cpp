// SPDX-License-Identifier: GPL-2.0
/*
 * The rules of a call: which context it may be made in, on what, and by whom.
 * The kernel would go wrong at some other place and time; here the test fails
 * at the call.
 */
#include "host.h"

#include <string.h>

namespace
{

u64 calls_so_far;

const fake::at_restart count_anew([] {
	calls_so_far = 0;
});

bool begins_with(const char *name, std::initializer_list<const char *> heads)
{
	for (const char *head : heads)
		if (!strncmp(name, head, strlen(head)))
			return true;
	return false;
}

bool belongs_in_a_thread(const char *name)
{
	return begins_with(name, { "zorva_mutex_", "zorva_sem_", "zorva_event_",
				   "zorva_msg_queue_", "zorva_thread_",
				   "zorva_netevent_", "zorva_wait_event" });
}

/* In an interrupt these return at once. */
bool sleeps_in_a_thread(const char *name)
{
	return begins_with(name, { "zorva_time_usleep", "zorva_time_sleep" });
}

bool is_for_the_debug_print(const char *name)
{
	return begins_with(name, { "zorva_strlcpy", "zorva_atomic_",
				   "zorva_uptime_", "zorva_time_usecs",
				   "zorva_time_msecs", "zorva_time_secs",
				   "zorva_time_udelay", "zorva_time_mdelay",
				   "zorva_md5_", "zorva_mem_overhead_" });
}

bool destroys(const char *name)
{
	return strstr(name, "_destroy") || strstr(name, "queue_delete") ||
	       strstr(name, "_unregister");
}

const char *what_forbids_sleep()
{
	const fake::context now = fake::current_context();

	if (now.in_interrupt)
		return "in an interrupt";
	if (!now.locks.empty())
		return "under a spin lock";
	return now.interrupts_off ? "with interrupts off" : nullptr;
}

void check_context(const char *name)
{
	const char *const forbidden = what_forbids_sleep();

	if (host::is_printing() && !is_for_the_debug_print(name))
		host::fail("is called by the debug-print function");
	if (!forbidden)
		return;
	if (belongs_in_a_thread(name) ||
	    (sleeps_in_a_thread(name) && !fake::current_context().in_interrupt))
		host::fail(std::string("may sleep, and is called ") +
			   forbidden);
}

void check_object(const char *name, host::object made_on)
{
	fake::firmware_call made;
	fake::firmware_call freed;

	if (!made_on)
		return;
	if (fake::was_freed(made_on, &made, &freed))
		host::fail("is called on what " + host::text_of(freed) +
			   " has freed; it was made by " + host::text_of(made));
	if (!destroys(name))
		return;
	for (const task_struct *task : fake::all_tasks()) {
		if (task == fake::running())
			continue;
		for (const fake::firmware_call &call : task->calling)
			if (call.object == made_on)
				host::fail(
					fake::format("destroys what thread '%s' (%d) still uses in ",
						     task->comm, task->number) +
					host::text_of(call));
	}
}

} // namespace

namespace host
{

entry::entry(const char *function, const void *from, const char *file, u32 line,
	     object made_on)
{
	if (!is_alive())
		fail_at({ function, from, file, line, made_on, 0 },
			"is called before zorva_host_begin() or after its end");
	fake::running()->calling.push_back(
		{ function, from, file, line, made_on, ++calls_so_far });
	check_context(function);
	if (!is_printing())
		fake::may_switch(fake::switch_point::firmware_call);
	check_object(function, made_on);
}

entry::~entry()
{
	fake::running()->calling.pop_back();
	if (!is_printing())
		fake::may_switch(fake::switch_point::firmware_call);
}

} // namespace host
