// SPDX-License-Identifier: GPL-2.0
/*
 * What zorva reports: it is kept for the test, and handed on to the function
 * that the firmware has named.
 */
#include "host.h"

#include "zorva/host.h"

#include <stdarg.h>

extern "C" {
decltype(zorva_debug_pr_fn_register) zorva_module_zorva_debug_pr_fn_register;
}

namespace
{

sys_dbg_pr_fn_t debug_print;
std::string reported;
bool printing;

/* Reports after which the memory is not to be trusted any more. */
bool tells_of_damage(const std::string &text)
{
	return host::begins_with(text.c_str(),
				 { "Memory header corrupt!", "Double free ",
				   "Free invalid ptr:", "Memory corruption: ",
				   "Memory overflow detected " });
}

void hand_on(u32 compId, s32 unit, u32 level, const char *file,
	     const char *func, s32 line, const char *format, const char *text)
{
	if (!debug_print)
		return;
	if (printing) {
		host::fail(
			"calls zorva with a wrong argument in the debug-print function: that reports without end");
		return;
	}
	printing = true;
	debug_print(compId, unit, level, file, func, line, format, text);
	printing = false;
}

void print_report(u32 compId, s32 unit, u32 level, const char *file,
		  const char *func, s32 line, const char *format, ...)
{
	va_list args;

	va_start(args, format);
	const char *const text = va_arg(args, const char *);
	va_end(args);

	reported += fake::format("%u %s: %s\n", level, func, text);
	hand_on(compId, unit, level, file, func, line, format, text);
	if (tells_of_damage(text) && !host::allows(ZORVA_HOST_DAMAGE))
		host::fail(text);
}

} // namespace

namespace host
{

bool is_printing()
{
	return printing;
}

void print_anew()
{
	debug_print = nullptr;
	reported.clear();
	printing = false;
	zorva_module_zorva_debug_pr_fn_register(print_report);
}

} // namespace host

const char *zorva_host_reports(void)
{
	return reported.c_str();
}

/* The first function stays, as it does with the module itself. */
u32 zorva_debug_pr_fn_register(sys_dbg_pr_fn_t fn)
{
	const host::entry here(__func__, __builtin_return_address(0), nullptr,
			       0, host::nothing);

	if (!debug_print)
		debug_print = fn;
	return ZORVA_RC_OK;
}
