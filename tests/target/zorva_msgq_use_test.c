// SPDX-License-Identifier: GPL-2.0
/* Messages on their way: their order, their lengths, the depths of a queue. */
#include <linux/module.h>
#include <linux/string.h>

#include "zorva_msg_test.h"

static void messages_come_out_in_their_order(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "order", 4, 1);

	KUNIT_EXPECT_EQ(test, msg_put(queue, "a"), ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, msg_put(queue, "b"), ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, msg_put(queue, "c"), ZORVA_RC_OK);

	msg_expect_messages(test, queue, "abc");
	ZT_EXPECT_NO_REPORTS(test);
	msg_drop(test, queue);
}

/* Fills and empties by every number of messages, around the ring. */
static void order_lasts_around_the_ring(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "ring", 5, 4);
	const struct msg_queue_record *record = msg_record_of(queue);
	unsigned int sent = 0, received = 0, round, i;

	for (round = 0; round < 60; round++) {
		for (i = 0; i < round % 6; i++)
			KUNIT_EXPECT_EQ(test, ZORVA_RC_OK,
					msg_put(queue,
						zt_text(test, "%04u", sent++)));
		KUNIT_EXPECT_EQ(test, record->curr_depth, (s32)(round % 6));
		KUNIT_EXPECT_EQ(test, record->write_offset, sent * 4 % 20);
		for (i = 0; i < round % 6; i++)
			ZT_EXPECT_TEXT(test, msg_get(test, queue), "%04u",
				       received++);
		KUNIT_EXPECT_EQ(test, record->curr_depth, 0);
		KUNIT_EXPECT_EQ(test, record->read_offset, received * 4 % 20);
	}
	KUNIT_EXPECT_EQ(test, received, 150u);
	msg_drop(test, queue);
}

static void the_offsets_go_back_at_the_rings_end(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "offsets", 3, 8);
	const struct msg_queue_record *record = msg_record_of(queue);

	msg_put(queue, "1");
	msg_put(queue, "2");
	KUNIT_EXPECT_EQ(test, record->write_offset, 16u);
	msg_put(queue, "3");
	KUNIT_EXPECT_EQ(test, record->write_offset, 0u);
	KUNIT_EXPECT_EQ(test, record->read_offset, 0u);
	msg_get(test, queue);
	msg_get(test, queue);
	KUNIT_EXPECT_EQ(test, record->read_offset, 16u);
	msg_get(test, queue);
	KUNIT_EXPECT_EQ(test, record->read_offset, 0u);
	msg_drop(test, queue);
}

static void a_queue_of_one_byte_works(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "byte", 1, 1);
	unsigned int i;

	for (i = 0; i < 20; i++) {
		KUNIT_EXPECT_EQ(test,
				msg_put(queue, zt_text(test, "%c", 'a' + i)),
				ZORVA_RC_OK);
		ZT_EXPECT_TEXT(test, msg_get(test, queue), "%c", 'a' + i);
	}
	msg_drop(test, queue);
}

static void a_short_message_leaves_the_rest_of_its_slot(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "short", 1, 8);
	char buffer[17] = "................";

	msg_put(queue, "ABCDEFGH");
	msg_get(test, queue);
	msg_put(queue, "xyz");
	KUNIT_EXPECT_EQ(test, ZORVA_RC_OK,
			zorva_msg_queue_receive(MSG_CALLER, queue, buffer, 16,
						ZORVA_NO_WAIT));

	ZT_EXPECT_TEXT(test, buffer, "xyzDEFGH........");
	msg_drop(test, queue);
}

static void a_new_slot_is_zero_behind_a_short_message(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "zero", 2, 8);
	char buffer[16];

	memset(buffer, '.', sizeof(buffer));
	msg_put(queue, "xyz");
	zorva_msg_queue_receive(MSG_CALLER, queue, buffer, 16, ZORVA_NO_WAIT);

	KUNIT_EXPECT_EQ(test, 0, memcmp(buffer, "xyz\0\0\0\0\0........", 16));
	msg_drop(test, queue);
}

static void a_long_message_is_cut(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "long", 2, 8);

	msg_put(queue, "11111111");
	msg_put(queue, "22222222");
	msg_get(test, queue);
	msg_put(queue, "ABCDEFGHIJKLMNOPQRST");

	/* The slot that follows in the ring holds what it held. */
	ZT_EXPECT_TEXT(test, msg_get(test, queue), "22222222");
	ZT_EXPECT_TEXT(test, msg_get(test, queue), "ABCDEFGH");
	msg_put(queue, "ABCDEFGHIJKLMNOPQRST");
	msg_put(queue, "ABCDEFGHIJKLMNOPQRST");
	KUNIT_EXPECT_EQ(test, ZT_GUARD,
			*zt_guard_of(msg_record_of(queue)->buffer, 16));
	ZT_EXPECT_NO_REPORTS(test);
	msg_drop(test, queue);
}

/* Lengths count as they are, without a sign. */
static void a_send_copies_the_smaller_length(struct kunit *test)
{
	static const struct {
		u32 length;
		const char *slot;
	} sends[] = {
		{ 0, "........" },	    { 1, "A......." },
		{ 7, "ABCDEFG." },	    { 8, "ABCDEFGH" },
		{ 9, "ABCDEFGH" },	    { 0x7FFFFFFF, "ABCDEFGH" },
		{ 0x80000000, "ABCDEFGH" }, { 0xFFFFFFFF, "ABCDEFGH" },
	};
	zorva_msg_queue_t *queue = msg_make(test, "sends", 1, 8);
	unsigned int i;

	for (i = 0; i < ARRAY_SIZE(sends); i++) {
		msg_put(queue, "........");
		msg_get(test, queue);
		KUNIT_EXPECT_EQ(test, ZORVA_RC_OK,
				zorva_msg_queue_send(MSG_CALLER, queue,
						     "ABCDEFGHIJKL",
						     sends[i].length,
						     ZORVA_NO_WAIT));
		ZT_EXPECT_TEXT(test, msg_get(test, queue), "%s", sends[i].slot);
	}
	msg_drop(test, queue);
}

static void a_receive_copies_the_smaller_length(struct kunit *test)
{
	static const struct {
		u32 length;
		const char *buffer;
	} receives[] = {
		{ 0, "............" },		{ 1, "A..........." },
		{ 7, "ABCDEFG....." },		{ 8, "ABCDEFGH...." },
		{ 9, "ABCDEFGH...." },		{ 0x7FFFFFFF, "ABCDEFGH...." },
		{ 0x80000000, "ABCDEFGH...." }, { 0xFFFFFFFF, "ABCDEFGH...." },
	};
	zorva_msg_queue_t *queue = msg_make(test, "receives", 1, 8);
	unsigned int i;

	for (i = 0; i < ARRAY_SIZE(receives); i++) {
		char buffer[] = "............";

		msg_put(queue, "ABCDEFGH");
		KUNIT_EXPECT_EQ(test, ZORVA_RC_OK,
				zorva_msg_queue_receive(MSG_CALLER, queue,
							buffer,
							receives[i].length,
							ZORVA_NO_WAIT));
		ZT_EXPECT_TEXT(test, buffer, "%s", receives[i].buffer);
		/* What was not copied is gone all the same. */
		KUNIT_EXPECT_EQ(test, zorva_msg_queue_depth(MSG_CALLER, queue),
				0);
	}
	msg_drop(test, queue);
}

/* Nothing in the module depends on where messages and slots lie. */
static void messages_may_lie_at_any_address(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "odd", 4, 7);
	char from[24] = "", to[24];
	unsigned int i;

	for (i = 0; i < 8; i++) {
		strcpy(from + i, "ABCDEFG");
		memset(to, 0, sizeof(to));
		KUNIT_EXPECT_EQ(test, ZORVA_RC_OK,
				zorva_msg_queue_send(MSG_CALLER, queue,
						     from + i, 7, 0));
		KUNIT_EXPECT_EQ(test, ZORVA_RC_OK,
				zorva_msg_queue_receive(MSG_CALLER, queue,
							to + 7 - i, 7, 0));
		ZT_EXPECT_TEXT(test, to + 7 - i, "ABCDEFG");
	}
	msg_drop(test, queue);
}

static void the_high_water_mark_stays(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "depths", 5, 1);
	unsigned int i;

	KUNIT_EXPECT_EQ(test, zorva_msg_queue_depth(MSG_CALLER, queue), 0);
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_max_depth(MSG_CALLER, queue), 0);
	for (i = 1; i <= 3; i++) {
		msg_put(queue, "m");
		KUNIT_EXPECT_EQ(test, zorva_msg_queue_depth(MSG_CALLER, queue),
				(s32)i);
		KUNIT_EXPECT_EQ(test,
				zorva_msg_queue_max_depth(MSG_CALLER, queue),
				(s32)i);
	}
	for (i = 0; i < 3; i++)
		msg_get(test, queue);
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_depth(MSG_CALLER, queue), 0);
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_max_depth(MSG_CALLER, queue), 3);

	for (i = 0; i < 5; i++)
		msg_put(queue, "m");
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_depth(MSG_CALLER, queue), 5);
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_max_depth(MSG_CALLER, queue), 5);
	/* A message that finds no slot raises neither. */
	msg_put(queue, "m");
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_depth(MSG_CALLER, queue), 5);
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_max_depth(MSG_CALLER, queue), 5);
	msg_drop(test, queue);
}

static struct kunit_case cases[] = {
	KUNIT_CASE(messages_come_out_in_their_order),
	KUNIT_CASE(order_lasts_around_the_ring),
	KUNIT_CASE(the_offsets_go_back_at_the_rings_end),
	KUNIT_CASE(a_queue_of_one_byte_works),
	KUNIT_CASE(a_short_message_leaves_the_rest_of_its_slot),
	KUNIT_CASE(a_new_slot_is_zero_behind_a_short_message),
	KUNIT_CASE(a_long_message_is_cut),
	KUNIT_CASE(a_send_copies_the_smaller_length),
	KUNIT_CASE(a_receive_copies_the_smaller_length),
	KUNIT_CASE(messages_may_lie_at_any_address),
	KUNIT_CASE(the_high_water_mark_stays),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_msgq_use",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Messages in queues of ZORVA");
