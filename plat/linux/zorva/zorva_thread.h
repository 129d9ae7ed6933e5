/* SPDX-License-Identifier: GPL-2.0 */
/* The list of threads and its report. */
#ifndef ZORVA_THREAD_PRIVATE_H
#define ZORVA_THREAD_PRIVATE_H

#include "zk.h"
#include "zorva/thread.h"

/* The exit code of a thread that was told to end. */
inline constexpr s32 exit_code_killed = 1;

extern "C" {

/* What a new thread runs; its argument is the thread's record. */
int _zorva_thread_wrapper(void *argument);

/* Prints all threads, newest first; returns 0. */
int zorva_thread_dump(struct seq_file *seq);
}

#endif
