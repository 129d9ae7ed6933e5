// SPDX-License-Identifier: GPL-2.0
/*
 * A queue's record has members at odd addresses. The processor refuses to
 * access them like others; the kernel would then do it in its place, slowly,
 * and counts how often. Here that is not often at all.
 */
#include <linux/fs.h>
#include <linux/module.h>
#include <linux/uaccess.h>

#include "zorva_msg_test.h"

/* Reads a file of a few bytes or more through its own read operation. */
static ssize_t read_file(struct kunit *test, const char *path, char *buffer,
			 size_t size)
{
	struct file *file = zt_open(&zt_files, path, O_RDONLY);
	ssize_t count;

	KUNIT_ASSERT_FALSE_MSG(test, IS_ERR(file), "no %s", path);
	count = zt_read_whole(&zt_files, file, buffer, size);
	filp_close(file, NULL);
	return count;
}

/* The unaligned accesses that the kernel has mended since it started. */
static u32 unaligned_accesses(struct kunit *test)
{
	char text[16];

	KUNIT_ASSERT_GT(test,
			read_file(test,
				  "/sys/kernel/debug/mips/unaligned_instructions",
				  text, sizeof(text)),
			(ssize_t)0);
	return simple_strtoul(text, NULL, 10);
}

/* One load that the processor refuses where it is told to. */
static u32 load_word(const void *address)
{
	u32 word;

	asm volatile("lw %0, 0(%1)" : "=r"(word) : "r"(address) : "memory");
	return word;
}

/* Without this, the tests that follow would prove nothing. */
static void a_trap_would_be_counted(struct kunit *test)
{
	static const u8 bytes[8] __aligned(4) = { 0, 1, 2, 3, 4, 5, 6, 7 };
	const u32 before = unaligned_accesses(test);

	KUNIT_EXPECT_EQ(test, load_word(bytes + 4), 0x04050607u);
	KUNIT_EXPECT_EQ(test, unaligned_accesses(test), before);
	KUNIT_EXPECT_EQ(test, load_word(bytes + 1), 0x01020304u);
	KUNIT_EXPECT_EQ(test, unaligned_accesses(test), before + 1);

	/* The fixture counts from here. */
	zt_init(test);
}

static void an_odd_link_is_reached_without_a_trap(struct kunit *test)
{
	const u32 before = unaligned_accesses(test);
	zorva_msg_queue_t *queues[4];
	const size_t size = 1024;
	char *text = kunit_kmalloc(test, size, GFP_KERNEL);
	unsigned int i, j;

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, text);
	for (i = 0; i < 300; i++) {
		for (j = 0; j < ARRAY_SIZE(queues); j++)
			queues[j] = msg_make(test, "odd", 1, 1);
		KUNIT_EXPECT_EQ(test, 1ul,
				(unsigned long)&msg_record_of(queues[0])->link &
					1);
		KUNIT_EXPECT_GT(test,
				read_file(test, "/proc/zorva/zorva.msgq", text,
					  size),
				(ssize_t)0);
		for (j = 0; j < ARRAY_SIZE(queues); j++)
			msg_drop(test, queues[(i + j) % ARRAY_SIZE(queues)]);
	}
	KUNIT_EXPECT_EQ(test, unaligned_accesses(test), before);
}

static void nor_does_any_other_call_trap(struct kunit *test)
{
	const u32 before = unaligned_accesses(test);
	zorva_msg_queue_t *queue = msg_make(test, "odd", 3, 5);
	char message[16];
	unsigned int i;

	for (i = 0; i < 300; i++) {
		zorva_msg_queue_send(MSG_CALLER, queue, message + i % 4, i % 8,
				     ZORVA_NO_WAIT);
		zorva_msg_queue_depth(MSG_CALLER, queue);
		zorva_msg_queue_max_depth(MSG_CALLER, queue);
		zorva_msg_queue_receive(MSG_CALLER, queue, message + i % 3,
					i % 7, ZORVA_NO_WAIT);
	}
	MSG_WITHOUT(msg_record_of(queue)->lock,
		    zorva_msg_queue_delete(MSG_CALLER, queue));
	MSG_WITHOUT(msg_record_of(queue)->tx_sem,
		    zorva_msg_queue_send(MSG_CALLER, queue, message, 1, 0));
	msg_drop(test, queue);
	for (i = 1; i <= 5; i++) {
		struct zt_block *old = zt_newest_block(test);

		zt_fail_allocation(i);
		ZT_EXPECT_NULL(test,
			       zorva_msg_queue_create(MSG_OWNER, "odd", 1, 1));
		KUNIT_EXPECT_TRUE(test, zt_end_failing());
		if (zt_newest_block(test) != old)
			zorva_mutex_destroy(MSG_OWNER,
					    (void *)(zt_newest_block(test) +
						     1));
	}
	KUNIT_EXPECT_EQ(test, unaligned_accesses(test), before);
}

static struct kunit_case cases[] = {
	KUNIT_CASE(a_trap_would_be_counted),
	KUNIT_CASE(an_odd_link_is_reached_without_a_trap),
	KUNIT_CASE(nor_does_any_other_call_trap),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_msgq_align",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Alignment in queues of ZORVA");
