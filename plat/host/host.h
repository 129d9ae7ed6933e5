/* SPDX-License-Identifier: GPL-2.0 */
/* What the parts of the host's library have from each other. */
#ifndef HOST_H
#define HOST_H

#include "fake/scheduler.h"

#include "zorva/zorva.h"

#include <initializer_list>

namespace host
{

/* What a call is made on: null, or a record, or a number as an address. */
using object = const void *;

inline constexpr object nothing = nullptr;

inline object object_of(const void *record)
{
	return record;
}

/* IDs of wait modules begin at 0; no record lies at so low an address. */
inline object wait_of(u32 id)
{
	return reinterpret_cast<object>(uintptr_t{ id } + 1);
}

/*
 * One call of the firmware's, for as long as it lasts. Looks whether it is
 * allowed here, and lets other threads run before and after it.
 */
class entry {
public:
	entry(const char *function, const void *from, const char *file,
	      u32 line, object made_on);
	~entry();
	entry(const entry &) = delete;
	entry &operator=(const entry &) = delete;
};

/* True while a life of the module goes on. */
bool is_alive();

/* Fails the running test, at the call that it is in. Does not return when the
 * test is one that can be left in the middle. */
void fail(const std::string &what);
void fail_at(const fake::firmware_call &where, const std::string &what);
/* The same with the text as it is. */
void fail_by(const fake::firmware_call &where, const std::string &text);

/* The same of a call outside of any life, where nothing can go on. */
[[noreturn]] void fail_outside(const fake::firmware_call &where);

/* True inside of the firmware's debug-print function. */
bool is_printing();
/* No function of the firmware's yet, and no reports. */
void print_anew();

/* One of the rules that zorva_host_allow() names. */
bool allows(u32 what);
/* Why the caller may not sleep, "in an interrupt"; null when it may. */
const char *what_forbids_sleep();
bool begins_with(const char *text, std::initializer_list<const char *> heads);

/* "link.c:40", by the call's own words or by its return address. */
std::string place_of(const fake::firmware_call &call);
/* "zorva_mutex_take at link.c:40". */
std::string text_of(const fake::firmware_call &call);
/* "mutex 'fdb'"; "" for what has no name. */
std::string name_of(const fake::firmware_call &call);

/* What the life has left. */
struct leftover {
	fake::firmware_call made_by;
	std::string text;
};
std::vector<leftover> leftovers();
/* A thread must not end with a mutex. */
void check_end_of(const task_struct *task);
/* "thread 'rx' (101) holds, taken at link.c:40", or "nobody holds". */
std::string holder_text(object mutex);
/* Fails the test: who waits for what, and who has it. */
void tell_of_deadlock(const std::string &states);

} // namespace host

#endif
