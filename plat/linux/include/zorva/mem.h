/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Tracked memory: every block carries its owner, the place and the time of its
 * allocation, and a guard behind its last byte.
 *
 * All calls may be made from any context, hard interrupt included, and with
 * spin locks held: they never sleep. The list is guarded by a spin lock.
 */
#ifndef ZORVA_MEM_H
#define ZORVA_MEM_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * zorva_malloc_track() - allocates a zero-filled block
 * @compId: the owner, 1 to 56
 * @size: bytes, at least 1; the usable area is rounded up to a multiple of 4
 * @file: basename of the caller's source file, of which 14 characters are
 *        kept; may be null, and then shows as "(null)"
 * @line: the caller's line
 *
 * The block is aligned to 4 bytes. It costs 56 bytes more than the rounded
 * size, and both together are at most what the kernel's kmalloc gives: 4 MiB
 * on the target. A larger one fails with the report and, the first time, a
 * warning of the kernel's.
 *
 * Context: Any; does not sleep.
 * Return: The block, or null: "invalid parameter" was reported and nothing
 * done, or the kernel had no memory, which was reported with a stack dump.
 */
void *zorva_malloc_track(u32 compId, u32 size, const char *file, u32 line);
#define zorva_malloc(compId, size)                                             \
	zorva_malloc_track(compId, size, ZORVA_FILE, __LINE__)

/**
 * zorva_free_track() - frees a block
 * @compId: the caller, 1 to 56; need not be the owner, whose account it is
 * @ptr: the block; null is ignored
 * @file: basename of the caller's source file; may be null, and then shows as
 *        "(null)"
 * @line: the caller's line
 *
 * A @compId outside 1 to 56 is ignored silently: the block stays allocated. A
 * damaged header, a block already freed and a pointer that is no block are
 * reported with a stack dump, and nothing is freed. An overwritten guard is
 * reported with a stack dump, and the block is freed all the same.
 *
 * Context: Any; does not sleep.
 */
void zorva_free_track(u32 compId, void *ptr, const char *file, u32 line);
#define zorva_free(compId, ptr)                                                \
	zorva_free_track(compId, ptr, ZORVA_FILE, __LINE__)

/**
 * zorva_free_cleanup() - frees a block and forgets its address
 * @pptr: where the address of the block is kept; null, or null there, is
 *        ignored
 *
 * Sets the address to null when the block was freed. A block already freed, a
 * pointer that is no block and an overwritten guard are reported; then nothing
 * is freed and the address stays. No stack is dumped.
 *
 * Context: Any; does not sleep.
 */
void zorva_free_cleanup(void **pptr);

/**
 * zorva_mem_overhead_get() - tells the size of the header of a block
 *
 * Context: Any.
 * Return: 52 bytes on a 32-bit machine. The guard and the rounding are not
 * counted.
 */
u32 zorva_mem_overhead_get(void);

#ifdef __cplusplus
}
#endif

#endif
