/* SPDX-License-Identifier: GPL-2.0 */
/* The path of every report, and the argument checks. */
#ifndef ZORVA_DEBUG_PRIVATE_H
#define ZORVA_DEBUG_PRIVATE_H

#include "zk.h"
#include "zorva/components.h"
#include "zorva/debug.h"

extern "C" {

/*
 * Hands one report to the registered function, cut to 256 characters; any
 * context, interrupts on or off. Without a registered function it is lost.
 */
void zorva_debug_print(u32 level, const char *file, const char *func, s32 line,
		       const char *format, ...)
	__attribute__((cold, format(printf, 5, 6)));

extern sys_dbg_pr_fn_t _sys_dbg_pr_fn;
}

/*
 * Reports from where it stands: the file, the function and the line. Code that
 * functions share reports in the name of the one that it works for.
 */
#define ZORVA_ERROR_IN(func, ...)                                              \
	zorva_debug_print(ZORVA_LEVEL_ERROR, ZORVA_FILE, func, __LINE__,       \
			  __VA_ARGS__)
#define ZORVA_ERROR(...) ZORVA_ERROR_IN(__func__, __VA_ARGS__)
#define ZORVA_INFO(...)                                                        \
	zorva_debug_print(ZORVA_LEVEL_INFO, ZORVA_FILE, __func__, __LINE__,    \
			  __VA_ARGS__)

/*
 * Tests one argument of an exported function, which returns the second
 * argument when the test fails. Each stands on a line of its own, so the line
 * in the report tells which argument was wrong.
 */
#define ZORVA_CHECK_IN(func, condition, result)                                \
	do {                                                                   \
		if (unlikely(!(condition))) {                                  \
			ZORVA_ERROR_IN(func, "invalid parameter");             \
			return result;                                         \
		}                                                              \
	} while (0)
#define ZORVA_CHECK(condition, result)                                         \
	ZORVA_CHECK_IN(__func__, condition, result)

/* True for the IDs that may own something: 1 to 56. */
constexpr bool valid_owner(u32 compId)
{
	return compId - 1 < ZORVA_COMPONENTS - 1;
}

#endif
