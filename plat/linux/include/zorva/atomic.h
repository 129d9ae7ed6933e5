/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Counters that several contexts change at once, and the MD5 entry.
 *
 * All of these calls may be made in any context, hard interrupt included. The
 * changes are single atomic operations without any ordering: who publishes
 * other data through a counter needs barriers of his own.
 *
 * A null counter is reported, and every call then returns
 * %ZORVA_RC_NULL_ARG: from those that return a value this cannot be told from
 * a counter that holds 0x7E000015.
 */
#ifndef ZORVA_ATOMIC_H
#define ZORVA_ATOMIC_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The kernel's atomic integer. In C++ it has the same name there: a kernel may
 * compare the types of who calls through a pointer and of who is called.
 */
#if defined(__KERNEL__) && !defined(__cplusplus)
typedef atomic_t zorva_atomic_t;
#elif defined(__KERNEL__)
typedef struct {
	s32 counter;
} atomic_t;
typedef atomic_t zorva_atomic_t;
#else
typedef struct {
	s32 counter;
} zorva_atomic_t;
#endif

/**
 * zorva_atomic_inc() - adds 1
 * @counter: the counter
 *
 * Context: Any.
 * Return: %ZORVA_RC_OK, or %ZORVA_RC_NULL_ARG.
 */
u32 zorva_atomic_inc(zorva_atomic_t *counter);

/**
 * zorva_atomic_add_return() - adds an amount
 * @amount: what to add; comes first, unlike in zorva_atomic_set()
 * @counter: the counter
 *
 * Context: Any.
 * Return: The new value, or %ZORVA_RC_NULL_ARG.
 */
s32 zorva_atomic_add_return(s32 amount, zorva_atomic_t *counter);

/**
 * zorva_atomic_set() - stores a value
 * @counter: the counter
 * @value: what it holds then
 *
 * Context: Any.
 * Return: %ZORVA_RC_OK, or %ZORVA_RC_NULL_ARG.
 */
u32 zorva_atomic_set(zorva_atomic_t *counter, s32 value);

/**
 * zorva_atomic_dec_return() - subtracts 1
 * @counter: the counter
 *
 * Context: Any.
 * Return: The new value, or %ZORVA_RC_NULL_ARG.
 */
s32 zorva_atomic_dec_return(zorva_atomic_t *counter);

/**
 * zorva_atomic_sub_return() - subtracts an amount
 * @amount: what to subtract; comes first, unlike in zorva_atomic_set()
 * @counter: the counter
 *
 * Context: Any.
 * Return: The new value, or %ZORVA_RC_NULL_ARG.
 */
s32 zorva_atomic_sub_return(s32 amount, zorva_atomic_t *counter);

/**
 * zorva_atomic_read() - tells the value
 * @counter: the counter
 *
 * Context: Any.
 * Return: The value, or %ZORVA_RC_NULL_ARG.
 */
s32 zorva_atomic_read(const zorva_atomic_t *counter);

/**
 * zorva_md5_hash() - not implemented
 * @data: not read
 * @length: not read
 * @digest: not written
 *
 * Context: Any.
 * Return: %ZORVA_RC_FAIL always.
 */
u32 zorva_md5_hash(const void *data, u32 length, u8 *digest);

#ifdef __cplusplus
}
#endif

#endif
