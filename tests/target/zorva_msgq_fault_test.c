// SPDX-License-Identifier: GPL-2.0
/*
 * What queues do when something of theirs fails. For a lock that fails, tests
 * take it out of the record for the time of a call: nothing that a caller
 * passes makes one fail, but for a missing file, and a signal that ends the
 * caller.
 */
#include <linux/module.h>
#include <linux/sched/signal.h>
#include <linux/string.h>

#include "zorva_msg_test.h"

#define RECEIVE "zorva_msg_queue_receive_track"

#define QUEUE_ERROR(func, text) ZT_ERROR("zorva_msgq.cpp", func, text)
#define LOCK_ERROR(func, text) ZT_ERROR("zorva_sem.cpp", func, text)
#define LOCK_INFO(func, text) ZT_REPORT(3, "zorva_sem.cpp", func, text)

/* The two lines that every failed send ends with. */
#define SEND_ERRORS(code) MSG_SEND_ERRORS(code, "torn", "sender.c", "77")

static void a_send_passes_on_its_slots_failure(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "torn", 1, 8);
	struct msg_transfer send = MSG_TRANSFER(queue, "x", 1, ZORVA_NO_WAIT);

	MSG_WITHOUT(msg_record_of(queue)->tx_sem, msg_send(&send));

	KUNIT_EXPECT_EQ(test, send.result, ZORVA_RC_NULL_ARG);
	ZT_EXPECT_REPORTS(test, LOCK_ERROR("zorva_sem_take_track",
					   "invalid parameter")
					SEND_ERRORS("7e000015"));
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_depth(MSG_CALLER, queue), 0);
	KUNIT_EXPECT_EQ(test, msg_put(queue, "y"), ZORVA_RC_OK);
	msg_drop(test, queue);
}

static void a_send_without_a_file_fails_at_its_slot(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "torn", 1, 8);

	KUNIT_EXPECT_EQ(test, ZORVA_RC_NULL_ARG,
			zorva_msg_queue_send_track(MSG_CALLER, queue, "x", 1, 0,
						   NULL, 77));

	ZT_EXPECT_REPORTS(test, LOCK_ERROR("zorva_sem_take_track",
					   "invalid parameter")
					MSG_SEND_ERRORS("7e000015", "torn",
							"(null)", "77"));
	KUNIT_EXPECT_EQ(test, msg_put(queue, "y"), ZORVA_RC_OK);
	msg_drop(test, queue);
}

static void a_send_loses_its_slot_with_the_lock(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "torn", 1, 8);
	struct msg_transfer send = MSG_TRANSFER(queue, "x", 1, ZORVA_NO_WAIT);

	MSG_WITHOUT(msg_record_of(queue)->lock, msg_send(&send));

	KUNIT_EXPECT_EQ(test, send.result, ZORVA_RC_NULL_ARG);
	ZT_EXPECT_REPORTS(test, LOCK_ERROR("zorva_mutex_take_track",
					   "invalid parameter")
					SEND_ERRORS("7e000015"));
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_depth(MSG_CALLER, queue), 0);
	/* The only slot is gone for good. */
	KUNIT_EXPECT_EQ(test, msg_put(queue, "y"), ZORVA_RC_FAIL);
	ZT_EXPECT_TEXT(test, msg_get(test, queue), "error 0xffffffff");
	KUNIT_EXPECT_EQ(test, msg_put(queue, "y"), ZORVA_RC_FAIL);
	msg_drop(test, queue);
}

static void a_send_that_cannot_signal_has_stored_its_message(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "torn", 2, 8);
	struct msg_transfer send = MSG_TRANSFER(queue, "x", 1, ZORVA_NO_WAIT);

	MSG_WITHOUT(msg_record_of(queue)->rx_sem, msg_send(&send));

	KUNIT_EXPECT_EQ(test, send.result, ZORVA_RC_NULL_ARG);
	ZT_EXPECT_REPORTS(test, LOCK_ERROR("zorva_sem_give_track",
					   "invalid parameter")
					SEND_ERRORS("7e000015"));
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_depth(MSG_CALLER, queue), 1);
	ZT_EXPECT_TEXT(test, msg_get(test, queue), "error 0xffffffff");
	/* The lock was given back: others go on, one message behind. */
	KUNIT_EXPECT_EQ(test, msg_put(queue, "y"), ZORVA_RC_OK);
	ZT_EXPECT_TEXT(test, msg_get(test, queue), "x");
	msg_drop(test, queue);
}

static void a_receive_passes_on_its_takes_failure(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "torn", 1, 8);
	struct msg_transfer receive =
		MSG_TRANSFER(queue, "was", 8, ZORVA_NO_WAIT);

	msg_put(queue, "x");
	MSG_WITHOUT(msg_record_of(queue)->rx_sem, msg_receive(&receive));

	KUNIT_EXPECT_EQ(test, receive.result, ZORVA_RC_NULL_ARG);
	ZT_EXPECT_REPORTS(test, LOCK_ERROR("zorva_sem_take_track",
					   "invalid parameter"));
	ZT_EXPECT_TEXT(test, receive.message, "was");
	ZT_EXPECT_TEXT(test, msg_get(test, queue), "x");
	msg_drop(test, queue);
}

static void a_receive_without_a_file_fails_at_its_take(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "torn", 1, 8);
	char buffer[8] = "was";

	msg_put(queue, "x");
	KUNIT_EXPECT_EQ(test, ZORVA_RC_NULL_ARG,
			zorva_msg_queue_receive_track(MSG_CALLER, queue, buffer,
						      8, 0, NULL, 78));

	ZT_EXPECT_REPORTS(test, LOCK_ERROR("zorva_sem_take_track",
					   "invalid parameter"));
	ZT_EXPECT_TEXT(test, buffer, "was");
	ZT_EXPECT_TEXT(test, msg_get(test, queue), "x");
	msg_drop(test, queue);
}

static void a_receive_loses_its_message_with_the_lock(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "torn", 2, 8);
	struct msg_transfer receive =
		MSG_TRANSFER(queue, "was", 8, ZORVA_NO_WAIT);

	msg_put(queue, "x");
	MSG_WITHOUT(msg_record_of(queue)->lock, msg_receive(&receive));

	KUNIT_EXPECT_EQ(test, receive.result, ZORVA_RC_NULL_ARG);
	ZT_EXPECT_REPORTS(test,
			  LOCK_ERROR("zorva_mutex_take_track",
				     "invalid parameter")
				  QUEUE_ERROR(RECEIVE, "error 0x7e000015"));
	ZT_EXPECT_TEXT(test, receive.message, "was");
	/* It is still in the ring, but nobody counts it any more. */
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_depth(MSG_CALLER, queue), 1);
	ZT_EXPECT_TEXT(test, msg_get(test, queue), "error 0xffffffff");
	msg_drop(test, queue);
}

static void
a_receive_that_cannot_free_its_slot_has_the_message(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "torn", 1, 8);
	struct msg_transfer receive = MSG_TRANSFER(queue, "", 8, ZORVA_NO_WAIT);

	msg_put(queue, "x");
	MSG_WITHOUT(msg_record_of(queue)->tx_sem, msg_receive(&receive));

	KUNIT_EXPECT_EQ(test, receive.result, ZORVA_RC_NULL_ARG);
	ZT_EXPECT_REPORTS(test,
			  LOCK_ERROR("zorva_sem_give_track",
				     "invalid parameter")
				  QUEUE_ERROR(RECEIVE, "error 0x7e000015"));
	ZT_EXPECT_TEXT(test, receive.message, "x");
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_depth(MSG_CALLER, queue), 0);
	KUNIT_EXPECT_EQ(test, msg_put(queue, "y"), ZORVA_RC_FAIL);
	msg_drop(test, queue);
}

static void a_depth_is_told_even_without_the_lock(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "torn", 3, 8);
	s32 depth, max_depth;

	msg_put(queue, "1");
	msg_put(queue, "2");
	msg_get(test, queue);
	MSG_WITHOUT(msg_record_of(queue)->lock,
		    depth = zorva_msg_queue_depth(MSG_CALLER, queue));
	MSG_WITHOUT(msg_record_of(queue)->lock,
		    max_depth = zorva_msg_queue_max_depth(MSG_CALLER, queue));

	KUNIT_EXPECT_EQ(test, depth, 1);
	KUNIT_EXPECT_EQ(test, max_depth, 2);
	ZT_EXPECT_REPORTS(test,
			  LOCK_ERROR("zorva_mutex_take_track",
				     "invalid parameter")
				  LOCK_ERROR("zorva_mutex_give_track",
					     "invalid parameter")
					  LOCK_ERROR("zorva_mutex_take_track",
						     "invalid parameter")
						  LOCK_ERROR("zorva_mutex_give_track",
							     "invalid parameter"));
	msg_drop(test, queue);
}

/* A thread of the kernel, none of the module's, that is told to end. */
static void send_when_told_to_end(void *arg)
{
	allow_signal(SIGKILL);
	send_sig(SIGKILL, current, 1);
	msg_send(arg);
}

static void receive_when_told_to_end(void *arg)
{
	allow_signal(SIGKILL);
	send_sig(SIGKILL, current, 1);
	msg_receive(arg);
}

/* The report of a thread's exit has a line of the module at its end. */
static const char *no_such_thread(struct kunit *test)
{
	const char *comma = "";

	if (zt_report_count())
		comma = strrchr(zt_report(test, 0)->text, ',') ?: "";
	return zt_text(test,
		       ZT_ERROR("zorva_thread.cpp", "zorva_thread_exit_track",
				"cannot find target thread. (zorva_sem.cpp, %lu)"),
		       *comma ? simple_strtoul(comma + 2, NULL, 10) : 0);
}

static void a_send_passes_on_what_ends_its_caller(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "torn", 1, 8);
	struct msg_transfer send = MSG_TRANSFER(queue, "x", 1, ZORVA_NO_WAIT);

	msg_join(test, msg_start(test, send_when_told_to_end, &send));

	KUNIT_EXPECT_EQ(test, send.result, ZORVA_RC_NOT_FOUND);
	ZT_EXPECT_REPORTS(test,
			  "%s" LOCK_ERROR("zorva_sem_take_track",
					  "error 0x7000000e")
				  SEND_ERRORS("7000000e"),
			  no_such_thread(test));
	/* The slot that it had taken was put back. */
	KUNIT_EXPECT_EQ(test, msg_put(queue, "y"), ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, msg_put(queue, "z"), ZORVA_RC_FAIL);
	ZT_EXPECT_TEXT(test, msg_get(test, queue), "y");
	msg_drop(test, queue);
}

static void a_receive_passes_on_what_ends_its_caller(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "torn", 1, 8);
	struct msg_transfer receive =
		MSG_TRANSFER(queue, "was", 8, ZORVA_NO_WAIT);

	msg_put(queue, "x");
	msg_join(test, msg_start(test, receive_when_told_to_end, &receive));

	KUNIT_EXPECT_EQ(test, receive.result, ZORVA_RC_NOT_FOUND);
	ZT_EXPECT_REPORTS(test,
			  "%s" LOCK_ERROR("zorva_sem_take_track",
					  "error 0x7000000e"),
			  no_such_thread(test));
	ZT_EXPECT_TEXT(test, receive.message, "was");
	ZT_EXPECT_TEXT(test, msg_get(test, queue), "x");
	msg_drop(test, queue);
}

#define CREATE_ERROR(text) QUEUE_ERROR("zorva_msg_queue_create_track", text)
#define MADE_MUTEX                                                             \
	LOCK_INFO("zorva_mutex_create_track",                                  \
		  "Mutex 'msgq-lean-ent' has been created")
#define MADE_SEM(suffix)                                                       \
	LOCK_INFO("zorva_sem_create_track",                                    \
		  "Semaphore 'msgq-lean-" suffix "' has been created")
#define FREED_SEM(suffix)                                                      \
	LOCK_INFO("zorva_sem_destroy_track",                                   \
		  "Semaphore 'msgq-lean-" suffix "' has been destroyed")
#define NO_SEM LOCK_ERROR("zorva_sem_destroy_track", "invalid parameter")

/* A create of which the n-th allocation fails. */
static zorva_msg_queue_t *make_lean(unsigned int n)
{
	zorva_msg_queue_t *queue;

	zt_forget_reports();
	zt_mark_log();
	zt_fail_allocation(n);
	queue = zorva_msg_queue_create(MSG_OWNER, "lean", 4, 8);
	return queue;
}

/* What the locks of a queue take. */
static void measure_locks(struct kunit *test, u32 *mutex, u32 *sem)
{
	zorva_msg_queue_t *queue = msg_make(test, "measure", 1, 1);

	*mutex = zt_block_of(msg_record_of(queue)->lock)->size;
	*sem = zt_block_of(msg_record_of(queue)->tx_sem)->size;
	msg_drop(test, queue);
}

/* Expects that no queue and no lock is registered, and no block in use. */
static void expect_nothing_left(struct kunit *test, struct zt_block *old)
{
	const u32 since = zt_uptime_secs();

	KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 1u);
	ZT_EXPECT_TEXT(test, msg_blocks_since(test, old), "%s", "");
	ZT_EXPECT_FILE(test, "zorva.msgq", "%s", "");
	ZT_EXPECT_TEXT(test, msg_locks(test, "zorva.mutex.detail", since),
		       MSG_HEAD(
			       "mutex(s)") "\nTotal number of Mutex: 0 (active 0)\n\n");
	ZT_EXPECT_TEXT(test, msg_locks(test, "zorva.sem.detail", since),
		       MSG_HEAD(
			       "semaphore(s)") "\nTotal number of Semaphore: 0 (active 0)\n\n");
}

/*
 * Expects that of all that was made only the mutex is left, which nobody has
 * a handle of: here it is found as the newest block, and taken away.
 */
static void expect_only_the_mutex_left(struct kunit *test, struct zt_block *old,
				       u32 mutex)
{
	const u32 since = zt_uptime_secs();
	struct zt_block *left = zt_newest_block(test);

	ZT_EXPECT_TEXT(test, msg_blocks_since(test, old),
		       "%u bytes of 53, zorva_sem.cpp\n", mutex);
	ZT_EXPECT_TEXT(test, msg_locks(test, "zorva.mutex.detail", since),
		       MSG_HEAD(
			       "mutex(s)") "\nTotal number of Mutex: 1 (active 0)\n\n");
	KUNIT_ASSERT_PTR_NE(test, left, old);
	zt_forget_reports();
	zorva_mutex_destroy(MSG_OWNER, (zorva_mutex_t *)(left + 1));
	ZT_EXPECT_REPORTS(test,
			  LOCK_INFO("zorva_mutex_destroy_track",
				    "Mutex 'msgq-lean-ent' has been destroyed"));
	expect_nothing_left(test, old);
}

static void without_memory_for_the_record_there_is_nothing(struct kunit *test)
{
	struct zt_block *old = zt_newest_block(test);

	ZT_EXPECT_NULL(test, make_lean(1));

	KUNIT_EXPECT_TRUE(test, zt_end_failing());
	ZT_EXPECT_REPORTS(test,
			  "%s" CREATE_ERROR(
				  "allocate memory failed.(%u bytes)"),
			  msg_no_memory(test, 0,
					sizeof(struct msg_queue_record),
					"zorva_msgq.cpp"),
			  (u32)sizeof(struct msg_queue_record));
	expect_nothing_left(test, old);
}

static void without_memory_for_the_ring_nothing_stays(struct kunit *test)
{
	struct zt_block *old = zt_newest_block(test);

	ZT_EXPECT_NULL(test, make_lean(2));

	KUNIT_EXPECT_TRUE(test, zt_end_failing());
	ZT_EXPECT_REPORTS(test,
			  "%s" CREATE_ERROR(
				  "allocate memory failed.(32 bytes)"),
			  msg_no_memory(test, 0, 32, "zorva_msgq.cpp"));
	expect_nothing_left(test, old);
}

static void without_memory_for_the_mutex_nothing_stays(struct kunit *test)
{
	struct zt_block *old;
	u32 mutex, sem;

	measure_locks(test, &mutex, &sem);
	old = zt_newest_block(test);
	ZT_EXPECT_NULL(test, make_lean(3));

	KUNIT_EXPECT_TRUE(test, zt_end_failing());
	ZT_EXPECT_REPORTS(test, "%s" CREATE_ERROR("create mutex failed."),
			  msg_no_memory(test, 0, mutex, "zorva_sem.cpp"));
	expect_nothing_left(test, old);
}

static void without_memory_for_tx_the_mutex_stays(struct kunit *test)
{
	struct zt_block *old;
	u32 mutex, sem;

	measure_locks(test, &mutex, &sem);
	old = zt_newest_block(test);
	ZT_EXPECT_NULL(test, make_lean(4));

	/* The other one is made all the same. */
	KUNIT_EXPECT_TRUE(test, zt_end_failing());
	ZT_EXPECT_REPORTS(test,
			  MADE_MUTEX "%s" MADE_SEM("rx")
				  CREATE_ERROR("create mutex failed.")
					  NO_SEM FREED_SEM("rx"),
			  msg_no_memory(test, 1, sem, "zorva_sem.cpp"));
	expect_only_the_mutex_left(test, old, mutex);
}

static void without_memory_for_rx_the_mutex_stays(struct kunit *test)
{
	struct zt_block *old;
	u32 mutex, sem;

	measure_locks(test, &mutex, &sem);
	old = zt_newest_block(test);
	ZT_EXPECT_NULL(test, make_lean(5));

	KUNIT_EXPECT_TRUE(test, zt_end_failing());
	ZT_EXPECT_REPORTS(test,
			  MADE_MUTEX MADE_SEM("tx") "%s" CREATE_ERROR(
				  "create mutex failed.") FREED_SEM("tx")
				  NO_SEM,
			  msg_no_memory(test, 2, sem, "zorva_sem.cpp"));
	expect_only_the_mutex_left(test, old, mutex);
}

static void a_create_allocates_five_times(struct kunit *test)
{
	zorva_msg_queue_t *queue = make_lean(6);

	KUNIT_EXPECT_FALSE(test, zt_end_failing());
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, queue);
	KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 0u);
	msg_drop(test, queue);
}

/* 65536 slots of 65536 bytes are 0 bytes in 32 bits. */
static void a_ring_whose_size_wraps_to_0_is_not_made(struct kunit *test)
{
	struct zt_block *old = zt_newest_block(test);

	ZT_EXPECT_NULL(test,
		       zorva_msg_queue_create(MSG_OWNER, "zero", 65536, 65536));

	ZT_EXPECT_REPORTS(test,
			  ZT_ERROR("zorva_mem.cpp", "zorva_malloc_track",
				   "invalid parameter")
				  CREATE_ERROR(
					  "allocate memory failed.(0 bytes)"));
	ZT_EXPECT_TEXT(test, msg_blocks_since(test, old), "%s", "");
	ZT_EXPECT_FILE(test, "zorva.msgq", "%s", "");
}

static void nothing_else_allocates(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "lean", 1, 8);
	struct msg_transfer send =
		MSG_TRANSFER(queue, "x", 1, ZORVA_WAIT_FOREVER);

	zt_fail_allocation(1);
	msg_send(&send);
	msg_send((send.timeout = 0, &send));
	msg_send((send.timeout = 10, &send));
	zorva_msg_queue_depth(MSG_CALLER, queue);
	zorva_msg_queue_max_depth(MSG_CALLER, queue);
	msg_receive(&send);
	zorva_msg_queue_delete(MSG_CALLER, queue);
	KUNIT_EXPECT_FALSE(test, zt_end_failing());
}

static struct kunit_case cases[] = {
	KUNIT_CASE(a_send_passes_on_its_slots_failure),
	KUNIT_CASE(a_send_without_a_file_fails_at_its_slot),
	KUNIT_CASE(a_send_loses_its_slot_with_the_lock),
	KUNIT_CASE(a_send_that_cannot_signal_has_stored_its_message),
	KUNIT_CASE(a_receive_passes_on_its_takes_failure),
	KUNIT_CASE(a_receive_without_a_file_fails_at_its_take),
	KUNIT_CASE(a_receive_loses_its_message_with_the_lock),
	KUNIT_CASE(a_receive_that_cannot_free_its_slot_has_the_message),
	KUNIT_CASE(a_depth_is_told_even_without_the_lock),
	KUNIT_CASE(a_send_passes_on_what_ends_its_caller),
	KUNIT_CASE(a_receive_passes_on_what_ends_its_caller),
	KUNIT_CASE(without_memory_for_the_record_there_is_nothing),
	KUNIT_CASE(without_memory_for_the_ring_nothing_stays),
	KUNIT_CASE(without_memory_for_the_mutex_nothing_stays),
	KUNIT_CASE(without_memory_for_tx_the_mutex_stays),
	KUNIT_CASE(without_memory_for_rx_the_mutex_stays),
	KUNIT_CASE(a_create_allocates_five_times),
	KUNIT_CASE(a_ring_whose_size_wraps_to_0_is_not_made),
	KUNIT_CASE(nothing_else_allocates),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_msgq_fault",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Queues of ZORVA that fail");
