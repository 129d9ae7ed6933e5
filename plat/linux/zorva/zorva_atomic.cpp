// SPDX-License-Identifier: GPL-2.0
/*
 * Atomic counters. The compiler makes one load-linked/store-conditional loop
 * of each change, without a barrier; there is no lock.
 */
#include "zorva_util.h"
#include "zorva/atomic.h"

u32 zorva_atomic_inc(zorva_atomic_t *counter)
{
	ZORVA_CHECK(counter, ZORVA_RC_NULL_ARG);

	__atomic_fetch_add(&counter->counter, 1, __ATOMIC_RELAXED);
	return ZORVA_RC_OK;
}

s32 zorva_atomic_add_return(s32 amount, zorva_atomic_t *counter)
{
	ZORVA_CHECK(counter, ZORVA_RC_NULL_ARG);

	return __atomic_add_fetch(&counter->counter, amount, __ATOMIC_RELAXED);
}

u32 zorva_atomic_set(zorva_atomic_t *counter, s32 value)
{
	ZORVA_CHECK(counter, ZORVA_RC_NULL_ARG);

	__atomic_store_n(&counter->counter, value, __ATOMIC_RELAXED);
	return ZORVA_RC_OK;
}

s32 zorva_atomic_dec_return(zorva_atomic_t *counter)
{
	ZORVA_CHECK(counter, ZORVA_RC_NULL_ARG);

	return __atomic_sub_fetch(&counter->counter, 1, __ATOMIC_RELAXED);
}

s32 zorva_atomic_sub_return(s32 amount, zorva_atomic_t *counter)
{
	ZORVA_CHECK(counter, ZORVA_RC_NULL_ARG);

	return __atomic_sub_fetch(&counter->counter, amount, __ATOMIC_RELAXED);
}

s32 zorva_atomic_read(const zorva_atomic_t *counter)
{
	ZORVA_CHECK(counter, ZORVA_RC_NULL_ARG);

	return __atomic_load_n(&counter->counter, __ATOMIC_RELAXED);
}
