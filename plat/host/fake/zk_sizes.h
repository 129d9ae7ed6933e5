/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The target's sizes, alignments and constants, so that records which embed
 * structures of the kernel have on the host the size that they have there, as
 * 32-bit code. As 64-bit code they grow with the pointers in them.
 *
 * The guard is that of the header which the module's own build generates: this
 * one is included first, by the compiler's -include, and wins over a generated
 * one that lies beside the sources.
 */
#ifndef __ZORVA_ZK_SIZES_H__
/* NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp) */
#define __ZORVA_ZK_SIZES_H__

#define ZK_LINUX_VERSION 0x050adf

/* What the target does not have, and tests may let the kernel have. */
#ifdef __cplusplus
/* NOLINTNEXTLINE(bugprone-dynamic-static-initializers) */
extern bool fake_smp, fake_preemption;
#endif
#define ZK_SMP fake_smp
#define ZK_PREEMPTION fake_preemption
#define ZK_KASAN 0

#define ZK_GFP_ATOMIC 0xa20
#define ZK_GFP_KERNEL 0xcc0
#define ZK_GFP_ZERO 0x100
#define ZK_TK_OFFS_BOOT 1
#define ZK_PAGE_SIZE 4096
#define ZK_INITIAL_JIFFIES (-30000) /* 100 ticks a second */
#define ZK_HRTIMER_MODE_REL 1
#define ZK_TASK_INTERRUPTIBLE 1
#define ZK_TASK_COMM_LEN 16

#define ZK_SIZEOF_SPINLOCK 0
#define ZK_ALIGNOF_SPINLOCK 1
#define ZK_SIZEOF_LIST_HEAD (2 * __SIZEOF_POINTER__)
#define ZK_ALIGNOF_LIST_HEAD __SIZEOF_POINTER__
#define ZK_SIZEOF_MUTEX (3 * __SIZEOF_POINTER__)
#define ZK_ALIGNOF_MUTEX __SIZEOF_POINTER__
#define ZK_SIZEOF_SEMAPHORE (3 * __SIZEOF_POINTER__)
#define ZK_ALIGNOF_SEMAPHORE __SIZEOF_POINTER__
#define ZK_SIZEOF_WAIT_QUEUE_HEAD (2 * __SIZEOF_POINTER__)
#define ZK_ALIGNOF_WAIT_QUEUE_HEAD __SIZEOF_POINTER__
#define ZK_SIZEOF_WAIT_QUEUE_ENTRY (3 * __SIZEOF_POINTER__ + 8)
#define ZK_ALIGNOF_WAIT_QUEUE_ENTRY __SIZEOF_POINTER__
#define ZK_SIZEOF_TIMER_LIST (5 * __SIZEOF_POINTER__)
#define ZK_ALIGNOF_TIMER_LIST __SIZEOF_POINTER__
#define ZK_SIZEOF_HRTIMER (2 * __SIZEOF_POINTER__ + 40)
#define ZK_ALIGNOF_HRTIMER 8
#define ZK_SIZEOF_NOTIFIER_BLOCK (3 * __SIZEOF_POINTER__)
#define ZK_ALIGNOF_NOTIFIER_BLOCK __SIZEOF_POINTER__
#define ZK_SIZEOF_LOCK_CLASS_KEY 0
#define ZK_ALIGNOF_LOCK_CLASS_KEY 1

#endif
