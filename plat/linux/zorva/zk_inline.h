/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What the calls that are made most often ask the kernel for, in the few
 * instructions that it takes the kernel itself. A call of zk.c would take more
 * than twice as many, and have registers saved around it.
 *
 * The offsets come from the kernel's own headers, by way of zk_sizes.h, and
 * only where the kernel does no more than is done here: on MIPS, with one
 * processor, and without what checks or counts locks. Elsewhere it is the
 * functions of zk.c.
 */
#ifndef ZORVA_ZK_INLINE_H
#define ZORVA_ZK_INLINE_H

#include "zk.h"

#ifdef __mips__

/* The kernel keeps the calling task's thread_info here, as everywhere. */
register char *zk_thread_info __asm__("$28");

template <class T>
[[gnu::always_inline]] inline T zk_member(const void *structure, size_t offset)
{
	return *reinterpret_cast<const T *>(
		static_cast<const char *>(structure) + offset);
}

[[gnu::always_inline]] inline const char *zk_this_task()
{
	return zk_member<const char *>(zk_thread_info,
				       ZK_OFFSETOF_THREAD_INFO_TASK);
}

/* The calling task's PID. */
[[gnu::always_inline]] inline pid_t current_pid()
{
	return zk_member<pid_t>(zk_this_task(), ZK_OFFSETOF_TASK_PID);
}

/* As zk_in_interrupt(), which is asked where the answer may be yes. */
[[gnu::always_inline]] inline bool in_interrupt()
{
	return (ZK_PREEMPT_RT ||
		unlikely(
			zk_member<int>(zk_thread_info,
				       ZK_OFFSETOF_THREAD_INFO_PREEMPT_COUNT))) &&
	       zk_in_interrupt();
}

/* As zk_fatal_signal_pending(). */
[[gnu::always_inline]] inline bool fatal_signal_pending()
{
	return unlikely(
		       zk_member<unsigned long>(zk_thread_info,
						ZK_OFFSETOF_THREAD_INFO_FLAGS) &
		       ZK_TIF_SIGPENDING) &&
	       zk_fatal_signal_pending();
}

/*
 * As zk_comm_of_pid(current_pid(), comm), with room that is aligned to a word.
 */
[[gnu::always_inline]] inline bool comm_of_this_task(char *comm)
{
	if (ZK_PID_NS)
		return zk_comm_of_pid(current_pid(), comm);

	const char *const name = zk_this_task() + ZK_OFFSETOF_TASK_COMM;
	constexpr size_t alignment =
		ZK_OFFSETOF_TASK_COMM % sizeof(u32) ? 1 : sizeof(u32);

	__builtin_memcpy(__builtin_assume_aligned(comm, sizeof(u32)),
			 __builtin_assume_aligned(name, alignment),
			 ZK_TASK_COMM_LEN);
	return true;
}

/* As zk_add_timer(). */
[[gnu::always_inline]] inline void add_timer(struct timer_list *timer,
					     unsigned long ticks)
{
	mod_timer(timer, jiffies + ticks);
}

#else

inline pid_t current_pid()
{
	return zk_current_pid();
}

inline bool in_interrupt()
{
	return zk_in_interrupt();
}

inline bool fatal_signal_pending()
{
	return zk_fatal_signal_pending();
}

inline bool comm_of_this_task(char *comm)
{
	return zk_comm_of_pid(zk_current_pid(), comm);
}

inline void add_timer(struct timer_list *timer, unsigned long ticks)
{
	zk_add_timer(timer, ticks);
}

#endif

#if defined(__mips__) && ZK_LOCK_IS_DI

/* A spin lock is nothing here but that no interrupt comes. */
[[gnu::always_inline]] inline unsigned long lock_irqsave(spinlock_t &)
{
	unsigned long flags;

	__asm__ inline volatile("di	%0\n"
				"	andi	%0, 1\n"
				"	ehb"
				: "=r"(flags)
				:
				: "memory");
	return flags;
}

[[gnu::always_inline]] inline void unlock_irqrestore(spinlock_t &,
						     unsigned long flags)
{
	__asm__ inline volatile(".set	push\n"
				"	.set	noreorder\n"
				"	beqz	%0, 1f\n"
				"	di\n"
				"	ei\n"
				"1:	ehb\n"
				"	.set	pop"
				:
				: "r"(flags)
				: "memory");
}

#else

inline unsigned long lock_irqsave(spinlock_t &lock)
{
	return zk_spin_lock_irqsave(&lock);
}

inline void unlock_irqrestore(spinlock_t &lock, unsigned long flags)
{
	zk_spin_unlock_irqrestore(&lock, flags);
}

#endif

#endif
