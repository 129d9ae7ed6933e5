/* SPDX-License-Identifier: GPL-2.0 */
/* The counters' operations, for callers in the module: no argument checks. */
#ifndef ZORVA_ATOMIC_PRIVATE_H
#define ZORVA_ATOMIC_PRIVATE_H

#include "zk.h"
#include "zorva/atomic.h"

/*
 * Returns the new value. On MIPS the compiler knows only the operation that
 * returns the old value without barriers around it, so it must not see that
 * another one would do.
 */
inline s32 atomic_add(zorva_atomic_t &counter, s32 amount)
{
	s32 old =
		__atomic_fetch_add(&counter.counter, amount, __ATOMIC_RELAXED);

	__asm__ volatile("" : "+r"(old));
	return old + amount;
}

inline void atomic_set(zorva_atomic_t &counter, s32 value)
{
	__atomic_store_n(&counter.counter, value, __ATOMIC_RELAXED);
}

inline s32 atomic_read(const zorva_atomic_t &counter)
{
	return __atomic_load_n(&counter.counter, __ATOMIC_RELAXED);
}

#endif
