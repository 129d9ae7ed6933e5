// SPDX-License-Identifier: GPL-2.0
/*
 * The path of every report, from the place that makes it to the firmware's
 * debug-print function. All other sources stand on this one.
 *
 * There is no lock: the function is stored once, by a plain test and store.
 */
#include "zorva_debug.h"

constinit sys_dbg_pr_fn_t _sys_dbg_pr_fn = nullptr;

namespace
{

constexpr size_t report_size = 257;

} // namespace

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

	va_start(args, format);
	vsnprintf(text, sizeof(text), format, args);
	va_end(args);
	if (!_sys_dbg_pr_fn)
		return;
	_sys_dbg_pr_fn(ZORVA_COMPONENT_SELF, -1, level, file, func, line, "%s",
		       text);
}
