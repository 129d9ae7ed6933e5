/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What the suites share: a recorder of the module's reports, the report files
 * as texts, the kernel log, failing allocations, and the contexts that code
 * can be called in.
 *
 * Texts are compared whole: a test builds what it expects on its own and hands
 * both to ZT_EXPECT_TEXT(), which names the first line that differs. Every
 * text given out here belongs to the running test and goes away with it.
 *
 * Expectations belong to a test's own thread. In the other contexts only the
 * module is called; what it did is looked at afterwards.
 */
#ifndef ZORVA_TEST_H
#define ZORVA_TEST_H

#include <kunit/test.h>
#include <linux/types.h>

#include <zorva/zorva.h>

#include "zorva_kernel.h"

/*
 * The components that each suite may own blocks for. Accounts are never reset,
 * so a test that wants to see one from its beginning takes a component that
 * nobody else uses.
 */
#define ZT_MEM_COMPONENT 10u	 /* to 19 */
#define ZT_FAULT_COMPONENT 20u	 /* to 29 */
#define ZT_REPORT_COMPONENT 30u	 /* to 39 */
#define ZT_CONTEXT_COMPONENT 40u /* to 44 */
#define ZT_PROBE_COMPONENT 45u	 /* the fixture's own */

/* A block as it lies in memory. The caller's bytes and the guard follow. */
struct zt_block {
	u32 start_magic;
	u32 size;
	u32 magic;
	u32 comp;
	u32 line;
	u32 alloc_time;
	u32 in_use;
	char file[16];
	struct zt_block *newer;
	struct zt_block *older;
};

#define ZT_HEADER_SIZE ((u32)sizeof(struct zt_block))
#define ZT_START_ALIVE 0xAAAAAAAAu
#define ZT_START_FREED 0xDEADBEEFu
#define ZT_BLOCK_MAGIC 0xCAFEBABEu
#define ZT_GUARD 0xBBBBBBBBu

/* The target's; what holds of the size elsewhere follows from it. */
static_assert(sizeof(void *) != 4 || ZT_HEADER_SIZE == 52);

static inline struct zt_block *zt_block_of(void *user)
{
	return (struct zt_block *)((char *)user - ZT_HEADER_SIZE);
}

static inline u32 *zt_guard_of(void *user, u32 size)
{
	return (u32 *)((char *)user + (size + 3) / 4 * 4);
}

/* One report, as the debug-print function got it. */
struct zt_report {
	u32 comp;
	s32 unit;
	u32 level;
	s32 line;
	bool irqs_off;
	char file[64];
	char func[64];
	char format[8];
	char text[320];
};

/* What the support module saw while it registered its recorder. */
struct zt_registration {
	bool silent_before; /* a report made before went nowhere */
	u32 null_result;    /* of registering no function at all */
	u32 first_result;
	u32 second_result; /* of registering another function */
	u32 null_again_result;
	unsigned int second_calls;
};
extern struct zt_registration zt_registration;

/* The fixture of every suite. Its end looks for what the test left behind. */
int zt_init(struct kunit *test);
void zt_exit(struct kunit *test);

/* What is alive now may stay: the fixture's end does not look at it. */
void zt_keep_blocks(struct kunit *test);

/* A formatted text of any length. */
const char *zt_text(struct kunit *test, const char *format, ...) __printf(2, 3);

/* Null, or where the two texts part. */
const char *zt_difference(struct kunit *test, const char *got,
			  const char *want);

#define ZT_EXPECT_TEXT(test, got, ...)                                         \
	do {                                                                   \
		const char *zt_difference_ =                                   \
			zt_difference(test, got, zt_text(test, __VA_ARGS__));  \
                                                                               \
		if (zt_difference_)                                            \
			KUNIT_FAIL(test, "%s", zt_difference_);                \
	} while (0)

#define ZT_EXPECT_NULL(test, pointer)                                          \
	KUNIT_EXPECT_PTR_EQ(test, (const void *)(pointer), (const void *)NULL)

/* Forgets the reports so far. The fixture does so before every test. */
void zt_forget_reports(void);

/* The reports since they were last forgotten; how many, one, and all. */
unsigned int zt_report_count(void);
const struct zt_report *zt_report(struct kunit *test, unsigned int index);
const char *zt_reports(struct kunit *test);

/* A report as zt_reports() prints it; the text may hold conversions. */
#define ZT_REPORT(level, file, func, text)                                     \
	"component 9, unit -1, level " #level ", " file ", " func ": " text "\n"
#define ZT_ERROR(file, func, text) ZT_REPORT(1, file, func, text)

/* Compares all reports since they were last forgotten. */
#define ZT_EXPECT_REPORTS(test, ...)                                           \
	ZT_EXPECT_TEXT(test, zt_reports(test), __VA_ARGS__)
#define ZT_EXPECT_NO_REPORTS(test) ZT_EXPECT_REPORTS(test, "%s", "")

/*
 * What two tasks report, the second because of what the first does: where each
 * has a processor of its own, it may be done before the first comes to report.
 */
#define ZT_EXPECT_REPORTS_OF_TWO(test, first, second)                          \
	do {                                                                   \
		if (num_online_cpus() == 1 ||                                  \
		    strcmp(zt_reports(test), second first) != 0)               \
			ZT_EXPECT_REPORTS(test, first second);                 \
	} while (0)

/*
 * A report file read from its beginning to its end by one open. A write
 * returns what the file's own operation returned.
 */
const char *zt_file(struct kunit *test, const char *name);
ssize_t zt_write_file(struct kunit *test, const char *name, const char *text);

/* What other files are read with. */
extern struct zt_files zt_files;

#define ZT_EXPECT_FILE(test, name, ...)                                        \
	ZT_EXPECT_TEXT(test, zt_file(test, name), __VA_ARGS__)

/* The usage table's first lines, and a component's own line or "". */
#define ZT_MEM_HEAD                                                            \
	"           Curr        Max         Alloc       Free             \n"   \
	"Component  Usage       Usage       Count       Count       Delta\n"   \
	"===================================================================\n"
#define ZT_MEM_ROW "%-11s%-12u%-12u%-12u%-12u+%-7u\n"
const char *zt_mem_row(struct kunit *test, u32 comp);

/* The line that a component has in the usage table while it holds memory. */
#define ZT_EXPECT_USAGE(test, comp, curr, max, allocs, frees)                  \
	ZT_EXPECT_TEXT(test, zt_mem_row(test, comp), ZT_MEM_ROW,               \
		       _componentName[comp], curr, max, allocs, frees,         \
		       (allocs) - (frees))
#define ZT_EXPECT_NO_USAGE(test, comp)                                         \
	ZT_EXPECT_TEXT(test, zt_mem_row(test, comp), "%s", "")

/* Seconds since boot by the kernel's own coarse clock. */
u32 zt_uptime_secs(void);

/*
 * The kernel log since it was last marked, without time stamps and without
 * the lines of KUnit; and how many stacks were dumped into it, other than by
 * warnings of the kernel.
 */
void zt_mark_log(void);
const char *zt_log(struct kunit *test);
unsigned int zt_stack_dumps(void);

/*
 * Makes the n-th allocation of this thread fail, counting those that may not
 * sleep. zt_end_failing() returns true when that has happened.
 */
void zt_fail_allocation(unsigned int n);
bool zt_end_failing(void);

/* Runs a function in one context, and returns when it has ended. */
struct zt_call_context {
	const char *name;
	void (*run)(void (*fn)(void *arg), void *arg);
	bool (*is_current)(void);
	bool irqs_off;
};

extern const struct zt_call_context zt_contexts[];
extern const unsigned int zt_context_count;

#define ZT_FOR_EACH_CONTEXT(context)                                           \
	for ((context) = zt_contexts;                                          \
	     (context) < zt_contexts + zt_context_count; (context)++)

/*
 * Damages a word for one call and puts it back. The block is somebody's who
 * keeps it alive across the call.
 */
#define ZT_WITH_WORD(word, value, call)                                        \
	do {                                                                   \
		const typeof(word) zt_kept_ = (word);                          \
                                                                               \
		WRITE_ONCE(word, value);                                       \
		call;                                                          \
		WRITE_ONCE(word, zt_kept_);                                    \
	} while (0)

/*
 * Calls a function with interrupts off and every other processor standing
 * still: nobody else runs until it returns.
 */
void zt_alone(void (*fn)(void *arg), void *arg);

#endif
