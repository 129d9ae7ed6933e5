// SPDX-License-Identifier: GPL-2.0
/* Report output and the bounded copy. */
#include <linux/module.h>
#include <linux/seq_file.h>
#include <linux/string.h>

#include "zorva_test.h"

/* Copies into a buffer whose every byte beyond the copy must stay. */
static void expect_copy(struct kunit *test, const char *src, u32 size,
			const char *want)
{
	char dst[32];

	memset(dst, '#', sizeof(dst));

	KUNIT_EXPECT_EQ(test, zorva_strlcpy(dst, src, size), (u32)strlen(src));

	if (want) {
		KUNIT_EXPECT_STREQ(test, (const char *)dst, want);
		ZT_EXPECT_NULL(test,
			       memchr_inv(dst + strlen(want) + 1, '#',
					  sizeof(dst) - strlen(want) - 1));
	} else {
		ZT_EXPECT_NULL(test, memchr_inv(dst, '#', sizeof(dst)));
	}
}

static void a_short_text_is_copied_whole(struct kunit *test)
{
	expect_copy(test, "abc", 32, "abc");
	expect_copy(test, "", 32, "");
}

static void a_text_that_just_fits_is_copied_whole(struct kunit *test)
{
	expect_copy(test, "abcdef", 7, "abcdef");
	expect_copy(test, "", 1, "");
}

static void a_long_text_is_cut_and_terminated(struct kunit *test)
{
	expect_copy(test, "abcdef", 6, "abcde");
	expect_copy(test, "abcdef", 4, "abc");
	expect_copy(test, "abcdef", 2, "a");
	expect_copy(test, "abcdef", 1, "");
}

static void size_0_leaves_the_buffer_alone(struct kunit *test)
{
	expect_copy(test, "abcdef", 0, NULL);
	expect_copy(test, "", 0, NULL);
	KUNIT_EXPECT_EQ(test, zorva_strlcpy(NULL, "abcdef", 0), 6u);
}

static void a_result_of_the_size_or_more_means_cut(struct kunit *test)
{
	char dst[4];

	KUNIT_EXPECT_LT(test, zorva_strlcpy(dst, "abc", sizeof(dst)), 4u);
	KUNIT_EXPECT_GE(test, zorva_strlcpy(dst, "abcd", sizeof(dst)), 4u);
}

static void bytes_above_127_are_copied_as_they_are(struct kunit *test)
{
	expect_copy(test, "\xff\x80\x01z", 32, "\xff\x80\x01z");
	expect_copy(test, "\xff\x80\x01z", 3, "\xff\x80");
}

static void text_for_a_report_file_goes_there(struct kunit *test)
{
	char buffer[64];
	struct seq_file seq = { .buf = buffer, .size = sizeof(buffer) };

	zorva_proc_printf(&seq, "%s=%d\n", "x", -5);
	zorva_proc_printf(&seq, "100%%, %s", "%d");

	KUNIT_ASSERT_LT(test, seq.count, sizeof(buffer));
	buffer[seq.count] = '\0';
	KUNIT_EXPECT_STREQ(test, (const char *)buffer, "x=-5\n100%, %d");
	ZT_EXPECT_TEXT(test, zt_log(test), "%s", "");
	ZT_EXPECT_NO_REPORTS(test);
}

static void text_beyond_the_report_file_overflows_it(struct kunit *test)
{
	char buffer[16];
	struct seq_file seq = { .buf = buffer, .size = sizeof(buffer) };

	zorva_proc_printf(&seq, "%s", "0123456789");
	KUNIT_EXPECT_FALSE(test, seq_has_overflowed(&seq));
	zorva_proc_printf(&seq, "%s", "0123456789");
	KUNIT_EXPECT_TRUE(test, seq_has_overflowed(&seq));
}

/* What component 9 has, seen while a block of it is alive. */
static void self_usage(struct kunit *test, u32 *allocs, u32 *frees)
{
	void *block = zorva_malloc(ZORVA_COMPONENT_SELF, 1);
	u32 curr, max, alive;
	char name[12];

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, block);
	KUNIT_ASSERT_EQ(test,
			sscanf(zt_mem_row(test, ZORVA_COMPONENT_SELF),
			       "%11s %u %u %u %u +%u", name, &curr, &max,
			       allocs, frees, &alive),
			6);
	KUNIT_EXPECT_EQ(test, curr, 1u);
	zorva_free(ZORVA_COMPONENT_SELF, block);
}

static void without_a_report_file_text_goes_to_the_log(struct kunit *test)
{
	zorva_proc_printf(NULL, "x=%d\n", 5);

	ZT_EXPECT_TEXT(test, zt_log(test), "x=5\n");
	ZT_EXPECT_NO_REPORTS(test);
}

static void text_for_the_log_continues_its_line(struct kunit *test)
{
	printk(KERN_INFO "zorva_lib: ");
	zorva_proc_printf(NULL, "x=%d", 5);
	zorva_proc_printf(NULL, ", y=%s\n", "%d");

	ZT_EXPECT_TEXT(test, zt_log(test), "zorva_lib: x=5, y=%%d\n");
}

static void text_for_the_log_may_be_long(struct kunit *test)
{
	char word[201];

	memset(word, 'w', sizeof(word) - 1);
	word[sizeof(word) - 1] = '\0';

	zorva_proc_printf(NULL, "%s %s %s\n", word, word, word);

	ZT_EXPECT_TEXT(test, zt_log(test), "%s %s %s\n", word, word, word);
}

static void text_for_the_log_costs_one_block_for_a_while(struct kunit *test)
{
	u32 allocs, frees, allocs_after, frees_after;

	self_usage(test, &allocs, &frees);
	zorva_proc_printf(NULL, "x=%d\n", 5);
	self_usage(test, &allocs_after, &frees_after);

	/* One for the text, one for the look at it. */
	KUNIT_EXPECT_EQ(test, allocs_after - allocs, 2u);
	KUNIT_EXPECT_EQ(test, frees_after - frees, 2u);
}

static void text_for_a_report_file_costs_no_block(struct kunit *test)
{
	u32 allocs, frees, allocs_after, frees_after;
	char buffer[16];
	struct seq_file seq = { .buf = buffer, .size = sizeof(buffer) };

	self_usage(test, &allocs, &frees);
	zorva_proc_printf(&seq, "x=%d\n", 5);
	self_usage(test, &allocs_after, &frees_after);

	KUNIT_EXPECT_EQ(test, allocs_after - allocs, 1u);
	KUNIT_EXPECT_EQ(test, frees_after - frees, 1u);
}

static void without_memory_nothing_goes_to_the_log(struct kunit *test)
{
	s32 line;

	zt_fail_allocation(1);
	zorva_proc_printf(NULL, "x=%d\n", 5);
	KUNIT_EXPECT_TRUE(test, zt_end_failing());

	/* The format's 5 characters and 33 bytes more. */
	KUNIT_ASSERT_EQ(test, zt_report_count(), 1u);
	KUNIT_ASSERT_EQ(test,
			sscanf(zt_report(test, 0)->text,
			       "Memory allocation failed: 38 bytes (zorva_lib.cpp:%d)",
			       &line),
			1);
	KUNIT_EXPECT_GT(test, line, 0);
	ZT_EXPECT_REPORTS(test,
			  ZT_ERROR("zorva_mem.cpp", "zorva_malloc_track",
				   "Memory allocation failed: 38 bytes (zorva_lib.cpp:%d)"),
			  line);
	ZT_EXPECT_NULL(test, strstr(zt_log(test), "x=5"));
	KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 1u);
}

static void print_in_a_context(void *context)
{
	zorva_proc_printf(NULL, "in context: %s\n", (const char *)context);
}

static void text_may_be_printed_in_every_context(struct kunit *test)
{
	const struct zt_call_context *context;

	ZT_FOR_EACH_CONTEXT(context) {
		zt_mark_log();
		context->run(print_in_a_context, (void *)context->name);

		ZT_EXPECT_TEXT(test, zt_log(test), "in context: %s\n",
			       context->name);
	}
	ZT_EXPECT_NO_REPORTS(test);
}

static struct kunit_case cases[] = {
	KUNIT_CASE(a_short_text_is_copied_whole),
	KUNIT_CASE(a_text_that_just_fits_is_copied_whole),
	KUNIT_CASE(a_long_text_is_cut_and_terminated),
	KUNIT_CASE(size_0_leaves_the_buffer_alone),
	KUNIT_CASE(a_result_of_the_size_or_more_means_cut),
	KUNIT_CASE(bytes_above_127_are_copied_as_they_are),
	KUNIT_CASE(text_for_a_report_file_goes_there),
	KUNIT_CASE(text_beyond_the_report_file_overflows_it),
	KUNIT_CASE(without_a_report_file_text_goes_to_the_log),
	KUNIT_CASE(text_for_the_log_continues_its_line),
	KUNIT_CASE(text_for_the_log_may_be_long),
	KUNIT_CASE(text_for_the_log_costs_one_block_for_a_while),
	KUNIT_CASE(text_for_a_report_file_costs_no_block),
	KUNIT_CASE(without_memory_nothing_goes_to_the_log),
	KUNIT_CASE(text_may_be_printed_in_every_context),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_lib",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Text output and bounded copy of ZORVA");
