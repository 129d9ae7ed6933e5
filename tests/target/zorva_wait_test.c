// SPDX-License-Identifier: GPL-2.0
/* Wait modules: their numbers, waits, wake-ups, and what signals do to both. */
#include <linux/completion.h>
#include <linux/hrtimer.h>
#include <linux/module.h>
#include <linux/string.h>

#include "zorva_account.h"
#include "zorva_sleeper.h"

enum {
	OWNER = 12,
	OTHER = 34,
};

#define POISON 0xA5A5A5A5u

/* A wait module as it lies in memory. */
struct wait_record {
	u32 comp;
	u32 id;
	u32 state;
	wait_queue_head_t queue;
	s32 count;
	struct wait_record *previous;
	struct wait_record *next;
};

static_assert(sizeof(wait_queue_head_t) != 8 ||
	      sizeof(struct wait_record) == 32);

#define EXPECT_WAIT_ERROR(test, func, ...)                                     \
	ZT_EXPECT_REPORTS(test, ZT_ERROR("zorva_wait.cpp", "%s", "%s"), func,  \
			  zt_text(test, __VA_ARGS__))

static u32 create(struct kunit *test)
{
	u32 id = POISON;

	KUNIT_ASSERT_EQ(test,
			zorva_wait_module_create_track(OWNER, &id, "a.c", 1),
			ZORVA_RC_OK);
	return id;
}

static void destroy(struct kunit *test, u32 id)
{
	KUNIT_EXPECT_EQ(test,
			zorva_wait_module_destroy_track(OTHER, id, "a.c", 1),
			ZORVA_RC_OK);
}

static u32 wait(u32 id)
{
	return zorva_wait_event_track(OTHER, id, "wait.c", 1);
}

static u32 wake(u32 id)
{
	return zorva_wake_up_track(OTHER, id, "wake.c", 1);
}

/* The record of the wait module that was made last. */
static struct wait_record *newest_record(struct kunit *test)
{
	struct zt_block *block = zt_newest_block(test);

	KUNIT_ASSERT_EQ(test, block->size, (u32)sizeof(struct wait_record));
	return (struct wait_record *)(block + 1);
}

/* A wait that must not sleep does not give way to another thread. */
static void expect_no_sleep(struct kunit *test, u32 id)
{
	const unsigned long switches = current->nvcsw;

	KUNIT_EXPECT_EQ(test, wait(id), ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, current->nvcsw, switches);
}

static void expect_ids(struct kunit *test, u32 first, u32 count)
{
	u32 i;

	for (i = 0; i < count; i++)
		KUNIT_EXPECT_EQ(test, create(test), first + i);
}

static void ids_start_at_0(struct kunit *test)
{
	expect_ids(test, 0, 3);

	destroy(test, 2);
	destroy(test, 1);
	destroy(test, 0);
	ZT_EXPECT_NO_REPORTS(test);
}

static void the_youngest_ones_id_is_given_out_again(struct kunit *test)
{
	expect_ids(test, 0, 2);
	destroy(test, 1);
	KUNIT_EXPECT_EQ(test, create(test), 1u);

	destroy(test, 1);
	destroy(test, 0);
}

static void without_any_left_ids_start_at_0_again(struct kunit *test)
{
	expect_ids(test, 0, 4);
	destroy(test, 3);
	destroy(test, 2);
	destroy(test, 1);
	destroy(test, 0);
	expect_ids(test, 0, 1);

	destroy(test, 0);
}

static void an_id_in_the_middle_is_not_given_out_again(struct kunit *test)
{
	expect_ids(test, 0, 4);
	destroy(test, 1);
	KUNIT_EXPECT_EQ(test, wake(1), ZORVA_RC_FAIL);
	KUNIT_EXPECT_EQ(test, create(test), 4u);

	/* All others are still there. */
	KUNIT_EXPECT_EQ(test, wake(0), ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, wake(2), ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, wake(3), ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, wake(4), ZORVA_RC_OK);
	expect_no_sleep(test, 2);

	destroy(test, 4);
	destroy(test, 3);
	destroy(test, 2);
	destroy(test, 0);
}

/*
 * The next one keeps its link to what was freed. It is mended here, for that
 * one could not be destroyed otherwise.
 */
static void destroying_the_oldest_leaves_a_link_to_it(struct kunit *test)
{
	struct wait_record *oldest, *second;

	create(test);
	oldest = newest_record(test);
	create(test);
	second = newest_record(test);
	KUNIT_EXPECT_EQ(test, create(test), 2u);
	KUNIT_EXPECT_PTR_EQ(test, second->previous, oldest);

	destroy(test, 0);

	KUNIT_EXPECT_PTR_EQ(test, second->previous, oldest);
	KUNIT_EXPECT_EQ(test, wake(0), ZORVA_RC_FAIL);
	KUNIT_EXPECT_EQ(test, wake(1), ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, create(test), 3u);

	destroy(test, 3);
	destroy(test, 2);
	second->previous = NULL;
	destroy(test, 1);
	expect_ids(test, 0, 1);
	destroy(test, 0);
}

static void a_record_is_32_bytes_of_zorvas_own(struct kunit *test)
{
	const struct zt_account self =
		zt_account_of(test, ZORVA_COMPONENT_SELF);
	const struct zt_account owner = zt_account_of(test, OWNER);
	const struct wait_record *first, *second;

	create(test);
	first = newest_record(test);
	create(test);
	second = newest_record(test);

	ZT_EXPECT_GROWTH(test, ZORVA_COMPONENT_SELF, self,
			 2 * sizeof(struct wait_record), 2);
	ZT_EXPECT_GROWTH(test, OWNER, owner, 0, 0);
	KUNIT_EXPECT_EQ(test, first->comp, (u32)OWNER);
	KUNIT_EXPECT_EQ(test, first->id, 0u);
	KUNIT_EXPECT_EQ(test, second->id, 1u);
	KUNIT_EXPECT_EQ(test, second->state, 1u);
	KUNIT_EXPECT_EQ(test, second->count, 0);
	KUNIT_EXPECT_PTR_EQ(test, (const void *)first->next,
			    (const void *)second);
	ZT_EXPECT_NULL(test, first->previous);
	ZT_EXPECT_NULL(test, second->next);

	destroy(test, 1);
	ZT_EXPECT_NULL(test, first->next);
	destroy(test, 0);
	ZT_EXPECT_GROWTH(test, ZORVA_COMPONENT_SELF, self, 0, 0);
}

static void a_wake_up_that_came_first_is_remembered(struct kunit *test)
{
	const u32 id = create(test);

	KUNIT_EXPECT_EQ(test, wake(id), ZORVA_RC_OK);
	expect_no_sleep(test, id);
	KUNIT_EXPECT_EQ(test, wake(id), ZORVA_RC_OK);
	expect_no_sleep(test, id);

	destroy(test, id);
	ZT_EXPECT_NO_REPORTS(test);
}

static void a_wait_sleeps_until_it_is_woken(struct kunit *test)
{
	const u32 id = create(test);
	const struct wait_record *record = newest_record(test);
	struct zt_sleeper *waiter = zt_start_sleeper(test, wait, id);

	zt_expect_asleep(test, waiter);
	KUNIT_EXPECT_EQ(test, record->count, 1);
	msleep(100);
	zt_expect_asleep(test, waiter);

	KUNIT_EXPECT_EQ(test, wake(id), ZORVA_RC_OK);
	zt_expect_returned(test, waiter);
	KUNIT_EXPECT_EQ(test, waiter->result, ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, record->count, 0);
	zt_let_go(test, waiter);
	destroy(test, id);
}

/* However many there were, the wait after the next one sleeps. */
static void many_wake_ups_are_good_for_one_wait(struct kunit *test)
{
	const u32 id = create(test);
	const struct wait_record *record = newest_record(test);
	struct zt_sleeper *waiter;
	u32 wakes, i;

	for (wakes = 2; wakes <= 5; wakes += 3) {
		for (i = 0; i < wakes; i++)
			KUNIT_EXPECT_EQ(test, wake(id), ZORVA_RC_OK);
		KUNIT_EXPECT_EQ(test, record->count, -(s32)wakes);
		expect_no_sleep(test, id);
		KUNIT_EXPECT_EQ(test, record->count, 0);

		waiter = zt_start_sleeper(test, wait, id);
		msleep(50);
		zt_expect_asleep(test, waiter);
		KUNIT_EXPECT_EQ(test, wake(id), ZORVA_RC_OK);
		zt_expect_returned(test, waiter);
		zt_let_go(test, waiter);
		zt_forget_reports();
	}
	destroy(test, id);
}

static void one_wake_up_wakes_all_who_wait(struct kunit *test)
{
	const u32 id = create(test);
	const struct wait_record *record = newest_record(test);
	struct zt_sleeper *first = zt_start_sleeper(test, wait, id);
	struct zt_sleeper *second = zt_start_sleeper(test, wait, id);
	struct zt_sleeper *third = zt_start_stranger(test, wait, id);

	zt_expect_asleep(test, first);
	zt_expect_asleep(test, second);
	zt_expect_asleep(test, third);
	KUNIT_EXPECT_EQ(test, record->count, 1);

	KUNIT_EXPECT_EQ(test, wake(id), ZORVA_RC_OK);
	zt_expect_returned(test, first);
	zt_expect_returned(test, second);
	zt_expect_returned(test, third);
	KUNIT_EXPECT_EQ(test, first->result | second->result | third->result,
			ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, record->count, 0);
	zt_let_go(test, first);
	zt_let_go(test, second);
	zt_let_go(test, third);
	destroy(test, id);
}

struct two_wakes {
	const struct wait_record *record;
	u32 id;
	u32 results;
	s32 count;
};

static void wake_twice(void *arg)
{
	struct two_wakes *const wakes = arg;

	wakes->results = wake(wakes->id);
	wakes->results |= wake(wakes->id);
	wakes->count = wakes->record->count;
}

/* The first to leave forgets what was remembered in the meantime. */
static void a_second_wake_up_before_the_waiter_runs_is_lost(struct kunit *test)
{
	struct two_wakes wakes = { .id = create(test) };
	struct zt_sleeper *waiter;

	wakes.record = newest_record(test);
	waiter = zt_start_sleeper(test, wait, wakes.id);
	zt_expect_asleep(test, waiter);
	zt_alone(wake_twice, &wakes);
	KUNIT_EXPECT_EQ(test, wakes.results, ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, wakes.count, -1);
	zt_expect_returned(test, waiter);
	KUNIT_EXPECT_EQ(test, wakes.record->count, 0);
	zt_let_go(test, waiter);
	destroy(test, wakes.id);
}

static void only_the_named_wait_module_is_woken(struct kunit *test)
{
	const u32 one = create(test), two = create(test);
	struct zt_sleeper *first = zt_start_sleeper(test, wait, one);
	struct zt_sleeper *second = zt_start_sleeper(test, wait, two);

	zt_expect_asleep(test, first);
	zt_expect_asleep(test, second);
	KUNIT_EXPECT_EQ(test, wake(two), ZORVA_RC_OK);
	zt_expect_returned(test, second);
	msleep(50);
	zt_expect_asleep(test, first);

	KUNIT_EXPECT_EQ(test, wake(one), ZORVA_RC_OK);
	zt_expect_returned(test, first);
	zt_let_go(test, first);
	zt_let_go(test, second);
	destroy(test, two);
	destroy(test, one);
}

/* Each is discarded, one like the other, and the wait goes on. */
static void expect_signal_discarded(struct kunit *test, int signal)
{
	const u32 id = create(test);
	struct zt_sleeper *waiter = zt_start_sleeper(test, wait, id);
	unsigned long switches;
	unsigned int i;

	for (i = 0; i < 2; i++) {
		zt_expect_asleep(test, waiter);
		switches = READ_ONCE(waiter->task->nvcsw);
		KUNIT_EXPECT_EQ(test, send_sig(signal, waiter->task, 1), 0);
		msleep(50);
		/* It has run meanwhile, and sleeps again. */
		KUNIT_EXPECT_GT(test, READ_ONCE(waiter->task->nvcsw), switches);
		zt_expect_asleep(test, waiter);
		KUNIT_EXPECT_FALSE(test, signal_pending(waiter->task));
	}

	KUNIT_EXPECT_EQ(test, wake(id), ZORVA_RC_OK);
	zt_expect_returned(test, waiter);
	KUNIT_EXPECT_EQ(test, waiter->result, ZORVA_RC_OK);
	KUNIT_EXPECT_FALSE(test, waiter->signals_left);
	ZT_EXPECT_NO_REPORTS(test);
	zt_let_go(test, waiter);
	destroy(test, id);
}

static void a_signal_does_not_end_a_wait(struct kunit *test)
{
	expect_signal_discarded(test, SIGUSR1);
}

static void sigterm_does_not_end_a_wait(struct kunit *test)
{
	expect_signal_discarded(test, SIGTERM);
}

static void a_kill_does_not_end_a_wait(struct kunit *test)
{
	expect_signal_discarded(test, SIGKILL);
}

static u32 wait_with_signals_pending(u32 id)
{
	send_sig(SIGUSR1, current, 1);
	send_sig(SIGTERM, current, 1);
	return wait(id);
}

static void signals_from_before_a_wait_are_discarded_as_well(struct kunit *test)
{
	const u32 id = create(test);
	struct zt_sleeper *waiter =
		zt_start_sleeper(test, wait_with_signals_pending, id);

	msleep(50);
	zt_expect_asleep(test, waiter);
	KUNIT_EXPECT_EQ(test, wake(id), ZORVA_RC_OK);
	zt_expect_returned(test, waiter);
	KUNIT_EXPECT_FALSE(test, waiter->signals_left);
	zt_let_go(test, waiter);
	destroy(test, id);
}

struct pair {
	struct zt_sleeper *waiter;
	u32 id;
	bool wake_first;
	u32 woken;
	int sent;
};

static void wake_and_signal(void *arg)
{
	struct pair *const pair = arg;

	if (pair->wake_first)
		pair->woken = wake(pair->id);
	pair->sent = send_sig(SIGUSR1, pair->waiter->task, 1);
	if (!pair->wake_first)
		pair->woken = wake(pair->id);
}

/* The waiter does not run before both are there, in either order. */
static void a_signal_stays_when_it_comes_with_the_wake_up(struct kunit *test)
{
	struct pair pair = { .id = create(test) };
	unsigned int i;

	for (i = 0; i < 2; i++) {
		pair.waiter = zt_start_sleeper(test, wait, pair.id);
		pair.wake_first = i;
		zt_expect_asleep(test, pair.waiter);
		zt_alone(wake_and_signal, &pair);
		KUNIT_EXPECT_EQ(test, pair.woken, ZORVA_RC_OK);
		KUNIT_EXPECT_EQ(test, pair.sent, 0);
		zt_expect_returned(test, pair.waiter);
		KUNIT_EXPECT_TRUE(test, pair.waiter->signals_left);
		zt_let_go(test, pair.waiter);
		zt_forget_reports();
	}
	destroy(test, pair.id);
}

/* A wait that need not sleep leaves signals alone. */
static void signals_stay_when_a_wait_does_not_sleep(struct kunit *test)
{
	const u32 id = create(test);
	struct zt_sleeper *waiter;

	KUNIT_EXPECT_EQ(test, wake(id), ZORVA_RC_OK);
	waiter = zt_start_sleeper(test, wait_with_signals_pending, id);
	zt_expect_returned(test, waiter);
	KUNIT_EXPECT_TRUE(test, waiter->signals_left);
	zt_let_go(test, waiter);
	destroy(test, id);
}

struct visit {
	const struct zt_call_context *context;
	u32 id;
	u32 result;
	bool right_context;
	bool right_context_after;
};

static void wake_here(void *arg)
{
	struct visit *visit = arg;

	visit->right_context = visit->context->is_current();
	visit->result = wake(visit->id);
	visit->right_context_after = visit->context->is_current();
}

static void a_wake_up_may_come_from_any_context(struct kunit *test)
{
	const struct zt_call_context *context;

	ZT_FOR_EACH_CONTEXT(context) {
		struct visit visit = {
			.context = context,
			.id = create(test),
		};
		struct zt_sleeper *waiter =
			zt_start_sleeper(test, wait, visit.id);

		zt_expect_asleep(test, waiter);
		context->run(wake_here, &visit);
		zt_expect_returned(test, waiter);

		KUNIT_EXPECT_TRUE_MSG(test, visit.right_context, "%s",
				      context->name);
		KUNIT_EXPECT_TRUE_MSG(test, visit.right_context_after, "%s",
				      context->name);
		KUNIT_EXPECT_EQ(test, visit.result, ZORVA_RC_OK);
		ZT_EXPECT_NO_REPORTS(test);
		zt_let_go(test, waiter);
		destroy(test, visit.id);
		zt_forget_reports();
	}
}

static void create_and_destroy_here(void *arg)
{
	struct visit *visit = arg;

	visit->right_context = visit->context->is_current();
	visit->result = zorva_wait_module_create(OWNER, &visit->id);
	visit->result |= zorva_wake_up(OWNER, visit->id);
	visit->result |= zorva_wait_module_destroy(OWNER, visit->id);
	visit->right_context_after = visit->context->is_current();
}

static void wait_modules_come_and_go_in_any_context(struct kunit *test)
{
	const struct zt_call_context *context;

	ZT_FOR_EACH_CONTEXT(context) {
		struct visit visit = { .context = context, .id = POISON };

		context->run(create_and_destroy_here, &visit);

		KUNIT_EXPECT_EQ(test, visit.id, 0u);
		KUNIT_EXPECT_EQ(test, visit.result, ZORVA_RC_OK);
		KUNIT_EXPECT_TRUE(test, visit.right_context);
		KUNIT_EXPECT_TRUE(test, visit.right_context_after);
	}
	ZT_EXPECT_NO_REPORTS(test);
}

static void an_unknown_id_fails_and_is_not_reported(struct kunit *test)
{
	static const u32 unknown[] = { 2, 3, 0x80000000, 0xFFFFFFFF };
	u32 i;

	KUNIT_EXPECT_EQ(test, wait(0), 0xFFFFFFFFu);
	KUNIT_EXPECT_EQ(test, wake(0), 0xFFFFFFFFu);
	KUNIT_EXPECT_EQ(test,
			zorva_wait_module_destroy_track(OWNER, 0, "a.c", 1),
			0xFFFFFFFFu);

	expect_ids(test, 0, 2);
	for (i = 0; i < ARRAY_SIZE(unknown); i++) {
		KUNIT_EXPECT_EQ(test, wait(unknown[i]), 0xFFFFFFFFu);
		KUNIT_EXPECT_EQ(test, wake(unknown[i]), 0xFFFFFFFFu);
		KUNIT_EXPECT_EQ(test,
				zorva_wait_module_destroy_track(OWNER,
								unknown[i],
								"a.c", 1),
				0xFFFFFFFFu);
	}
	ZT_EXPECT_NO_REPORTS(test);
	destroy(test, 1);
	destroy(test, 0);
}

static void any_component_may_use_a_wait_module(struct kunit *test)
{
	u32 comp, id;

	for (comp = 1; comp < ZORVA_COMPONENTS; comp++) {
		KUNIT_EXPECT_EQ(test, zorva_wait_module_create(comp, &id),
				ZORVA_RC_OK);
		KUNIT_EXPECT_EQ(test, id, 0u);
		KUNIT_EXPECT_EQ(test, zorva_wake_up(57 - comp, id),
				ZORVA_RC_OK);
		KUNIT_EXPECT_EQ(test, zorva_wait_event(comp, id), ZORVA_RC_OK);
		KUNIT_EXPECT_EQ(test, zorva_wait_module_destroy(57 - comp, id),
				ZORVA_RC_OK);
	}
	ZT_EXPECT_NO_REPORTS(test);
}

static void without_memory_none_is_made(struct kunit *test)
{
	const struct zt_account self =
		zt_account_of(test, ZORVA_COMPONENT_SELF);
	u32 id = POISON, result, others;

	/* The same for the first one and for a later one. */
	for (others = 0; others < 3; others++) {
		zt_forget_reports();
		zt_mark_log();
		zt_fail_allocation(1);
		result = zorva_wait_module_create_track(OWNER, &id, "a.c", 1);
		KUNIT_ASSERT_TRUE(test, zt_end_failing());

		KUNIT_EXPECT_EQ(test, result, 0xFFFFFFFFu);
		KUNIT_EXPECT_EQ(test, id, POISON);
		KUNIT_ASSERT_EQ(test, zt_report_count(), 2u);
		zt_expect_no_memory(test, 0, sizeof(struct wait_record),
				    "zorva_wait.cpp");
		KUNIT_EXPECT_STREQ(test, (const char *)zt_report(test, 1)->func,
				   "zorva_wait_module_create_track");
		KUNIT_EXPECT_EQ(test, zt_report(test, 1)->level,
				ZORVA_LEVEL_ERROR);
		ZT_EXPECT_TEXT(test, zt_report(test, 1)->text,
			       "allocate memory failed.(%u bytes)",
			       (u32)sizeof(struct wait_record));
		KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 1u);
		KUNIT_EXPECT_EQ(test, wake(others), ZORVA_RC_FAIL);
		ZT_EXPECT_GROWTH(test, ZORVA_COMPONENT_SELF, self,
				 others * sizeof(struct wait_record), others);

		expect_ids(test, others, 1);
	}
	destroy(test, 2);
	destroy(test, 1);
	destroy(test, 0);
}

static void waits_and_wake_ups_allocate_nothing(struct kunit *test)
{
	const u32 id = create(test);
	u32 results;
	bool failed;

	zt_fail_allocation(1);
	results = wake(id) | wait(id) | wake(id) |
		  zorva_wait_module_destroy(OWNER, id);
	failed = zt_end_failing();

	KUNIT_EXPECT_EQ(test, results, ZORVA_RC_OK);
	KUNIT_EXPECT_FALSE(test, failed);
}

/* Calls with wrong arguments, on the wait module 0. */
struct refusal {
	u32 comp;
	bool id;
	const char *file;
	u32 want;
};

static const struct refusal refusals[] = {
	{ 0, true, "a.c", 0x70000002 },
	{ 57, true, "a.c", 0x70000002 },
	{ 58, true, "a.c", 0x70000002 },
	{ 0xFFFFFFFF, true, "a.c", 0x70000002 },
	{ 0, false, NULL, 0x70000002 },
	{ OWNER, false, "a.c", 0x7E000015 },
	{ OWNER, false, NULL, 0x7E000015 },
	{ OWNER, true, NULL, 0x7E000015 },
};

static u32 try_create(const struct refusal *call, u32 *id)
{
	return zorva_wait_module_create_track(call->comp, call->id ? id : NULL,
					      call->file, 1);
}

static u32 try_destroy(const struct refusal *call, u32 *id)
{
	return zorva_wait_module_destroy_track(call->comp, 0, call->file, 1);
}

static u32 try_wait(const struct refusal *call, u32 *id)
{
	return zorva_wait_event_track(call->comp, 0, call->file, 1);
}

static u32 try_wake(const struct refusal *call, u32 *id)
{
	return zorva_wake_up_track(call->comp, 0, call->file, 1);
}

static void expect_refusals(struct kunit *test, const char *func, bool takes_id,
			    u32 (*try)(const struct refusal *call, u32 *id))
{
	const struct refusal *call;
	const struct wait_record *record;
	s32 comp_line = 0, id_line = 0, file_line = 0;

	create(test);
	record = newest_record(test);
	for (call = refusals; call < refusals + ARRAY_SIZE(refusals); call++) {
		u32 id = POISON;
		s32 *line = &file_line;

		if (call->comp == OWNER && !call->id && !takes_id)
			continue;
		zt_forget_reports();
		KUNIT_EXPECT_EQ_MSG(test, try(call, &id), call->want, "row %u",
				    (u32)(call - refusals));
		EXPECT_WAIT_ERROR(test, func, "invalid parameter");
		KUNIT_EXPECT_EQ(test, id, POISON);

		if (call->comp != OWNER)
			line = &comp_line;
		else if (!call->id)
			line = &id_line;
		KUNIT_ASSERT_EQ(test, zt_report_count(), 1u);
		if (call->comp == OWNER && *line)
			KUNIT_EXPECT_EQ(test, zt_report(test, 0)->line, *line);
		*line = zt_report(test, 0)->line;
	}
	KUNIT_EXPECT_NE(test, comp_line, file_line);
	KUNIT_EXPECT_NE(test, id_line, file_line);
	KUNIT_EXPECT_NE(test, id_line, comp_line);
	KUNIT_EXPECT_EQ(test, !!id_line, !!takes_id);

	KUNIT_EXPECT_EQ(test, record->count, 0);
	ZT_EXPECT_NULL(test, record->next);
	destroy(test, 0);
}

static void making_one_needs_right_arguments(struct kunit *test)
{
	expect_refusals(test, "zorva_wait_module_create_track", true,
			try_create);
}

static void destroying_one_needs_right_arguments(struct kunit *test)
{
	expect_refusals(test, "zorva_wait_module_destroy_track", false,
			try_destroy);
}

static void a_wait_needs_right_arguments(struct kunit *test)
{
	expect_refusals(test, "zorva_wait_event_track", false, try_wait);
}

static void a_wake_up_needs_right_arguments(struct kunit *test)
{
	expect_refusals(test, "zorva_wake_up_track", false, try_wake);
}

/* Two threads that wake each other in turn: none of their wake-ups is lost. */
#define ROUNDS 2000u

static u32 turns[2];

static u32 play_first(u32 unused)
{
	u32 results = ZORVA_RC_OK;

	while (turns[0] < ROUNDS) {
		turns[0]++;
		results |= wake(1);
		results |= wait(0);
	}
	return results;
}

static u32 play_second(u32 unused)
{
	u32 results = ZORVA_RC_OK;

	while (turns[1] < ROUNDS) {
		results |= wait(1);
		turns[1]++;
		results |= wake(0);
	}
	return results;
}

static void two_threads_can_take_turns(struct kunit *test)
{
	struct zt_sleeper *first, *second;

	expect_ids(test, 0, 2);
	turns[0] = 0;
	turns[1] = 0;
	second = zt_start_sleeper(test, play_second, 0);
	first = zt_start_sleeper(test, play_first, 0);
	zt_expect_returned(test, first);
	zt_expect_returned(test, second);

	KUNIT_EXPECT_EQ(test, first->result | second->result, ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, turns[0], ROUNDS);
	KUNIT_EXPECT_EQ(test, turns[1], ROUNDS);
	zt_let_go(test, first);
	zt_let_go(test, second);
	destroy(test, 1);
	destroy(test, 0);
}

/* An interrupt that wakes while a thread waits, at whichever instruction. */
struct waker {
	struct hrtimer timer;
	u32 id;
	u32 wakes;
	u32 results;
	bool end;
};

static enum hrtimer_restart wake_again(struct hrtimer *timer)
{
	struct waker *waker = container_of(timer, struct waker, timer);

	waker->results |= wake(waker->id);
	waker->wakes++;
	if (waker->end)
		return HRTIMER_NORESTART;
	hrtimer_forward_now(timer,
			    ns_to_ktime(50000 + waker->wakes * 313 % 40000));
	return HRTIMER_RESTART;
}

static void no_wait_misses_a_wake_up_by_an_interrupt(struct kunit *test)
{
	struct waker waker = { .id = create(test) };
	/* On a busy machine it takes longer until there are as many. */
	const u32 enough = zt_clock_is_coarse() ? 30 : 500;
	const unsigned long least = jiffies + msecs_to_jiffies(400);
	const unsigned long end = jiffies + 30 * HZ;
	u32 results = ZORVA_RC_OK, waits;

	hrtimer_setup_on_stack(&waker.timer, wake_again, CLOCK_MONOTONIC,
			       HRTIMER_MODE_REL);
	hrtimer_start(&waker.timer, ns_to_ktime(50000), HRTIMER_MODE_REL);
	for (waits = 0; time_before(jiffies, least) ||
			(waits <= enough && time_before(jiffies, end));
	     waits++) {
		results |= wait(waker.id);
		ndelay(waits * 7 % 5000);
	}
	waker.end = true;
	hrtimer_cancel(&waker.timer);
	destroy_hrtimer_on_stack(&waker.timer);

	KUNIT_EXPECT_EQ(test, results | waker.results, ZORVA_RC_OK);
	KUNIT_EXPECT_GT(test, waits, enough);
	KUNIT_EXPECT_LE(test, waits, waker.wakes);
	ZT_EXPECT_NO_REPORTS(test);
	destroy(test, waker.id);
}

static struct kunit_case cases[] = {
	KUNIT_CASE(ids_start_at_0),
	KUNIT_CASE(the_youngest_ones_id_is_given_out_again),
	KUNIT_CASE(without_any_left_ids_start_at_0_again),
	KUNIT_CASE(an_id_in_the_middle_is_not_given_out_again),
	KUNIT_CASE(destroying_the_oldest_leaves_a_link_to_it),
	KUNIT_CASE(a_record_is_32_bytes_of_zorvas_own),
	KUNIT_CASE(a_wake_up_that_came_first_is_remembered),
	KUNIT_CASE(a_wait_sleeps_until_it_is_woken),
	KUNIT_CASE(many_wake_ups_are_good_for_one_wait),
	KUNIT_CASE(one_wake_up_wakes_all_who_wait),
	KUNIT_CASE(a_second_wake_up_before_the_waiter_runs_is_lost),
	KUNIT_CASE(only_the_named_wait_module_is_woken),
	KUNIT_CASE(a_signal_does_not_end_a_wait),
	KUNIT_CASE(sigterm_does_not_end_a_wait),
	KUNIT_CASE(a_kill_does_not_end_a_wait),
	KUNIT_CASE(signals_from_before_a_wait_are_discarded_as_well),
	KUNIT_CASE(a_signal_stays_when_it_comes_with_the_wake_up),
	KUNIT_CASE(signals_stay_when_a_wait_does_not_sleep),
	KUNIT_CASE(a_wake_up_may_come_from_any_context),
	KUNIT_CASE(wait_modules_come_and_go_in_any_context),
	KUNIT_CASE(an_unknown_id_fails_and_is_not_reported),
	KUNIT_CASE(any_component_may_use_a_wait_module),
	KUNIT_CASE(without_memory_none_is_made),
	KUNIT_CASE(waits_and_wake_ups_allocate_nothing),
	KUNIT_CASE(making_one_needs_right_arguments),
	KUNIT_CASE(destroying_one_needs_right_arguments),
	KUNIT_CASE(a_wait_needs_right_arguments),
	KUNIT_CASE(a_wake_up_needs_right_arguments),
	KUNIT_CASE(two_threads_can_take_turns),
	KUNIT_CASE(no_wait_misses_a_wake_up_by_an_interrupt),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_wait",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Wait modules of ZORVA");
