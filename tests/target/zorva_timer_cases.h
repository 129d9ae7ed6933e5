/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The cases that both kinds of timers have in common. The suite of each kind
 * includes this once, after it has said what its kind is:
 *
 *	KIND			its description
 *	in_right_context()	true where its callbacks have to run
 *
 * Those that come first in the suites depend on their order: they see the
 * list and the first timers come into being. All others share a pool of
 * timers, to make few.
 */
#ifndef ZORVA_TIMER_CASES_H
#define ZORVA_TIMER_CASES_H

#include <linux/module.h>
#include <linux/string.h>

#include "zorva_timer_test.h"

enum {
	OWNER = 11,
	OTHER = 18,
	CALLER = 56,
};

#define POISON 0xA5A5A5A5u
#define LONG_MSECS 100000u

/* The list of this kind, once there is one, and the ID that was last used. */
static struct zt_timer_list *list;
static u32 last_id;

/* A timer of the pool, and what its callback saw. */
struct pooled {
	u32 id;
	void *record;
	unsigned int expiries;
	unsigned long jiffies;
	u64 time;
	bool right_context;
	struct zt_started seen;
	void (*then)(struct pooled *timer);
	unsigned int rounds;
	u32 result;
};

#define POOL 2u
static struct pooled pool[POOL];

static void pooled_expired(unsigned long data)
{
	struct pooled *timer = &pool[data % POOL];

	timer->expiries++;
	timer->jiffies = jiffies;
	timer->time = ktime_get_ns();
	timer->right_context = in_right_context();
	timer->seen = *zt_started_of(&KIND, timer->record);
	if (timer->then)
		timer->then(timer);
}

static u32 start(struct pooled *timer, u32 msecs)
{
	return KIND.start(CALLER, &timer->id, msecs, "start.c", 20);
}

static u32 stop(struct pooled *timer)
{
	return KIND.stop(CALLER, &timer->id, "stop.c", 30);
}

static u32 refresh(struct pooled *timer, u32 msecs)
{
	return KIND.refresh(CALLER, &timer->id, msecs, "refresh.c", 40);
}

/* Makes a timer for good; it has the next ID, and its record is the newest. */
static void *make(struct kunit *test, u32 comp,
		  void (*callback)(unsigned long data), u32 data, u32 *id)
{
	struct zt_block *block;
	u32 result;

	*id = POISON;
	result = KIND.init(comp, id, callback, data, "maker.c", 10);

	KUNIT_ASSERT_EQ(test, result, ZORVA_RC_OK);
	KUNIT_ASSERT_EQ(test, *id, last_id + 1);
	last_id++;
	zt_made(KIND.record_size + ZT_NODE_SIZE, 2);
	block = zt_newest_block(test);
	KUNIT_ASSERT_EQ(test, block->size, KIND.record_size);
	return block + 1;
}

/* A timer of the pool that is idle and has not yet expired. */
static struct pooled *take(struct kunit *test, u32 index)
{
	struct pooled *timer = &pool[index];
	const u32 id = timer->id;
	void *const record = timer->record;

	memset(timer, 0, sizeof(*timer));
	timer->id = id;
	timer->record = record;
	if (!record)
		timer->record =
			make(test, OWNER, pooled_expired, index, &timer->id);
	return timer;
}

/* The line of a timer of the pool while it is idle. */
static const char *idle_row_of(struct kunit *test, struct pooled *timer)
{
	return zt_idle_row(test, OWNER, timer->id, timer - pool);
}

/* The report with one line in another's place. */
static const char *with_row(struct kunit *test, const char *report,
			    const char *row, const char *new_row)
{
	const char *place = strstr(report, row);

	KUNIT_ASSERT_TRUE_MSG(test,
			      place && place > report && place[-1] == '\n',
			      "not in %s: %s", KIND.report, row);
	return zt_text(test, "%.*s%s%s", (int)(place - report), report, new_row,
		       place + strlen(row));
}

/* Compares a record's end with that of a timer that was started, or not. */
static void expect_started(struct kunit *test, struct pooled *timer, u32 msecs,
			   const char *file, u32 line)
{
	const struct zt_started *now = zt_started_of(&KIND, timer->record);

	KUNIT_EXPECT_EQ(test, now->data, (u32)(timer - pool));
	KUNIT_EXPECT_EQ(test, now->period, msecs);
	KUNIT_EXPECT_EQ(test, now->running, 1u);
	KUNIT_EXPECT_STREQ(test, (const char *)now->file, file);
	KUNIT_EXPECT_EQ(test, now->line, line);
}

static void expect_cleared(struct kunit *test, const struct zt_started *now)
{
	KUNIT_EXPECT_EQ(test, now->period, 0u);
	KUNIT_EXPECT_EQ(test, now->running, 0u);
	KUNIT_EXPECT_EQ(test, now->line, 0u);
	ZT_EXPECT_NULL(test, memchr_inv(now->file, 0, sizeof(now->file)));
}

/* Before there is any timer. */
static void without_any_timer_nothing_can_be_started(struct kunit *test)
{
	u32 id = 1;

	KUNIT_EXPECT_EQ(test, KIND.start(CALLER, &id, 1, "a.c", 1),
			0xFFFFFFFFu);
	ZT_EXPECT_TIMER_ERROR(test, KIND.start_name, "invalid parameter");

	zt_forget_reports();
	KUNIT_EXPECT_EQ(test, KIND.stop(CALLER, &id, "a.c", 1), 0xFFFFFFFFu);
	ZT_EXPECT_TIMER_ERROR(test, KIND.stop_name, "invalid parameter");

	zt_forget_reports();
	KUNIT_EXPECT_EQ(test, KIND.refresh(CALLER, &id, 1, "a.c", 7),
			0xFFFFFFFFu);
	ZT_EXPECT_REPORTS(test,
			  ZT_ERROR("zorva_timer.cpp", "%s", "invalid parameter")
				  ZT_ERROR("zorva_timer.cpp", "%s",
					   "%s (a.c,7)"),
			  KIND.stop_name, KIND.refresh_name, KIND.stop_failed);

	KUNIT_EXPECT_EQ(test, id, 1u);
	ZT_EXPECT_FILE(test, KIND.report, "%s", ZT_TIMER_HEAD);
}

static void without_memory_for_the_list_there_is_none(struct kunit *test)
{
	u32 id = POISON, result;

	zt_fail_allocation(1);
	result = KIND.init(OWNER, &id, pooled_expired, 0, "a.c", 1);
	KUNIT_ASSERT_TRUE(test, zt_end_failing());

	KUNIT_EXPECT_EQ(test, result, 0xFFFFFFFFu);
	KUNIT_EXPECT_EQ(test, id, POISON);
	KUNIT_ASSERT_EQ(test, zt_report_count(), 2u);
	zt_expect_no_memory(test, 0, ZT_LIST_SIZE, "sys_sll.cpp");
	KUNIT_EXPECT_STREQ(test, (const char *)zt_report(test, 1)->text,
			   "Create linked-list failed.");
	KUNIT_EXPECT_STREQ(test, (const char *)zt_report(test, 1)->func,
			   KIND.init_name);
	KUNIT_EXPECT_EQ(test, zt_report(test, 1)->level, ZORVA_LEVEL_ERROR);
	KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 1u);
	KUNIT_EXPECT_TRUE(test,
			  strstr(zt_log(test),
				 "sys_sll_init: allocate memory failed.\n"));

	/* Still none was ever made. */
	zt_forget_reports();
	id = 1;
	KUNIT_EXPECT_EQ(test, KIND.stop(CALLER, &id, "a.c", 1), 0xFFFFFFFFu);
	ZT_EXPECT_TIMER_ERROR(test, KIND.stop_name, "invalid parameter");
}

static void without_memory_for_a_node_only_the_list_is_left(struct kunit *test)
{
	struct zt_block *block;
	u32 id = POISON, result;

	zt_fail_allocation(2);
	result = KIND.init(OWNER, &id, pooled_expired, 0, "a.c", 1);
	KUNIT_ASSERT_TRUE(test, zt_end_failing());

	KUNIT_EXPECT_EQ(test, result, 0xFFFFFFFFu);
	KUNIT_EXPECT_EQ(test, id, POISON);
	KUNIT_ASSERT_EQ(test, zt_report_count(), 1u);
	zt_expect_no_memory(test, 0, ZT_NODE_SIZE, "sys_sll.cpp");
	ZT_EXPECT_FILE(test, KIND.report, "%s", ZT_TIMER_HEAD);

	block = zt_newest_block(test);
	KUNIT_ASSERT_EQ(test, block->size, ZT_LIST_SIZE);
	KUNIT_ASSERT_EQ(test, block->comp, ZORVA_COMPONENT_SELF);
	list = (struct zt_timer_list *)(block + 1);
	KUNIT_EXPECT_EQ(test, list->magic, ZT_LIST_MAGIC);
	KUNIT_EXPECT_EQ(test, list->comp, ZORVA_COMPONENT_SELF);
	KUNIT_EXPECT_EQ(test, list->count, 0u);
	zt_made(ZT_LIST_SIZE, 1);

	/* With a list, an ID is looked for. */
	zt_forget_reports();
	id = 1;
	KUNIT_EXPECT_EQ(test, KIND.start(CALLER, &id, 1, "a.c", 1),
			0x7000000Eu);
	KUNIT_EXPECT_EQ(test, KIND.stop(CALLER, &id, "a.c", 1), 0x7000000Eu);
	ZT_EXPECT_NO_REPORTS(test);
}

/* One kind keeps an empty node, the other does not. */
static void without_memory_for_a_timer_no_id_is_used(struct kunit *test)
{
	const char *const report = zt_file(test, KIND.report);
	u32 id = POISON, result;

	zt_fail_allocation(2);
	result = KIND.init(OWNER, &id, pooled_expired, 0, "a.c", 1);
	KUNIT_ASSERT_TRUE(test, zt_end_failing());

	KUNIT_EXPECT_EQ(test, result, 0xFFFFFFFFu);
	KUNIT_EXPECT_EQ(test, id, POISON);
	KUNIT_ASSERT_EQ(test, zt_report_count(), 1u);
	zt_expect_no_memory(test, 0, KIND.record_size, "zorva_timer.cpp");
	KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 1u);
	ZT_EXPECT_FILE(test, KIND.report, "%s", report);
	if (KIND.empty_places)
		zt_made(ZT_NODE_SIZE, 1);

	id = last_id + 1;
	KUNIT_EXPECT_EQ(test, KIND.start(CALLER, &id, 1, "a.c", 1),
			0x7000000Eu);
}

static void ids_start_at_1(struct kunit *test)
{
	struct pooled *first, *second;

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, list);
	KUNIT_ASSERT_EQ(test, last_id, 0u);
	first = take(test, 0);
	second = take(test, 1);

	KUNIT_EXPECT_EQ(test, first->id, 1u);
	KUNIT_EXPECT_EQ(test, second->id, 2u);
	KUNIT_EXPECT_EQ(test, list->count, KIND.empty_places ? 3u : 2u);
	expect_cleared(test, zt_started_of(&KIND, first->record));
	ZT_EXPECT_FILE(test, KIND.report,
		       ZT_TIMER_HEAD
		       "PORT       1        0     0        0        --\n"
		       "PORT       2        1     0        0        --\n");
	ZT_EXPECT_NO_REPORTS(test);
}

static void without_memory_for_a_node_nothing_is_left(struct kunit *test)
{
	const char *const report = zt_file(test, KIND.report);
	u32 id = POISON, result;

	zt_fail_allocation(1);
	result = KIND.init(OWNER, &id, pooled_expired, 0, "a.c", 1);
	KUNIT_ASSERT_TRUE(test, zt_end_failing());

	KUNIT_EXPECT_EQ(test, result, 0xFFFFFFFFu);
	KUNIT_EXPECT_EQ(test, id, POISON);
	KUNIT_ASSERT_EQ(test, zt_report_count(), 1u);
	zt_expect_no_memory(test, 0, ZT_NODE_SIZE, "sys_sll.cpp");
	ZT_EXPECT_FILE(test, KIND.report, "%s", report);

	/* The next one has the next ID. */
	make(test, OWNER, pooled_expired, 0, &id);
}

static void expect_failed_insertion(struct kunit *test)
{
	const char *const report = zt_file(test, KIND.report);
	u32 id = POISON, result;

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, list);
	zt_forget_reports();
	ZT_WITH_WORD(list->magic, 0xDEADBEEEu,
		     result = KIND.init(OWNER, &id, pooled_expired, 0, "a.c",
					1));

	KUNIT_EXPECT_EQ(test, result, 0x70000015u);
	KUNIT_EXPECT_EQ(test, id, POISON);
	ZT_EXPECT_TIMER_ERROR(test, KIND.init_name, "Add timer node failed.");
	ZT_EXPECT_FILE(test, KIND.report, "%s", report);
}

static void
a_failed_insertion_leaves_nothing_but_skips_an_id(struct kunit *test)
{
	u32 id, i;

	for (i = 0; i < KIND.skipped_ids; i++) {
		expect_failed_insertion(test);
		last_id++;
	}
	ZT_EXPECT_GROWTH(test, ZORVA_COMPONENT_SELF, zt_timers_before, 0, 0);

	zt_forget_reports();
	make(test, OWNER, pooled_expired, 0, &id);
	ZT_EXPECT_NO_REPORTS(test);

	/* The ID that was skipped names nothing. */
	id--;
	KUNIT_EXPECT_EQ(test, KIND.start(CALLER, &id, 1, "a.c", 1),
			0x7000000Eu);
}

/* Which arguments of a call are right, and what has to come of it. */
struct refusal {
	u32 comp;
	bool id;
	bool callback;
	u32 msecs;
	const char *file;
	u32 want;
	enum {
		COMP,
		ID,
		CALLBACK,
		MSECS,
		FILE,
		ALL
	} first_wrong;
};

/* Later arguments may be wrong as well: only the first one is reported. */
static const struct refusal refusals[] = {
	{ 0, true, true, 1, "a.c", 0x70000002, COMP },
	{ 57, true, true, 1, "a.c", 0x70000002, COMP },
	{ 58, true, true, 1, "a.c", 0x70000002, COMP },
	{ 0xFFFFFFFF, true, true, 1, "a.c", 0x70000002, COMP },
	{ 0x80000001, false, false, 0, NULL, 0x70000002, COMP },
	{ OWNER, false, true, 1, "a.c", 0x7E000015, ID },
	{ OWNER, false, false, 0, NULL, 0x7E000015, ID },
	{ OWNER, true, false, 1, "a.c", 0x7E000015, CALLBACK },
	{ OWNER, true, false, 0, NULL, 0x7E000015, CALLBACK },
	{ OWNER, true, true, 0, "a.c", 0x70000015, MSECS },
	{ OWNER, true, true, 0, NULL, 0x70000015, MSECS },
	{ OWNER, true, true, 1, NULL, 0x7E000015, FILE },
};

static u32 try_init(const struct refusal *call, u32 *id)
{
	return KIND.init(call->comp, call->id ? id : NULL,
			 call->callback ? pooled_expired : NULL, 0, call->file,
			 1);
}

static u32 try_start(const struct refusal *call, u32 *id)
{
	return KIND.start(call->comp, call->id ? id : NULL, call->msecs,
			  call->file, 1);
}

static u32 try_stop(const struct refusal *call, u32 *id)
{
	return KIND.stop(call->comp, call->id ? id : NULL, call->file, 1);
}

static u32 try_refresh(const struct refusal *call, u32 *id)
{
	return KIND.refresh(call->comp, call->id ? id : NULL, call->msecs,
			    call->file, 1);
}

/*
 * Calls with one wrong argument after the other, next to an idle and a running
 * timer, of which nothing may change. Every argument has a line of its own.
 */
static void expect_refusals(struct kunit *test, const char *func, bool callback,
			    bool msecs,
			    u32 (*try)(const struct refusal *call, u32 *id))
{
	struct pooled *const idle = take(test, 0);
	struct pooled *const running = take(test, 1);
	s32 lines[ALL] = {};
	const struct refusal *call;
	const char *report;
	u32 id, i, j;

	KUNIT_ASSERT_EQ(test, start(running, LONG_MSECS), ZORVA_RC_OK);
	report = zt_file(test, KIND.report);

	for (call = refusals; call < refusals + ARRAY_SIZE(refusals); call++) {
		if (call->first_wrong == CALLBACK && !callback)
			continue;
		if (call->first_wrong == MSECS && !msecs)
			continue;
		for (i = 0; i < 2; i++) {
			id = i ? running->id : idle->id;
			zt_forget_reports();
			KUNIT_EXPECT_EQ_MSG(test, try(call, &id), call->want,
					    "row %u", (u32)(call - refusals));
			KUNIT_EXPECT_EQ(test, id, i ? running->id : idle->id);
			ZT_EXPECT_TIMER_ERROR(test, func, "invalid parameter");
			KUNIT_ASSERT_EQ(test, zt_report_count(), 1u);
			if (!lines[call->first_wrong])
				lines[call->first_wrong] =
					zt_report(test, 0)->line;
			if (call->first_wrong != COMP)
				KUNIT_EXPECT_EQ(test, zt_report(test, 0)->line,
						lines[call->first_wrong]);
		}
	}

	for (i = ID; i < ALL; i++)
		for (j = COMP; j < i && lines[i]; j++)
			KUNIT_EXPECT_NE_MSG(test, lines[i], lines[j],
					    "arguments %u and %u", j, i);
	ZT_EXPECT_FILE(test, KIND.report, "%s", report);
	KUNIT_EXPECT_EQ(test, stop(running), ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, running->expiries + idle->expiries, 0u);
}

static void making_a_timer_needs_right_arguments(struct kunit *test)
{
	expect_refusals(test, KIND.init_name, true, false, try_init);
}

static void a_start_needs_right_arguments(struct kunit *test)
{
	expect_refusals(test, KIND.start_name, false, true, try_start);
}

static void a_stop_needs_right_arguments(struct kunit *test)
{
	expect_refusals(test, KIND.stop_name, false, false, try_stop);
}

static void a_refresh_needs_right_arguments(struct kunit *test)
{
	expect_refusals(test, KIND.refresh_name, false, true, try_refresh);
}

static void every_valid_component_is_taken(struct kunit *test)
{
	struct pooled *const timer = take(test, 0);
	u32 comp;

	for (comp = 1; comp < ZORVA_COMPONENTS; comp++) {
		KUNIT_EXPECT_EQ(test,
				KIND.start(comp, &timer->id, LONG_MSECS, "a.c",
					   1),
				ZORVA_RC_OK);
		KUNIT_EXPECT_EQ(test,
				KIND.refresh(comp, &timer->id, LONG_MSECS,
					     "a.c", 1),
				ZORVA_RC_OK);
		KUNIT_EXPECT_EQ(test, KIND.stop(comp, &timer->id, "a.c", 1),
				ZORVA_RC_OK);
	}
	ZT_EXPECT_NO_REPORTS(test);
}

static void a_timer_expires_once_in_its_context(struct kunit *test)
{
	struct pooled *const timer = take(test, 0);
	const char *const report = zt_file(test, KIND.report);
	const u64 begin = ktime_get_ns();

	KUNIT_EXPECT_EQ(test, start(timer, 50), ZORVA_RC_OK);
	ZT_WAIT_FOR(test, timer->expiries, 1000);

	KUNIT_EXPECT_TRUE(test, timer->right_context);
	KUNIT_EXPECT_GE(test, timer->time - begin, 40 * 1000000ull);
	msleep(120);
	KUNIT_EXPECT_EQ(test, timer->expiries, 1u);

	/* It was idle already when its callback was called, and is so now. */
	expect_cleared(test, &timer->seen);
	ZT_EXPECT_FILE(test, KIND.report, "%s", report);
	ZT_EXPECT_NO_REPORTS(test);
}

static void the_report_shows_a_running_timer(struct kunit *test)
{
	struct pooled *const timer = take(test, 1);
	struct pooled *const other = take(test, 0);
	const char *const report = zt_file(test, KIND.report);
	const char *running;

	KUNIT_EXPECT_EQ(test,
			KIND.start(OTHER, &timer->id, 123456, "file.c",
				   4294967295u),
			ZORVA_RC_OK);
	running =
		with_row(test, report, idle_row_of(test, timer),
			 "PORT       2        1     123456   1        file.c, 4294967295\n");
	ZT_EXPECT_FILE(test, KIND.report, "%s", running);

	KUNIT_EXPECT_EQ(test,
			KIND.start(CALLER, &other->id, 4294967295u, "b.c", 0),
			ZORVA_RC_OK);
	ZT_EXPECT_FILE(test, KIND.report, "%s",
		       with_row(test, running, idle_row_of(test, other),
				"PORT       1        0     42949672951        b.c, 0\n"));

	KUNIT_EXPECT_EQ(test, stop(other), ZORVA_RC_OK);
	ZT_EXPECT_FILE(test, KIND.report, "%s", running);
	KUNIT_EXPECT_EQ(test, stop(timer), ZORVA_RC_OK);
	ZT_EXPECT_FILE(test, KIND.report, "%s", report);
}

static void a_running_timer_cannot_be_started(struct kunit *test)
{
	struct pooled *const timer = take(test, 0);
	const char *report;
	u64 expiry;

	KUNIT_ASSERT_EQ(test, start(timer, LONG_MSECS), ZORVA_RC_OK);
	report = zt_file(test, KIND.report);
	expiry = KIND.expiry(timer->record);

	KUNIT_EXPECT_EQ(test, KIND.start(OTHER, &timer->id, 1, "second.c", 99),
			0xFFFFFFFFu);

	KUNIT_EXPECT_EQ(test, KIND.expiry(timer->record), expiry);
	expect_started(test, timer, LONG_MSECS, "start.c", 20);
	ZT_EXPECT_FILE(test, KIND.report, "%s", report);
	ZT_EXPECT_NO_REPORTS(test);
	msleep(50);
	KUNIT_EXPECT_EQ(test, timer->expiries, 0u);

	/* And goes on to its end. */
	KUNIT_EXPECT_EQ(test, refresh(timer, 200), ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, start(timer, LONG_MSECS), 0xFFFFFFFFu);
	ZT_WAIT_FOR(test, timer->expiries, 1000);
}

static void a_stopped_timer_does_not_expire(struct kunit *test)
{
	struct pooled *const timer = take(test, 0);

	KUNIT_EXPECT_EQ(test, start(timer, 60), ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, stop(timer), ZORVA_RC_OK);
	expect_cleared(test, zt_started_of(&KIND, timer->record));
	msleep(150);

	KUNIT_EXPECT_EQ(test, timer->expiries, 0u);
	ZT_EXPECT_NO_REPORTS(test);
}

static void an_idle_timer_can_be_stopped(struct kunit *test)
{
	struct pooled *const timer = take(test, 0);

	KUNIT_EXPECT_EQ(test, stop(timer), ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, stop(timer), ZORVA_RC_OK);
	expect_cleared(test, zt_started_of(&KIND, timer->record));
	ZT_EXPECT_NO_REPORTS(test);

	/* Also one that has expired. */
	KUNIT_EXPECT_EQ(test, start(timer, 1), ZORVA_RC_OK);
	ZT_WAIT_FOR(test, timer->expiries, 1000);
	KUNIT_EXPECT_EQ(test, stop(timer), ZORVA_RC_OK);
	ZT_EXPECT_NO_REPORTS(test);
}

static void a_refresh_starts_an_idle_timer(struct kunit *test)
{
	struct pooled *const timer = take(test, 0);

	KUNIT_EXPECT_EQ(test, refresh(timer, LONG_MSECS), ZORVA_RC_OK);
	expect_started(test, timer, LONG_MSECS, "refresh.c", 40);
	KUNIT_EXPECT_EQ(test, refresh(timer, 10), ZORVA_RC_OK);
	ZT_WAIT_FOR(test, timer->expiries, 1000);

	ZT_EXPECT_NO_REPORTS(test);
}

static void a_refresh_sets_a_running_timer_anew(struct kunit *test)
{
	struct pooled *const timer = take(test, 1);
	const char *const report = zt_file(test, KIND.report);
	unsigned int i;

	KUNIT_EXPECT_EQ(test, start(timer, 200), ZORVA_RC_OK);
	for (i = 0; i < 15; i++) {
		msleep(20);
		KUNIT_ASSERT_EQ(test,
				KIND.refresh(OTHER, &timer->id, 1000 + i,
					     "again.c", i),
				ZORVA_RC_OK);
	}

	KUNIT_EXPECT_EQ(test, timer->expiries, 0u);
	ZT_EXPECT_FILE(test, KIND.report, "%s",
		       with_row(test, report, idle_row_of(test, timer),
				zt_running_row(test, OWNER, timer->id, 1, 1014,
					       "again.c", 14)));
	KUNIT_EXPECT_EQ(test, stop(timer), ZORVA_RC_OK);
	ZT_EXPECT_NO_REPORTS(test);
}

static void an_unknown_id_is_not_found(struct kunit *test)
{
	const u32 unknown[] = { 0,
				last_id + 1,
				KIND.limit,
				KIND.limit + 1,
				KIND.limit + 2,
				0x80000001,
				0xFFFFFFFF };
	const char *const report = zt_file(test, KIND.report);
	u32 i;

	for (i = 0; i < ARRAY_SIZE(unknown); i++) {
		u32 id = unknown[i];

		zt_forget_reports();
		KUNIT_EXPECT_EQ(test, KIND.start(CALLER, &id, 1, "a.c", 1),
				0x7000000Eu);
		KUNIT_EXPECT_EQ(test, KIND.stop(CALLER, &id, "a.c", 1),
				0x7000000Eu);
		ZT_EXPECT_NO_REPORTS(test);

		KUNIT_EXPECT_EQ(test,
				KIND.refresh(CALLER, &id, 1,
					     "a_name_of_22_chars_.c",
					     4294967295u),
				0x7000000Eu);
		ZT_EXPECT_TIMER_ERROR(test, KIND.refresh_name,
				      "%s (a_name_of_22_chars_.c,4294967295)",
				      KIND.stop_failed);
	}
	ZT_EXPECT_FILE(test, KIND.report, "%s", report);
}

/* An interrupt that starts a timer on its own, once. */
struct intruder {
	struct hrtimer timer;
	struct pooled *pooled;
	u32 result;
	bool came;
};

static enum hrtimer_restart intrude(struct hrtimer *timer)
{
	struct intruder *intruder = container_of(timer, struct intruder, timer);

	intruder->result = KIND.start(OTHER, &intruder->pooled->id, LONG_MSECS,
				      "intruder.c", 50);
	intruder->came = true;
	return HRTIMER_NORESTART;
}

/*
 * Between its stop and its start a refresh holds no lock. An interrupt that
 * starts the timer just then makes the refresh's own start fail; it comes
 * after ever other times, until it has hit that place.
 */
/* Not even a timer that is in it. */
static void in_a_torn_list_no_timer_is_found(struct kunit *test)
{
	struct pooled *const timer = take(test, 0);
	u32 result = POISON;

	ZT_WITH_WORD(list->magic, 0, result = start(timer, LONG_MSECS));
	KUNIT_EXPECT_EQ(test, result, 0x7000000Eu);
	ZT_WITH_WORD(list->magic, 0, result = stop(timer));
	KUNIT_EXPECT_EQ(test, result, 0x7000000Eu);
	expect_cleared(test, zt_started_of(&KIND, timer->record));
	ZT_EXPECT_NO_REPORTS(test);
}

static void a_refresh_reports_that_its_start_failed(struct kunit *test)
{
	struct intruder intruder = { .pooled = take(test, 0) };
	struct pooled *const timer = intruder.pooled;
	u32 result = ZORVA_RC_OK;
	unsigned int tries;

	hrtimer_setup_on_stack(&intruder.timer, intrude, CLOCK_MONOTONIC,
			       HRTIMER_MODE_REL);

	for (tries = 0; tries < 20000 && result == ZORVA_RC_OK; tries++) {
		intruder.came = false;
		stop(timer);
		hrtimer_start(&intruder.timer,
			      ns_to_ktime(20000 + tries * 97 % 20000),
			      HRTIMER_MODE_REL);
		while (!READ_ONCE(intruder.came) && result == ZORVA_RC_OK)
			result = refresh(timer, LONG_MSECS);
		hrtimer_cancel(&intruder.timer);
	}
	destroy_hrtimer_on_stack(&intruder.timer);

	KUNIT_EXPECT_EQ(test, result, 0xFFFFFFFFu);
	KUNIT_EXPECT_EQ(test, intruder.result, ZORVA_RC_OK);
	ZT_EXPECT_TIMER_ERROR(test, KIND.refresh_name, "%s (refresh.c,40)",
			      KIND.start_failed);
	expect_started(test, timer, LONG_MSECS, "intruder.c", 50);
	KUNIT_EXPECT_EQ(test, stop(timer), ZORVA_RC_OK);
}

static void then_start_again(struct pooled *timer)
{
	if (timer->expiries < timer->rounds)
		timer->result |= start(timer, 10);
}

static void then_refresh(struct pooled *timer)
{
	if (timer->expiries < timer->rounds)
		timer->result |= refresh(timer, 10);
}

static void expect_rounds(struct kunit *test, struct pooled *timer,
			  void (*then)(struct pooled *timer))
{
	timer->then = then;
	timer->rounds = 5;
	timer->right_context = false;

	KUNIT_EXPECT_EQ(test, start(timer, 10), ZORVA_RC_OK);
	ZT_WAIT_FOR(test, timer->expiries == timer->rounds, 2000);

	msleep(60);
	KUNIT_EXPECT_EQ(test, timer->expiries, timer->rounds);
	KUNIT_EXPECT_EQ(test, timer->result, ZORVA_RC_OK);
	KUNIT_EXPECT_TRUE(test, timer->right_context);
	expect_cleared(test, &timer->seen);
	expect_cleared(test, zt_started_of(&KIND, timer->record));
	ZT_EXPECT_NO_REPORTS(test);
}

static void a_callback_can_start_its_timer_again(struct kunit *test)
{
	expect_rounds(test, take(test, 0), then_start_again);
}

static void a_callback_can_refresh_its_timer(struct kunit *test)
{
	expect_rounds(test, take(test, 0), then_refresh);
}

static void then_stop_all(struct pooled *timer)
{
	timer->result = stop(timer) | stop(&pool[1]);
}

static void a_callback_can_stop_timers(struct kunit *test)
{
	struct pooled *const timer = take(test, 0);
	struct pooled *const other = take(test, 1);

	timer->then = then_stop_all;
	timer->result = POISON;
	KUNIT_EXPECT_EQ(test, start(other, 150), ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, start(timer, 20), ZORVA_RC_OK);
	ZT_WAIT_FOR(test, timer->expiries, 1000);
	msleep(250);

	KUNIT_EXPECT_EQ(test, timer->result, ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, other->expiries, 0u);
	expect_cleared(test, zt_started_of(&KIND, other->record));
}

/*
 * The name of the caller's file, at every alignment, as long as the field can
 * hold it and longer.
 */
static void the_callers_file_is_cut_to_15_characters(struct kunit *test)
{
	struct pooled *const timer = take(test, 1);
	const struct zt_started *const now =
		zt_started_of(&KIND, timer->record);
	const char *const report = zt_file(test, KIND.report);
	char text[40] __aligned(4);
	char want[16];
	u32 at, length;

	for (at = 0; at < 4; at++)
		for (length = 0; length <= 20; length++) {
			memset(text, '#', sizeof(text));
			memcpy(text + at, "abcdefghijklmnopqrstuvwxyz", length);
			text[at + length] = '\0';
			strscpy(want, text + at, sizeof(want));

			KUNIT_ASSERT_EQ(test,
					length % 2
						? KIND.start(CALLER, &timer->id,
							     LONG_MSECS,
							     text + at, 1)
						: KIND.refresh(CALLER,
							       &timer->id,
							       LONG_MSECS,
							       text + at, 1),
					ZORVA_RC_OK);
			KUNIT_EXPECT_STREQ(test, (const char *)now->file,
					   (const char *)want);
			KUNIT_EXPECT_EQ(test, now->file[16], (char)0);
			if (length == 15 || length == 16)
				ZT_EXPECT_FILE(test, KIND.report, "%s",
					       with_row(test, report,
							idle_row_of(test,
								    timer),
							zt_running_row(test,
								       OWNER,
								       timer->id,
								       1,
								       LONG_MSECS,
								       "abcdefghijklmno",
								       1)));
			KUNIT_EXPECT_EQ(test, stop(timer), ZORVA_RC_OK);
			expect_cleared(test, now);
		}
}

static void any_component_may_use_a_timer(struct kunit *test)
{
	struct pooled *const timer = take(test, 0);
	const struct zt_account owner = zt_account_of(test, OWNER);
	const struct zt_account other = zt_account_of(test, OTHER);
	const char *const report = zt_file(test, KIND.report);

	KUNIT_EXPECT_EQ(test, KIND.start(OTHER, &timer->id, 5000, "a.c", 1),
			ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, KIND.refresh(1, &timer->id, 7000, "b.c", 2),
			ZORVA_RC_OK);

	/* The owner stays the one who has made it. */
	ZT_EXPECT_FILE(test, KIND.report, "%s",
		       with_row(test, report, idle_row_of(test, timer),
				zt_running_row(test, OWNER, timer->id, 0, 7000,
					       "b.c", 2)));
	KUNIT_EXPECT_EQ(test, KIND.stop(56, &timer->id, "c.c", 3), ZORVA_RC_OK);
	ZT_EXPECT_FILE(test, KIND.report, "%s", report);

	/* Its memory is this module's, whoever owns the timer. */
	ZT_EXPECT_GROWTH(test, OWNER, owner, 0, 0);
	ZT_EXPECT_GROWTH(test, OTHER, other, 0, 0);
}

static void starts_and_stops_allocate_nothing(struct kunit *test)
{
	struct pooled *const timer = take(test, 0);
	bool failed;
	u32 results;

	zt_fail_allocation(1);
	results = start(timer, LONG_MSECS) | refresh(timer, LONG_MSECS) |
		  stop(timer) | refresh(timer, LONG_MSECS) | stop(timer);
	failed = zt_end_failing();

	KUNIT_EXPECT_EQ(test, results, ZORVA_RC_OK);
	KUNIT_EXPECT_FALSE(test, failed);
	ZT_EXPECT_NO_REPORTS(test);
}

static unsigned long data_seen;

static void see_data(unsigned long data)
{
	data_seen = data;
}

static void the_callback_is_given_the_whole_word(struct kunit *test)
{
	const char *const report = zt_file(test, KIND.report);
	u32 id;

	make(test, CALLER, see_data, 0xFEDCBA98, &id);
	KUNIT_EXPECT_EQ(test, KIND.start(CALLER, &id, 1, "a.c", 1),
			ZORVA_RC_OK);
	ZT_WAIT_FOR(test, data_seen, 1000);

	KUNIT_EXPECT_EQ(test, data_seen, 0xFEDCBA98ul);
	/* It is wider than its column, and shown whole. */
	ZT_EXPECT_FILE(test, KIND.report,
		       "%s%-11s%-9u42758785520        0        --\n", report,
		       _componentName[CALLER], id);
}

/* What another context does with timers is looked at afterwards. */
struct visit {
	const struct zt_call_context *context;
	bool right_context;
	bool right_context_after;
	u32 id;
	u32 results[6];
};

static void use_a_timer_here(void *arg)
{
	struct visit *visit = arg;

	visit->right_context = visit->context->is_current();
	visit->results[0] = start(&pool[0], LONG_MSECS);
	visit->results[1] = start(&pool[0], LONG_MSECS);
	visit->results[2] = refresh(&pool[0], LONG_MSECS);
	visit->results[3] = stop(&pool[0]);
	visit->results[4] = stop(&pool[0]);
	visit->results[5] = KIND.start(0, &pool[0].id, 1, "a.c", 1);
	visit->right_context_after = visit->context->is_current();
}

static void a_timer_can_be_used_in_every_context(struct kunit *test)
{
	const struct zt_call_context *context;

	take(test, 0);
	ZT_FOR_EACH_CONTEXT(context) {
		struct visit visit = { .context = context };

		zt_forget_reports();
		context->run(use_a_timer_here, &visit);

		KUNIT_EXPECT_TRUE_MSG(test, visit.right_context, "%s",
				      context->name);
		KUNIT_EXPECT_TRUE_MSG(test, visit.right_context_after, "%s",
				      context->name);
		KUNIT_EXPECT_EQ(test, visit.results[0], ZORVA_RC_OK);
		KUNIT_EXPECT_EQ(test, visit.results[1], ZORVA_RC_FAIL);
		KUNIT_EXPECT_EQ(test, visit.results[2], ZORVA_RC_OK);
		KUNIT_EXPECT_EQ(test, visit.results[3], ZORVA_RC_OK);
		KUNIT_EXPECT_EQ(test, visit.results[4], ZORVA_RC_OK);
		KUNIT_EXPECT_EQ(test, visit.results[5], ZORVA_RC_BAD_COMPONENT);
		ZT_EXPECT_TIMER_ERROR(test, KIND.start_name,
				      "invalid parameter");
		KUNIT_EXPECT_EQ(test, zt_report(test, 0)->irqs_off,
				context->irqs_off);
	}
}

static void make_a_timer_here(void *arg)
{
	struct visit *visit = arg;

	visit->right_context = visit->context->is_current();
	visit->results[0] = KIND.init(OWNER, &visit->id, see_data, 0, "a.c", 1);
	visit->right_context_after = visit->context->is_current();
}

static void a_timer_can_be_made_in_every_context(struct kunit *test)
{
	const struct zt_call_context *context;

	ZT_FOR_EACH_CONTEXT(context) {
		struct visit visit = { .context = context };

		context->run(make_a_timer_here, &visit);

		KUNIT_EXPECT_TRUE_MSG(test, visit.right_context, "%s",
				      context->name);
		KUNIT_EXPECT_TRUE_MSG(test, visit.right_context_after, "%s",
				      context->name);
		KUNIT_ASSERT_EQ(test, visit.results[0], ZORVA_RC_OK);
		KUNIT_EXPECT_EQ(test, visit.id, ++last_id);
		zt_made(KIND.record_size + ZT_NODE_SIZE, 2);
	}
	ZT_EXPECT_NO_REPORTS(test);
}

static void then_try_to_sleep(struct pooled *timer)
{
	zorva_time_usleep(500);
	zorva_time_usleep(50000);
	zorva_time_sleep(1);
	timer->time = ktime_get_ns() - timer->time;
}

static void a_callback_does_not_sleep(struct kunit *test)
{
	struct pooled *const timer = take(test, 0);

	timer->then = then_try_to_sleep;
	KUNIT_EXPECT_EQ(test, start(timer, 1), ZORVA_RC_OK);
	ZT_WAIT_FOR(test, timer->expiries, 2000);

	KUNIT_EXPECT_LT(test, timer->time, 5 * 1000000ull);
	KUNIT_EXPECT_TRUE(test, timer->right_context);
	ZT_EXPECT_NO_REPORTS(test);
}

static u32 wait_id;

static void then_wake_up(struct pooled *timer)
{
	timer->result = zorva_wake_up(CALLER, wait_id);
}

static void a_callback_can_wake_a_waiting_thread(struct kunit *test)
{
	struct pooled *const timer = take(test, 0);

	KUNIT_ASSERT_EQ(test, zorva_wait_module_create(OWNER, &wait_id),
			ZORVA_RC_OK);
	timer->then = then_wake_up;
	timer->result = POISON;
	KUNIT_EXPECT_EQ(test, start(timer, 100), ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, timer->expiries, 0u);

	KUNIT_EXPECT_EQ(test, zorva_wait_event(OTHER, wait_id), ZORVA_RC_OK);

	KUNIT_EXPECT_EQ(test, timer->expiries, 1u);
	KUNIT_EXPECT_EQ(test, timer->result, ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, zorva_wait_module_destroy(OWNER, wait_id),
			ZORVA_RC_OK);
	ZT_EXPECT_NO_REPORTS(test);
}

/* Leaves what the limits need, no more. */
static void the_suites_that_follow_have_timers_left(struct kunit *test)
{
	u32 last, rows = zt_rows(zt_file(test, KIND.report), &last);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, list);
	KUNIT_EXPECT_EQ(test, last, last_id);
	KUNIT_EXPECT_EQ(test, rows, last_id - KIND.skipped_ids);
	KUNIT_EXPECT_EQ(test, list->count, rows + KIND.empty_places);
	KUNIT_EXPECT_LE(test, list->count,
			KIND.limit == 64 ? ZT_HRT_BUDGET : ZT_TICK_BUDGET);
}

#define CASES_BEFORE_THE_FIRST_TIMER                                           \
	KUNIT_CASE(without_any_timer_nothing_can_be_started),                  \
		KUNIT_CASE(without_memory_for_the_list_there_is_none),         \
		KUNIT_CASE(without_memory_for_a_node_only_the_list_is_left),   \
		KUNIT_CASE(without_memory_for_a_timer_no_id_is_used),          \
		KUNIT_CASE(ids_start_at_1)

#define CASES_OF_BOTH_KINDS                                                    \
	KUNIT_CASE(without_memory_for_a_node_nothing_is_left),                 \
		KUNIT_CASE(a_failed_insertion_leaves_nothing_but_skips_an_id), \
		KUNIT_CASE(making_a_timer_needs_right_arguments),              \
		KUNIT_CASE(a_start_needs_right_arguments),                     \
		KUNIT_CASE(a_stop_needs_right_arguments),                      \
		KUNIT_CASE(a_refresh_needs_right_arguments),                   \
		KUNIT_CASE(every_valid_component_is_taken),                    \
		KUNIT_CASE(a_timer_expires_once_in_its_context),               \
		KUNIT_CASE(the_report_shows_a_running_timer),                  \
		KUNIT_CASE(a_running_timer_cannot_be_started),                 \
		KUNIT_CASE(a_stopped_timer_does_not_expire),                   \
		KUNIT_CASE(an_idle_timer_can_be_stopped),                      \
		KUNIT_CASE(a_refresh_starts_an_idle_timer),                    \
		KUNIT_CASE(a_refresh_sets_a_running_timer_anew),               \
		KUNIT_CASE(an_unknown_id_is_not_found),                        \
		KUNIT_CASE(in_a_torn_list_no_timer_is_found),                  \
		KUNIT_CASE(a_refresh_reports_that_its_start_failed),           \
		KUNIT_CASE(a_callback_can_start_its_timer_again),              \
		KUNIT_CASE(a_callback_can_refresh_its_timer),                  \
		KUNIT_CASE(a_callback_can_stop_timers),                        \
		KUNIT_CASE(the_callers_file_is_cut_to_15_characters),          \
		KUNIT_CASE(any_component_may_use_a_timer),                     \
		KUNIT_CASE(starts_and_stops_allocate_nothing),                 \
		KUNIT_CASE(the_callback_is_given_the_whole_word),              \
		KUNIT_CASE(a_timer_can_be_used_in_every_context),              \
		KUNIT_CASE(a_timer_can_be_made_in_every_context),              \
		KUNIT_CASE(a_callback_does_not_sleep),                         \
		KUNIT_CASE(a_callback_can_wake_a_waiting_thread)

#endif
