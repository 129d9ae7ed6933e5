// SPDX-License-Identifier: GPL-2.0
/*
 * Tracked blocks that somebody damages: what each kind of free finds, says and
 * does. Every test damages one exact word or byte and puts it back, so that
 * the block can be freed in the end.
 */
#include <linux/irqflags.h>
#include <linux/module.h>
#include <linux/slab.h>
#include <linux/string.h>

#include "zorva_test.h"

/* Each of these has one test to itself, which sees its first block. */
enum {
	TWICE = ZT_FAULT_COMPONENT,
	TORN,
	KEPT,
	CLEANED,
	WAS_OWNER,
	BECAME_OWNER,
	OWNER, /* for all tests that do not look at accounts */
	CALLER,
};

/* The one report since the last were forgotten. */
#define EXPECT_FREE_ERROR(test, text, ...)                                     \
	ZT_EXPECT_REPORTS(test,                                                \
			  ZT_ERROR("zorva_mem.cpp", "zorva_free_track", text), \
			  ##__VA_ARGS__)
#define EXPECT_CLEANUP_ERROR(test, text, ...)                                  \
	ZT_EXPECT_REPORTS(test,                                                \
			  ZT_ERROR("zorva_mem.cpp", "zorva_free_cleanup",      \
				   text),                                      \
			  ##__VA_ARGS__)

/*
 * What a second free finds, from its caller "by" and with the first one's
 * place "of". KASAN writes notes of its own to where the magic was.
 */
#define EXPECT_SECOND_FREE(test, by, of)                                       \
	EXPECT_FREE_ERROR(test, "%s",                                          \
			  ZT_KASAN ? "Memory header corrupt! Invalid magic."   \
				   : "Double free detected at " by             \
				     ", originally allocated at " of)

/*
 * The slab allocator writes its link into the middle of an object that was
 * freed. With this size the middle lies in the caller's bytes, so the header
 * and the guard of a freed block last until somebody else gets its memory.
 */
#define SIZE 80u

static void *allocate(struct kunit *test, u32 comp, u32 size)
{
	void *block = zorva_malloc_track(comp, size, "owner.c", 77);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, block);
	return block;
}

/* Another component than the owner: reports name the one that frees. */
static void release(void *block)
{
	zorva_free_track(CALLER, block, "caller.c", 78);
}

static void cleanup(void *block)
{
	zorva_free_cleanup(&block);
}

static void expect_alive(struct kunit *test, void *block)
{
	KUNIT_EXPECT_EQ(test, zt_block_of(block)->in_use, 1u);
	KUNIT_EXPECT_EQ(test, zt_block_of(block)->start_magic, ZT_START_ALIVE);
	KUNIT_EXPECT_EQ(test, zt_block_of(block)->size, SIZE);
	KUNIT_EXPECT_EQ(test, *zt_guard_of(block, SIZE), ZT_GUARD);
	KUNIT_EXPECT_NE(test, strlen(zt_mem_row(test, OWNER)), (size_t)0);
}

/* Reports of damage are made while nobody can change the block. */
static void expect_reported_under_the_lock(struct kunit *test)
{
	KUNIT_ASSERT_EQ(test, zt_report_count(), 1u);
	KUNIT_EXPECT_TRUE(test, zt_report(test, 0)->irqs_off);
}

static void a_free_finds_a_wrong_magic(struct kunit *test)
{
	static const u32 wrong[] = { 0, 0xCAFEBABF, 0x4AFEBABE, 0xDEADBEEF };
	void *user = allocate(test, OWNER, SIZE);
	const u32 *value;

	for (value = wrong; value < wrong + ARRAY_SIZE(wrong); value++) {
		zt_forget_reports();
		zt_mark_log();
		ZT_WITH_WORD(zt_block_of(user)->magic, *value, release(user));

		EXPECT_FREE_ERROR(test,
				  "Memory header corrupt! Invalid magic.");
		expect_reported_under_the_lock(test);
		KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 1u);
		expect_alive(test, user);
	}
	release(user);
}

static void a_free_finds_a_block_not_in_use(struct kunit *test)
{
	void *user = allocate(test, OWNER, SIZE);

	ZT_WITH_WORD(zt_block_of(user)->in_use, 0u, release(user));

	EXPECT_FREE_ERROR(test,
			  "Double free detected at caller.c:78, originally allocated at owner.c:77");
	expect_reported_under_the_lock(test);
	KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 1u);
	expect_alive(test, user);
	release(user);
}

static void a_free_finds_a_wrong_start(struct kunit *test)
{
	static const u32 wrong[] = { 0, 0xAAAAAAAB, 0x2AAAAAAA, 0xDEADBEEF };
	void *user = allocate(test, OWNER, SIZE);
	const u32 *value;

	for (value = wrong; value < wrong + ARRAY_SIZE(wrong); value++) {
		zt_forget_reports();
		zt_mark_log();
		ZT_WITH_WORD(zt_block_of(user)->start_magic, *value,
			     release(user));

		EXPECT_FREE_ERROR(test,
				  "Free invalid ptr: 0x%px start=0x%x (%s, caller.c:78)",
				  user, *value, _componentName[CALLER]);
		expect_reported_under_the_lock(test);
		KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 1u);
		expect_alive(test, user);
	}
	release(user);
}

static void a_free_looks_at_the_magic_first(struct kunit *test)
{
	struct zt_block *block = zt_block_of(allocate(test, OWNER, SIZE));

	block->in_use = 0;
	block->start_magic = 0;
	*zt_guard_of(block + 1, SIZE) = 0;
	ZT_WITH_WORD(block->magic, 0u, release(block + 1));
	EXPECT_FREE_ERROR(test, "Memory header corrupt! Invalid magic.");

	/* Then at its use, then at its start, and last at the guard. */
	zt_forget_reports();
	release(block + 1);
	EXPECT_FREE_ERROR(test,
			  "Double free detected at caller.c:78, originally allocated at owner.c:77");

	zt_forget_reports();
	block->in_use = 1;
	release(block + 1);
	EXPECT_FREE_ERROR(test,
			  "Free invalid ptr: 0x%px start=0x0 (%s, caller.c:78)",
			  block + 1, _componentName[CALLER]);

	zt_forget_reports();
	block->start_magic = ZT_START_ALIVE;
	release(block + 1);
	EXPECT_FREE_ERROR(test,
			  "Memory corruption: guard overwritten (%s, caller.c:78)",
			  _componentName[CALLER]);
	ZT_EXPECT_NO_USAGE(test, OWNER);
}

static void a_free_takes_any_use_but_0(struct kunit *test)
{
	void *user = allocate(test, OWNER, SIZE);

	zt_block_of(user)->in_use = 2;
	release(user);

	ZT_EXPECT_NO_REPORTS(test);
	ZT_EXPECT_NO_USAGE(test, OWNER);
}

/* Nobody else may get the memory between two frees. */
static void free_twice(void *user)
{
	zorva_free_track(CALLER, user, "first.c", 1);
	zorva_free_track(CALLER, user, "a_second_name_of_28_chars.c", 2);
}

static void a_second_free_is_found_and_counted_once(struct kunit *test)
{
	void *kept = allocate(test, TWICE, 5);
	void *user = zorva_malloc_track(TWICE, SIZE, "a_name_of_20_chars.c",
					0xFFFFFFFE);

	zt_alone(free_twice, user);

	/* The caller's file is whole, the block's as the header has it. */
	EXPECT_SECOND_FREE(test, "a_second_name_of_28_chars.c:2",
			   "a_name_of_20_c:-2");
	KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 1u);
	ZT_EXPECT_USAGE(test, TWICE, 5u, 85u, 2u, 1u);
	release(kept);
}

static void clean_up_two(void *places)
{
	void **const place = places;

	zorva_free_cleanup(&place[0]);
	zorva_free_cleanup(&place[1]);
}

static void a_second_cleanup_is_found_and_counted_once(struct kunit *test)
{
	void *kept = allocate(test, CLEANED, 5);
	void *user = allocate(test, CLEANED, SIZE);
	void *places[] = { user, user };

	zt_alone(clean_up_two, places);

	EXPECT_CLEANUP_ERROR(test,
			     "Double free or invalid memory detected: ptr=%px",
			     user);
	ZT_EXPECT_NULL(test, places[0]);
	KUNIT_EXPECT_PTR_EQ(test, places[1], user);
	KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 0u);
	ZT_EXPECT_USAGE(test, CLEANED, 5u, 85u, 2u, 1u);
	release(kept);
}

static void clean_up_and_release(void *user)
{
	void *place = user;

	zorva_free_cleanup(&place);
	release(user);
}

static void a_free_after_a_cleanup_is_found(struct kunit *test)
{
	zt_alone(clean_up_and_release, allocate(test, OWNER, SIZE));

	EXPECT_SECOND_FREE(test, "caller.c:78", "owner.c:77");
}

static void a_pointer_that_is_no_block_is_found(struct kunit *test)
{
	char *memory = kunit_kzalloc(test, 256, GFP_KERNEL);
	void *user = memory + 64, *place = user;

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, memory);

	release(user);
	EXPECT_FREE_ERROR(test, "Memory header corrupt! Invalid magic.");
	KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 1u);

	zt_forget_reports();
	zorva_free_cleanup(&place);
	EXPECT_CLEANUP_ERROR(test,
			     "Double free or invalid memory detected: ptr=%px",
			     user);
	KUNIT_EXPECT_PTR_EQ(test, place, user);
	ZT_EXPECT_NULL(test, memchr_inv(memory, 0, 256));
	ZT_EXPECT_FILE(test, "zorva.mem", ZT_MEM_HEAD);
}

static void a_pointer_into_a_block_is_found(struct kunit *test)
{
	char *user = allocate(test, OWNER, SIZE);
	void *place = user + 4;

	release(user + 4);
	EXPECT_FREE_ERROR(test, "Memory header corrupt! Invalid magic.");

	zt_forget_reports();
	zorva_free_cleanup(&place);
	EXPECT_CLEANUP_ERROR(test,
			     "Double free or invalid memory detected: ptr=%px",
			     user + 4);
	expect_alive(test, user);
	release(user);
}

static void a_free_finds_one_byte_too_many_and_frees(struct kunit *test)
{
	u32 size, byte;

	for (size = 77; size <= SIZE; size++)
		for (byte = SIZE; byte < SIZE + 4; byte++) {
			char *user = allocate(test, OWNER, size);

			zt_forget_reports();
			zt_mark_log();
			user[byte] = 0x5a;
			release(user);

			EXPECT_FREE_ERROR(test,
					  "Memory corruption: guard overwritten (%s, caller.c:78)",
					  _componentName[CALLER]);
			expect_reported_under_the_lock(test);
			KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 1u);
			ZT_EXPECT_NO_USAGE(test, OWNER);
		}
}

static void a_torn_block_that_is_freed_is_counted(struct kunit *test)
{
	char *kept = allocate(test, TORN, 3);
	char *user = allocate(test, TORN, 10);

	user[12] = 1;
	release(user);
	ZT_EXPECT_USAGE(test, TORN, 3u, 13u, 2u, 1u);
	release(kept);
}

static void a_cleanup_finds_one_byte_too_many_and_refuses(struct kunit *test)
{
	char *user = allocate(test, KEPT, 10);
	void *place = user;
	u32 byte;

	for (byte = 12; byte < 16; byte++) {
		const char whole = user[byte];

		zt_forget_reports();
		user[byte] = 0x5a;
		zorva_free_cleanup(&place);
		user[byte] = whole;

		EXPECT_CLEANUP_ERROR(test,
				     "Memory overflow detected before free: ptr=%px",
				     user);
		expect_reported_under_the_lock(test);
		KUNIT_EXPECT_PTR_EQ(test, place, (void *)user);
		ZT_EXPECT_USAGE(test, KEPT, 10u, 10u, 1u, 0u);
	}
	KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 0u);

	zt_forget_reports();
	zorva_free_cleanup(&place);
	ZT_EXPECT_NO_REPORTS(test);
	ZT_EXPECT_NULL(test, place);
	ZT_EXPECT_NO_USAGE(test, KEPT);
}

static void the_bytes_of_the_rounding_are_not_checked(struct kunit *test)
{
	char *user;
	u32 size;

	for (size = 1; size <= 4; size++) {
		user = allocate(test, OWNER, size);
		memset(user, 0x5a, 4);
		release(user);

		user = allocate(test, OWNER, size);
		memset(user, 0x5a, 4);
		cleanup(user);
	}
	ZT_EXPECT_NO_REPORTS(test);

	/* The fifth byte is the guard's. */
	user = allocate(test, OWNER, 1);
	user[4] = 0x5a;
	release(user);
	EXPECT_FREE_ERROR(test,
			  "Memory corruption: guard overwritten (%s, caller.c:78)",
			  _componentName[CALLER]);
}

static void a_cleanup_finds_any_use_but_1(struct kunit *test)
{
	static const u32 wrong[] = { 0, 2, 0x80000001, 0xFFFFFFFF };
	void *user = allocate(test, OWNER, SIZE);
	const u32 *value;

	for (value = wrong; value < wrong + ARRAY_SIZE(wrong); value++) {
		void *place = user;

		zt_forget_reports();
		ZT_WITH_WORD(zt_block_of(user)->in_use, *value,
			     zorva_free_cleanup(&place));

		EXPECT_CLEANUP_ERROR(test,
				     "Double free or invalid memory detected: ptr=%px",
				     user);
		expect_reported_under_the_lock(test);
		KUNIT_EXPECT_PTR_EQ(test, place, user);
		expect_alive(test, user);
	}
	KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 0u);
	cleanup(user);
}

static void a_cleanup_finds_a_wrong_start(struct kunit *test)
{
	static const u32 wrong[] = { 0, 0xAAAAAAAB, 0x2AAAAAAA, 0xDEADBEEF };
	void *user = allocate(test, OWNER, SIZE);
	const u32 *value;

	for (value = wrong; value < wrong + ARRAY_SIZE(wrong); value++) {
		void *place = user;

		zt_forget_reports();
		ZT_WITH_WORD(zt_block_of(user)->start_magic, *value,
			     zorva_free_cleanup(&place));

		EXPECT_CLEANUP_ERROR(test,
				     "Double free or invalid memory detected: ptr=%px",
				     user);
		KUNIT_EXPECT_PTR_EQ(test, place, user);
		expect_alive(test, user);
	}
	KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 0u);
	cleanup(user);
}

static void a_cleanup_does_not_look_at_the_magic(struct kunit *test)
{
	void *user = allocate(test, OWNER, SIZE);

	zt_block_of(user)->magic = 0;
	cleanup(user);

	ZT_EXPECT_NO_REPORTS(test);
	ZT_EXPECT_NO_USAGE(test, OWNER);
}

static void a_wrong_size_moves_the_guard(struct kunit *test)
{
	struct zt_block *block = zt_block_of(allocate(test, OWNER, SIZE));
	void *place = block + 1;

	ZT_WITH_WORD(block->size, SIZE - 4, zorva_free_cleanup(&place));
	EXPECT_CLEANUP_ERROR(test,
			     "Memory overflow detected before free: ptr=%px",
			     block + 1);
	expect_alive(test, block + 1);

	/* Within the rounding it stays where it is. */
	zt_forget_reports();
	block->size = SIZE - 3;
	release(block + 1);
	ZT_EXPECT_NO_REPORTS(test);

	/* What the account has too much goes with a block made larger. */
	block = zt_block_of(allocate(test, OWNER, 5));
	block->size = 8;
	release(block + 1);
	ZT_EXPECT_NO_USAGE(test, OWNER);
}

static void a_wrong_owner_is_debited(struct kunit *test)
{
	void *was = allocate(test, WAS_OWNER, 3);
	void *became = allocate(test, BECAME_OWNER, 100);
	struct zt_block *block = zt_block_of(allocate(test, WAS_OWNER, 10));

	block->comp = BECAME_OWNER;
	release(block + 1);

	ZT_EXPECT_NO_REPORTS(test);
	ZT_EXPECT_USAGE(test, WAS_OWNER, 13u, 13u, 2u, 0u);
	ZT_EXPECT_USAGE(test, BECAME_OWNER, 90u, 100u, 1u, 1u);

	/* The same the other way round settles both accounts. */
	block = zt_block_of(allocate(test, BECAME_OWNER, 10));
	block->comp = WAS_OWNER;
	release(block + 1);
	release(was);
	release(became);
	ZT_EXPECT_FILE(test, "zorva.mem", ZT_MEM_HEAD);
}

static void release_twice(void *user)
{
	release(user);
	release(user);
}

static void a_wrong_file_line_or_time_is_not_checked(struct kunit *test)
{
	struct zt_block *block = zt_block_of(allocate(test, OWNER, SIZE));

	memcpy(block->file, "damaged", 8);
	block->line = 5;
	block->alloc_time = 0xFFFFFFFF;
	zt_alone(release_twice, block + 1);

	/* The second free shows what the header has. */
	EXPECT_SECOND_FREE(test, "caller.c:78", "damaged:5");
}

static void faults_without_a_callers_file_show_null(struct kunit *test)
{
	void *user = allocate(test, OWNER, SIZE);

	ZT_WITH_WORD(zt_block_of(user)->start_magic, 1u,
		     zorva_free_track(CALLER, user, NULL, 0xFFFFFFFF));

	EXPECT_FREE_ERROR(test,
			  "Free invalid ptr: 0x%px start=0x1 (%s, (null):-1)",
			  user, _componentName[CALLER]);
	release(user);
}

static struct kunit_case cases[] = {
	KUNIT_CASE(a_free_finds_a_wrong_magic),
	KUNIT_CASE(a_free_finds_a_block_not_in_use),
	KUNIT_CASE(a_free_finds_a_wrong_start),
	KUNIT_CASE(a_free_looks_at_the_magic_first),
	KUNIT_CASE(a_free_takes_any_use_but_0),
	KUNIT_CASE(a_second_free_is_found_and_counted_once),
	KUNIT_CASE(a_second_cleanup_is_found_and_counted_once),
	KUNIT_CASE(a_free_after_a_cleanup_is_found),
	KUNIT_CASE(a_pointer_that_is_no_block_is_found),
	KUNIT_CASE(a_pointer_into_a_block_is_found),
	KUNIT_CASE(a_free_finds_one_byte_too_many_and_frees),
	KUNIT_CASE(a_torn_block_that_is_freed_is_counted),
	KUNIT_CASE(a_cleanup_finds_one_byte_too_many_and_refuses),
	KUNIT_CASE(the_bytes_of_the_rounding_are_not_checked),
	KUNIT_CASE(a_cleanup_finds_any_use_but_1),
	KUNIT_CASE(a_cleanup_finds_a_wrong_start),
	KUNIT_CASE(a_cleanup_does_not_look_at_the_magic),
	KUNIT_CASE(a_wrong_size_moves_the_guard),
	KUNIT_CASE(a_wrong_owner_is_debited),
	KUNIT_CASE(a_wrong_file_line_or_time_is_not_checked),
	KUNIT_CASE(faults_without_a_callers_file_show_null),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_mem_fault",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Damaged blocks of ZORVA");
