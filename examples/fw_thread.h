/* SPDX-License-Identifier: GPL-2.0 */
/* How the modules of the example firmware see their threads off. */
#ifndef FW_THREAD_H
#define FW_THREAD_H

#include <linux/pid.h>
#include <linux/rcupdate.h>

#include <zorva/zorva.h>

#define FW_THREAD_LOOK_USECS 10000u

/**
 * fw_thread_wait() - waits until a thread has ended
 * @pid: the PID that zorva_thread_create() gave; 0 for none
 *
 * A thread that was told to end still runs until it notices, and its code must
 * stay for as long: before a module goes, all its threads have to be gone. To
 * be called for a thread that ends because its owner has just said so; the PID
 * of one that ended long ago may be somebody else's.
 *
 * Context: Thread; sleeps.
 */
static inline void fw_thread_wait(u32 pid)
{
	struct pid *const id = find_get_pid(pid);
	bool gone;

	for (;;) {
		rcu_read_lock();
		gone = !pid_task(id, PIDTYPE_PID);
		rcu_read_unlock();
		if (gone)
			break;
		zorva_time_usleep(FW_THREAD_LOOK_USECS);
	}
	put_pid(id);
}

#endif
