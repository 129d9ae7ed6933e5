/* SPDX-License-Identifier: GPL-2.0 */
/* Tracked blocks, their accounts and their reports. */
#ifndef ZORVA_MEM_PRIVATE_H
#define ZORVA_MEM_PRIVATE_H

#include "zk.h"
#include "zorva/components.h"
#include "zorva/mem.h"

/*
 * The header of a block. The caller's bytes follow it, rounded up to a
 * multiple of 4, and then the guard.
 */
struct zorva_mem_block_hdr_t {
	u32 startMagic;		     /* alive or freed */
	u32 size;		     /* bytes asked for */
	u32 magic;		     /* written once, never changed */
	u32 compId;		     /* the owner */
	u32 line;		     /* the caller's */
	u32 allocTime;		     /* seconds since boot */
	u32 inUse;		     /* 1 while alive, then 0 */
	char file[16];		     /* the caller's, at most 14 characters */
	zorva_mem_block_hdr_t *prev; /* the next newer block */
	zorva_mem_block_hdr_t *next; /* the next older block */
};

using block_header = zorva_mem_block_hdr_t;

static_assert(sizeof(void *) != 4 || sizeof(block_header) == 52,
	      "the size of the header is part of the interface");

inline constexpr u32 start_alive = 0xAAAAAAAA;
inline constexpr u32 guard_magic = 0xBBBBBBBB;

constexpr u32 rounded(u32 size)
{
	return (size + 3) & ~3u;
}

inline char *user_area(block_header *block)
{
	return reinterpret_cast<char *>(block + 1);
}

/*
 * A damaged size makes the guard be looked for wherever it points, which is
 * meant so.
 */
inline u32 *guard_of(block_header *block)
{
	return reinterpret_cast<u32 *>(user_area(block) + rounded(block->size));
}

/* What a component has; only live blocks count in currUsage. */
struct zorva_mem_usage_t {
	u32 currUsage;	/* bytes asked for */
	u32 maxUsage;	/* the highest currUsage so far */
	u32 allocCount; /* allocations that succeeded */
	u32 freeCount;	/* frees that were completed */
};

extern "C" {

/* Both are guarded by _mallocMemLck. */
extern zorva_mem_block_hdr_t *_pZorvaMallocMemList;
extern zorva_mem_usage_t _zorvaMallocMemUsage[ZORVA_COMPONENTS];

/* The component that the detailed report is narrowed to; empty for all. */
extern char _targetComp[16];

/* Print the reports; return 0. */
int zorva_mem_dump(struct seq_file *seq);
int zorva_mem_dump_detail(struct seq_file *seq);

/* Sets the filter, or clears it for "all" and for an empty text. */
void zorva_mem_write_detail(const char *text);
}

#endif
