/* SPDX-License-Identifier: GPL-2.0 */
/* What a component owns at this moment, and what was allocated last. */
#ifndef ZORVA_ACCOUNT_H
#define ZORVA_ACCOUNT_H

#include <linux/kernel.h>

#include "zorva_test.h"

struct zt_account {
	u32 bytes;
	u32 blocks;
};

/* A component that owns nothing has no line in the usage table. */
static inline struct zt_account zt_account_of(struct kunit *test, u32 comp)
{
	struct zt_account account = {};
	u32 max, allocs, frees;

	if (sscanf(zt_mem_row(test, comp), "%*s %u %u %u %u", &account.bytes,
		   &max, &allocs, &frees) == 4)
		account.blocks = allocs - frees;
	return account;
}

/* Compares what a component owns now with what it owned, and what came. */
#define ZT_EXPECT_GROWTH(test, comp, before, more_bytes, more_blocks)          \
	do {                                                                   \
		const struct zt_account now_ = zt_account_of(test, comp);      \
                                                                               \
		KUNIT_EXPECT_EQ(test, now_.bytes,                              \
				(before).bytes + (u32)(more_bytes));           \
		KUNIT_EXPECT_EQ(test, now_.blocks,                             \
				(before).blocks + (u32)(more_blocks));         \
	} while (0)

/* The youngest of all live blocks, found by way of one that is younger. */
static inline struct zt_block *zt_newest_block(struct kunit *test)
{
	void *probe = zorva_malloc(ZT_PROBE_COMPONENT, 1);
	struct zt_block *newest;

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, probe);
	newest = zt_block_of(probe)->older;
	zorva_free(ZT_PROBE_COMPONENT, probe);
	return newest;
}

/*
 * A report of the allocator, of which only the line is not known: this much
 * could not be had for this file.
 */
static inline void zt_expect_no_memory(struct kunit *test, unsigned int index,
				       u32 size, const char *file)
{
	const struct zt_report *report = zt_report(test, index);
	const char *line = strrchr(report->text, ':');

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, line);
	KUNIT_EXPECT_STREQ(test, (const char *)report->func,
			   "zorva_malloc_track");
	KUNIT_EXPECT_GT(test, simple_strtoul(line + 1, NULL, 10), 0ul);
	ZT_EXPECT_TEXT(test, report->text,
		       "Memory allocation failed: %u bytes (%s%s", size, file,
		       line);
}

#endif
