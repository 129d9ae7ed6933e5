// SPDX-License-Identifier: GPL-2.0
/*
 * Message queues from create to delete: the record, the names of a queue and
 * of its locks, the report, and the arguments that are refused.
 */
#include <linux/module.h>
#include <linux/slab.h>
#include <linux/string.h>

#include "zorva_msg_test.h"

#define CREATE "zorva_msg_queue_create_track"
#define DELETE "zorva_msg_queue_delete_track"
#define SEND "zorva_msg_queue_send_track"
#define RECEIVE "zorva_msg_queue_receive_track"

#define LOCK_INFO(func, text) ZT_REPORT(3, "zorva_sem.cpp", func, text)
#define QUEUE_INFO(func, text) ZT_REPORT(3, "zorva_msgq.cpp", func, text)

/* What a create says; the four arguments are the names. */
#define CREATED                                                                \
	LOCK_INFO("zorva_mutex_create_track", "Mutex '%s' has been created")   \
	LOCK_INFO("zorva_sem_create_track", "Semaphore '%s' has been created") \
	LOCK_INFO("zorva_sem_create_track", "Semaphore '%s' has been created") \
	QUEUE_INFO(CREATE, "MsgQ '%s' has been created")

static void a_queue_is_made_and_goes_away_again(struct kunit *test)
{
	struct zt_block *old = zt_newest_block(test);
	zorva_msg_queue_t *queue;

	queue = zorva_msg_queue_create_track(MSG_OWNER, "first", 4, 8,
					     "maker.c", 1);
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, queue);
	ZT_EXPECT_REPORTS(test, CREATED, "msgq-first-ent", "msgq-first-tx",
			  "msgq-first-rx", "first");

	zt_forget_reports();
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_delete_track(MSG_OWNER, queue),
			ZORVA_RC_OK);
	ZT_EXPECT_REPORTS(test,
			  LOCK_INFO("zorva_mutex_destroy_track",
				    "Mutex 'msgq-first-ent' has been destroyed")
				  LOCK_INFO("zorva_sem_destroy_track",
					    "Semaphore 'msgq-first-tx' has been destroyed")
					  LOCK_INFO("zorva_sem_destroy_track",
						    "Semaphore 'msgq-first-rx' has been destroyed")
						  QUEUE_INFO(DELETE,
							     "MsgQ 'first' has been deleted"));
	ZT_EXPECT_TEXT(test, msg_blocks_since(test, old), "%s", "");
	ZT_EXPECT_FILE(test, "zorva.msgq", "%s", "");
}

static void a_queue_is_five_blocks_of_its_owner(struct kunit *test)
{
	struct zt_block *old = zt_newest_block(test);
	zorva_msg_queue_t *queue = msg_make(test, "blocks", 3, 7);
	const struct msg_queue_record *record = msg_record_of(queue);
	const u32 mutex = zt_block_of(record->lock)->size;
	const u32 sem = zt_block_of(record->tx_sem)->size;

	ZT_EXPECT_TEXT(test, msg_blocks_since(test, old),
		       "%u bytes of 53, zorva_sem.cpp\n"
		       "%u bytes of 53, zorva_sem.cpp\n"
		       "%u bytes of 53, zorva_sem.cpp\n"
		       "21 bytes of 53, zorva_msgq.cpp\n"
		       "%u bytes of 53, zorva_msgq.cpp\n",
		       sem, sem, mutex, (u32)sizeof(struct msg_queue_record));
	msg_drop(test, queue);
}

static void the_record_begins_empty(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "record", 5, 12);
	const struct msg_queue_record *record = msg_record_of(queue);

	KUNIT_EXPECT_EQ(test, record->component, MSG_OWNER);
	KUNIT_EXPECT_EQ(test, record->max_depth, 5u);
	KUNIT_EXPECT_EQ(test, record->msg_size, 12u);
	KUNIT_EXPECT_EQ(test, record->read_offset, 0u);
	KUNIT_EXPECT_EQ(test, record->write_offset, 0u);
	KUNIT_EXPECT_EQ(test, record->buffer_size, 60u);
	KUNIT_EXPECT_EQ(test, record->curr_depth, 0);
	KUNIT_EXPECT_EQ(test, record->max_seen, 0);
	KUNIT_EXPECT_EQ(test, zt_block_of(record->buffer)->size, 60u);
	KUNIT_EXPECT_STREQ(test, (const char *)record->name, "record");
	KUNIT_EXPECT_EQ(test, zt_block_of(queue)->size,
			(u32)sizeof(struct msg_queue_record));
	msg_drop(test, queue);
}

static void an_unnamed_queue_has_its_owners_name(struct kunit *test)
{
	zorva_msg_queue_t *queue =
		zorva_msg_queue_create_track(ZORVA_COMPONENT_SELF, NULL, 1, 1,
					     "maker.c", 120);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, queue);
	ZT_EXPECT_REPORTS(test, CREATED, "msgq-120-ent", "msgq-120-tx",
			  "msgq-120-rx", "ZORVA");
	ZT_EXPECT_FILE(test, "zorva.msgq", MSG_QUEUE_TEXT, "ZORVA", 9, "ZORVA",
		       1, 1, 0, 0);
	zorva_msg_queue_delete(ZORVA_COMPONENT_SELF, queue);
}

static void the_largest_line_fits_the_names(struct kunit *test)
{
	zorva_msg_queue_t *queue = zorva_msg_queue_create_track(MSG_OWNER, NULL,
								1, 1, "maker.c",
								0xFFFFFFFF);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, queue);
	ZT_EXPECT_REPORTS(test, CREATED, "msgq-4294967295-ent",
			  "msgq-4294967295-tx", "msgq-4294967295-rx",
			  _componentName[MSG_OWNER]);
	msg_drop(test, queue);
}

static void the_macro_gives_the_callers_line(struct kunit *test)
{
	zorva_msg_queue_t *queue;
	unsigned int line;

	line = __LINE__ + 1;
	queue = zorva_msg_queue_create(MSG_OWNER, NULL, 1, 1);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, queue);
	ZT_EXPECT_REPORTS(test, CREATED, zt_text(test, "msgq-%u-ent", line),
			  zt_text(test, "msgq-%u-tx", line),
			  zt_text(test, "msgq-%u-rx", line),
			  _componentName[MSG_OWNER]);
	msg_drop(test, queue);
}

static void the_callers_file_is_not_used(struct kunit *test)
{
	zorva_msg_queue_t *queue = zorva_msg_queue_create_track(MSG_OWNER,
								"nowhere", 1, 1,
								NULL, 1);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, queue);
	ZT_EXPECT_REPORTS(test, CREATED, "msgq-nowhere-ent", "msgq-nowhere-tx",
			  "msgq-nowhere-rx", "nowhere");
	msg_drop(test, queue);
}

/* A queue keeps 32 characters, a base and a lock 31: the suffix goes first. */
static void a_long_name_is_cut_in_every_place(struct kunit *test)
{
	static const char long_name[] =
		"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
	static const struct {
		u32 length;
		const char *ent, *tx, *rx;
		u32 kept;
	} names[] = {
		{ 0, "-ent", "-tx", "-rx", 0 },
		{ 22, "-ent", "-tx", "-rx", 22 },
		{ 23, "-en", "-tx", "-rx", 23 },
		{ 24, "-e", "-t", "-r", 24 },
		{ 25, "-", "-", "-", 25 },
		{ 26, "", "", "", 26 },
		{ 27, "", "", "", 27 },
		{ 31, "", "", "", 31 },
		{ 32, "", "", "", 32 },
		{ 33, "", "", "", 32 },
		{ 52, "", "", "", 32 },
	};
	unsigned int i;

	for (i = 0; i < ARRAY_SIZE(names); i++) {
		const char *name =
			zt_text(test, "%.*s", names[i].length, long_name);
		const char *base = zt_text(test, "msgq-%.26s", name);
		const char *kept = zt_text(test, "%.*s", names[i].kept, name);
		zorva_msg_queue_t *queue;

		zt_forget_reports();
		queue = zorva_msg_queue_create(MSG_OWNER, name, 1, 1);
		KUNIT_ASSERT_NOT_ERR_OR_NULL(test, queue);

		ZT_EXPECT_REPORTS(test, CREATED,
				  zt_text(test, "%s%s", base, names[i].ent),
				  zt_text(test, "%s%s", base, names[i].tx),
				  zt_text(test, "%s%s", base, names[i].rx),
				  kept);
		ZT_EXPECT_FILE(test, "zorva.msgq", MSG_QUEUE_TEXT, kept,
			       MSG_OWNER, _componentName[MSG_OWNER], 1, 1, 0,
			       0);
		msg_drop(test, queue);
	}
}

static void a_name_is_no_format(struct kunit *test)
{
	zorva_msg_queue_t *queue =
		zorva_msg_queue_create(MSG_OWNER, "%s%n 100%", 1, 1);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, queue);
	ZT_EXPECT_REPORTS(test, CREATED, "msgq-%s%n 100%-ent",
			  "msgq-%s%n 100%-tx", "msgq-%s%n 100%-rx",
			  "%s%n 100%");
	ZT_EXPECT_FILE(test, "zorva.msgq", MSG_QUEUE_TEXT, "%s%n 100%",
		       MSG_OWNER, _componentName[MSG_OWNER], 1, 1, 0, 0);
	msg_drop(test, queue);
}

static void the_lock_reports_show_a_messages_road(struct kunit *test)
{
	const u32 since = zt_uptime_secs();
	zorva_msg_queue_t *queue = msg_make(test, "road", 2, 8);
	const char *mutexes, *sems, *owner = _componentName[MSG_OWNER];
	char message[8];
	u32 tx;

	zorva_msg_queue_send_track(MSG_CALLER, queue, "x", 1,
				   ZORVA_WAIT_FOREVER, "sender.c", 77);
	zorva_msg_queue_receive_track(MSG_CALLER, queue, message, 8, 250,
				      "receiver.c", 78);
	mutexes = msg_locks(test, "zorva.mutex.detail", since);
	sems = msg_locks(test, "zorva.sem.detail", since);
	tx = msg_index(test, sems, "msgq-road-tx");

	ZT_EXPECT_TEXT(test, mutexes,
		       MSG_HEAD("mutex(s)")
			       MSG_LOCK("msgq-road-ent",
					"Give") "  [T] Give @receiver.c, 78\n"
						"  [T] Take @receiver.c, 78\n"
						"  [T] Give @sender.c, 77\n"
						"  [T] Take @sender.c, 77\n"
						"\n\nTotal number of Mutex: 1 (active 1)\n\n",
		       msg_index(test, mutexes, "msgq-road-ent"), owner,
		       MSG_OWNER);
	ZT_EXPECT_TEXT(test, sems,
		       MSG_HEAD("semaphore(s)")
			       MSG_LOCK("msgq-road-rx",
					"Take") "  [T] Take @receiver.c, 78 (250 msec)\n"
						"  [T] Give @sender.c, 77\n"
						"\n" MSG_LOCK("msgq-road-tx",
							      "Give") "  [T] Give @receiver.c, 78\n"
								      "  [T] Take @sender.c, 77 (forever)\n"
								      "\n\nTotal number of Semaphore: 2 (active 2)\n\n",
		       tx + 1, owner, MSG_OWNER, tx, owner, MSG_OWNER);
	msg_drop(test, queue);
}

static void the_lock_reports_show_cut_names(struct kunit *test)
{
	zorva_msg_queue_t *queue =
		msg_make(test, "abcdefghijklmnopqrstuvwx", 2, 8);
	const char *mutexes, *sems;

	msg_put(queue, "x");
	msg_get(test, queue);
	mutexes = zt_file(test, "zorva.mutex.detail");
	sems = zt_file(test, "zorva.sem.detail");

	KUNIT_EXPECT_NE(test, 0u,
			msg_index(test, mutexes,
				  "msgq-abcdefghijklmnopqrstuvwx-e"));
	KUNIT_EXPECT_NE(test, 0u,
			msg_index(test, sems,
				  "msgq-abcdefghijklmnopqrstuvwx-t"));
	KUNIT_EXPECT_NE(test, 0u,
			msg_index(test, sems,
				  "msgq-abcdefghijklmnopqrstuvwx-r"));
	msg_drop(test, queue);
}

static void a_new_queue_shows_only_in_the_locks_totals(struct kunit *test)
{
	const u32 since = zt_uptime_secs();
	zorva_msg_queue_t *queue = msg_make(test, "new", 1, 8);

	ZT_EXPECT_TEXT(test, msg_locks(test, "zorva.mutex.detail", since),
		       MSG_HEAD(
			       "mutex(s)") "\nTotal number of Mutex: 1 (active 0)\n\n");
	ZT_EXPECT_TEXT(test, msg_locks(test, "zorva.sem.detail", since),
		       MSG_HEAD(
			       "semaphore(s)") "\nTotal number of Semaphore: 2 (active 0)\n\n");
	msg_drop(test, queue);
}

static void without_queues_the_report_is_empty(struct kunit *test)
{
	ZT_EXPECT_FILE(test, "zorva.msgq", "%s", "");
}

static void the_report_shows_all_queues_oldest_first(struct kunit *test)
{
	zorva_msg_queue_t *old, *middle, *young;

	old = zorva_msg_queue_create(1, "old", 10, 20);
	middle = zorva_msg_queue_create(56, "middle", 1, 1500);
	young = zorva_msg_queue_create(9, NULL, 300, 1);
	msg_put(old, "1");
	msg_put(old, "2");
	msg_get(test, old);
	msg_put(middle, "1");

	ZT_EXPECT_FILE(test, "zorva.msgq",
		       "Queue Name   : old\n"
		       "Component ID : 1 (%s)\n"
		       "Msg Size     : 20 bytes\n"
		       "Max Depth    : 10\n"
		       "Curr Depth   : 1\n"
		       "Max Seen     : 2\n"
		       "\n"
		       "Queue Name   : middle\n"
		       "Component ID : 56 (%s)\n"
		       "Msg Size     : 1500 bytes\n"
		       "Max Depth    : 1\n"
		       "Curr Depth   : 1\n"
		       "Max Seen     : 1\n"
		       "\n"
		       "Queue Name   : ZORVA\n"
		       "Component ID : 9 (ZORVA)\n"
		       "Msg Size     : 1 bytes\n"
		       "Max Depth    : 300\n"
		       "Curr Depth   : 0\n"
		       "Max Seen     : 0\n"
		       "\n",
		       _componentName[1], _componentName[56]);
	msg_drop(test, old);
	msg_drop(test, middle);
	msg_drop(test, young);
}

/* The report of some queues of one slot of one byte, by their names. */
static void expect_listed(struct kunit *test, const char *names)
{
	const char *text = "";

	for (; *names; names++)
		text = zt_text(test, "%s" MSG_QUEUE_TEXT, text,
			       zt_text(test, "%c", *names), MSG_OWNER,
			       _componentName[MSG_OWNER], 1, 1, 0, 0);
	ZT_EXPECT_FILE(test, "zorva.msgq", "%s", text);
}

static void queues_leave_the_report_in_any_order(struct kunit *test)
{
	zorva_msg_queue_t *a = msg_make(test, "a", 1, 1);
	zorva_msg_queue_t *b = msg_make(test, "b", 1, 1);
	zorva_msg_queue_t *c = msg_make(test, "c", 1, 1);
	zorva_msg_queue_t *d = msg_make(test, "d", 1, 1);
	zorva_msg_queue_t *e;

	expect_listed(test, "abcd");
	msg_drop(test, c);
	expect_listed(test, "abd");
	msg_drop(test, d);
	expect_listed(test, "ab");
	e = msg_make(test, "e", 1, 1);
	expect_listed(test, "abe");
	msg_drop(test, a);
	expect_listed(test, "be");
	msg_drop(test, b);
	expect_listed(test, "e");
	msg_drop(test, e);
	expect_listed(test, "");
}

/* More than the report's first buffer of 32768 bytes holds. */
#define MANY 320

static void a_long_report_is_whole(struct kunit *test)
{
	const size_t size = MANY * 160;
	zorva_msg_queue_t **queues =
		kunit_kzalloc(test, MANY * sizeof(*queues), GFP_KERNEL);
	char *text = kunit_kzalloc(test, size, GFP_KERNEL);
	size_t length = 0;
	u32 i;

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, queues);
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, text);
	for (i = 0; i < MANY; i++) {
		const char *name = zt_text(test, "queue %u", i);

		queues[i] = msg_make(test, name, i + 1, 3);
		length += scnprintf(text + length, size - length,
				    MSG_QUEUE_TEXT, name, MSG_OWNER,
				    _componentName[MSG_OWNER], 3, i + 1, 0, 0);
	}

	KUNIT_EXPECT_GT(test, length, (size_t)32768);
	ZT_EXPECT_FILE(test, "zorva.msgq", "%s", text);
	for (i = 0; i < MANY; i++)
		msg_drop(test, queues[i]);
	ZT_EXPECT_FILE(test, "zorva.msgq", "%s", "");
}

/* 0x80000001 slots of 2 bytes are 2 bytes in 32 bits. */
static void the_size_of_the_ring_has_32_bits(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "wrapped", 0x80000001, 2);

	KUNIT_EXPECT_EQ(test, msg_record_of(queue)->buffer_size, 2u);
	KUNIT_EXPECT_EQ(test, zt_block_of(msg_record_of(queue)->buffer)->size,
			2u);
	ZT_EXPECT_FILE(test, "zorva.msgq", MSG_QUEUE_TEXT, "wrapped", MSG_OWNER,
		       _componentName[MSG_OWNER], 2, 2147483649u, 0, 0);
	msg_drop(test, queue);
}

static void every_component_may_own_a_queue(struct kunit *test)
{
	u32 i;

	for (i = 1; i <= 56; i++) {
		const u32 other = i % 56 + 1;
		zorva_msg_queue_t *queue =
			zorva_msg_queue_create(i, NULL, 1, 1);
		char byte = 0;

		KUNIT_ASSERT_NOT_ERR_OR_NULL(test, queue);
		ZT_EXPECT_FILE(test, "zorva.msgq", MSG_QUEUE_TEXT,
			       _componentName[i], i, _componentName[i], 1, 1, 0,
			       0);
		KUNIT_EXPECT_EQ(test, 0u,
				zorva_msg_queue_send(other, queue, "m", 1, 0));
		KUNIT_EXPECT_EQ(test, zorva_msg_queue_depth(other, queue), 1);
		KUNIT_EXPECT_EQ(test, 0u,
				zorva_msg_queue_receive(other, queue, &byte, 1,
							0));
		KUNIT_EXPECT_EQ(test, byte, (char)'m');
		KUNIT_EXPECT_EQ(test, zorva_msg_queue_max_depth(other, queue),
				1);
		KUNIT_EXPECT_EQ(test, zorva_msg_queue_delete(other, queue), 0u);
	}
}

static struct kunit_case cases[] = {
	KUNIT_CASE(a_queue_is_made_and_goes_away_again),
	KUNIT_CASE(a_queue_is_five_blocks_of_its_owner),
	KUNIT_CASE(the_record_begins_empty),
	KUNIT_CASE(an_unnamed_queue_has_its_owners_name),
	KUNIT_CASE(the_largest_line_fits_the_names),
	KUNIT_CASE(the_macro_gives_the_callers_line),
	KUNIT_CASE(the_callers_file_is_not_used),
	KUNIT_CASE(a_long_name_is_cut_in_every_place),
	KUNIT_CASE(a_name_is_no_format),
	KUNIT_CASE(the_lock_reports_show_a_messages_road),
	KUNIT_CASE(the_lock_reports_show_cut_names),
	KUNIT_CASE(a_new_queue_shows_only_in_the_locks_totals),
	KUNIT_CASE(without_queues_the_report_is_empty),
	KUNIT_CASE(the_report_shows_all_queues_oldest_first),
	KUNIT_CASE(queues_leave_the_report_in_any_order),
	KUNIT_CASE(a_long_report_is_whole),
	KUNIT_CASE(the_size_of_the_ring_has_32_bits),
	KUNIT_CASE(every_component_may_own_a_queue),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_msgq",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Message queues of ZORVA from create to delete");
