// SPDX-License-Identifier: GPL-2.0
/*
 * The rules of a call: which context it may be made in, on what, and by whom.
 * The kernel would go wrong at some other place and time; here the test fails
 * at the call.
 */
#include "host.h"

#include "zorva/host.h"
#include "zorva_mem.h"
#include "zorva_sem.h"

#include <string.h>

namespace
{

u64 calls_so_far;

const fake::at_restart count_anew([] {
	calls_so_far = 0;
});

using host::begins_with;

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

bool frees(const char *name)
{
	return begins_with(name, { "zorva_free_" });
}

/* The module tells a second free by what the first one has left there. */
void let_header_be_read(host::object block)
{
	const size_t size = sizeof(zorva_mem_block_hdr_t);

	fake::allow_access_to_freed(static_cast<const char *>(block) - size,
				    size);
}

void check_context(const char *name)
{
	const char *const forbidden = host::what_forbids_sleep();

	if (host::is_printing() && !is_for_the_debug_print(name))
		host::fail("is called by the debug-print function");
	if (begins_with(name, { "zorva_thread_exit" }) && !forbidden &&
	    fake::running()->number == fake::main_pid)
		host::fail(
			"is for threads that zorva_thread_create() has made");
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
	if (fake::was_freed(made_on, &made, &freed)) {
		if (frees(name) && host::allows(ZORVA_HOST_DAMAGE)) {
			let_header_be_read(made_on);
			return;
		}
		host::fail("is called on what " + host::text_of(freed) +
			   " has freed; it was made by " + host::text_of(made));
	}
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

/*
 * The module ignores such a give. The kernel's own mutex does not bear it, and
 * whoever makes it believes to have held the mutex.
 */
void check_holder(const char *name, host::object made_on)
{
	if (!made_on || !begins_with(name, { "zorva_mutex_give" }) ||
	    host::allows(ZORVA_HOST_STRANGERS_GIVE))
		return;

	if (fake::holder_of(
		    &static_cast<const zorva_mutex *>(made_on)->mutex) !=
	    fake::running())
		host::fail("gives " + host::name_of(fake::current_call()) +
			   ", which " + host::holder_text(made_on));
}

} // namespace

namespace host
{

bool begins_with(const char *text, std::initializer_list<const char *> heads)
{
	for (const char *head : heads)
		if (!strncmp(text, head, strlen(head)))
			return true;
	return false;
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

entry::entry(const char *function, const void *from, const char *file, u32 line,
	     object made_on)
{
	if (!is_alive())
		fail_outside({ function, from, file, line, made_on, 0 });
	fake::running()->calling.push_back(
		{ function, from, file, line, made_on, ++calls_so_far });
	check_context(function);
	if (!is_printing())
		fake::may_switch(fake::switch_point::firmware_call);
	check_object(function, made_on);
	check_holder(function, made_on);
}

entry::~entry()
{
	fake::running()->calling.pop_back();
	if (!is_printing())
		fake::may_switch(fake::switch_point::firmware_call);
}

} // namespace host
