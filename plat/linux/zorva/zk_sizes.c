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

/* What zk_inline.h does as the kernel does it. */
static void in_line(void)
{
#ifdef CONFIG_MIPS
	OFFSET(ZK_OFFSETOF_THREAD_INFO_TASK, thread_info, task);
	OFFSET(ZK_OFFSETOF_THREAD_INFO_FLAGS, thread_info, flags);
	OFFSET(ZK_OFFSETOF_THREAD_INFO_PREEMPT_COUNT, thread_info,
	       preempt_count);
	OFFSET(ZK_OFFSETOF_TASK_PID, task_struct, pid);
	OFFSET(ZK_OFFSETOF_TASK_COMM, task_struct, comm);
	DEFINE(ZK_TIF_SIGPENDING, _TIF_SIGPENDING);
	DEFINE(ZK_PID_NS, IS_ENABLED(CONFIG_PID_NS));
	DEFINE(ZK_PREEMPT_RT, IS_ENABLED(CONFIG_PREEMPT_RT));
	/* All that it takes to hold a spin lock: no counts, no checks. */
	DEFINE(ZK_LOCK_IS_DI, IS_ENABLED(CONFIG_CPU_HAS_DIEI) &&
				      IS_ENABLED(CONFIG_IRQ_MIPS_CPU) &&
				      !IS_ENABLED(CONFIG_CPU_LOONGSON64) &&
				      !IS_ENABLED(CONFIG_CPU_LOONGSON32) &&
				      !IS_ENABLED(CONFIG_SMP) &&
				      !IS_ENABLED(CONFIG_PREEMPT_COUNT) &&
				      !IS_ENABLED(CONFIG_PREEMPT_RT) &&
				      !IS_ENABLED(CONFIG_DEBUG_SPINLOCK) &&
				      !IS_ENABLED(CONFIG_DEBUG_IRQFLAGS) &&
				      !IS_ENABLED(CONFIG_TRACE_IRQFLAGS));
#endif
}

int main(void)
{
	DEFINE(ZK_LINUX_VERSION, LINUX_VERSION_CODE);
	DEFINE(ZK_GFP_ATOMIC, (__force unsigned int)GFP_ATOMIC);
	DEFINE(ZK_GFP_KERNEL, (__force unsigned int)GFP_KERNEL);
	DEFINE(ZK_GFP_ZERO, (__force unsigned int)__GFP_ZERO);
	DEFINE(ZK_TK_OFFS_BOOT, TK_OFFS_BOOT);
	DEFINE(ZK_SMP, IS_ENABLED(CONFIG_SMP));
	DEFINE(ZK_PREEMPTION, IS_ENABLED(CONFIG_PREEMPTION));
	DEFINE(ZK_KASAN, IS_ENABLED(CONFIG_KASAN));
	DEFINE(ZK_PAGE_SIZE, PAGE_SIZE);
	DEFINE(ZK_INITIAL_JIFFIES, INITIAL_JIFFIES);
	DEFINE(ZK_HRTIMER_MODE_REL, HRTIMER_MODE_REL);
	DEFINE(ZK_TASK_INTERRUPTIBLE, TASK_INTERRUPTIBLE);
	DEFINE(ZK_TASK_COMM_LEN, TASK_COMM_LEN);
	in_line();
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
