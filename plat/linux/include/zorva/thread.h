/* SPDX-License-Identifier: GPL-2.0 */
/* Kernel threads that carry their owner, a name and a priority. */
#ifndef ZORVA_THREAD_H
#define ZORVA_THREAD_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * zorva_thread_create_track() - starts a thread
 * @compId: the owner, 1 to 56
 * @name: its name, of which 31 characters are kept and 15 become the task's
 *        command name; null for the owner's short name, a dash and @line
 * @stackSize: not used; 0x7FFFFFFF is refused
 * @priority: 30 for round-robin scheduling at real-time priority 90; any other
 *            value from 0 to 255 becomes the nice value
 *            priority * 39 / 255 - 20. Negative values are let through; below
 *            -6 the nice value leaves its range, and the kernel ignores it.
 *            Values above 255 are refused.
 * @entry: what the thread runs
 * @argument: what @entry is given
 * @file: basename of the caller's source file
 * @line: the caller's line
 *
 * The thread ends when @entry returns or when it calls
 * zorva_thread_exit_track(). A thread that ends in any other way stays in the
 * list. When its scheduling cannot be set, that is reported and the thread
 * runs all the same. It is listed before this call returns; if @entry is
 * short, it may also have ended by then.
 *
 * Once it has left the list, /proc/zorva/zorva.thread, nothing of the firmware
 * runs in it but the debug-print function, on any processor: the module that
 * @entry belongs to may be unloaded. This module runs in it until its PID is
 * gone, too, and must not be unloaded before.
 *
 * Linux 5.10 answers with an error pointer when it cannot make the thread, or
 * when the caller is killed while it waits for it. That is not tested for, and
 * the kernel oopses: do not create threads from one that was told to end.
 *
 * Context: Thread; sleeps until the new thread runs.
 * Return: The PID of the thread, or 0: "invalid parameter" was reported, or
 * that there was no memory for its record, or no thread (a null from the
 * kernel); then nothing was started.
 */
u32 zorva_thread_create_track(u32 compId, const char *name, u32 stackSize,
			      s32 priority, void (*entry)(void *argument),
			      void *argument, const char *file, u32 line);
#define zorva_thread_create(compId, name, stackSize, priority, entry,          \
			    argument)                                          \
	zorva_thread_create_track(compId, name, stackSize, priority, entry,    \
				  argument, ZORVA_FILE, __LINE__)

/**
 * zorva_thread_destroy_track() - tells a thread to end
 * @compId: the caller, 1 to 56
 * @pid: the PID of the thread
 * @file: basename of the caller's source file
 * @line: the caller's line
 *
 * Sends SIGKILL and returns; the thread stays listed until it ends by itself.
 * It does so from inside a semaphore take or give, and so from inside a
 * queue's or an event's call, a sleep in seconds, or a sleep of 10 ms and
 * more: mutexes that it holds stay locked, and what it allocated stays
 * allocated. Elsewhere its entry function has to notice the signal; but
 * zorva_wait_event_track() discards it, and so a destruction during such a
 * wait is lost, unless the wait is woken before the thread has run again. It
 * may be running on another processor when this call returns, and has ended
 * when it is gone from the list. On
 * Linux 5.10 a second SIGKILL to a thread that has outlived the first is no
 * longer seen as fatal.
 *
 * Context: Thread.
 * Return: %ZORVA_RC_OK: the signal was sent. %ZORVA_RC_BAD_COMPONENT,
 * %ZORVA_RC_BAD_VALUE (@pid is 0) or %ZORVA_RC_NULL_ARG (@file is null):
 * reported, nothing done. %ZORVA_RC_NOT_FOUND: no thread of this module has
 * that PID; reported.
 */
u32 zorva_thread_destroy_track(u32 compId, u32 pid, const char *file, u32 line);
#define zorva_thread_destroy(compId, pid)                                      \
	zorva_thread_destroy_track(compId, pid, ZORVA_FILE, __LINE__)

/**
 * zorva_thread_exit_track() - ends the calling thread
 * @compId: the caller, 1 to 56
 * @exitCode: the thread's exit code
 * @file: basename of the caller's source file
 * @line: the caller's line
 *
 * Context: A thread made by zorva_thread_create_track(), holding no lock.
 * Return: Not at all on success. %ZORVA_RC_BAD_COMPONENT or
 * %ZORVA_RC_NULL_ARG (@file is null): reported, nothing done.
 * %ZORVA_RC_NOT_FOUND: the caller is no thread of this module; reported.
 */
u32 zorva_thread_exit_track(u32 compId, s32 exitCode, const char *file,
			    u32 line);
#define zorva_thread_exit(compId, exitCode)                                    \
	zorva_thread_exit_track(compId, exitCode, ZORVA_FILE, __LINE__)

#ifdef __cplusplus
}
#endif

#endif
