/* SPDX-License-Identifier: GPL-2.0 */
/* Scopes that hold a lock of the kernel. */
#ifndef ZORVA_GUARD_H
#define ZORVA_GUARD_H

#include "zk_inline.h"

/*
 * Holds a spin lock with local interrupts off for as long as it lives.
 * Nothing that can sleep may be called under one.
 */
class irq_spin_guard {
public:
	[[nodiscard,
	  gnu::always_inline]] explicit irq_spin_guard(spinlock_t &lock)
		: lock_(lock), flags_(lock_irqsave(lock))
	{
	}
	[[gnu::always_inline]] ~irq_spin_guard()
	{
		unlock_irqrestore(lock_, flags_);
	}
	irq_spin_guard(const irq_spin_guard &) = delete;
	irq_spin_guard &operator=(const irq_spin_guard &) = delete;

private:
	spinlock_t &lock_;
	const unsigned long flags_;
};

/*
 * The same for what tasks alone write, and only where another one may come in
 * between: elsewhere there is nothing to hold.
 */
class interleave_guard {
public:
	[[nodiscard]] explicit interleave_guard(spinlock_t &lock)
		: lock_(lock),
		  flags_(zk_interleaves() ? zk_spin_lock_irqsave(&lock) : 0)
	{
	}
	~interleave_guard()
	{
		if (zk_interleaves())
			zk_spin_unlock_irqrestore(&lock_, flags_);
	}
	interleave_guard(const interleave_guard &) = delete;
	interleave_guard &operator=(const interleave_guard &) = delete;

private:
	spinlock_t &lock_;
	const unsigned long flags_;
};

/* Holds a semaphore of count 1 that serves as a sleeping lock. */
class sema_guard {
public:
	[[nodiscard, gnu::always_inline]] explicit sema_guard(semaphore &lock)
		: lock_(lock)
	{
		down(&lock_);
	}
	[[gnu::always_inline]] ~sema_guard()
	{
		up(&lock_);
	}
	sema_guard(const sema_guard &) = delete;
	sema_guard &operator=(const sema_guard &) = delete;

private:
	semaphore &lock_;
};

/* Holds a mutex of the kernel. */
class mutex_guard {
public:
	[[nodiscard,
	  gnu::always_inline]] explicit mutex_guard(struct mutex &lock)
		: lock_(lock)
	{
		zk_mutex_lock(&lock_);
	}
	[[gnu::always_inline]] ~mutex_guard()
	{
		mutex_unlock(&lock_);
	}
	mutex_guard(const mutex_guard &) = delete;
	mutex_guard &operator=(const mutex_guard &) = delete;

private:
	struct mutex &lock_;
};

#endif
