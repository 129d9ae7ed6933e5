// SPDX-License-Identifier: GPL-2.0
/* Tracked blocks that nobody damages: their layout, list and accounts. */
#include <linux/module.h>
#include <linux/slab.h>
#include <linux/string.h>

#include "zorva_test.h"

/* Each of these has one test to itself, which sees its first block. */
enum {
	FIRST_BLOCK = ZT_MEM_COMPONENT,
	TO_THE_BYTE,
	HIGH_WATER,
	OWNER,
	ANOTHER,
	NOT_FREED,
	NEVER_WRAPS,
	REFUSED,
	SOMEBODY, /* for all tests that do not look at accounts */
};

/* The one report since the last were forgotten. */
#define EXPECT_MALLOC_ERROR(test, text, ...)                                   \
	ZT_EXPECT_REPORTS(test,                                                \
			  ZT_ERROR("zorva_mem.cpp", "zorva_malloc_track",      \
				   text),                                      \
			  ##__VA_ARGS__)

/*
 * The slab allocator writes its link into the middle of an object that was
 * freed. With this size the middle lies in the caller's bytes, so the header
 * of a freed block can be looked at until somebody else gets its memory.
 */
#define SIZE_WITH_LASTING_HEADER 80u

static void *allocate(struct kunit *test, u32 comp, u32 size)
{
	void *block = zorva_malloc_track(comp, size, "caller.c", 77);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, block);
	return block;
}

static void release(void *block)
{
	zorva_free_track(SOMEBODY, block, "caller.c", 78);
}

static void the_first_and_the_last_component_may_own(struct kunit *test)
{
	static const u32 comps[] = { 1, 56 };
	const u32 *comp;

	for (comp = comps; comp < comps + ARRAY_SIZE(comps); comp++) {
		void *block = allocate(test, *comp, 5);

		ZT_EXPECT_USAGE(test, *comp, 5u, 5u, 1u, 0u);
		zorva_free_track(*comp, block, "caller.c", 78);
		ZT_EXPECT_NO_USAGE(test, *comp);
	}
	ZT_EXPECT_NO_REPORTS(test);
}

static void nobody_else_may_own(struct kunit *test)
{
	static const u32 comps[] = { 0, 57, 58, 0x80000001, 0xFFFFFFFF };
	const u32 *comp;

	for (comp = comps; comp < comps + ARRAY_SIZE(comps); comp++) {
		zt_forget_reports();
		ZT_EXPECT_NULL(test,
			       zorva_malloc_track(*comp, 4, "caller.c", 77));
		EXPECT_MALLOC_ERROR(test, "invalid parameter");
	}
	KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 0u);
	ZT_EXPECT_FILE(test, "zorva.mem", ZT_MEM_HEAD);
}

static void a_block_of_no_size_is_refused(struct kunit *test)
{
	ZT_EXPECT_NULL(test, zorva_malloc_track(SOMEBODY, 0, "caller.c", 77));

	EXPECT_MALLOC_ERROR(test, "invalid parameter");
	KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 0u);
	ZT_EXPECT_NO_USAGE(test, SOMEBODY);
}

static void a_block_is_zero_up_to_its_guard(struct kunit *test)
{
	u32 size;

	for (size = 1; size <= 600; size++) {
		const u32 rounded = (size + 3) / 4 * 4;
		unsigned char *block = allocate(test, SOMEBODY, size);

		KUNIT_EXPECT_PTR_EQ_MSG(test, memchr_inv(block, 0, rounded),
					(void *)NULL, "size %u", size);
		KUNIT_EXPECT_EQ_MSG(test, *zt_guard_of(block, size), ZT_GUARD,
				    "size %u", size);

		/* The next size mostly gets the same memory, dirty. */
		memset(block, 0xff, rounded);
		release(block);
	}
	ZT_EXPECT_NO_REPORTS(test);
}

static void a_block_is_aligned_to_4(struct kunit *test)
{
	u32 size;

	for (size = 1; size <= 64; size++) {
		void *block = allocate(test, SOMEBODY, size);

		KUNIT_EXPECT_EQ(test, (u32)(uintptr_t)block % 4, 0u);
		release(block);
	}
}

static void a_block_has_its_whole_header(struct kunit *test)
{
	u32 before = zt_uptime_secs();
	struct zt_block *block = zt_block_of(
		zorva_malloc_track(SOMEBODY, 10, "caller.c", 0x89ABCDEF));

	KUNIT_EXPECT_EQ(test, block->start_magic, ZT_START_ALIVE);
	KUNIT_EXPECT_EQ(test, block->size, 10u);
	KUNIT_EXPECT_EQ(test, block->magic, ZT_BLOCK_MAGIC);
	KUNIT_EXPECT_EQ(test, block->comp, SOMEBODY + 0u);
	KUNIT_EXPECT_EQ(test, block->line, 0x89ABCDEFu);
	KUNIT_EXPECT_LE(test, block->alloc_time - before,
			zt_uptime_secs() - before);
	KUNIT_EXPECT_EQ(test, block->in_use, 1u);
	KUNIT_EXPECT_EQ(test,
			memcmp(block->file, "caller.c\0\0\0\0\0\0\0\0",
			       sizeof(block->file)),
			0);
	ZT_EXPECT_NULL(test, block->newer);

	release(block + 1);
}

static void the_header_is_the_overhead(struct kunit *test)
{
	KUNIT_EXPECT_EQ(test, zorva_mem_overhead_get(), ZT_HEADER_SIZE);
}

/* What a block needs beside its rounded size: the header and the guard. */
#define OVERHEAD (ZT_HEADER_SIZE + 4)

/* What the kernel's heap gave for a block that needs this many bytes. */
static size_t heap_bytes(struct kunit *test, u32 size)
{
	void *block = allocate(test, SOMEBODY, size);
	const size_t bytes = ksize(zt_block_of(block));

	release(block);
	return bytes;
}

static void a_block_costs_its_header_and_a_word_more(struct kunit *test)
{
	/* The last sizes that the heap's classes of 1024 and 4096 hold. */
	KUNIT_EXPECT_EQ(test, heap_bytes(test, 1024 - OVERHEAD), (size_t)1024);
	KUNIT_EXPECT_EQ(test, heap_bytes(test, 1024 - OVERHEAD + 1),
			(size_t)2048);
	KUNIT_EXPECT_EQ(test, heap_bytes(test, 4096 - OVERHEAD), (size_t)4096);
	KUNIT_EXPECT_EQ(test, heap_bytes(test, 4096 - OVERHEAD + 1),
			(size_t)8192);
	KUNIT_EXPECT_EQ(test, heap_bytes(test, 4096 - OVERHEAD - 3),
			(size_t)4096);
}

static void expect_file(struct kunit *test, const char *file, const char *want)
{
	struct zt_block *block =
		zt_block_of(zorva_malloc_track(SOMEBODY, 1, file, 77));

	KUNIT_EXPECT_STREQ(test, (const char *)block->file, want);
	ZT_EXPECT_NULL(test, memchr_inv(block->file + 14, 0, 2));
	release(block + 1);
}

static void at_most_14_characters_of_the_file_are_kept(struct kunit *test)
{
	expect_file(test, "", "");
	expect_file(test, "a", "a");
	expect_file(test, "fourteen_chars", "fourteen_chars");
	expect_file(test, "fifteen_chars_x", "fifteen_chars_");
	expect_file(test, "sixteen_chars_xy", "sixteen_chars_");
	expect_file(test, "a_name_of_20_chars.c", "a_name_of_20_c");
}

static void a_file_is_not_taken_for_a_format(struct kunit *test)
{
	expect_file(test, "%d%s%n.c", "%d%s%n.c");
}

static void no_file_is_shown_as_null(struct kunit *test)
{
	expect_file(test, NULL, "(null)");
	ZT_EXPECT_NO_REPORTS(test);
}

static void the_macros_pass_their_file_and_line(struct kunit *test)
{
	const u32 line = __LINE__ + 1;
	struct zt_block *block = zt_block_of(zorva_malloc(SOMEBODY, 4));

	KUNIT_EXPECT_STREQ(test, (const char *)block->file, "zorva_mem_test");
	KUNIT_EXPECT_EQ(test, block->line, line);
	zorva_free(SOMEBODY, block + 1);
}

static void the_newest_block_is_the_first(struct kunit *test)
{
	struct zt_block *a = zt_block_of(allocate(test, SOMEBODY, 4));
	struct zt_block *b = zt_block_of(allocate(test, ANOTHER, 400));
	struct zt_block *c = zt_block_of(allocate(test, SOMEBODY, 40));

	ZT_EXPECT_NULL(test, c->newer);
	KUNIT_EXPECT_PTR_EQ(test, c->older, b);
	KUNIT_EXPECT_PTR_EQ(test, b->newer, c);
	KUNIT_EXPECT_PTR_EQ(test, b->older, a);
	KUNIT_EXPECT_PTR_EQ(test, a->newer, b);
	ZT_EXPECT_NULL(test, a->older);

	release(a + 1);
	release(b + 1);
	release(c + 1);
}

/*
 * Frees one of three blocks: the others close up around it, whichever it is
 * and whichever way it goes.
 */
static void free_one_of_three(struct kunit *test, unsigned int which,
			      bool cleanup)
{
	struct zt_block *block[3], *older, *newer;
	struct zt_block *older_of_freed, *newer_of_freed;
	unsigned int i;
	void *user;

	for (i = 0; i < 3; i++)
		block[i] = zt_block_of(
			allocate(test, SOMEBODY, SIZE_WITH_LASTING_HEADER));
	older = which > 0 ? block[which - 1] : NULL;
	newer = which < 2 ? block[which + 1] : NULL;

	user = block[which] + 1;
	if (cleanup)
		zorva_free_cleanup(&user);
	else
		release(user);

	if (older)
		KUNIT_EXPECT_PTR_EQ(test, older->newer, newer);
	if (newer)
		KUNIT_EXPECT_PTR_EQ(test, newer->older, older);
	/* The block's own links stay as they were. */
	ZT_UNWATCHED(older_of_freed = block[which]->older,
		     newer_of_freed = block[which]->newer);
	KUNIT_EXPECT_PTR_EQ(test, older_of_freed, older);
	KUNIT_EXPECT_PTR_EQ(test, newer_of_freed, newer);

	for (i = 0; i < 3; i++)
		if (i != which)
			release(block[i] + 1);
}

static void the_list_closes_around_a_freed_block(struct kunit *test)
{
	unsigned int which;

	for (which = 0; which < 3; which++)
		free_one_of_three(test, which, false);
}

static void the_list_closes_around_a_block_cleaned_up(struct kunit *test)
{
	unsigned int which;

	for (which = 0; which < 3; which++)
		free_one_of_three(test, which, true);
}

static void expect_marked_as_freed(struct kunit *test,
				   const struct zt_block *block)
{
	struct zt_block freed;

	ZT_UNWATCHED(freed = *block);
	KUNIT_EXPECT_EQ(test, freed.in_use, 0u);
	if (ZT_KASAN) {
		kunit_info(test, "not looked at: what KASAN overwrites\n");
		return;
	}
	KUNIT_EXPECT_EQ(test, freed.start_magic, ZT_START_FREED);
	KUNIT_EXPECT_EQ(test, freed.magic, ZT_BLOCK_MAGIC);
	KUNIT_EXPECT_EQ(test, freed.size, SIZE_WITH_LASTING_HEADER);
	KUNIT_EXPECT_EQ(test, freed.comp, SOMEBODY + 0u);
}

static void a_freed_block_is_marked(struct kunit *test)
{
	void *block = allocate(test, SOMEBODY, SIZE_WITH_LASTING_HEADER);

	release(block);
	expect_marked_as_freed(test, zt_block_of(block));
}

static void a_block_cleaned_up_is_marked(struct kunit *test)
{
	void *block = allocate(test, SOMEBODY, SIZE_WITH_LASTING_HEADER);
	void *place = block;

	zorva_free_cleanup(&place);
	expect_marked_as_freed(test, zt_block_of(block));
}

static void cleaning_up_forgets_the_address(struct kunit *test)
{
	void *block = allocate(test, SOMEBODY, 10);

	zorva_free_cleanup(&block);

	ZT_EXPECT_NULL(test, block);
	ZT_EXPECT_NO_USAGE(test, SOMEBODY);
	ZT_EXPECT_NO_REPORTS(test);

	/* Which is what a second time finds. */
	zorva_free_cleanup(&block);
	ZT_EXPECT_NO_REPORTS(test);
}

/* The heap gives a freed block out again soon, though not always at once. */
static void expect_given_out_again(struct kunit *test, const void *block)
{
	static void *others[512];
	unsigned int count = 0;
	bool again = false;

	while (!again && count < ARRAY_SIZE(others)) {
		others[count] = allocate(test, SOMEBODY, 100);
		again = others[count++] == block;
	}
	while (count > 0)
		release(others[--count]);
	KUNIT_EXPECT_TRUE(test, again);
}

static void the_memory_goes_back_to_the_heap(struct kunit *test)
{
	void *block, *place;

	if (ZT_KASAN)
		ZT_SKIP(test, "KASAN keeps what is freed for long");
	block = allocate(test, SOMEBODY, 100);
	release(block);
	expect_given_out_again(test, block);

	block = allocate(test, SOMEBODY, 100);
	place = block;
	zorva_free_cleanup(&place);
	expect_given_out_again(test, block);
}

static void freeing_nothing_does_nothing(struct kunit *test)
{
	void *nothing = NULL;

	zorva_free_track(SOMEBODY, NULL, "caller.c", 78);
	zorva_free_track(0, NULL, "caller.c", 78);
	zorva_free_cleanup(NULL);
	zorva_free_cleanup(&nothing);

	ZT_EXPECT_NO_REPORTS(test);
	ZT_EXPECT_FILE(test, "zorva.mem", ZT_MEM_HEAD);
}

static void one_block_and_its_free_are_counted(struct kunit *test)
{
	void *block = allocate(test, FIRST_BLOCK, 10);

	ZT_EXPECT_USAGE(test, FIRST_BLOCK, 10u, 10u, 1u, 0u);
	release(block);
	ZT_EXPECT_NO_USAGE(test, FIRST_BLOCK);

	/* The account shows itself again beside a second block. */
	block = allocate(test, FIRST_BLOCK, 1);
	ZT_EXPECT_USAGE(test, FIRST_BLOCK, 1u, 10u, 2u, 1u);
	release(block);
}

static void sizes_are_accounted_to_the_byte(struct kunit *test)
{
	static const u32 sizes[] = { 1, 2, 3, 4, 5, 100, 4095 };
	void *block[ARRAY_SIZE(sizes)];
	u32 used = 0;
	int i;

	for (i = 0; i < ARRAY_SIZE(sizes); i++) {
		block[i] = allocate(test, TO_THE_BYTE, sizes[i]);
		used += sizes[i];
		ZT_EXPECT_USAGE(test, TO_THE_BYTE, used, used, i + 1u, 0u);
	}
	for (i = 0; i < ARRAY_SIZE(sizes) - 1; i++) {
		zorva_free_cleanup(&block[i]);
		used -= sizes[i];
		ZT_EXPECT_USAGE(test, TO_THE_BYTE, used, 4210u, 7u, i + 1u);
	}
	release(block[i]);
	ZT_EXPECT_NO_USAGE(test, TO_THE_BYTE);
}

static void the_highest_usage_is_kept(struct kunit *test)
{
	void *a = allocate(test, HIGH_WATER, 100);
	void *b = allocate(test, HIGH_WATER, 50);

	release(a);
	ZT_EXPECT_USAGE(test, HIGH_WATER, 50u, 150u, 2u, 1u);
	a = allocate(test, HIGH_WATER, 100);
	ZT_EXPECT_USAGE(test, HIGH_WATER, 150u, 150u, 3u, 1u);
	release(a);
	a = allocate(test, HIGH_WATER, 101);
	ZT_EXPECT_USAGE(test, HIGH_WATER, 151u, 151u, 4u, 2u);

	release(a);
	release(b);
}

static void a_free_debits_the_owner(struct kunit *test)
{
	void *a = allocate(test, OWNER, 30);
	void *b = allocate(test, OWNER, 7);
	void *other = allocate(test, ANOTHER, 50);
	u32 allocs, frees;

	zorva_free_track(ANOTHER, a, "caller.c", 78);

	ZT_EXPECT_USAGE(test, OWNER, 7u, 37u, 2u, 1u);
	KUNIT_ASSERT_EQ(test,
			sscanf(zt_mem_row(test, ANOTHER), "%*s %*u %*u %u %u",
			       &allocs, &frees),
			2);
	KUNIT_EXPECT_EQ(test, allocs - frees, 1u);
	ZT_EXPECT_NO_REPORTS(test);
	release(b);
	release(other);
}

static void a_free_by_nobody_leaves_the_block(struct kunit *test)
{
	static const u32 comps[] = { 0, 57, 58, 0x80000001, 0xFFFFFFFF };
	void *block = allocate(test, NOT_FREED, 30);
	const u32 *comp;

	for (comp = comps; comp < comps + ARRAY_SIZE(comps); comp++)
		zorva_free_track(*comp, block, "caller.c", 78);

	ZT_EXPECT_NO_REPORTS(test);
	ZT_EXPECT_USAGE(test, NOT_FREED, 30u, 30u, 1u, 0u);
	KUNIT_EXPECT_EQ(test, zt_block_of(block)->in_use, 1u);
	KUNIT_EXPECT_EQ(test, zt_block_of(block)->start_magic, ZT_START_ALIVE);
	KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 0u);
	release(block);
	ZT_EXPECT_NO_USAGE(test, NOT_FREED);
}

/*
 * Makes a block pass for a larger one, guard included, within the bytes that
 * the heap gave for it.
 */
static void enlarge(struct kunit *test, void *block, u32 size)
{
	KUNIT_ASSERT_GE(test, ksize(zt_block_of(block)),
			(size_t)(ZT_HEADER_SIZE + size + 4));
	zt_block_of(block)->size = size;
	ZT_UNWATCHED(*zt_guard_of(block, size) = ZT_GUARD);
}

static void an_account_never_wraps(struct kunit *test)
{
	void *block = allocate(test, NEVER_WRAPS, 8);

	enlarge(test, block, 12);
	release(block);

	block = allocate(test, NEVER_WRAPS, 4);
	ZT_EXPECT_USAGE(test, NEVER_WRAPS, 12u, 12u, 2u, 1u);

	/* As much as the account holds can be taken off it. */
	enlarge(test, block, 12);
	release(block);
	ZT_EXPECT_NO_USAGE(test, NEVER_WRAPS);
	ZT_EXPECT_NO_REPORTS(test);
}

/* Once, the kernel complains itself about what its heap can never have. */
static void announce_complaint(struct kunit *test)
{
	kunit_info(test, "expected: WARNING at mm/page_alloc.c\n");
}

static void expect_refused(struct kunit *test, u32 size)
{
	zt_forget_reports();
	zt_mark_log();

	ZT_EXPECT_NULL(test, zorva_malloc_track(REFUSED, size, "caller.c", 77));

	EXPECT_MALLOC_ERROR(test,
			    "Memory allocation failed: %u bytes (caller.c:77)",
			    size);
	KUNIT_EXPECT_FALSE(test, zt_report(test, 0)->irqs_off);
	KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 1u);
	ZT_EXPECT_FILE(test, "zorva.mem", ZT_MEM_HEAD);
}

static void sizes_that_wrap_are_refused(struct kunit *test)
{
	announce_complaint(test);

	/* Those whose rounding wraps, and those that the overhead takes. */
	expect_refused(test, 0xFFFFFFFF);
	expect_refused(test, 0xFFFFFFFE);
	expect_refused(test, 0xFFFFFFFD);
	expect_refused(test, 0xFFFFFFFC);
	expect_refused(test, 0xFFFFFFFC - (OVERHEAD - 4));
	expect_refused(test, 0xFFFFFFFC - (OVERHEAD - 1));
	expect_refused(test, 0xFFFFFFFC - OVERHEAD);
	expect_refused(test, 0xFFFFFFFC - (OVERHEAD + 4));
}

static void sizes_beyond_the_heap_are_refused(struct kunit *test)
{
	announce_complaint(test);
	expect_refused(test, 0xFFFFFF00);
	expect_refused(test, 0x80000000);
	expect_refused(test, 0x7FFFFFFF);
	expect_refused(test, 0x10000000);
}

static void a_failed_allocation_is_reported_with_its_caller(struct kunit *test)
{
	zt_fail_allocation(1);
	ZT_EXPECT_NULL(test,
		       zorva_malloc_track(REFUSED, 10, "a_name_of_20_chars.c",
					  0xFFFFFFFF));
	KUNIT_EXPECT_TRUE(test, zt_end_failing());

	/* The name is whole, and the line is printed with a sign. */
	EXPECT_MALLOC_ERROR(test,
			    "Memory allocation failed: 10 bytes (a_name_of_20_chars.c:-1)");
	KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 1u);
	KUNIT_EXPECT_FALSE(test, zt_report(test, 0)->irqs_off);
}

static void a_failed_allocation_without_a_file_shows_null(struct kunit *test)
{
	zt_fail_allocation(1);
	ZT_EXPECT_NULL(test, zorva_malloc_track(REFUSED, 10, NULL, 77));
	KUNIT_EXPECT_TRUE(test, zt_end_failing());

	EXPECT_MALLOC_ERROR(test,
			    "Memory allocation failed: 10 bytes ((null):77)");
}

static void a_failed_allocation_counts_nothing(struct kunit *test)
{
	void *block;

	/* Nothing was ever allocated for this component so far. */
	zt_fail_allocation(1);
	ZT_EXPECT_NULL(test, zorva_malloc_track(REFUSED, 10, "caller.c", 77));
	KUNIT_EXPECT_TRUE(test, zt_end_failing());
	ZT_EXPECT_FILE(test, "zorva.mem", ZT_MEM_HEAD);

	block = allocate(test, REFUSED, 3);
	ZT_EXPECT_USAGE(test, REFUSED, 3u, 3u, 1u, 0u);
	release(block);
}

static void a_block_costs_one_allocation_that_does_not_sleep(struct kunit *test)
{
	void *block;

	/* Only allocations that may not sleep are counted down. */
	zt_fail_allocation(2);
	block = zorva_malloc_track(SOMEBODY, 10, "caller.c", 77);
	KUNIT_EXPECT_FALSE(test, zt_end_failing());

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, block);
	zt_fail_allocation(1);
	release(block);
	KUNIT_EXPECT_FALSE(test, zt_end_failing());
}

static struct kunit_case cases[] = {
	KUNIT_CASE(the_first_and_the_last_component_may_own),
	KUNIT_CASE(nobody_else_may_own),
	KUNIT_CASE(a_block_of_no_size_is_refused),
	KUNIT_CASE(a_block_is_zero_up_to_its_guard),
	KUNIT_CASE(a_block_is_aligned_to_4),
	KUNIT_CASE(a_block_has_its_whole_header),
	KUNIT_CASE(the_header_is_the_overhead),
	KUNIT_CASE(a_block_costs_its_header_and_a_word_more),
	KUNIT_CASE(at_most_14_characters_of_the_file_are_kept),
	KUNIT_CASE(a_file_is_not_taken_for_a_format),
	KUNIT_CASE(no_file_is_shown_as_null),
	KUNIT_CASE(the_macros_pass_their_file_and_line),
	KUNIT_CASE(the_newest_block_is_the_first),
	KUNIT_CASE(the_list_closes_around_a_freed_block),
	KUNIT_CASE(the_list_closes_around_a_block_cleaned_up),
	KUNIT_CASE(a_freed_block_is_marked),
	KUNIT_CASE(a_block_cleaned_up_is_marked),
	KUNIT_CASE(cleaning_up_forgets_the_address),
	KUNIT_CASE(the_memory_goes_back_to_the_heap),
	KUNIT_CASE(freeing_nothing_does_nothing),
	KUNIT_CASE(one_block_and_its_free_are_counted),
	KUNIT_CASE(sizes_are_accounted_to_the_byte),
	KUNIT_CASE(the_highest_usage_is_kept),
	KUNIT_CASE(a_free_debits_the_owner),
	KUNIT_CASE(a_free_by_nobody_leaves_the_block),
	KUNIT_CASE(an_account_never_wraps),
	KUNIT_CASE(sizes_that_wrap_are_refused),
	KUNIT_CASE(sizes_beyond_the_heap_are_refused),
	KUNIT_CASE(a_failed_allocation_is_reported_with_its_caller),
	KUNIT_CASE(a_failed_allocation_without_a_file_shows_null),
	KUNIT_CASE(a_failed_allocation_counts_nothing),
	KUNIT_CASE(a_block_costs_one_allocation_that_does_not_sleep),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_mem",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Tracked blocks of ZORVA");
