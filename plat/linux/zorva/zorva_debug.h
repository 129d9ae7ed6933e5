/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The path of every report, and the argument checks. What a report says of
 * its place is constant, and stands in a table, so that the place itself is
 * as short as a call: there are more of them than of anything else.
 */
#ifndef ZORVA_DEBUG_PRIVATE_H
#define ZORVA_DEBUG_PRIVATE_H

#include "zk.h"
#include "zorva/components.h"
#include "zorva/debug.h"

/* A place that makes a report. */
struct debug_site {
	const char *file;
	const char *func;
	s32 line;
};

/* A report of which only the arguments of the format are not constant. */
struct debug_message {
	debug_site site;
	u32 level;
	const char *format;
};

/* An argument check that fails, and what the function then returns. */
struct debug_refusal {
	debug_site site;
	u32 result;
};

extern "C" {

/*
 * Hands one report to the registered function, cut to 256 characters; any
 * context, interrupts on or off. Without a registered function it is lost.
 */
void zorva_debug_print(u32 level, const char *file, const char *func, s32 line,
		       const char *format, ...)
	__attribute__((cold, format(printf, 5, 6)));

/* The same for a message. */
void zorva_debug_message(const debug_message *message, ...)
	__attribute__((cold));

/* Reports "invalid parameter", and returns the refusal's result. */
u32 zorva_debug_refuse(const debug_refusal *refusal) __attribute__((cold));

extern sys_dbg_pr_fn_t _sys_dbg_pr_fn;
}

/* The result of a function that returns a code, or null for a pointer. */
struct refused {
	const u32 result;

	operator u32() const
	{
		return result;
	}
	template <class Object>
	operator Object *() const
	{
		return nullptr;
	}
};

template <class Result>
constexpr u32 result_code(Result result)
{
	return result;
}

template <>
constexpr u32 result_code(decltype(nullptr))
{
	return 0;
}

/*
 * Reports from where it stands: the file, the function and the line. Code that
 * functions share reports in the name of the one that it works for. The call
 * that is never made lets the compiler compare the format with the arguments.
 */
#define ZORVA_REPORT_IN(level, func, format, ...)                              \
	do {                                                                   \
		static constexpr debug_message message = {                     \
			{ ZORVA_FILE, func, __LINE__ }, level, format          \
		};                                                             \
		zorva_debug_message(&message, ##__VA_ARGS__);                  \
		if (false)                                                     \
			zorva_debug_print(level, ZORVA_FILE, func, __LINE__,   \
					  format, ##__VA_ARGS__);              \
	} while (0)
#define ZORVA_ERROR_IN(func, ...)                                              \
	ZORVA_REPORT_IN(ZORVA_LEVEL_ERROR, func, __VA_ARGS__)
#define ZORVA_ERROR(...) ZORVA_ERROR_IN(__func__, __VA_ARGS__)
#define ZORVA_INFO(...) ZORVA_REPORT_IN(ZORVA_LEVEL_INFO, __func__, __VA_ARGS__)

/*
 * Tests one argument of an exported function, which returns the second
 * argument when the test fails. Each stands on a line of its own, so the line
 * in the report tells which argument was wrong.
 */
#define ZORVA_CHECK_IN(func, condition, result)                                \
	do {                                                                   \
		if (unlikely(!(condition))) {                                  \
			static constexpr debug_refusal refusal = {             \
				{ ZORVA_FILE, func, __LINE__ },                \
				result_code(result)                            \
			};                                                     \
			return refused{ zorva_debug_refuse(&refusal) };        \
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
