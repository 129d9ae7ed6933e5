// SPDX-License-Identifier: GPL-2.0
/*
 * Atomic counters. The compiler makes one load-linked/store-conditional loop
 * of each change, without a barrier; there is no lock.
 */
#include "zorva_atomic.h"
#include "zorva_debug.h"

u32 zorva_atomic_inc(zorva_atomic_t *counter)
{
	ZORVA_CHECK(counter, ZORVA_RC_NULL_ARG);

	atomic_add(*counter, 1);
	return ZORVA_RC_OK;
}

s32 zorva_atomic_add_return(s32 amount, zorva_atomic_t *counter)
{
	ZORVA_CHECK(counter, ZORVA_RC_NULL_ARG);

	return atomic_add(*counter, amount);
}

u32 zorva_atomic_set(zorva_atomic_t *counter, s32 value)
{
	ZORVA_CHECK(counter, ZORVA_RC_NULL_ARG);

	atomic_set(*counter, value);
	return ZORVA_RC_OK;
}

s32 zorva_atomic_dec_return(zorva_atomic_t *counter)
{
	ZORVA_CHECK(counter, ZORVA_RC_NULL_ARG);

	return atomic_add(*counter, -1);
}

s32 zorva_atomic_sub_return(s32 amount, zorva_atomic_t *counter)
{
	ZORVA_CHECK(counter, ZORVA_RC_NULL_ARG);

	return atomic_add(*counter, -amount);
}

s32 zorva_atomic_read(const zorva_atomic_t *counter)
{
	ZORVA_CHECK(counter, ZORVA_RC_NULL_ARG);

	return atomic_read(*counter);
}
