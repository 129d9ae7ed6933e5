/* SPDX-License-Identifier: GPL-2.0 */
/*
 * How a module sees its threads off, on the developer's machine: thread_wait.h
 * has what asks the kernel, and includes this where there is none.
 */
#ifndef ZORVA_HOST_THREAD_H
#define ZORVA_HOST_THREAD_H

#include <zorva/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * zorva_thread_wait() - waits until a thread has ended
 * @pid: the PID that zorva_thread_create_track() gave; 0 for none
 *
 * Looks every 10 ms. The wait has no limit: a thread that was not told to end,
 * or that waits for something that does not come, is waited for until
 * zorva_host_time_limit() fails the test.
 *
 * Context: Thread, but not the thread that is waited for; sleeps.
 */
void zorva_thread_wait(u32 pid);

#ifdef __cplusplus
}
#endif

#endif
