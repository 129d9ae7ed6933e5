// SPDX-License-Identifier: GPL-2.0
/*
 * Event flags: what sets leave for waits, how waits wait, names, and the
 * record.
 */
#include <linux/module.h>
#include <linux/string.h>

#include "zorva_event_test.h"

static void an_event_is_made_and_goes_away_again(struct kunit *test)
{
	struct zt_block *old = zt_newest_block(test);
	zorva_event_t *event = zorva_event_create(MSG_OWNER, "first");

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, event);
	ZT_EXPECT_REPORTS(test, CREATED, "first", "first", "first");

	zt_forget_reports();
	KUNIT_EXPECT_EQ(test, zorva_event_destroy(MSG_CALLER, event),
			ZORVA_RC_OK);
	ZT_EXPECT_REPORTS(test, DESTROYED, "first", "first", "first");
	ZT_EXPECT_TEXT(test, msg_blocks_since(test, old), "%s", "");
}

static void an_event_is_three_blocks_of_its_owner(struct kunit *test)
{
	struct zt_block *old = zt_newest_block(test);
	zorva_event_t *event = make(test, "blocks");

	ZT_EXPECT_TEXT(test, msg_blocks_since(test, old),
		       "%u bytes of 53, zorva_sem.cpp\n"
		       "%u bytes of 53, zorva_sem.cpp\n"
		       "%u bytes of 53, zorva_event.cp\n",
		       zt_block_of(record_of(event)->lock)->size,
		       zt_block_of(record_of(event)->signal)->size,
		       (u32)sizeof(struct event_record));
	drop(test, event);
}

static void the_record_begins_empty(struct kunit *test)
{
	zorva_event_t *event = make(test, "record");
	const struct event_record *record = record_of(event);

	KUNIT_EXPECT_EQ(test, record->component, MSG_OWNER);
	KUNIT_EXPECT_EQ(test, record->pending[0], 0u);
	KUNIT_EXPECT_EQ(test, record->pending[1], 0u);
	KUNIT_EXPECT_STREQ(test, (const char *)record->name, "record");
	KUNIT_EXPECT_TRUE(test, record->signal != NULL);
	KUNIT_EXPECT_TRUE(test, record->lock != NULL);
	expect_nothing(test, event);
	drop(test, event);
}

/* The number at the end of a name that the module has made. */
static unsigned long made_name(struct kunit *test, unsigned int report)
{
	const char *dash = strchr(zt_report(test, report)->text, '-');

	return dash ? simple_strtoul(dash + 1, NULL, 10) : 0;
}

static void an_unnamed_event_has_its_owners_name(struct kunit *test)
{
	zorva_event_t *event = zorva_event_create(ZORVA_COMPONENT_SELF, NULL);
	unsigned long sem, mutex;

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, event);
	KUNIT_ASSERT_EQ(test, zt_report_count(), 3u);
	/* Its locks are named after lines of the module, one for each. */
	sem = made_name(test, 0);
	mutex = made_name(test, 1);
	KUNIT_EXPECT_GT(test, sem, 0ul);
	KUNIT_EXPECT_GT(test, mutex, sem);
	ZT_EXPECT_REPORTS(test, CREATED, zt_text(test, "ZORVA-%lu", sem),
			  zt_text(test, "ZORVA-%lu", mutex), "ZORVA");
	KUNIT_EXPECT_STREQ(test, (const char *)record_of(event)->name, "ZORVA");

	KUNIT_EXPECT_EQ(test, put(event, 0, 0), ZORVA_RC_OK);
	KUNIT_EXPECT_NE(test, 0u,
			msg_index(test, zt_file(test, "zorva.sem.detail"),
				  zt_text(test, "ZORVA-%lu", sem)));
	KUNIT_EXPECT_NE(test, 0u,
			msg_index(test, zt_file(test, "zorva.mutex.detail"),
				  zt_text(test, "ZORVA-%lu", mutex)));
	zorva_event_destroy(ZORVA_COMPONENT_SELF, event);
}

static void a_name_is_cut_to_31_characters(struct kunit *test)
{
	static const char name[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHI";
	unsigned int length;

	for (length = 0; length <= 35; length++) {
		zorva_event_t *event =
			zorva_event_create(MSG_OWNER,
					   zt_text(test, "%.*s", length, name));
		const char *kept =
			zt_text(test, "%.*s", min(length, 31u), name);

		KUNIT_ASSERT_NOT_ERR_OR_NULL(test, event);
		ZT_EXPECT_REPORTS(test, CREATED, kept, kept, kept);
		zt_forget_reports();
		drop(test, event);
		ZT_EXPECT_REPORTS(test, DESTROYED, kept, kept, kept);
		zt_forget_reports();
	}
}

static void a_name_is_no_format(struct kunit *test)
{
	zorva_event_t *event = zorva_event_create(MSG_OWNER, "%s%n 100%");

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, event);
	ZT_EXPECT_REPORTS(test, CREATED, "%s%n 100%", "%s%n 100%", "%s%n 100%");
	drop(test, event);
}

static void every_component_may_own_an_event(struct kunit *test)
{
	u32 i;

	for (i = 1; i <= 56; i++) {
		const u32 other = i % 56 + 1, bits[2] = { 1, 0 };
		zorva_event_t *event;
		u32 got[2];

		zt_forget_reports();
		event = zorva_event_create(i, NULL);
		KUNIT_ASSERT_NOT_ERR_OR_NULL(test, event);
		ZT_EXPECT_TEXT(test, zt_report(test, 2)->text,
			       "Event '%s' has been created",
			       _componentName[i]);
		KUNIT_EXPECT_EQ(test, zorva_event_set(other, event, bits), 0u);
		KUNIT_EXPECT_EQ(test, zorva_event_wait(other, event, got, 0),
				0u);
		KUNIT_EXPECT_EQ(test, got[0], 1u);
		KUNIT_EXPECT_EQ(test, zorva_event_destroy(other, event), 0u);
	}
}

static void sets_are_merged_for_one_wait(struct kunit *test)
{
	zorva_event_t *event = make(test, "merged");

	KUNIT_EXPECT_EQ(test, put(event, 0x1, 0), ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, put(event, 0x4, 0x100), ZORVA_RC_OK);

	expect_bits(test, event, 0x5, 0x100);
	/* The second signal has nothing left. */
	expect_bits(test, event, 0, 0);
	expect_nothing(test, event);
	ZT_EXPECT_NO_REPORTS(test);
	drop(test, event);
}

static void every_set_is_good_for_one_wait(struct kunit *test)
{
	zorva_event_t *event = make(test, "counted");
	unsigned int i;

	for (i = 0; i < 5; i++)
		put(event, 1u << i, 1u << (31 - i));
	expect_bits(test, event, 0x1F, 0xF8000000);
	for (i = 0; i < 3; i++)
		expect_bits(test, event, 0, 0);
	/* New bits come with the signal that is left, their own stays. */
	put(event, 0x80, 0);
	expect_bits(test, event, 0x80, 0);
	expect_bits(test, event, 0, 0);
	expect_nothing(test, event);
	drop(test, event);
}

static void bits_set_twice_come_once_and_signal_twice(struct kunit *test)
{
	zorva_event_t *event = make(test, "twice");

	put(event, 0x10, 0);
	put(event, 0x10, 0);
	expect_bits(test, event, 0x10, 0);
	expect_bits(test, event, 0, 0);
	expect_nothing(test, event);
	drop(test, event);
}

static void each_of_the_64_bits_goes_its_own_way(struct kunit *test)
{
	zorva_event_t *event = make(test, "bits");
	unsigned int i;

	for (i = 0; i < 64; i++) {
		const u32 first = i < 32 ? 1u << i : 0;
		const u32 second = i < 32 ? 0 : 1u << (i - 32);

		put(event, first, second);
		KUNIT_EXPECT_EQ(test, record_of(event)->pending[0], first);
		KUNIT_EXPECT_EQ(test, record_of(event)->pending[1], second);
		expect_bits(test, event, first, second);
		KUNIT_EXPECT_EQ(test, record_of(event)->pending[0], 0u);
		KUNIT_EXPECT_EQ(test, record_of(event)->pending[1], 0u);
	}
	put(event, 0xFFFFFFFF, 0xFFFFFFFF);
	expect_bits(test, event, 0xFFFFFFFF, 0xFFFFFFFF);
	drop(test, event);
}

static void a_set_leaves_the_callers_bits(struct kunit *test)
{
	zorva_event_t *event = make(test, "input");
	const u32 bits[2] = { 0x12345678, 0x9ABCDEF0 };

	put(event, 0xFFFFFFFF, 0xFFFFFFFF);
	zorva_event_set(MSG_CALLER, event, bits);

	KUNIT_EXPECT_EQ(test, bits[0], 0x12345678u);
	KUNIT_EXPECT_EQ(test, bits[1], 0x9ABCDEF0u);
	drop(test, event);
}

static void a_wait_without_a_set_returns_at_once(struct kunit *test)
{
	zorva_event_t *event = make(test, "none");
	struct wait wait = WAIT(event, ZORVA_NO_WAIT);

	wait_here(&wait);

	KUNIT_EXPECT_EQ(test, wait.result, ZORVA_RC_FAIL);
	msg_expect_pace(test, &wait.pace, 0);
	KUNIT_EXPECT_EQ(test, wait.bits[0], 0u);
	KUNIT_EXPECT_EQ(test, wait.bits[1], 0u);
	ZT_EXPECT_NO_REPORTS(test);
	drop(test, event);
}

static void a_wait_runs_out_of_time_after(struct kunit *test,
					  unsigned int msecs)
{
	zorva_event_t *event = make(test, "none");
	struct wait wait = WAIT(event, msecs);

	wait_here(&wait);

	KUNIT_EXPECT_EQ(test, wait.result, ZORVA_RC_TIMEOUT);
	msg_expect_pace(test, &wait.pace, msecs);
	KUNIT_EXPECT_EQ(test, wait.bits[0], 0u);
	KUNIT_EXPECT_EQ(test, wait.bits[1], 0u);
	ZT_EXPECT_NO_REPORTS(test);
	drop(test, event);
}

static void a_wait_runs_out_of_time_after_50_ms(struct kunit *test)
{
	a_wait_runs_out_of_time_after(test, 50);
}

static void a_wait_runs_out_of_time_after_100_ms(struct kunit *test)
{
	a_wait_runs_out_of_time_after(test, 100);
}

static void a_wait_lasts_until_a_set(struct kunit *test)
{
	zorva_event_t *event = make(test, "until");
	struct wait wait = WAIT(event, ZORVA_WAIT_FOREVER);
	struct msg_thread *waiter = msg_start(test, wait_here, &wait);

	msg_expect_waiting(test, waiter);
	/* The output is cleared before the wait. */
	KUNIT_EXPECT_EQ(test, READ_ONCE(wait.bits[0]), 0u);
	KUNIT_EXPECT_EQ(test, READ_ONCE(wait.bits[1]), 0u);
	put(event, 0x80000000, 0x1);
	msg_join(test, waiter);

	KUNIT_EXPECT_EQ(test, wait.result, ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, wait.bits[0], 0x80000000u);
	KUNIT_EXPECT_EQ(test, wait.bits[1], 0x1u);
	expect_nothing(test, event);
	ZT_EXPECT_NO_REPORTS(test);
	drop(test, event);
}

static void a_set_ends_a_wait_before_its_limit(struct kunit *test)
{
	zorva_event_t *event = make(test, "early");
	struct wait wait = WAIT(event, 4000);
	struct msg_thread *waiter = msg_start(test, wait_here, &wait);

	msg_expect_waiting(test, waiter);
	put(event, 0, 0x20);
	msg_join(test, waiter);

	KUNIT_EXPECT_EQ(test, wait.result, ZORVA_RC_OK);
	KUNIT_EXPECT_LT(test, wait.pace.ticks, 4ul * HZ);
	KUNIT_EXPECT_EQ(test, wait.bits[0], 0u);
	KUNIT_EXPECT_EQ(test, wait.bits[1], 0x20u);
	drop(test, event);
}

static void an_empty_set_ends_a_wait(struct kunit *test)
{
	zorva_event_t *event = make(test, "empty");
	struct wait wait = WAIT(event, ZORVA_WAIT_FOREVER);
	struct msg_thread *waiter = msg_start(test, wait_here, &wait);

	msg_expect_waiting(test, waiter);
	KUNIT_EXPECT_EQ(test, put(event, 0, 0), ZORVA_RC_OK);
	msg_join(test, waiter);

	KUNIT_EXPECT_EQ(test, wait.result, ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, wait.bits[0], 0u);
	KUNIT_EXPECT_EQ(test, wait.bits[1], 0u);
	drop(test, event);
}

/* Nothing forbids a second waiter: who came first gets everything. */
static void a_set_ends_one_wait_only(struct kunit *test)
{
	zorva_event_t *event = make(test, "one");
	struct wait waits[2] = { WAIT(event, ZORVA_WAIT_FOREVER),
				 WAIT(event, ZORVA_WAIT_FOREVER) };
	struct msg_thread *first, *second;

	first = msg_start(test, wait_here, &waits[0]);
	msg_expect_waiting(test, first);
	second = msg_start(test, wait_here, &waits[1]);
	msg_expect_waiting(test, second);
	put(event, 0x3, 0);
	msg_join(test, first);
	msg_expect_waiting(test, second);
	put(event, 0x4, 0);
	msg_join(test, second);

	KUNIT_EXPECT_EQ(test, waits[0].bits[0], 0x3u);
	KUNIT_EXPECT_EQ(test, waits[1].bits[0], 0x4u);
	drop(test, event);
}

static void the_lock_reports_show_a_set_and_a_wait(struct kunit *test)
{
	const u32 since = zt_uptime_secs();
	zorva_event_t *event = make(test, "seen");
	const char *owner = _componentName[MSG_OWNER], *mutexes, *sems;
	u32 line;

	put(event, 1, 0);
	zorva_event_wait(MSG_CALLER, event, (u32[2]){}, 250);
	mutexes = without_lines(test,
				msg_locks(test, "zorva.mutex.detail", since));
	sems = without_lines(test, msg_locks(test, "zorva.sem.detail", since));
	line = msg_index(test, sems, "seen");

	ZT_EXPECT_TEXT(test, mutexes,
		       MSG_HEAD("mutex(s)")
			       MSG_LOCK("seen",
					"Give") "  [T] Give @zorva_event.cpp, L\n"
						"  [T] Take @zorva_event.cpp, L\n"
						"  [T] Give @zorva_event.cpp, L\n"
						"  [T] Take @zorva_event.cpp, L\n"
						"\n\nTotal number of Mutex: 1 (active 1)\n\n",
		       msg_index(test, mutexes, "seen"), owner, MSG_OWNER);
	ZT_EXPECT_TEXT(test, sems,
		       MSG_HEAD("semaphore(s)")
			       MSG_LOCK("seen",
					"Take") "  [T] Take @zorva_event.cpp, L (250 msec)\n"
						"  [T] Give @zorva_event.cpp, L\n"
						"\n\nTotal number of Semaphore: 1 (active 1)\n\n",
		       line, owner, MSG_OWNER);
	drop(test, event);
}

static void a_set_waits_for_the_lock(struct kunit *test)
{
	zorva_event_t *event = make(test, "locked");
	struct set set = SET(event, 0x7, 0x8);
	zorva_mutex_t *lock = record_of(event)->lock;
	struct msg_thread *setter;

	zorva_mutex_take(MSG_CALLER, lock);
	setter = msg_start(test, set_here, &set);
	msg_expect_waiting(test, setter);
	KUNIT_EXPECT_EQ(test, record_of(event)->pending[0], 0u);
	zorva_mutex_give(MSG_CALLER, lock);
	msg_join(test, setter);

	KUNIT_EXPECT_EQ(test, set.result, ZORVA_RC_OK);
	expect_bits(test, event, 0x7, 0x8);
	drop(test, event);
}

/* The signal is taken before the lock, and the bits under it. */
static void a_wait_has_its_signal_before_it_locks(struct kunit *test)
{
	zorva_event_t *event = make(test, "locked");
	struct wait wait = WAIT(event, ZORVA_NO_WAIT);
	zorva_mutex_t *lock = record_of(event)->lock;
	struct msg_thread *waiter;

	put(event, 0x7, 0x8);
	zorva_mutex_take(MSG_CALLER, lock);
	waiter = msg_start(test, wait_here, &wait);
	msg_expect_waiting(test, waiter);
	expect_nothing(test, event);
	KUNIT_EXPECT_EQ(test, record_of(event)->pending[0], 0x7u);
	zorva_mutex_give(MSG_CALLER, lock);
	msg_join(test, waiter);

	KUNIT_EXPECT_EQ(test, wait.result, ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, wait.bits[0], 0x7u);
	KUNIT_EXPECT_EQ(test, wait.bits[1], 0x8u);
	drop(test, event);
}

#define SETTERS 3
#define SETS 1000

struct storm {
	zorva_event_t *event;
	atomic_t setters;
	atomic_t failed;
	atomic_t sets;
	unsigned int signals;
	u32 seen[2];
};

/* Each setter has bits of its own, of which every set has another one. */
static void set_often(void *arg)
{
	struct storm *storm = arg;
	const unsigned int own = atomic_fetch_inc(&storm->setters);
	unsigned int i;

	for (i = 0; i < SETS; i++) {
		const unsigned int bit = own * 21 + i % 21;
		const u32 bits[2] = { bit < 32 ? 1u << bit : 0,
				      bit < 32 ? 0 : 1u << (bit - 32) };

		if (zorva_event_set(MSG_CALLER, storm->event, bits))
			atomic_inc(&storm->failed);
		atomic_inc(&storm->sets);
		if (i % 16 == own)
			schedule();
	}
}

static void wait_often(void *arg)
{
	struct storm *storm = arg;
	unsigned int i;
	u32 bits[2];

	for (i = 0; i < SETTERS * SETS; i++) {
		if (zorva_event_wait(MSG_CALLER, storm->event, bits, 5000)) {
			atomic_inc(&storm->failed);
			return;
		}
		storm->signals++;
		storm->seen[0] |= bits[0];
		storm->seen[1] |= bits[1];
	}
}

static void no_signal_of_many_setters_is_lost(struct kunit *test)
{
	struct storm storm = { .event = make(test, "storm") };
	struct msg_thread *waiter, *setters[SETTERS];
	unsigned int i;

	waiter = msg_start(test, wait_often, &storm);
	for (i = 0; i < SETTERS; i++)
		setters[i] = msg_start(test, set_often, &storm);
	for (i = 0; i < SETTERS; i++)
		msg_join_within(test, setters[i], 60);
	msg_join_within(test, waiter, 60);

	KUNIT_EXPECT_EQ(test, atomic_read(&storm.failed), 0);
	KUNIT_EXPECT_EQ(test, atomic_read(&storm.sets), SETTERS * SETS);
	KUNIT_EXPECT_EQ(test, storm.signals, SETTERS * SETS);
	KUNIT_EXPECT_EQ(test, storm.seen[0], 0xFFFFFFFFu);
	KUNIT_EXPECT_EQ(test, storm.seen[1], 0x7FFFFFFFu);
	expect_nothing(test, storm.event);
	drop(test, storm.event);
}

static struct kunit_case cases[] = {
	KUNIT_CASE(an_event_is_made_and_goes_away_again),
	KUNIT_CASE(an_event_is_three_blocks_of_its_owner),
	KUNIT_CASE(the_record_begins_empty),
	KUNIT_CASE(an_unnamed_event_has_its_owners_name),
	KUNIT_CASE(a_name_is_cut_to_31_characters),
	KUNIT_CASE(a_name_is_no_format),
	KUNIT_CASE(every_component_may_own_an_event),
	KUNIT_CASE(sets_are_merged_for_one_wait),
	KUNIT_CASE(every_set_is_good_for_one_wait),
	KUNIT_CASE(bits_set_twice_come_once_and_signal_twice),
	KUNIT_CASE(each_of_the_64_bits_goes_its_own_way),
	KUNIT_CASE(a_set_leaves_the_callers_bits),
	KUNIT_CASE(a_wait_without_a_set_returns_at_once),
	KUNIT_CASE(a_wait_runs_out_of_time_after_50_ms),
	KUNIT_CASE(a_wait_runs_out_of_time_after_100_ms),
	KUNIT_CASE(a_wait_lasts_until_a_set),
	KUNIT_CASE(a_set_ends_a_wait_before_its_limit),
	KUNIT_CASE(an_empty_set_ends_a_wait),
	KUNIT_CASE(a_set_ends_one_wait_only),
	KUNIT_CASE(the_lock_reports_show_a_set_and_a_wait),
	KUNIT_CASE(a_set_waits_for_the_lock),
	KUNIT_CASE(a_wait_has_its_signal_before_it_locks),
	KUNIT_CASE(no_signal_of_many_setters_is_lost),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_event",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Event flags of ZORVA");
