/* SPDX-License-Identifier: GPL-2.0 */
/* Where the module's reports go: the firmware's debug-print function. */
#ifndef ZORVA_DEBUG_H
#define ZORVA_DEBUG_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The levels of reports: what went wrong, and what lives and dies. */
#define ZORVA_LEVEL_ERROR 1u
#define ZORVA_LEVEL_INFO 3u

/**
 * typedef sys_dbg_pr_fn_t - prints one report
 * @compId: always %ZORVA_COMPONENT_SELF, whatever component it concerns
 * @unit: always -1
 * @level: %ZORVA_LEVEL_ERROR or %ZORVA_LEVEL_INFO
 * @file: basename of the reporting source file
 * @func: name of the reporting function
 * @line: line of the report
 * @format: always "%s"
 *
 * The one argument behind @format is the text: at most 256 characters, no
 * newline at its end, valid until the function returns.
 *
 * Context: Any, hard interrupt included, and also with interrupts off and one
 * of the module's spin locks held: it must not sleep, and must call neither
 * the tracked allocator, nor zorva_proc_printf() towards the kernel log, which
 * allocates, nor timers, nor wait modules. A call of this module with a wrong
 * argument would report that in turn, without end.
 */
typedef void (*sys_dbg_pr_fn_t)(u32 compId, s32 unit, u32 level,
				const char *file, const char *func, s32 line,
				const char *format, ...);

/**
 * zorva_debug_pr_fn_register() - names the function that prints reports
 * @fn: the function; null leaves the place free
 *
 * The first function stays for as long as the module is loaded; later calls
 * change nothing. Until there is one, reports are lost. The code of @fn must
 * not go away before this module does.
 *
 * Of calls at the same time, one is the first. From its return on, and perhaps
 * before, @fn may be called on any processor, several times at once.
 *
 * Context: Any, meant for once at the firmware's start.
 * Return: %ZORVA_RC_OK always, also when @fn was ignored.
 */
u32 zorva_debug_pr_fn_register(sys_dbg_pr_fn_t fn);

#ifdef __cplusplus
}
#endif

#endif
