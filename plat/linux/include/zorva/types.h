/* SPDX-License-Identifier: GPL-2.0 */
/* What every other header here uses: integers, result codes, call sites. */
#ifndef ZORVA_TYPES_H
#define ZORVA_TYPES_H

#if defined(__KERNEL__) && !defined(__cplusplus)
#include <linux/types.h>
#else
typedef unsigned char u8;
typedef unsigned int u32;
typedef int s32;
typedef unsigned long long u64;
typedef long long s64;
#endif

/* Success. */
#define ZORVA_RC_OK 0x00000000u
/* The component ID is 0 or not below ZORVA_COMPONENTS. */
#define ZORVA_RC_BAD_COMPONENT 0x70000002u
/*
 * No object with the given PID, ID or node is registered; but for a wait
 * module that is ZORVA_RC_FAIL.
 */
#define ZORVA_RC_NOT_FOUND 0x7000000Eu
/* A required number is 0, or a list's marker does not match. */
#define ZORVA_RC_BAD_VALUE 0x70000015u
/*
 * A semaphore take, and so a queue send or receive, or an event wait, ran out
 * of time.
 */
#define ZORVA_RC_TIMEOUT 0x7000002Au
/* A required pointer is null. */
#define ZORVA_RC_NULL_ARG 0x7E000015u
/*
 * Any other failure: no unit free for a zero timeout, limit reached, no memory,
 * object busy, kernel refused.
 */
#define ZORVA_RC_FAIL 0xFFFFFFFFu

/*
 * The basename of the file that is being compiled, known to the compiler:
 * what every macro without the suffix _track passes as the caller's file.
 */
#ifdef __FILE_NAME__
#define ZORVA_FILE __FILE_NAME__
#else
#define ZORVA_FILE (__builtin_strrchr("/" __FILE__, '/') + 1)
#endif

#endif
