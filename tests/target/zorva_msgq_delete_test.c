// SPDX-License-Identifier: GPL-2.0
/*
 * Deletes that fail or come too early. A delete fails only where a lock of
 * the queue has gone from the record: whatever else could make it refuse is
 * tested before the first lock is destroyed.
 */
#include <linux/delay.h>
#include <linux/module.h>
#include <linux/poison.h>
#include <linux/semaphore.h>
#include <linux/string.h>

#include "zorva_msg_test.h"

#define DELETE "zorva_msg_queue_delete_track"

#define DELETE_ERROR(text) ZT_ERROR("zorva_msgq.cpp", DELETE, text)
#define DELETED(name)                                                          \
	ZT_REPORT(3, "zorva_msgq.cpp", DELETE,                                 \
		  "MsgQ '" name "' has been deleted")
#define GONE_MUTEX(name)                                                       \
	ZT_REPORT(3, "zorva_sem.cpp", "zorva_mutex_destroy_track",             \
		  "Mutex '" name "' has been destroyed")
#define GONE_SEM(name)                                                         \
	ZT_REPORT(3, "zorva_sem.cpp", "zorva_sem_destroy_track",               \
		  "Semaphore '" name "' has been destroyed")
#define NO_MUTEX                                                               \
	ZT_ERROR("zorva_sem.cpp", "zorva_mutex_destroy_track",                 \
		 "invalid parameter")
#define NO_SEM                                                                 \
	ZT_ERROR("zorva_sem.cpp", "zorva_sem_destroy_track",                   \
		 "invalid parameter")

/* Expects a queue to be listed, and so many locks that were never used. */
static void expect_registered(struct kunit *test, const char *name,
			      unsigned int mutexes, unsigned int sems)
{
	const u32 since = zt_uptime_secs();

	ZT_EXPECT_FILE(test, "zorva.msgq", MSG_QUEUE_TEXT, name, MSG_OWNER,
		       _componentName[MSG_OWNER], 8, 2, 0, 0);
	ZT_EXPECT_TEXT(test, msg_locks(test, "zorva.mutex.detail", since),
		       MSG_HEAD(
			       "mutex(s)") "\nTotal number of Mutex: %u (active 0)\n\n",
		       mutexes);
	ZT_EXPECT_TEXT(test, msg_locks(test, "zorva.sem.detail", since),
		       MSG_HEAD(
			       "semaphore(s)") "\nTotal number of Semaphore: %u (active 0)\n\n",
		       sems);
}

static void a_delete_stops_at_a_missing_mutex(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "torn", 2, 8);
	u32 result;

	MSG_WITHOUT(msg_record_of(queue)->lock,
		    result = zorva_msg_queue_delete(MSG_OWNER, queue));

	KUNIT_EXPECT_EQ(test, result, ZORVA_RC_NULL_ARG);
	ZT_EXPECT_REPORTS(test, NO_MUTEX DELETE_ERROR("error 0x7e000015"));
	expect_registered(test, "torn", 1, 2);
	KUNIT_EXPECT_EQ(test, msg_put(queue, "x"), ZORVA_RC_OK);
	msg_drop(test, queue);
}

static void a_delete_stops_at_a_missing_tx(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "torn", 2, 8);
	u32 result;

	MSG_WITHOUT(msg_record_of(queue)->tx_sem,
		    result = zorva_msg_queue_delete(MSG_OWNER, queue));

	KUNIT_EXPECT_EQ(test, result, ZORVA_RC_NULL_ARG);
	ZT_EXPECT_REPORTS(test, GONE_MUTEX("msgq-torn-ent") NO_SEM DELETE_ERROR(
					"error 0x7e000015"));
	expect_registered(test, "torn", 0, 2);

	/* With a mutex in the other's place the queue can go. */
	msg_record_of(queue)->lock = zorva_mutex_create(MSG_OWNER, "new");
	msg_drop(test, queue);
}

static void a_delete_stops_at_a_missing_rx(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "torn", 2, 8);
	u32 result;

	MSG_WITHOUT(msg_record_of(queue)->rx_sem,
		    result = zorva_msg_queue_delete(MSG_OWNER, queue));

	KUNIT_EXPECT_EQ(test, result, ZORVA_RC_NULL_ARG);
	ZT_EXPECT_REPORTS(test,
			  GONE_MUTEX("msgq-torn-ent") GONE_SEM("msgq-torn-tx")
				  NO_SEM DELETE_ERROR("error 0x7e000015"));
	expect_registered(test, "torn", 0, 1);

	msg_record_of(queue)->lock = zorva_mutex_create(MSG_OWNER, "new");
	msg_record_of(queue)->tx_sem = zorva_sem_create(MSG_OWNER, "new", 2);
	msg_drop(test, queue);
	ZT_EXPECT_FILE(test, "zorva.msgq", "%s", "");
}

/* A block that the module will not free, and frees once it is mended. */
static void keep(void *block)
{
	zt_block_of(block)->magic = 0;
}

static void give_back(void *block)
{
	zt_block_of(block)->magic = ZT_BLOCK_MAGIC;
	zorva_free(MSG_OWNER, block);
}

#define KEPT                                                                   \
	ZT_ERROR("zorva_mem.cpp", "zorva_free_track",                          \
		 "Memory header corrupt! Invalid magic.")

static void a_deleted_queue_has_poisoned_links(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "links", 2, 8);
	const struct msg_queue_record *record = msg_record_of(queue);

	KUNIT_EXPECT_PTR_EQ(test, (void *)record->link.next,
			    (void *)record->link.prev);
	keep(queue);
	msg_drop(test, queue);

	ZT_EXPECT_REPORTS(test,
			  GONE_MUTEX("msgq-links-ent") GONE_SEM("msgq-links-tx")
				  GONE_SEM("msgq-links-rx") DELETED("links")
					  KEPT);
	KUNIT_EXPECT_PTR_EQ(test, (void *)record->link.next, LIST_POISON1);
	KUNIT_EXPECT_PTR_EQ(test, (void *)record->link.prev, LIST_POISON2);
	give_back(queue);
}

/*
 * The sender goes on in what it has of the queue, which is kept for as long
 * as it does.
 */
static void a_delete_wakes_nobody(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "left", 1, 8);
	const struct msg_queue_record record = *msg_record_of(queue);
	struct msg_transfer second =
		MSG_TRANSFER(queue, "2", 1, ZORVA_WAIT_FOREVER);
	struct msg_thread *sender;

	msg_put(queue, "1");
	sender = msg_start(test, msg_send, &second);
	msg_expect_waiting(test, sender);
	keep(queue);
	keep(record.buffer);
	keep(record.lock);
	keep(record.tx_sem);
	keep(record.rx_sem);
	msg_drop(test, queue);

	ZT_EXPECT_REPORTS(test, GONE_MUTEX("msgq-left-ent")
					KEPT GONE_SEM("msgq-left-tx")
						KEPT GONE_SEM("msgq-left-rx")
							KEPT DELETED("left")
								KEPT KEPT);
	ZT_EXPECT_FILE(test, "zorva.msgq", "%s", "");
	msg_expect_waiting(test, sender);

	/* The kernel's semaphore is the first thing in a tracked one. */
	up((struct semaphore *)record.tx_sem);
	msg_join(test, sender);
	KUNIT_EXPECT_EQ(test, second.result, ZORVA_RC_OK);
	give_back(record.rx_sem);
	give_back(record.tx_sem);
	give_back(record.lock);
	give_back(record.buffer);
	give_back(queue);
}

static void messages_go_with_their_queue(struct kunit *test)
{
	struct zt_block *old = zt_newest_block(test);
	zorva_msg_queue_t *queue = msg_make(test, "filled", 3, 8);

	msg_put(queue, "1");
	msg_put(queue, "2");
	msg_put(queue, "3");
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_delete(MSG_CALLER, queue),
			ZORVA_RC_OK);

	ZT_EXPECT_REPORTS(test, GONE_MUTEX("msgq-filled-ent")
					GONE_SEM("msgq-filled-tx")
						GONE_SEM("msgq-filled-rx")
							DELETED("filled"));
	ZT_EXPECT_TEXT(test, msg_blocks_since(test, old), "%s", "");
}

/* A receiver of the module's own kind, and what became of it. */
struct receiver {
	struct msg_transfer receive;
	bool returned;
};

static void receive_and_tell(void *arg)
{
	struct receiver *receiver = arg;

	msg_receive(&receiver->receive);
	receiver->returned = true;
}

/* It waits on, gives the message back, and ends inside the receive. */
static void a_receiver_told_to_end_leaves_the_message(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "left", 1, 8);
	struct receiver receiver = {
		.receive = MSG_TRANSFER(queue, "was", 8, ZORVA_WAIT_FOREVER),
	};
	unsigned int i;
	u32 pid;

	pid = zorva_thread_create(MSG_OWNER, "receiver", 0, 128,
				  receive_and_tell, &receiver);
	KUNIT_ASSERT_NE(test, pid, 0u);
	msleep(50);
	zt_forget_reports();
	KUNIT_EXPECT_EQ(test, zorva_thread_destroy(MSG_OWNER, pid),
			ZORVA_RC_OK);
	msleep(50);
	KUNIT_EXPECT_EQ(test, msg_put(queue, "x"), ZORVA_RC_OK);
	for (i = 0; i < 500 && zt_report_count() < 2; i++)
		msleep(10);
	/* Its record goes after the report. */
	msleep(20);

	ZT_EXPECT_REPORTS(test,
			  ZT_REPORT(3, "zorva_thread.cpp",
				    "zorva_thread_destroy_track",
				    "Thread 'receiver' has been destroyed")
				  ZT_REPORT(3, "zorva_thread.cpp",
					    "zorva_thread_exit_track",
					    "Thread 'receiver' exit"));
	KUNIT_EXPECT_FALSE(test, receiver.returned);
	ZT_EXPECT_TEXT(test, receiver.receive.message, "was");
	ZT_EXPECT_TEXT(test, msg_get(test, queue), "x");
	msg_drop(test, queue);
}

static struct kunit_case cases[] = {
	KUNIT_CASE(a_delete_stops_at_a_missing_mutex),
	KUNIT_CASE(a_delete_stops_at_a_missing_tx),
	KUNIT_CASE(a_delete_stops_at_a_missing_rx),
	KUNIT_CASE(a_deleted_queue_has_poisoned_links),
	KUNIT_CASE(a_delete_wakes_nobody),
	KUNIT_CASE(messages_go_with_their_queue),
	KUNIT_CASE(a_receiver_told_to_end_leaves_the_message),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_msgq_delete",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Deletes of queues of ZORVA");
