/* SPDX-License-Identifier: GPL-2.0 */
/* The counters' operations, for callers in the module: no argument checks. */
#ifndef ZORVA_ATOMIC_PRIVATE_H
#define ZORVA_ATOMIC_PRIVATE_H

#include "zk.h"
#include "zorva/atomic.h"

inline s32 atomic_add(zorva_atomic_t &counter, s32 amount)
{
	return __atomic_add_fetch(&counter.counter, amount, __ATOMIC_RELAXED);
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
