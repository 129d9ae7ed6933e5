/* SPDX-License-Identifier: GPL-2.0 */
/* Scopes that hold a lock of the kernel. */
#ifndef ZORVA_GUARD_H
#define ZORVA_GUARD_H

#include "zk.h"

/*
 * Holds a spin lock with local interrupts off for as long as it lives.
 * Nothing that can sleep may be called under one.
 */
class irq_spin_guard {
public:
	[[nodiscard]] explicit irq_spin_guard(spinlock_t &lock)
		: lock_(lock), flags_(zk_spin_lock_irqsave(&lock))
	{
	}
	~irq_spin_guard()
	{
		zk_spin_unlock_irqrestore(&lock_, flags_);
	}
	irq_spin_guard(const irq_spin_guard &) = delete;
	irq_spin_guard &operator=(const irq_spin_guard &) = delete;

private:
	spinlock_t &lock_;
	const unsigned long flags_;
};

#endif
