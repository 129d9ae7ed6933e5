/* SPDX-License-Identifier: GPL-2.0 */
/*
 * How a module sees its threads off. This one is no call into zorva: it is
 * compiled into the module, whose C sources have it; C++ has it from there.
 */
#ifndef ZORVA_THREAD_WAIT_H
#define ZORVA_THREAD_WAIT_H

#include "time.h"

#if defined(__KERNEL__) && !defined(__cplusplus)

#include <linux/pid.h>
#include <linux/rcupdate.h>

/* How long it sleeps between two looks, in microseconds. */
#define ZORVA_THREAD_LOOK_USECS 10000u

/**
 * zorva_thread_wait() - waits until a thread has ended
 * @pid: the PID that zorva_thread_create_track() gave; 0 for none
 *
 * A thread that was told to end still runs until it notices, and its code must
 * stay for as long: before a module goes, all its threads have to be gone. To
 * be called for a thread that ends because its owner has just said so; the PID
 * of one that ended long ago may be somebody else's.
 *
 * The wait has no limit. A thread that was not told to end, or that waits for
 * something that does not come, is waited for for ever.
 *
 * Context: Thread, but not the thread that is waited for; sleeps.
 */
static inline void zorva_thread_wait(u32 pid)
{
	struct pid *const id = find_get_pid((pid_t)pid);
	int gone;

	for (;;) {
		rcu_read_lock();
		gone = !pid_task(id, PIDTYPE_PID);
		rcu_read_unlock();
		if (gone)
			break;
		zorva_time_usleep(ZORVA_THREAD_LOOK_USECS);
	}
	put_pid(id);
}

#elif !defined(__KERNEL__) && defined(__has_include)

/* The library for the developer's machine has one that asks its own kernel. */
#if __has_include("host_thread.h")
#include "host_thread.h"
#endif

#endif

#endif
