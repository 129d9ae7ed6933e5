// SPDX-License-Identifier: GPL-2.0
/*
 * Arguments that message queues refuse. Each has a test, and so a line in the
 * report, of its own; after it, all reports show what they showed before.
 */
#include <linux/module.h>

#include "zorva_msg_test.h"

#define CREATE "zorva_msg_queue_create_track"
#define DELETE "zorva_msg_queue_delete_track"
#define SEND "zorva_msg_queue_send_track"
#define RECEIVE "zorva_msg_queue_receive_track"

static s32 refused(struct kunit *test, const char *func)
{
	return msg_refused(test, "zorva_msgq.cpp", func);
}

static void a_create_tests_its_arguments(struct kunit *test)
{
	struct zt_block *old = zt_newest_block(test);
	const char *state = msg_state(test);
	s32 lines[4];
	unsigned int i;

	for (i = 0; i < ARRAY_SIZE(msg_wrong_ids); i++) {
		ZT_EXPECT_NULL(test, zorva_msg_queue_create(msg_wrong_ids[i].id,
							    "no", 0, 0));
		lines[msg_wrong_ids[i].test] = refused(test, CREATE);
	}
	ZT_EXPECT_NULL(test, zorva_msg_queue_create(MSG_OWNER, "no", 0, 0));
	lines[2] = refused(test, CREATE);
	ZT_EXPECT_NULL(test, zorva_msg_queue_create(MSG_OWNER, "no", 0, 8));
	KUNIT_EXPECT_EQ(test, refused(test, CREATE), lines[2]);
	ZT_EXPECT_NULL(test, zorva_msg_queue_create(MSG_OWNER, "no", 8, 0));
	lines[3] = refused(test, CREATE);

	msg_expect_rising(test, lines, 4);
	ZT_EXPECT_TEXT(test, msg_state(test), "%s", state);
	ZT_EXPECT_TEXT(test, msg_blocks_since(test, old), "%s", "");
}

static void a_delete_tests_its_arguments(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "kept", 2, 8);
	const char *state = msg_state(test);
	s32 lines[3];
	unsigned int i;

	for (i = 0; i < ARRAY_SIZE(msg_wrong_ids); i++) {
		const u32 id = msg_wrong_ids[i].id;
		s32 line;

		KUNIT_EXPECT_EQ(test, zorva_msg_queue_delete(id, queue),
				ZORVA_RC_BAD_COMPONENT);
		line = refused(test, DELETE);
		KUNIT_EXPECT_EQ(test, zorva_msg_queue_delete(id, NULL),
				ZORVA_RC_BAD_COMPONENT);
		KUNIT_EXPECT_EQ(test, refused(test, DELETE), line);
		lines[msg_wrong_ids[i].test] = line;
	}
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_delete(MSG_CALLER, NULL),
			ZORVA_RC_NULL_ARG);
	lines[2] = refused(test, DELETE);

	msg_expect_rising(test, lines, 3);
	ZT_EXPECT_TEXT(test, msg_state(test), "%s", state);
	msg_drop(test, queue);
}

static void a_send_tests_its_arguments(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "kept", 2, 8);
	const char *state = msg_state(test);
	s32 lines[4];
	unsigned int i;

	for (i = 0; i < ARRAY_SIZE(msg_wrong_ids); i++) {
		const u32 id = msg_wrong_ids[i].id;

		KUNIT_EXPECT_EQ(test,
				zorva_msg_queue_send(id, queue, "x", 1, 0),
				ZORVA_RC_BAD_COMPONENT);
		refused(test, SEND);
		KUNIT_EXPECT_EQ(test,
				zorva_msg_queue_send(id, NULL, NULL, 1, 0),
				ZORVA_RC_BAD_COMPONENT);
		lines[msg_wrong_ids[i].test] = refused(test, SEND);
	}
	KUNIT_EXPECT_EQ(test,
			zorva_msg_queue_send(MSG_CALLER, NULL, NULL, 1, 0),
			ZORVA_RC_NULL_ARG);
	lines[2] = refused(test, SEND);
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_send(MSG_CALLER, NULL, "x", 1, 0),
			ZORVA_RC_NULL_ARG);
	KUNIT_EXPECT_EQ(test, refused(test, SEND), lines[2]);
	KUNIT_EXPECT_EQ(test,
			zorva_msg_queue_send(MSG_CALLER, queue, NULL, 1, 0),
			ZORVA_RC_NULL_ARG);
	lines[3] = refused(test, SEND);

	msg_expect_rising(test, lines, 4);
	ZT_EXPECT_TEXT(test, msg_state(test), "%s", state);
	msg_drop(test, queue);
}

static void a_receive_tests_its_arguments(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "kept", 2, 8);
	char buffer[8] = "as was";
	const char *state;
	s32 lines[4];
	unsigned int i;

	msg_put(queue, "x");
	state = msg_state(test);
	for (i = 0; i < ARRAY_SIZE(msg_wrong_ids); i++) {
		const u32 id = msg_wrong_ids[i].id;

		KUNIT_EXPECT_EQ(test,
				zorva_msg_queue_receive(id, queue, buffer, 8,
							0),
				ZORVA_RC_BAD_COMPONENT);
		refused(test, RECEIVE);
		KUNIT_EXPECT_EQ(test,
				zorva_msg_queue_receive(id, NULL, NULL, 8, 0),
				ZORVA_RC_BAD_COMPONENT);
		lines[msg_wrong_ids[i].test] = refused(test, RECEIVE);
	}
	KUNIT_EXPECT_EQ(test,
			zorva_msg_queue_receive(MSG_CALLER, NULL, NULL, 8, 0),
			ZORVA_RC_NULL_ARG);
	lines[2] = refused(test, RECEIVE);
	KUNIT_EXPECT_EQ(test,
			zorva_msg_queue_receive(MSG_CALLER, NULL, buffer, 8, 0),
			ZORVA_RC_NULL_ARG);
	KUNIT_EXPECT_EQ(test, refused(test, RECEIVE), lines[2]);
	KUNIT_EXPECT_EQ(test,
			zorva_msg_queue_receive(MSG_CALLER, queue, NULL, 8, 0),
			ZORVA_RC_NULL_ARG);
	lines[3] = refused(test, RECEIVE);

	msg_expect_rising(test, lines, 4);
	ZT_EXPECT_TEXT(test, buffer, "as was");
	ZT_EXPECT_TEXT(test, msg_state(test), "%s", state);
	msg_drop(test, queue);
}

static void expect_depth_tests_its_arguments(
	struct kunit *test, const char *func,
	s32 (*depth)(u32 comp, zorva_msg_queue_t *queue))
{
	zorva_msg_queue_t *queue = msg_make(test, "kept", 2, 8);
	const char *state;
	s32 lines[3];
	unsigned int i;

	msg_put(queue, "x");
	state = msg_state(test);
	for (i = 0; i < ARRAY_SIZE(msg_wrong_ids); i++) {
		const u32 id = msg_wrong_ids[i].id;

		KUNIT_EXPECT_EQ(test, depth(id, queue), -1);
		refused(test, func);
		KUNIT_EXPECT_EQ(test, depth(id, NULL), -1);
		lines[msg_wrong_ids[i].test] = refused(test, func);
	}
	KUNIT_EXPECT_EQ(test, depth(MSG_CALLER, NULL), -1);
	lines[2] = refused(test, func);

	msg_expect_rising(test, lines, 3);
	ZT_EXPECT_TEXT(test, msg_state(test), "%s", state);
	msg_drop(test, queue);
}

static void a_depth_tests_its_arguments(struct kunit *test)
{
	expect_depth_tests_its_arguments(test, "zorva_msg_queue_depth",
					 zorva_msg_queue_depth);
}

static void a_max_depth_tests_its_arguments(struct kunit *test)
{
	expect_depth_tests_its_arguments(test, "zorva_msg_queue_max_depth",
					 zorva_msg_queue_max_depth);
}

static struct kunit_case cases[] = { KUNIT_CASE(a_create_tests_its_arguments),
				     KUNIT_CASE(a_delete_tests_its_arguments),
				     KUNIT_CASE(a_send_tests_its_arguments),
				     KUNIT_CASE(a_receive_tests_its_arguments),
				     KUNIT_CASE(a_depth_tests_its_arguments),
				     KUNIT_CASE(
					     a_max_depth_tests_its_arguments),
				     {} };

static struct kunit_suite suite = {
	.name = "zorva_msgq_args",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Arguments of queues of ZORVA");
