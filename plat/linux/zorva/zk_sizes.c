// SPDX-License-Identifier: GPL-2.0
/*
 * The kernel's sizes and constants, for C++ sources that cannot include its
 * headers. Compiled to assembly, from which Kbuild makes zk_sizes.h.
 */
#include <linux/gfp.h>
#include <linux/hrtimer.h>
#include <linux/jiffies.h>
#include <linux/kbuild.h>
#include <linux/list.h>
#include <linux/lockdep.h>
#include <linux/mutex.h>
#include <linux/notifier.h>
#include <linux/sched.h>
#include <linux/semaphore.h>
#include <linux/spinlock.h>
#include <linux/timekeeping.h>
#include <linux/timer.h>
#include <linux/version.h>
#include <linux/wait.h>

#define STRUCTURE(name, type)                                                  \
	DEFINE(ZK_SIZEOF_##name, sizeof(type));                                \
	DEFINE(ZK_ALIGNOF_##name, __alignof__(type))

int main(void)
{
	DEFINE(ZK_LINUX_VERSION, LINUX_VERSION_CODE);
	DEFINE(ZK_GFP_ATOMIC, (__force unsigned int)GFP_ATOMIC);
	DEFINE(ZK_GFP_KERNEL, (__force unsigned int)GFP_KERNEL);
	DEFINE(ZK_GFP_ZERO, (__force unsigned int)__GFP_ZERO);
	DEFINE(ZK_TK_OFFS_BOOT, TK_OFFS_BOOT);
	DEFINE(ZK_SMP, IS_ENABLED(CONFIG_SMP));
	DEFINE(ZK_PREEMPTION, IS_ENABLED(CONFIG_PREEMPTION));
	DEFINE(ZK_PAGE_SIZE, PAGE_SIZE);
	DEFINE(ZK_INITIAL_JIFFIES, INITIAL_JIFFIES);
	DEFINE(ZK_HRTIMER_MODE_REL, HRTIMER_MODE_REL);
	DEFINE(ZK_TASK_INTERRUPTIBLE, TASK_INTERRUPTIBLE);
	DEFINE(ZK_TASK_COMM_LEN, TASK_COMM_LEN);
	STRUCTURE(SPINLOCK, spinlock_t);
	STRUCTURE(MUTEX, struct mutex);
	STRUCTURE(SEMAPHORE, struct semaphore);
	STRUCTURE(LIST_HEAD, struct list_head);
	STRUCTURE(TIMER_LIST, struct timer_list);
	STRUCTURE(HRTIMER, struct hrtimer);
	STRUCTURE(WAIT_QUEUE_HEAD, struct wait_queue_head);
	STRUCTURE(WAIT_QUEUE_ENTRY, struct wait_queue_entry);
	STRUCTURE(NOTIFIER_BLOCK, struct notifier_block);
	STRUCTURE(LOCK_CLASS_KEY, struct lock_class_key);
	return 0;
}
