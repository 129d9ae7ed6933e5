// SPDX-License-Identifier: GPL-2.0
/*
 * Senders and receivers that wait: for a slot, for a message, and for the
 * queue's lock.
 */
#include <linux/module.h>
#include <linux/string.h>

#include "zorva_msg_test.h"

static void a_full_queue_refuses_at_once(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "full", 1, 8);
	struct msg_transfer second = MSG_TRANSFER(queue, "2", 1, ZORVA_NO_WAIT);

	msg_put(queue, "1");
	msg_send(&second);

	KUNIT_EXPECT_EQ(test, second.result, ZORVA_RC_FAIL);
	msg_expect_pace(test, &second.pace, 0);
	ZT_EXPECT_REPORTS(test, MSG_SEND_ERRORS("ffffffff", "full", "sender.c",
						"77"));
	msg_expect_messages(test, queue, "1");
	msg_drop(test, queue);
}

static void a_full_queue_is_waited_for_100_ms(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "full", 1, 8);
	struct msg_transfer second = MSG_TRANSFER(queue, "2", 1, 100);

	msg_put(queue, "1");
	msg_send(&second);

	KUNIT_EXPECT_EQ(test, second.result, ZORVA_RC_TIMEOUT);
	msg_expect_pace(test, &second.pace, 100);
	ZT_EXPECT_REPORTS(test, MSG_SEND_ERRORS("7000002a", "full", "sender.c",
						"77"));
	msg_expect_messages(test, queue, "1");
	msg_drop(test, queue);
}

static void a_full_queue_is_waited_for_until_a_receive(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "full", 1, 8);
	struct msg_transfer second =
		MSG_TRANSFER(queue, "2", 1, ZORVA_WAIT_FOREVER);
	struct msg_thread *sender;

	msg_put(queue, "1");
	sender = msg_start(test, msg_send, &second);
	msg_expect_waiting(test, sender);
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_depth(MSG_CALLER, queue), 1);
	ZT_EXPECT_TEXT(test, msg_get(test, queue), "1");
	msg_join(test, sender);

	KUNIT_EXPECT_EQ(test, second.result, ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_max_depth(MSG_CALLER, queue), 1);
	msg_expect_messages(test, queue, "2");
	ZT_EXPECT_NO_REPORTS(test);
	msg_drop(test, queue);
}

static void a_waiting_sender_goes_on_before_its_limit(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "full", 1, 8);
	struct msg_transfer second = MSG_TRANSFER(queue, "2", 1, 4000);
	struct msg_thread *sender;

	msg_put(queue, "1");
	sender = msg_start(test, msg_send, &second);
	msg_expect_waiting(test, sender);
	msg_get(test, queue);
	msg_join(test, sender);

	KUNIT_EXPECT_EQ(test, second.result, ZORVA_RC_OK);
	KUNIT_EXPECT_LT(test, second.pace.ticks, 4ul * HZ);
	msg_expect_messages(test, queue, "2");
	ZT_EXPECT_NO_REPORTS(test);
	msg_drop(test, queue);
}

static void an_empty_queue_has_nothing_at_once(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "empty", 1, 8);
	struct msg_transfer none =
		MSG_TRANSFER(queue, "untouched", 16, ZORVA_NO_WAIT);

	msg_receive(&none);

	KUNIT_EXPECT_EQ(test, none.result, ZORVA_RC_FAIL);
	msg_expect_pace(test, &none.pace, 0);
	ZT_EXPECT_TEXT(test, none.message, "untouched");
	ZT_EXPECT_NO_REPORTS(test);
	msg_drop(test, queue);
}

static void an_empty_queue_is_waited_for_100_ms(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "empty", 1, 8);
	struct msg_transfer none = MSG_TRANSFER(queue, "untouched", 16, 100);

	msg_receive(&none);

	KUNIT_EXPECT_EQ(test, none.result, ZORVA_RC_TIMEOUT);
	msg_expect_pace(test, &none.pace, 100);
	ZT_EXPECT_TEXT(test, none.message, "untouched");
	ZT_EXPECT_NO_REPORTS(test);
	msg_drop(test, queue);
}

static void an_empty_queue_is_waited_for_until_a_send(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "empty", 1, 8);
	struct msg_transfer first =
		MSG_TRANSFER(queue, "", 8, ZORVA_WAIT_FOREVER);
	struct msg_thread *receiver;

	receiver = msg_start(test, msg_receive, &first);
	msg_expect_waiting(test, receiver);
	KUNIT_EXPECT_EQ(test, msg_put(queue, "arrived"), ZORVA_RC_OK);
	msg_join(test, receiver);

	KUNIT_EXPECT_EQ(test, first.result, ZORVA_RC_OK);
	ZT_EXPECT_TEXT(test, first.message, "arrived");
	msg_expect_messages(test, queue, "");
	ZT_EXPECT_NO_REPORTS(test);
	msg_drop(test, queue);
}

static void a_waiting_receiver_goes_on_before_its_limit(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "empty", 1, 8);
	struct msg_transfer first = MSG_TRANSFER(queue, "", 8, 4000);
	struct msg_thread *receiver;

	receiver = msg_start(test, msg_receive, &first);
	msg_expect_waiting(test, receiver);
	msg_put(queue, "arrived");
	msg_join(test, receiver);

	KUNIT_EXPECT_EQ(test, first.result, ZORVA_RC_OK);
	KUNIT_EXPECT_LT(test, first.pace.ticks, 4ul * HZ);
	ZT_EXPECT_TEXT(test, first.message, "arrived");
	ZT_EXPECT_NO_REPORTS(test);
	msg_drop(test, queue);
}

static void waiting_senders_are_served_in_their_order(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "line", 1, 8);
	struct msg_transfer sends[] = {
		MSG_TRANSFER(queue, "b", 1, ZORVA_WAIT_FOREVER),
		MSG_TRANSFER(queue, "c", 1, 4000),
		MSG_TRANSFER(queue, "d", 1, ZORVA_WAIT_FOREVER),
	};
	struct msg_thread *senders[ARRAY_SIZE(sends)];
	unsigned int i;

	msg_put(queue, "a");
	for (i = 0; i < ARRAY_SIZE(sends); i++) {
		senders[i] = msg_start(test, msg_send, &sends[i]);
		msg_expect_waiting(test, senders[i]);
	}
	for (i = 0; i < ARRAY_SIZE(sends); i++) {
		ZT_EXPECT_TEXT(test, msg_get(test, queue), "%c", 'a' + i);
		msg_join(test, senders[i]);
		KUNIT_EXPECT_EQ(test, sends[i].result, ZORVA_RC_OK);
	}
	msg_expect_messages(test, queue, "d");
	msg_drop(test, queue);
}

static void the_locks_histories_show_the_limits(struct kunit *test)
{
	const u32 since = zt_uptime_secs();
	zorva_msg_queue_t *queue = msg_make(test, "limits", 1, 8);
	struct msg_transfer send = MSG_TRANSFER(queue, "x", 1, ZORVA_NO_WAIT);
	const char *report;

	msg_send(&send);
	msg_send(&send);
	send.timeout = 10;
	msg_send(&send);
	report = msg_locks(test, "zorva.sem.detail", since);

	/* A take that failed is there like any other. */
	ZT_EXPECT_TEXT(test, report,
		       MSG_HEAD("semaphore(s)")
			       MSG_LOCK("msgq-limits-rx",
					"Give") "  [T] Give @sender.c, 77\n"
						"\n" MSG_LOCK("msgq-limits-tx",
							      "Take") "  [T] Take @sender.c, 77 (10 msec)\n"
								      "  [T] Take @sender.c, 77 (0 msec)\n"
								      "  [T] Take @sender.c, 77 (0 msec)\n"
								      "\n\nTotal number of Semaphore: 2 (active 2)\n\n",
		       msg_index(test, report, "msgq-limits-rx"),
		       _componentName[MSG_OWNER], MSG_OWNER,
		       msg_index(test, report, "msgq-limits-tx"),
		       _componentName[MSG_OWNER], MSG_OWNER);
	msg_drop(test, queue);
}

static void a_send_has_its_slot_before_it_locks(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "locked", 1, 8);
	struct msg_transfer first = MSG_TRANSFER(queue, "1", 1, ZORVA_NO_WAIT);
	zorva_mutex_t *lock = msg_record_of(queue)->lock;
	struct msg_thread *sender;

	zorva_mutex_take(MSG_CALLER, lock);
	sender = msg_start(test, msg_send, &first);
	msg_expect_waiting(test, sender);
	KUNIT_EXPECT_EQ(test, msg_put(queue, "2"), ZORVA_RC_FAIL);
	KUNIT_EXPECT_EQ(test, msg_record_of(queue)->curr_depth, 0);
	zorva_mutex_give(MSG_CALLER, lock);
	msg_join(test, sender);

	KUNIT_EXPECT_EQ(test, first.result, ZORVA_RC_OK);
	msg_expect_messages(test, queue, "1");
	msg_drop(test, queue);
}

static void a_receive_has_its_message_before_it_locks(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "locked", 2, 8);
	struct msg_transfer first = MSG_TRANSFER(queue, "", 8, ZORVA_NO_WAIT);
	zorva_mutex_t *lock = msg_record_of(queue)->lock;
	struct msg_thread *receiver;

	msg_put(queue, "1");
	zorva_mutex_take(MSG_CALLER, lock);
	receiver = msg_start(test, msg_receive, &first);
	msg_expect_waiting(test, receiver);
	ZT_EXPECT_TEXT(test, msg_get(test, queue), "error 0xffffffff");
	KUNIT_EXPECT_EQ(test, msg_record_of(queue)->curr_depth, 1);
	zorva_mutex_give(MSG_CALLER, lock);
	msg_join(test, receiver);

	KUNIT_EXPECT_EQ(test, first.result, ZORVA_RC_OK);
	ZT_EXPECT_TEXT(test, first.message, "1");
	msg_drop(test, queue);
}

/* A look at a depth, by whichever thread runs it. */
struct look {
	zorva_msg_queue_t *queue;
	s32 (*fn)(u32 comp, zorva_msg_queue_t *queue);
	s32 depth;
};

static void look(void *arg)
{
	struct look *look = arg;

	look->depth = look->fn(MSG_CALLER, look->queue);
}

static void the_depths_are_read_under_the_lock(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "locked", 3, 8);
	struct look looks[] = { { queue, zorva_msg_queue_depth, -7 },
				{ queue, zorva_msg_queue_max_depth, -7 } };
	zorva_mutex_t *lock = msg_record_of(queue)->lock;
	unsigned int i;

	msg_put(queue, "1");
	msg_put(queue, "2");
	msg_get(test, queue);
	for (i = 0; i < ARRAY_SIZE(looks); i++) {
		struct msg_thread *looker;

		zorva_mutex_take(MSG_CALLER, lock);
		looker = msg_start(test, look, &looks[i]);
		msg_expect_waiting(test, looker);
		zorva_mutex_give(MSG_CALLER, lock);
		msg_join(test, looker);
	}

	KUNIT_EXPECT_EQ(test, looks[0].depth, 1);
	KUNIT_EXPECT_EQ(test, looks[1].depth, 2);
	msg_drop(test, queue);
}

/* The report takes no lock of a queue. */
static void the_report_does_not_wait_for_a_queue(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "locked", 3, 8);
	zorva_mutex_t *lock = msg_record_of(queue)->lock;
	struct msg_transfer send = MSG_TRANSFER(queue, "1", 1, ZORVA_NO_WAIT);
	struct msg_thread *sender;

	msg_put(queue, "0");
	zorva_mutex_take(MSG_CALLER, lock);
	sender = msg_start(test, msg_send, &send);
	msg_expect_waiting(test, sender);
	/* Were the lock taken and given here, the sender would get it. */
	ZT_EXPECT_FILE(test, "zorva.msgq", MSG_QUEUE_TEXT, "locked", MSG_OWNER,
		       _componentName[MSG_OWNER], 8, 3, 1, 1);
	KUNIT_EXPECT_TRUE(test, msg_is_waiting(sender));
	zorva_mutex_give(MSG_CALLER, lock);
	msg_join(test, sender);
	ZT_EXPECT_FILE(test, "zorva.msgq", MSG_QUEUE_TEXT, "locked", MSG_OWNER,
		       _componentName[MSG_OWNER], 8, 3, 2, 2);
	msg_drop(test, queue);
}

static struct kunit_case cases[] = {
	KUNIT_CASE(a_full_queue_refuses_at_once),
	KUNIT_CASE(a_full_queue_is_waited_for_100_ms),
	KUNIT_CASE(a_full_queue_is_waited_for_until_a_receive),
	KUNIT_CASE(a_waiting_sender_goes_on_before_its_limit),
	KUNIT_CASE(an_empty_queue_has_nothing_at_once),
	KUNIT_CASE(an_empty_queue_is_waited_for_100_ms),
	KUNIT_CASE(an_empty_queue_is_waited_for_until_a_send),
	KUNIT_CASE(a_waiting_receiver_goes_on_before_its_limit),
	KUNIT_CASE(waiting_senders_are_served_in_their_order),
	KUNIT_CASE(the_locks_histories_show_the_limits),
	KUNIT_CASE(a_send_has_its_slot_before_it_locks),
	KUNIT_CASE(a_receive_has_its_message_before_it_locks),
	KUNIT_CASE(the_depths_are_read_under_the_lock),
	KUNIT_CASE(the_report_does_not_wait_for_a_queue),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_msgq_wait",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Waits for queues of ZORVA");
