// SPDX-License-Identifier: GPL-2.0
/*
 * The path of every report, from the place that makes it to the firmware's
 * debug-print function. All other sources stand on this one.
 *
 * There is no lock: the function is stored once, in one step, and others see
 * what was written before.
 */
#include "zorva_debug.h"

constinit sys_dbg_pr_fn_t _sys_dbg_pr_fn = nullptr;

namespace
{

constexpr size_t report_size = 257;

/* Apart from the test, as it costs to clear a text that nobody wants. */
[[gnu::noinline]] void hand_over(u32 level, const debug_site &site,
				 const char *format, va_list args)
{
	char text[report_size] = {};

	vsnprintf(text, sizeof(text), format, args);
	load_acquire(_sys_dbg_pr_fn)(ZORVA_COMPONENT_SELF, -1, level, site.file,
				     site.func, site.line, "%s", text);
}

/* The function stays once it is there, so nothing is formatted for nobody. */
void print(u32 level, const debug_site &site, const char *format, va_list args)
{
	if (read_once(_sys_dbg_pr_fn))
		hand_over(level, site, format, args);
}

} // namespace

u32 zorva_debug_pr_fn_register(sys_dbg_pr_fn_t fn)
{
	sys_dbg_pr_fn_t none = nullptr;

	/* In one step, so that the first one stays. */
	__atomic_compare_exchange_n(&_sys_dbg_pr_fn, &none, fn, false,
				    zk_is_smp() ? __ATOMIC_RELEASE
						: __ATOMIC_RELAXED,
				    __ATOMIC_RELAXED);
	return ZORVA_RC_OK;
}

void zorva_debug_print(u32 level, const char *file, const char *func, s32 line,
		       const char *format, ...)
{
	va_list args;

	va_start(args, format);
	print(level, { file, func, line }, format, args);
	va_end(args);
}

void zorva_debug_message(const debug_message *message, ...)
{
	va_list args;

	va_start(args, message);
	print(message->level, message->site, message->format, args);
	va_end(args);
}

u32 zorva_debug_refuse(const debug_refusal *refusal)
{
	const debug_site &site = refusal->site;

	zorva_debug_print(ZORVA_LEVEL_ERROR, site.file, site.func, site.line,
			  "invalid parameter");
	return refusal->result;
}
