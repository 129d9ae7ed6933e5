// SPDX-License-Identifier: GPL-2.0
/*
 * What events refuse, and what they do when something of theirs fails. For a
 * lock that fails, tests take it out of the record for the time of a call:
 * nothing that a caller passes makes one fail, but for a signal that ends the
 * caller.
 */
#include <linux/module.h>
#include <linux/sched/signal.h>
#include <linux/semaphore.h>
#include <linux/string.h>

#include "zorva_event_test.h"

#define EVENT_ERROR(func, text) ZT_ERROR("zorva_event.cpp", func, text)
#define LOCK_ERROR(func, text) ZT_ERROR("zorva_sem.cpp", func, text)

static s32 refused(struct kunit *test, const char *func)
{
	return msg_refused(test, "zorva_event.cpp", func);
}

static void a_create_tests_its_arguments(struct kunit *test)
{
	struct zt_block *old = zt_newest_block(test);
	const char *state = msg_state(test);
	unsigned int i;
	s32 lines[2];

	for (i = 0; i < ARRAY_SIZE(msg_wrong_ids); i++) {
		ZT_EXPECT_NULL(test,
			       zorva_event_create(msg_wrong_ids[i].id, "no"));
		lines[msg_wrong_ids[i].test] =
			refused(test, "zorva_event_create");
	}

	msg_expect_rising(test, lines, 2);
	ZT_EXPECT_TEXT(test, msg_state(test), "%s", state);
	ZT_EXPECT_TEXT(test, msg_blocks_since(test, old), "%s", "");
}

static void a_set_tests_its_arguments(struct kunit *test)
{
	zorva_event_t *event = make(test, "kept");
	const char *state = msg_state(test);
	const u32 bits[2] = { 1, 2 };
	unsigned int i;
	s32 lines[4];

	for (i = 0; i < ARRAY_SIZE(msg_wrong_ids); i++) {
		const u32 id = msg_wrong_ids[i].id;

		KUNIT_EXPECT_EQ(test, zorva_event_set(id, event, bits),
				ZORVA_RC_BAD_COMPONENT);
		refused(test, "zorva_event_set");
		KUNIT_EXPECT_EQ(test, zorva_event_set(id, NULL, NULL),
				ZORVA_RC_BAD_COMPONENT);
		lines[msg_wrong_ids[i].test] = refused(test, "zorva_event_set");
	}
	KUNIT_EXPECT_EQ(test, zorva_event_set(MSG_CALLER, NULL, NULL),
			ZORVA_RC_NULL_ARG);
	lines[2] = refused(test, "zorva_event_set");
	KUNIT_EXPECT_EQ(test, zorva_event_set(MSG_CALLER, NULL, bits),
			ZORVA_RC_NULL_ARG);
	KUNIT_EXPECT_EQ(test, refused(test, "zorva_event_set"), lines[2]);
	KUNIT_EXPECT_EQ(test, zorva_event_set(MSG_CALLER, event, NULL),
			ZORVA_RC_NULL_ARG);
	lines[3] = refused(test, "zorva_event_set");

	msg_expect_rising(test, lines, 4);
	ZT_EXPECT_TEXT(test, msg_state(test), "%s", state);
	KUNIT_EXPECT_EQ(test, record_of(event)->pending[0], 0u);
	KUNIT_EXPECT_EQ(test, record_of(event)->pending[1], 0u);
	drop(test, event);
}

/* The output is cleared by what follows, not before. */
static void a_wait_tests_its_arguments(struct kunit *test)
{
	zorva_event_t *event = make(test, "kept");
	u32 bits[2] = { 0x55, 0xAA };
	const char *state;
	unsigned int i;
	s32 lines[4];

	put(event, 1, 2);
	state = msg_state(test);
	for (i = 0; i < ARRAY_SIZE(msg_wrong_ids); i++) {
		const u32 id = msg_wrong_ids[i].id;

		KUNIT_EXPECT_EQ(test, zorva_event_wait(id, event, bits, 0),
				ZORVA_RC_BAD_COMPONENT);
		refused(test, "zorva_event_wait");
		KUNIT_EXPECT_EQ(test, zorva_event_wait(id, NULL, bits, 0),
				ZORVA_RC_BAD_COMPONENT);
		lines[msg_wrong_ids[i].test] =
			refused(test, "zorva_event_wait");
	}
	KUNIT_EXPECT_EQ(test, zorva_event_wait(MSG_CALLER, NULL, bits, 0),
			ZORVA_RC_NULL_ARG);
	lines[2] = refused(test, "zorva_event_wait");
	record_of(event)->component = 0;
	KUNIT_EXPECT_EQ(test, zorva_event_wait(MSG_CALLER, event, bits, 0),
			ZORVA_RC_FAIL);
	lines[3] = refused(test, "zorva_event_wait");
	record_of(event)->component = MSG_OWNER;

	msg_expect_rising(test, lines, 4);
	KUNIT_EXPECT_EQ(test, bits[0], 0x55u);
	KUNIT_EXPECT_EQ(test, bits[1], 0xAAu);
	ZT_EXPECT_TEXT(test, msg_state(test), "%s", state);
	expect_bits(test, event, 1, 2);
	drop(test, event);
}

static void a_destroy_tests_its_arguments(struct kunit *test)
{
	zorva_event_t *event = make(test, "kept");
	const char *state = msg_state(test);
	unsigned int i;
	s32 lines[4];

	for (i = 0; i < ARRAY_SIZE(msg_wrong_ids); i++) {
		const u32 id = msg_wrong_ids[i].id;

		KUNIT_EXPECT_EQ(test, zorva_event_destroy(id, event),
				ZORVA_RC_BAD_COMPONENT);
		refused(test, "zorva_event_destroy");
		KUNIT_EXPECT_EQ(test, zorva_event_destroy(id, NULL),
				ZORVA_RC_BAD_COMPONENT);
		lines[msg_wrong_ids[i].test] =
			refused(test, "zorva_event_destroy");
	}
	KUNIT_EXPECT_EQ(test, zorva_event_destroy(MSG_CALLER, NULL),
			ZORVA_RC_NULL_ARG);
	lines[2] = refused(test, "zorva_event_destroy");
	record_of(event)->component = 0;
	KUNIT_EXPECT_EQ(test, zorva_event_destroy(MSG_CALLER, event),
			ZORVA_RC_FAIL);
	lines[3] = refused(test, "zorva_event_destroy");
	record_of(event)->component = MSG_OWNER;

	msg_expect_rising(test, lines, 4);
	ZT_EXPECT_TEXT(test, msg_state(test), "%s", state);
	drop(test, event);
}

static void a_set_does_not_ask_whether_the_event_is_complete(struct kunit *test)
{
	zorva_event_t *event = make(test, "unfinished");

	record_of(event)->component = 0;
	KUNIT_EXPECT_EQ(test, put(event, 1, 2), ZORVA_RC_OK);
	ZT_EXPECT_NO_REPORTS(test);

	record_of(event)->component = MSG_OWNER;
	expect_bits(test, event, 1, 2);
	drop(test, event);
}

#define CREATE_ERROR(text) EVENT_ERROR("zorva_event_create", text)
#define MADE_SEM                                                               \
	LOCK_INFO("zorva_sem_create_track", "Semaphore 'lean' has been created")

static void expect_nothing_left(struct kunit *test, struct zt_block *old)
{
	const u32 since = zt_uptime_secs();

	KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 1u);
	ZT_EXPECT_TEXT(test, msg_blocks_since(test, old), "%s", "");
	ZT_EXPECT_TEXT(test, msg_locks(test, "zorva.mutex.detail", since),
		       MSG_HEAD(
			       "mutex(s)") "\nTotal number of Mutex: 0 (active 0)\n\n");
	ZT_EXPECT_TEXT(test, msg_locks(test, "zorva.sem.detail", since),
		       MSG_HEAD(
			       "semaphore(s)") "\nTotal number of Semaphore: 0 (active 0)\n\n");
}

/* A create of which the n-th allocation fails, after one that measures. */
static void fail_create(struct kunit *test, unsigned int n, u32 *sem,
			u32 *mutex)
{
	zorva_event_t *event = make(test, "measure");

	*sem = zt_block_of(record_of(event)->signal)->size;
	*mutex = zt_block_of(record_of(event)->lock)->size;
	drop(test, event);

	zt_forget_reports();
	zt_mark_log();
	zt_fail_allocation(n);
	event = zorva_event_create(MSG_OWNER, "lean");
	KUNIT_EXPECT_TRUE(test, zt_end_failing());
	ZT_EXPECT_NULL(test, event);
}

static void without_memory_for_the_record_there_is_nothing(struct kunit *test)
{
	struct zt_block *old = zt_newest_block(test);
	u32 sem, mutex;

	fail_create(test, 1, &sem, &mutex);

	ZT_EXPECT_REPORTS(test,
			  "%s" CREATE_ERROR(
				  "allocate memory failed. (%u bytes)"),
			  msg_no_memory(test, 0, sizeof(struct event_record),
					"zorva_event.cpp"),
			  (u32)sizeof(struct event_record));
	expect_nothing_left(test, old);
}

static void without_memory_for_the_semaphore_nothing_stays(struct kunit *test)
{
	struct zt_block *old = zt_newest_block(test);
	u32 sem, mutex;

	fail_create(test, 2, &sem, &mutex);

	ZT_EXPECT_REPORTS(test, "%s" CREATE_ERROR("create semaphore failed."),
			  msg_no_memory(test, 0, sem, "zorva_sem.cpp"));
	expect_nothing_left(test, old);
}

static void without_memory_for_the_mutex_nothing_stays(struct kunit *test)
{
	struct zt_block *old = zt_newest_block(test);
	u32 sem, mutex;

	fail_create(test, 3, &sem, &mutex);

	ZT_EXPECT_REPORTS(test,
			  MADE_SEM "%s" CREATE_ERROR("create mutex failed.")
				  LOCK_INFO("zorva_sem_destroy_track",
					    "Semaphore 'lean' has been destroyed"),
			  msg_no_memory(test, 1, mutex, "zorva_sem.cpp"));
	expect_nothing_left(test, old);
}

static void a_create_allocates_three_times(struct kunit *test)
{
	zorva_event_t *event;

	zt_fail_allocation(4);
	event = zorva_event_create(MSG_OWNER, "lean");

	KUNIT_EXPECT_FALSE(test, zt_end_failing());
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, event);
	drop(test, event);
}

static void nothing_else_allocates(struct kunit *test)
{
	zorva_event_t *event = make(test, "lean");
	u32 bits[2];

	zt_fail_allocation(1);
	put(event, 1, 2);
	zorva_event_wait(MSG_CALLER, event, bits, ZORVA_WAIT_FOREVER);
	zorva_event_wait(MSG_CALLER, event, bits, ZORVA_NO_WAIT);
	zorva_event_wait(MSG_CALLER, event, bits, 10);
	zorva_event_destroy(MSG_CALLER, event);
	KUNIT_EXPECT_FALSE(test, zt_end_failing());
}

static void a_set_without_the_lock_changes_nothing(struct kunit *test)
{
	zorva_event_t *event = make(test, "torn");
	u32 result;

	MSG_WITHOUT(record_of(event)->lock, result = put(event, 1, 2));

	KUNIT_EXPECT_EQ(test, result, ZORVA_RC_NULL_ARG);
	ZT_EXPECT_REPORTS(test, LOCK_ERROR("zorva_mutex_take_track",
					   "invalid parameter")
					EVENT_ERROR("zorva_event_set",
						    "error 0x7e000015"));
	KUNIT_EXPECT_EQ(test, record_of(event)->pending[0], 0u);
	KUNIT_EXPECT_EQ(test, record_of(event)->pending[1], 0u);
	expect_nothing(test, event);
	drop(test, event);
}

static void a_set_that_cannot_signal_has_added_its_bits(struct kunit *test)
{
	zorva_event_t *event = make(test, "torn");
	u32 result;

	MSG_WITHOUT(record_of(event)->signal, result = put(event, 1, 2));

	KUNIT_EXPECT_EQ(test, result, ZORVA_RC_NULL_ARG);
	ZT_EXPECT_REPORTS(test, LOCK_ERROR("zorva_sem_give_track",
					   "invalid parameter")
					EVENT_ERROR("zorva_event_set",
						    "error 0x7e000015"));
	expect_nothing(test, event);
	/* The next signal brings them, and finds the lock given back. */
	KUNIT_EXPECT_EQ(test, put(event, 4, 0), ZORVA_RC_OK);
	expect_bits(test, event, 5, 2);
	drop(test, event);
}

static void a_wait_passes_on_its_takes_failure(struct kunit *test)
{
	zorva_event_t *event = make(test, "torn");
	struct wait wait = WAIT(event, ZORVA_NO_WAIT);

	put(event, 1, 2);
	MSG_WITHOUT(record_of(event)->signal, wait_here(&wait));

	KUNIT_EXPECT_EQ(test, wait.result, ZORVA_RC_NULL_ARG);
	ZT_EXPECT_REPORTS(test, LOCK_ERROR("zorva_sem_take_track",
					   "invalid parameter"));
	KUNIT_EXPECT_EQ(test, wait.bits[0], 0u);
	KUNIT_EXPECT_EQ(test, wait.bits[1], 0u);
	expect_bits(test, event, 1, 2);
	drop(test, event);
}

static void a_wait_without_the_lock_loses_its_signal(struct kunit *test)
{
	zorva_event_t *event = make(test, "torn");
	struct wait wait = WAIT(event, ZORVA_NO_WAIT);

	put(event, 1, 2);
	MSG_WITHOUT(record_of(event)->lock, wait_here(&wait));

	KUNIT_EXPECT_EQ(test, wait.result, ZORVA_RC_NULL_ARG);
	ZT_EXPECT_REPORTS(test, LOCK_ERROR("zorva_mutex_take_track",
					   "invalid parameter")
					EVENT_ERROR("zorva_event_wait",
						    "error 0x7e000015"));
	KUNIT_EXPECT_EQ(test, wait.bits[0], 0u);
	KUNIT_EXPECT_EQ(test, wait.bits[1], 0u);
	/* The bits wait for the next one. */
	expect_nothing(test, event);
	put(event, 0, 0);
	expect_bits(test, event, 1, 2);
	drop(test, event);
}

/* A thread of the kernel, none of the module's, that is told to end. */
static void wait_when_told_to_end(void *arg)
{
	allow_signal(SIGKILL);
	send_sig(SIGKILL, current, 1);
	wait_here(arg);
}

static void a_wait_passes_on_what_ends_its_caller(struct kunit *test)
{
	zorva_event_t *event = make(test, "torn");
	struct wait wait = WAIT(event, ZORVA_NO_WAIT);

	put(event, 1, 2);
	msg_join(test, msg_start(test, wait_when_told_to_end, &wait));

	KUNIT_EXPECT_EQ(test, wait.result, ZORVA_RC_NOT_FOUND);
	KUNIT_ASSERT_EQ(test, zt_report_count(), 2u);
	ZT_EXPECT_TEXT(test, zt_report(test, 0)->func,
		       "zorva_thread_exit_track");
	ZT_EXPECT_TEXT(test, zt_report(test, 1)->func, "zorva_sem_take_track");
	KUNIT_EXPECT_EQ(test, wait.bits[0], 0u);
	KUNIT_EXPECT_EQ(test, wait.bits[1], 0u);
	/* It gave its signal back. */
	expect_bits(test, event, 1, 2);
	expect_nothing(test, event);
	drop(test, event);
}

/* Nothing but a lock that has gone from the record makes a destroy fail. */
static void a_destroy_stops_at_a_missing_semaphore(struct kunit *test)
{
	zorva_event_t *event = make(test, "torn");
	u32 result;

	MSG_WITHOUT(record_of(event)->signal,
		    result = zorva_event_destroy(MSG_OWNER, event));

	KUNIT_EXPECT_EQ(test, result, ZORVA_RC_FAIL);
	ZT_EXPECT_REPORTS(test,
			  LOCK_ERROR("zorva_sem_destroy_track",
				     "invalid parameter")
				  EVENT_ERROR("zorva_event_destroy",
					      "destroy semaphore failed."));
	/* All of it is there, and at work. */
	put(event, 1, 2);
	expect_bits(test, event, 1, 2);
	drop(test, event);
}

static void a_destroy_stops_at_a_missing_mutex(struct kunit *test)
{
	const u32 since = zt_uptime_secs();
	zorva_event_t *event = make(test, "torn");
	u32 result;

	MSG_WITHOUT(record_of(event)->lock,
		    result = zorva_event_destroy(MSG_OWNER, event));

	KUNIT_EXPECT_EQ(test, result, ZORVA_RC_FAIL);
	ZT_EXPECT_REPORTS(test,
			  LOCK_INFO("zorva_sem_destroy_track",
				    "Semaphore 'torn' has been destroyed")
				  LOCK_ERROR("zorva_mutex_destroy_track",
					     "invalid parameter")
					  EVENT_ERROR("zorva_event_destroy",
						      "destroy mutex failed."));
	ZT_EXPECT_TEXT(test, msg_locks(test, "zorva.sem.detail", since),
		       MSG_HEAD(
			       "semaphore(s)") "\nTotal number of Semaphore: 0 (active 0)\n\n");
	ZT_EXPECT_TEXT(test, msg_locks(test, "zorva.mutex.detail", since),
		       MSG_HEAD(
			       "mutex(s)") "\nTotal number of Mutex: 1 (active 0)\n\n");

	/* With a semaphore in the other's place the event can go. */
	record_of(event)->signal = zorva_sem_create(MSG_OWNER, "new", 0);
	drop(test, event);
}

/* The module does not free a block that is damaged, so it can be seen. */
static void a_destroyed_event_keeps_its_component(struct kunit *test)
{
	zorva_event_t *event = make(test, "kept");
	struct zt_block *block = zt_block_of(event);

	ZT_WITH_WORD(block->magic, 0u, drop(test, event));

	ZT_EXPECT_REPORTS(test,
			  DESTROYED
				  ZT_ERROR("zorva_mem.cpp", "zorva_free_track",
					   "Memory header corrupt! Invalid magic."),
			  "kept", "kept", "kept");
	KUNIT_EXPECT_EQ(test, record_of(event)->component, MSG_OWNER);
	zorva_free(MSG_OWNER, event);
}

/* The kernel's semaphore, first in a tracked one, is kept for the waiter. */
static void a_destroy_wakes_nobody(struct kunit *test)
{
	zorva_event_t *event = make(test, "left");
	zorva_sem_t *signal = record_of(event)->signal;
	zorva_mutex_t *lock = record_of(event)->lock;
	struct wait wait = WAIT(event, ZORVA_WAIT_FOREVER);
	struct msg_thread *waiter = msg_start(test, wait_here, &wait);

	msg_expect_waiting(test, waiter);
	zt_block_of(event)->magic = 0;
	zt_block_of(signal)->magic = 0;
	zt_block_of(lock)->magic = 0;
	drop(test, event);
	msg_expect_waiting(test, waiter);
	up((struct semaphore *)signal);
	msg_join(test, waiter);

	KUNIT_EXPECT_EQ(test, wait.result, ZORVA_RC_OK);
	zt_block_of(event)->magic = ZT_BLOCK_MAGIC;
	zt_block_of(signal)->magic = ZT_BLOCK_MAGIC;
	zt_block_of(lock)->magic = ZT_BLOCK_MAGIC;
	zorva_free(MSG_OWNER, signal);
	zorva_free(MSG_OWNER, lock);
	zorva_free(MSG_OWNER, event);
}

static struct kunit_case cases[] = {
	KUNIT_CASE(a_create_tests_its_arguments),
	KUNIT_CASE(a_set_tests_its_arguments),
	KUNIT_CASE(a_wait_tests_its_arguments),
	KUNIT_CASE(a_destroy_tests_its_arguments),
	KUNIT_CASE(a_set_does_not_ask_whether_the_event_is_complete),
	KUNIT_CASE(without_memory_for_the_record_there_is_nothing),
	KUNIT_CASE(without_memory_for_the_semaphore_nothing_stays),
	KUNIT_CASE(without_memory_for_the_mutex_nothing_stays),
	KUNIT_CASE(a_create_allocates_three_times),
	KUNIT_CASE(nothing_else_allocates),
	KUNIT_CASE(a_set_without_the_lock_changes_nothing),
	KUNIT_CASE(a_set_that_cannot_signal_has_added_its_bits),
	KUNIT_CASE(a_wait_passes_on_its_takes_failure),
	KUNIT_CASE(a_wait_without_the_lock_loses_its_signal),
	KUNIT_CASE(a_wait_passes_on_what_ends_its_caller),
	KUNIT_CASE(a_destroy_stops_at_a_missing_semaphore),
	KUNIT_CASE(a_destroy_stops_at_a_missing_mutex),
	KUNIT_CASE(a_destroyed_event_keeps_its_component),
	KUNIT_CASE(a_destroy_wakes_nobody),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_event_fault",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Event flags of ZORVA that fail");
