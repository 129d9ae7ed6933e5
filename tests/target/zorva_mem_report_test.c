// SPDX-License-Identifier: GPL-2.0
/*
 * The two memory reports, byte for byte against texts that are made here from
 * the blocks that the test itself allocated.
 */
#include <linux/module.h>
#include <linux/slab.h>
#include <linux/string.h>

#ifdef CONFIG_MIPS
#include <asm/addrspace.h>
#endif

#include "zorva_test.h"

/* Each of these has one test to itself, which sees its first block. */
enum {
	ALONE = ZT_REPORT_COMPONENT,
	FIVE_AND_THREE,
	LOW,
	HIGH,
	WIDE,
	GONE,
	LISTED, /* for all tests whose accounts are read from the report */
	OTHER,
};

#define DETAIL_HEAD                                                            \
	"\n----------------\nCurrent Time : %u\n----------------\n\n"
#define DETAIL_COMPONENT                                                       \
	"Component   : %s\nCurr Usage  : %u\nMax Usage   : %u\n"               \
	"Alloc Count : %u\nFree Count  : %u\n----------------\n"

static void *allocate(struct kunit *test, u32 comp, u32 size)
{
	void *block = zorva_malloc_track(comp, size, "owner.c", 77);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, block);
	return block;
}

static void release(void *block)
{
	zorva_free_track(LISTED, block, "owner.c", 78);
}

/* The detailed report, and the second in which all of it was made. */
static const char *detail(struct kunit *test, u32 *now)
{
	const char *text;

	do {
		*now = zt_uptime_secs();
		text = zt_file(test, "zorva.mem.detail");
	} while (zt_uptime_secs() != *now);
	return text;
}

/* What the report says of a component before it lists the blocks. */
static const char *component(struct kunit *test, u32 comp)
{
	u32 curr, max, allocs, frees;

	KUNIT_ASSERT_EQ(test,
			sscanf(zt_mem_row(test, comp), "%*s %u %u %u %u", &curr,
			       &max, &allocs, &frees),
			4);
	return zt_text(test, DETAIL_COMPONENT, _componentName[comp], curr, max,
		       allocs, frees);
}

/* The line of a whole block. */
static const char *whole(struct kunit *test, void *user, u32 size)
{
	return zt_text(test, "  [%010u] %px - %u bytes (owner.c, 77)\n",
		       zt_block_of(user)->alloc_time, user, size);
}

/* The whole detailed report, of which the head is the same for all. */
#define EXPECT_DETAIL(test, format, ...)                                       \
	do {                                                                   \
		u32 now_;                                                      \
		const char *const detail_ = detail(test, &now_);               \
                                                                               \
		ZT_EXPECT_TEXT(test, detail_, DETAIL_HEAD format, now_,        \
			       ##__VA_ARGS__);                                 \
	} while (0)

static void set_filter(struct kunit *test, const char *text)
{
	KUNIT_EXPECT_EQ(test, zt_write_file(test, "zorva.mem.detail", text),
			(ssize_t)strlen(text));
}

static void without_blocks_there_are_three_lines(struct kunit *test)
{
	ZT_EXPECT_FILE(test, "zorva.mem",
		       "           Curr        Max         Alloc       Free             \n"
		       "Component  Usage       Usage       Count       Count       Delta\n"
		       "===================================================================\n");
}

static void without_blocks_the_detail_is_a_head(struct kunit *test)
{
	u32 now;
	const char *text = detail(test, &now);

	ZT_EXPECT_TEXT(test, text,
		       "\n"
		       "----------------\n"
		       "Current Time : %u\n"
		       "----------------\n"
		       "\n",
		       now);
}

static void one_component_has_one_row(struct kunit *test)
{
	void *block = allocate(test, ALONE, 10);

	ZT_EXPECT_FILE(test, "zorva.mem",
		       "           Curr        Max         Alloc       Free             \n"
		       "Component  Usage       Usage       Count       Count       Delta\n"
		       "===================================================================\n"
		       "%-11s10          10          1           0           +1      \n",
		       _componentName[ALONE]);
	release(block);
}

static void a_row_shows_the_blocks_that_are_alive(struct kunit *test)
{
	void *block[5];
	int i;

	for (i = 0; i < 5; i++)
		block[i] = allocate(test, FIVE_AND_THREE, i < 3 ? 30 : 50);
	for (i = 0; i < 3; i++)
		release(block[i]);

	ZT_EXPECT_FILE(test, "zorva.mem",
		       ZT_MEM_HEAD
		       "%-11s100         190         5           3           +2      \n",
		       _componentName[FIVE_AND_THREE]);
	release(block[3]);
	release(block[4]);
}

static void rows_are_in_the_order_of_the_components(struct kunit *test)
{
	void *high = allocate(test, HIGH, 2);
	void *low = allocate(test, LOW, 1);

	ZT_EXPECT_FILE(test, "zorva.mem", ZT_MEM_HEAD ZT_MEM_ROW ZT_MEM_ROW,
		       _componentName[LOW], 1u, 1u, 1u, 0u, 1u,
		       _componentName[HIGH], 2u, 2u, 1u, 0u, 1u);
	release(low);
	release(high);
}

static void wide_numbers_push_the_columns(struct kunit *test)
{
	struct zt_block *block = zt_block_of(allocate(test, WIDE, 1000000));

	ZT_EXPECT_FILE(test, "zorva.mem",
		       ZT_MEM_HEAD
		       "%-11s1000000     1000000     1           0           +1      \n",
		       _componentName[WIDE]);
	release(block + 1);
}

static void a_component_without_blocks_has_no_row(struct kunit *test)
{
	void *block = allocate(test, GONE, 2000);

	release(block);
	ZT_EXPECT_FILE(test, "zorva.mem", ZT_MEM_HEAD);
	EXPECT_DETAIL(test, "%s", "");
}

static void the_detail_lists_the_newest_block_first(struct kunit *test)
{
	void *a = allocate(test, LISTED, 1);
	void *b = allocate(test, LISTED, 4096);
	void *c = allocate(test, LISTED, 13);

	EXPECT_DETAIL(test, "%s%s%s%s\n", component(test, LISTED),
		      whole(test, c, 13), whole(test, b, 4096),
		      whole(test, a, 1));
	ZT_EXPECT_NO_REPORTS(test);
	release(b);
	release(a);
	release(c);
}

static void the_detail_keeps_components_apart(struct kunit *test)
{
	void *a = allocate(test, OTHER, 1);
	void *b = allocate(test, LISTED, 2);
	void *c = allocate(test, OTHER, 3);
	void *d = allocate(test, LISTED, 4);

	EXPECT_DETAIL(test, "%s%s%s\n%s%s%s\n", component(test, LISTED),
		      whole(test, d, 4), whole(test, b, 2),
		      component(test, OTHER), whole(test, c, 3),
		      whole(test, a, 1));
	release(a);
	release(b);
	release(c);
	release(d);
}

static void the_detail_shows_when_a_block_was_allocated(struct kunit *test)
{
	const u32 before = zt_uptime_secs();
	struct zt_block *block = zt_block_of(allocate(test, LISTED, 5));

	KUNIT_EXPECT_LE(test, block->alloc_time - before,
			zt_uptime_secs() - before);

	/* All ten digits. */
	block->alloc_time = 0xFFFFFFFF;
	EXPECT_DETAIL(test, "%s  [4294967295] %px - 5 bytes (owner.c, 77)\n\n",
		      component(test, LISTED), block + 1);
	block->alloc_time = 7;
	EXPECT_DETAIL(test, "%s  [0000000007] %px - 5 bytes (owner.c, 77)\n\n",
		      component(test, LISTED), block + 1);
	release(block + 1);
}

static void the_detail_shows_14_characters_and_a_signed_line(struct kunit *test)
{
	void *block = zorva_malloc_track(LISTED, 5, "a_name_of_20_chars.c",
					 0xFFFFFFFE);

	EXPECT_DETAIL(test,
		      "%s  [%010u] %px - 5 bytes (a_name_of_20_c, -2)\n\n",
		      component(test, LISTED), zt_block_of(block)->alloc_time,
		      block);
	release(block);
}

/*
 * A torn block's line shows the word at four times the guard's distance. For
 * this size that is still within the 128 bytes that the heap gives for the
 * block, so the test can choose it.
 */
#define TORN_SIZE 3u
#define TORN_WORD 4u /* times 4 bytes from the user area */

static void expect_torn_line(struct kunit *test, struct zt_block *block)
{
	u32 *user = (u32 *)(block + 1);

	KUNIT_ASSERT_GE(test, ksize(block),
			(size_t)(ZT_HEADER_SIZE + TORN_WORD * 4 + 4));
	ZT_UNWATCHED(user[TORN_WORD] = 0x1234ABCD);

	EXPECT_DETAIL(test,
		      "%s<memory corruption 0x%px invalid end 0x1234abcd (expected 0xbbbbbbbb) (owner.c, 77)>\n\n",
		      component(test, LISTED), block);
}

static void a_torn_guard_has_a_line_of_its_own(struct kunit *test)
{
	struct zt_block *block = zt_block_of(allocate(test, LISTED, TORN_SIZE));
	u8 *guard = (u8 *)zt_guard_of(block + 1, TORN_SIZE);

	guard[3] ^= 1;
	expect_torn_line(test, block);
	guard[3] ^= 1;
	guard[0] ^= 0x80;
	expect_torn_line(test, block);
	guard[0] ^= 0x80;

	/* Made whole again it is a block like others. */
	EXPECT_DETAIL(test, "%s%s\n", component(test, LISTED),
		      whole(test, block + 1, TORN_SIZE));
	ZT_EXPECT_NO_REPORTS(test);
	release(block + 1);
}

static void a_wrong_start_has_a_line_of_its_own(struct kunit *test)
{
	struct zt_block *block = zt_block_of(allocate(test, LISTED, TORN_SIZE));

	ZT_WITH_WORD(block->start_magic, 0xAAAAAAABu,
		     expect_torn_line(test, block));
	ZT_WITH_WORD(block->start_magic, ZT_START_FREED,
		     expect_torn_line(test, block));
	release(block + 1);
}

/*
 * Gives a torn block a size with which its line shows the word at an address,
 * which must lie as far from a multiple of 16 as the block does; and looks for
 * a word of 0.
 */
static void expect_nothing_at(struct kunit *test, struct zt_block *block,
			      unsigned long address)
{
	const unsigned long user = (unsigned long)(block + 1);
	const u32 size = (address - user) / 4;
	const u32 start = block->start_magic;
	const u32 kept = block->size;

	KUNIT_EXPECT_EQ(test, user + size * 4ul, address);
	WRITE_ONCE(block->size, size);
	WRITE_ONCE(block->start_magic, 0u);
	EXPECT_DETAIL(test,
		      "%s<memory corruption 0x%px invalid end 0x00000000 (expected 0xbbbbbbbb) (owner.c, 77)>\n\n",
		      component(test, LISTED), block);
	WRITE_ONCE(block->start_magic, start);
	WRITE_ONCE(block->size, kept);
}

static void a_damaged_size_leads_nowhere(struct kunit *test)
{
	struct zt_block *block = zt_block_of(allocate(test, LISTED, TORN_SIZE));
	u32 *user = (u32 *)(block + 1);

#ifdef CONFIG_MIPS
	const u32 low = (u32)user & 15;

	/* In user space, beyond memory in KSEG0, in KSEG1 and in KSEG2. */
	expect_nothing_at(test, block, 0x00001000 + low);
	expect_nothing_at(test, block, 0x8fff0000 + low);
	expect_nothing_at(test, block, 0xafff0000 + low);
	expect_nothing_at(test, block, 0xdfff0000 + low);

	/* Uncached, the block itself: no device, but it might be one. */
	user[0] = 0x1234ABCD;
	expect_nothing_at(test, block, CKSEG1ADDR(user));
#else
	/* As far as a size leads, and half as far: beyond the memory there. */
	expect_nothing_at(test, block, (unsigned long)user + 0xFFFFFFF0ul * 4);
	expect_nothing_at(test, block, (unsigned long)user + 0x7FFFFFF0ul * 4);
#endif

	ZT_EXPECT_NO_REPORTS(test);
	release(user);
}

static void a_torn_block_shows_its_line_without_a_sign(struct kunit *test)
{
	struct zt_block *block = zt_block_of(
		zorva_malloc_track(LISTED, TORN_SIZE, "owner.c", 0xFFFFFFFE));
	u32 *user = (u32 *)(block + 1);

	ZT_UNWATCHED(user[TORN_WORD] = 0xA);
	*zt_guard_of(user, TORN_SIZE) = 0;
	EXPECT_DETAIL(test,
		      "%s<memory corruption 0x%px invalid end 0x0000000a (expected 0xbbbbbbbb) (owner.c, 4294967294)>\n\n",
		      component(test, LISTED), block);
	*zt_guard_of(user, TORN_SIZE) = ZT_GUARD;
	release(user);
}

static void whole_and_torn_blocks_stand_side_by_side(struct kunit *test)
{
	void *a = allocate(test, LISTED, 8);
	struct zt_block *torn = zt_block_of(allocate(test, LISTED, TORN_SIZE));
	void *c = allocate(test, LISTED, 9);
	u32 *user = (u32 *)(torn + 1);

	ZT_UNWATCHED(user[TORN_WORD] = 0);
	*zt_guard_of(user, TORN_SIZE) = 0;
	EXPECT_DETAIL(test,
		      "%s%s<memory corruption 0x%px invalid end 0x00000000 (expected 0xbbbbbbbb) (owner.c, 77)>\n%s\n",
		      component(test, LISTED), whole(test, c, 9), torn,
		      whole(test, a, 8));
	*zt_guard_of(user, TORN_SIZE) = ZT_GUARD;
	release(a);
	release(user);
	release(c);
}

static void a_block_not_in_use_is_not_listed(struct kunit *test)
{
	struct zt_block *block = zt_block_of(allocate(test, LISTED, 5));

	ZT_WITH_WORD(block->in_use, 0u,
		     EXPECT_DETAIL(test, "%s\n", component(test, LISTED)));
	/* Any use but 0 is one. */
	ZT_WITH_WORD(block->in_use, 2u,
		     EXPECT_DETAIL(test, "%s%s\n", component(test, LISTED),
				   whole(test, block + 1, 5)));
	release(block + 1);
}

static void a_wrong_magic_does_not_show(struct kunit *test)
{
	struct zt_block *block = zt_block_of(allocate(test, LISTED, 5));

	ZT_WITH_WORD(block->magic, 0u,
		     EXPECT_DETAIL(test, "%s%s\n", component(test, LISTED),
				   whole(test, block + 1, 5)));
	release(block + 1);
}

/* Two components with a block each, and what is shown with a filter. */
static void expect_filtered(struct kunit *test, const char *filter, bool listed,
			    bool other)
{
	void *a = allocate(test, LISTED, 6);
	void *b = allocate(test, OTHER, 7);
	const char *text = "";

	set_filter(test, filter);
	if (listed)
		text = zt_text(test, "%s%s\n", component(test, LISTED),
			       whole(test, a, 6));
	if (other)
		text = zt_text(test, "%s%s%s\n", text, component(test, OTHER),
			       whole(test, b, 7));
	EXPECT_DETAIL(test, "%s", text);

	release(a);
	release(b);
}

static void expect_filtered_name(struct kunit *test, const char *format,
				 bool listed)
{
	char filter[64];

	snprintf(filter, sizeof(filter), format, _componentName[LISTED]);
	expect_filtered(test, filter, listed, false);
}

static void no_filter(struct kunit *test)
{
	set_filter(test, "all\n");
}

static void a_name_narrows_the_detail(struct kunit *test)
{
	expect_filtered_name(test, "%s\n", true);
	expect_filtered_name(test, "%s", true);
	expect_filtered(test, _componentName[OTHER], false, true);
	no_filter(test);
}

static void the_usage_table_is_never_narrowed(struct kunit *test)
{
	void *block = allocate(test, LISTED, 5);

	set_filter(test, "LAST\n");
	KUNIT_EXPECT_GT(test, strlen(zt_mem_row(test, LISTED)), (size_t)0);
	no_filter(test);
	release(block);
}

static void all_and_nothing_widen_the_detail(struct kunit *test)
{
	static const char *const texts[] = { "all\n",  "all",	    "\n",
					     "\t\r\n", "a\tl\nl\r", "" };
	int i;

	for (i = 0; i < ARRAY_SIZE(texts); i++) {
		set_filter(test, "LAST\n");
		expect_filtered(test, texts[i], true, true);
	}
}

static void the_name_must_match_to_the_letter(struct kunit *test)
{
	static const char *const texts[] = { "last\n", "All\n", "ALL\n",
					     "all \n", "*",	"0" };
	int i;

	for (i = 0; i < ARRAY_SIZE(texts); i++)
		expect_filtered(test, texts[i], false, false);

	expect_filtered_name(test, " %s\n", false);
	expect_filtered_name(test, "%s \n", false);
	expect_filtered_name(test, "%sX\n", false);
	expect_filtered_name(test, "%.2s\n", false);
	no_filter(test);
}

static void control_characters_are_taken_out(struct kunit *test)
{
	expect_filtered_name(test, "\t\v\b%s\r\n\x7f", true);
	expect_filtered_name(test, "\x01\x1f%s", true);
	/* Above 127 there are none. */
	expect_filtered_name(test, "%s\x80", false);
	no_filter(test);
}

static void only_32_characters_of_a_text_are_kept(struct kunit *test)
{
	char text[41];

	/* The name's last letter is the 32nd character, and the 33rd. */
	memset(text, '\n', sizeof(text));
	strcpy(text + 32 - strlen(_componentName[LISTED]),
	       _componentName[LISTED]);
	expect_filtered(test, text, true, false);

	memset(text, '\n', sizeof(text));
	strcpy(text + 33 - strlen(_componentName[LISTED]),
	       _componentName[LISTED]);
	expect_filtered(test, text, false, false);

	/* 32 of nothing. */
	memset(text, '\n', sizeof(text));
	strcpy(text + 32, _componentName[LISTED]);
	expect_filtered(test, text, true, true);
	no_filter(test);
}

static void a_long_name_matches_nothing(struct kunit *test)
{
	expect_filtered(test, "ABCDEFGHIJKLMNO", false, false);
	expect_filtered(test, "ABCDEFGHIJKLMNOP", false, false);
	expect_filtered(test, "ABCDEFGHIJKLMNOPQRSTUVWXYZABCDEFGHIJKLM", false,
			false);
	/* Cut after 15 characters it must not swallow what lies behind it. */
	expect_filtered_name(test, "%s          \n", false);
	no_filter(test);
}

static void a_short_name_replaces_a_long_one(struct kunit *test)
{
	set_filter(test, "ABCDEFGHIJKLMNOPQ\n");
	expect_filtered_name(test, "%s\n", true);
	no_filter(test);
}

static void a_filter_needs_memory_for_its_text(struct kunit *test)
{
	void *block = allocate(test, LISTED, 5);

	set_filter(test, "LAST\n");
	zt_fail_allocation(1);
	KUNIT_EXPECT_EQ(test, zt_write_file(test, "zorva.mem.detail", "all\n"),
			(ssize_t)-ENOMEM);
	KUNIT_EXPECT_TRUE(test, zt_end_failing());

	/* The filter is what it was. */
	EXPECT_DETAIL(test, "%s", "");
	no_filter(test);
	release(block);
}

/* More text than a report file's first buffer of 32768 bytes holds. */
#define MANY 700

static void a_long_report_is_whole(struct kunit *test)
{
	void **block = kunit_kzalloc(test, MANY * sizeof(*block), GFP_KERNEL);
	char *text = kunit_kzalloc(test, MANY * 80, GFP_KERNEL);
	size_t length = 0;
	int i;

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, block);
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, text);
	for (i = 0; i < MANY; i++)
		block[i] = allocate(test, LISTED, i + 1);
	for (i = MANY - 1; i >= 0; i--)
		length += scnprintf(text + length, MANY * 80 - length,
				    "  [%010u] %px - %u bytes (owner.c, 77)\n",
				    zt_block_of(block[i])->alloc_time, block[i],
				    i + 1);

	KUNIT_EXPECT_GT(test, length, (size_t)32768);
	EXPECT_DETAIL(test, "%s%s\n", component(test, LISTED), text);
	ZT_EXPECT_NO_REPORTS(test);
	for (i = 0; i < MANY; i++)
		release(block[i]);
}

static struct kunit_case cases[] = {
	KUNIT_CASE(without_blocks_there_are_three_lines),
	KUNIT_CASE(without_blocks_the_detail_is_a_head),
	KUNIT_CASE(one_component_has_one_row),
	KUNIT_CASE(a_row_shows_the_blocks_that_are_alive),
	KUNIT_CASE(rows_are_in_the_order_of_the_components),
	KUNIT_CASE(wide_numbers_push_the_columns),
	KUNIT_CASE(a_component_without_blocks_has_no_row),
	KUNIT_CASE(the_detail_lists_the_newest_block_first),
	KUNIT_CASE(the_detail_keeps_components_apart),
	KUNIT_CASE(the_detail_shows_when_a_block_was_allocated),
	KUNIT_CASE(the_detail_shows_14_characters_and_a_signed_line),
	KUNIT_CASE(a_torn_guard_has_a_line_of_its_own),
	KUNIT_CASE(a_wrong_start_has_a_line_of_its_own),
	KUNIT_CASE(a_damaged_size_leads_nowhere),
	KUNIT_CASE(a_torn_block_shows_its_line_without_a_sign),
	KUNIT_CASE(whole_and_torn_blocks_stand_side_by_side),
	KUNIT_CASE(a_block_not_in_use_is_not_listed),
	KUNIT_CASE(a_wrong_magic_does_not_show),
	KUNIT_CASE(a_name_narrows_the_detail),
	KUNIT_CASE(the_usage_table_is_never_narrowed),
	KUNIT_CASE(all_and_nothing_widen_the_detail),
	KUNIT_CASE(the_name_must_match_to_the_letter),
	KUNIT_CASE(control_characters_are_taken_out),
	KUNIT_CASE(only_32_characters_of_a_text_are_kept),
	KUNIT_CASE(a_long_name_matches_nothing),
	KUNIT_CASE(a_short_name_replaces_a_long_one),
	KUNIT_CASE(a_filter_needs_memory_for_its_text),
	KUNIT_CASE(a_long_report_is_whole),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_mem_report",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Memory reports of ZORVA");
