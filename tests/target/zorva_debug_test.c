// SPDX-License-Identifier: GPL-2.0
/*
 * The components' names, and the path of every report from the function that
 * makes it to the debug-print function.
 */
#include <linux/ctype.h>
#include <linux/module.h>
#include <linux/string.h>

#include "zorva_test.h"

static void the_first_function_registered_stays(struct kunit *test)
{
	KUNIT_EXPECT_EQ(test, zt_registration.first_result, ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, zt_registration.second_result, ZORVA_RC_OK);

	zorva_malloc_track(0, 1, "caller.c", 1);

	KUNIT_EXPECT_EQ(test, zt_report_count(), 1u);
	KUNIT_EXPECT_EQ(test, zt_registration.second_calls, 0u);
}

static void registering_null_leaves_the_place_free(struct kunit *test)
{
	KUNIT_EXPECT_EQ(test, zt_registration.null_result, ZORVA_RC_OK);

	/* The recorder was registered after the null, and yet is there. */
	zorva_malloc_track(0, 1, "caller.c", 1);

	KUNIT_EXPECT_EQ(test, zt_report_count(), 1u);
}

static void registering_null_takes_nothing_away(struct kunit *test)
{
	KUNIT_EXPECT_EQ(test, zt_registration.null_again_result, ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, zorva_debug_pr_fn_register(NULL), ZORVA_RC_OK);

	zorva_malloc_track(0, 1, "caller.c", 1);

	KUNIT_EXPECT_EQ(test, zt_report_count(), 1u);
}

static void a_report_without_a_function_is_lost(struct kunit *test)
{
	KUNIT_EXPECT_TRUE(test, zt_registration.silent_before);
}

static void a_report_carries_all_its_arguments(struct kunit *test)
{
	zorva_malloc_track(0, 1, "caller.c", 1);

	ZT_EXPECT_REPORTS(test, ZT_ERROR("zorva_mem.cpp", "zorva_malloc_track",
					 "invalid parameter"));
	KUNIT_EXPECT_GT(test, zt_report(test, 0)->line, 0);
	ZT_EXPECT_TEXT(test, zt_report(test, 0)->format, "%%s");
}

static void a_report_prints_nothing_by_itself(struct kunit *test)
{
	zorva_malloc_track(0, 1, "caller.c", 1);

	KUNIT_EXPECT_EQ(test, zt_report_count(), 1u);
	ZT_EXPECT_TEXT(test, zt_log(test), "%s", "");
}

static void a_report_names_this_module_for_every_owner(struct kunit *test)
{
	u32 uptime_place;

	zorva_malloc_track(1, 0, "caller.c", 1);
	zorva_malloc_track(56, 0, "caller.c", 1);
	zorva_uptime_get(NULL);
	zorva_uptime_get(&uptime_place);

	KUNIT_EXPECT_EQ(test, zt_report_count(), 3u);
	KUNIT_EXPECT_EQ(test, zt_report(test, 0)->comp, 9u);
	KUNIT_EXPECT_EQ(test, zt_report(test, 1)->comp, 9u);
	KUNIT_EXPECT_EQ(test, zt_report(test, 2)->comp, 9u);
}

static void every_argument_check_has_a_line_of_its_own(struct kunit *test)
{
	s32 line[3];
	int i;

	zorva_malloc_track(0, 1, "caller.c", 1);
	zorva_malloc_track(57, 1, "caller.c", 1);
	zorva_malloc_track(1, 0, "caller.c", 1);
	zorva_malloc_track(0, 0, "caller.c", 1);

	KUNIT_ASSERT_EQ(test, zt_report_count(), 4u);
	for (i = 0; i < 3; i++)
		line[i] = zt_report(test, i)->line;
	KUNIT_EXPECT_NE(test, line[0], line[1]);
	KUNIT_EXPECT_NE(test, line[1], line[2]);
	KUNIT_EXPECT_NE(test, line[0], line[2]);
	/* The component is looked at first. */
	KUNIT_EXPECT_EQ(test, zt_report(test, 3)->line, line[0]);
}

/* A failing allocation reports its caller's file, whatever that is. */
static void report_file(struct kunit *test, const char *file)
{
	zt_fail_allocation(1);
	ZT_EXPECT_NULL(test, zorva_malloc_track(1, 3, file, 77));
	KUNIT_EXPECT_TRUE(test, zt_end_failing());
}

static void a_report_is_cut_to_256_characters(struct kunit *test)
{
	const char *whole;
	char file[301];

	memset(file, 'x', sizeof(file) - 1);
	file[sizeof(file) - 1] = '\0';

	report_file(test, file);

	whole = zt_text(test, "Memory allocation failed: 3 bytes (%s:77)",
			file);
	ZT_EXPECT_REPORTS(test,
			  ZT_ERROR("zorva_mem.cpp", "zorva_malloc_track",
				   "%.256s"),
			  whole);
	KUNIT_EXPECT_EQ(test, strlen(zt_report(test, 0)->text), (size_t)256);
}

static void a_report_of_256_characters_is_whole(struct kunit *test)
{
	/* What the message adds to the name of the file. */
	const size_t around = strlen("Memory allocation failed: 3 bytes (:77)");
	char file[257];

	memset(file, 'x', sizeof(file));
	file[256 - around] = '\0';

	report_file(test, file);

	ZT_EXPECT_REPORTS(test,
			  ZT_ERROR("zorva_mem.cpp", "zorva_malloc_track",
				   "Memory allocation failed: 3 bytes (%s:77)"),
			  file);
	KUNIT_EXPECT_EQ(test, strlen(zt_report(test, 0)->text), (size_t)256);
}

static void a_percent_sign_is_not_interpreted_again(struct kunit *test)
{
	report_file(test, "%d%s%n%%.c");

	ZT_EXPECT_REPORTS(test,
			  ZT_ERROR("zorva_mem.cpp", "zorva_malloc_track",
				   "Memory allocation failed: 3 bytes (%s:77)"),
			  "%d%s%n%%.c");
}

static void component_9_is_this_module(struct kunit *test)
{
	KUNIT_EXPECT_STREQ(test, _componentName[9], "ZORVA");
	KUNIT_EXPECT_EQ(test, ZORVA_COMPONENT_SELF, 9u);
}

static void the_names_end_with_last_and_begin_with_first(struct kunit *test)
{
	KUNIT_EXPECT_STREQ(test, _componentName[0], "FIRST");
	KUNIT_EXPECT_STREQ(test, _componentName[57], "LAST");
	KUNIT_EXPECT_EQ(test, ARRAY_SIZE(_componentName), (size_t)58);
}

static void every_component_has_a_short_name_of_its_own(struct kunit *test)
{
	u32 i, j;

	for (i = 1; i < 57; i++) {
		const char *name = _componentName[i];

		KUNIT_ASSERT_NOT_ERR_OR_NULL(test, name);
		KUNIT_EXPECT_GE(test, strlen(name), (size_t)1);
		KUNIT_EXPECT_LE(test, strlen(name), (size_t)7);
		for (j = 0; name[j]; j++)
			KUNIT_EXPECT_TRUE_MSG(test,
					      isdigit(name[j]) ||
						      isupper(name[j]),
					      "component %u: %s", i, name);
		for (j = 0; j < i; j++)
			KUNIT_EXPECT_STRNEQ(test, name, _componentName[j]);
	}
}

static struct kunit_case cases[] = {
	KUNIT_CASE(the_first_function_registered_stays),
	KUNIT_CASE(registering_null_leaves_the_place_free),
	KUNIT_CASE(registering_null_takes_nothing_away),
	KUNIT_CASE(a_report_without_a_function_is_lost),
	KUNIT_CASE(a_report_carries_all_its_arguments),
	KUNIT_CASE(a_report_prints_nothing_by_itself),
	KUNIT_CASE(a_report_names_this_module_for_every_owner),
	KUNIT_CASE(every_argument_check_has_a_line_of_its_own),
	KUNIT_CASE(a_report_is_cut_to_256_characters),
	KUNIT_CASE(a_report_of_256_characters_is_whole),
	KUNIT_CASE(a_percent_sign_is_not_interpreted_again),
	KUNIT_CASE(component_9_is_this_module),
	KUNIT_CASE(the_names_end_with_last_and_begin_with_first),
	KUNIT_CASE(every_component_has_a_short_name_of_its_own),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_debug",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Debug-print path and component names of ZORVA");
