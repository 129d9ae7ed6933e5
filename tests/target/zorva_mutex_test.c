// SPDX-License-Identifier: GPL-2.0
/* Tracked mutexes: what a task, or two, see of them. */
#include <linux/interrupt.h>
#include <linux/module.h>
#include <linux/string.h>

#include "zorva_lock_test.h"

#define COMP ZT_MUTEX_COMPONENT
#define DETAIL "zorva.mutex.detail"

#define CREATED(name)                                                          \
	ZT_REPORT(3, "zorva_sem.cpp", "zorva_mutex_create_track",              \
		  "Mutex '" name "' has been created")
#define DESTROYED(name)                                                        \
	ZT_REPORT(3, "zorva_sem.cpp", "zorva_mutex_destroy_track",             \
		  "Mutex '" name "' has been destroyed")

static zorva_mutex_t *create(struct kunit *test, const char *name)
{
	zorva_mutex_t *mutex =
		zorva_mutex_create_track(COMP, name, "caller.c", 21);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, mutex);
	zt_forget_reports();
	return mutex;
}

static void destroy(struct kunit *test, zorva_mutex_t *mutex)
{
	zt_forget_reports();
	KUNIT_EXPECT_EQ(test,
			zorva_mutex_destroy_track(COMP, mutex, "caller.c", 22),
			ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, zt_report_count(), 1u);
}

static void take(struct kunit *test, zorva_mutex_t *mutex, u32 line)
{
	KUNIT_EXPECT_EQ(test,
			zorva_mutex_take_track(COMP, mutex, "caller.c", line),
			ZORVA_RC_OK);
}

static void give(struct kunit *test, zorva_mutex_t *mutex, u32 line)
{
	KUNIT_EXPECT_EQ(test,
			zorva_mutex_give_track(COMP, mutex, "caller.c", line),
			ZORVA_RC_OK);
}

static u32 is_locked(zorva_mutex_t *mutex)
{
	return zorva_mutex_is_locked_track(COMP, mutex);
}

/* Another task, and the call that it makes. */
struct other {
	struct zt_actor actor;
	zorva_mutex_t *mutex;
	u32 line;
	u32 result;
};

static struct other other, third;

static void start(struct kunit *test, struct other *task, const char *name,
		  zorva_mutex_t *mutex)
{
	zt_actor_start(test, &task->actor, name);
	task->mutex = mutex;
}

static void do_take(void *arg)
{
	struct other *task = arg;

	task->result = zorva_mutex_take_track(COMP, task->mutex, "other.c",
					      task->line);
}

static void do_give(void *arg)
{
	struct other *task = arg;

	task->result = zorva_mutex_give_track(COMP, task->mutex, "other.c",
					      task->line);
}

static void do_ask(void *arg)
{
	struct other *task = arg;

	task->result = is_locked(task->mutex);
}

static void other_takes(struct kunit *test, struct other *task, u32 line)
{
	task->line = line;
	zt_do(test, &task->actor, do_take, task);
	KUNIT_EXPECT_EQ(test, task->result, ZORVA_RC_OK);
}

static void other_gives(struct kunit *test, struct other *task, u32 line)
{
	task->line = line;
	zt_do(test, &task->actor, do_give, task);
	KUNIT_EXPECT_EQ(test, task->result, ZORVA_RC_OK);
}

static u32 other_asks(struct kunit *test, struct other *task)
{
	zt_do(test, &task->actor, do_ask, task);
	return task->result;
}

/* Another task takes a mutex that is held: it waits. */
static void other_waits(struct kunit *test, struct other *task, u32 line)
{
	task->line = line;
	task->result = 0x5a5a5a5a;
	zt_begin(test, &task->actor, do_take, task);
	zt_expect_blocked(test, &task->actor);
}

static void other_has_it(struct kunit *test, struct other *task)
{
	zt_finish(test, &task->actor);
	KUNIT_EXPECT_EQ(test, task->result, ZORVA_RC_OK);
}

static void creation_and_destruction_are_reported(struct kunit *test)
{
	zorva_mutex_t *mutex =
		zorva_mutex_create_track(COMP, "announced", "caller.c", 1);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, mutex);
	ZT_EXPECT_REPORTS(test, CREATED("announced"));

	zt_forget_reports();
	KUNIT_EXPECT_EQ(test,
			zorva_mutex_destroy_track(COMP, mutex, "caller.c", 2),
			ZORVA_RC_OK);
	ZT_EXPECT_REPORTS(test, DESTROYED("announced"));
}

/* The name that a mutex gets, by the report of its creation and by its own. */
static void expect_name(struct kunit *test, u32 comp, const char *given,
			u32 line, const char *want)
{
	zorva_mutex_t *mutex;

	zt_forget_reports();
	mutex = zorva_mutex_create_track(comp, given, "caller.c", line);
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, mutex);
	ZT_EXPECT_REPORTS(test, CREATED("%s"), want);

	take(test, mutex, 5);
	ZT_EXPECT_TEXT(test, zt_value(test, DETAIL, want, "Name"), "%s", want);
	give(test, mutex, 6);
	zorva_mutex_destroy_track(comp, mutex, "caller.c", 1);
}

static void a_null_name_is_made_of_component_and_line(struct kunit *test)
{
	expect_name(test, 9, NULL, 42, "ZORVA-42");
	expect_name(test, COMP, NULL, 0xFFFFFFFF,
		    zt_text(test, "%s-4294967295", _componentName[COMP]));
	expect_name(test, COMP, NULL, 0,
		    zt_text(test, "%s-0", _componentName[COMP]));
}

static void a_name_is_cut_to_31_characters(struct kunit *test)
{
	expect_name(test, COMP, "0123456789012345678901234567890", 1,
		    "0123456789012345678901234567890");
	expect_name(test, COMP, "01234567890123456789012345678901", 1,
		    "0123456789012345678901234567890");
	expect_name(test, COMP, "0123456789012345678901234567890123456789", 1,
		    "0123456789012345678901234567890");
}

static void a_name_is_taken_as_it_is(struct kunit *test)
{
	expect_name(test, COMP, "100%s %n", 1, "100%s %n");
	expect_name(test, COMP, "", 1, "");
}

static void the_owner_pays(struct kunit *test)
{
	zorva_mutex_t *mutex = create(test, "paid");
	u32 usage = 0, allocs = 0, frees = 0;

	KUNIT_EXPECT_EQ(test,
			sscanf(zt_mem_row(test, COMP), "%*s %u %*u %u %u",
			       &usage, &allocs, &frees),
			3);
	KUNIT_EXPECT_GT(test, usage, 8u * 28u);
	KUNIT_EXPECT_LT(test, usage, 1024u);
	KUNIT_EXPECT_EQ(test, allocs - frees, 1u);
	/* The block is this module's own, by its file. */
	ZT_EXPECT_TEXT(test, zt_block_of(mutex)->file, "zorva_sem.cpp");

	destroy(test, mutex);
	ZT_EXPECT_NO_USAGE(test, COMP);
}

static void a_mutex_keeps_others_out(struct kunit *test)
{
	zorva_mutex_t *mutex = create(test, "contended");

	start(test, &other, "zt_other", mutex);
	take(test, mutex, 1);
	other_waits(test, &other, 2);
	ZT_EXPECT_TEXT(test, zt_value(test, DETAIL, "contended", "Status"),
		       "Take");

	/* It waits without limit, whatever there is to wait for. */
	msleep(300);
	KUNIT_EXPECT_TRUE(test, zt_is_blocked(zt_task_of(&other.actor)));

	give(test, mutex, 3);
	other_has_it(test, &other);
	ZT_EXPECT_TEXT(test, zt_value(test, DETAIL, "contended", "Status"),
		       "Take");
	other_gives(test, &other, 4);
	ZT_EXPECT_TEXT(test, zt_value(test, DETAIL, "contended", "Status"),
		       "Give");

	/* Who waited shows before who gave: a call is recorded as it begins. */
	ZT_EXPECT_TEXT(test, zt_history(test, DETAIL, "contended"),
		       "  [*] Give @other.c, 4\n"
		       "  [*] Give @caller.c, 3\n"
		       "  [*] Take @other.c, 2\n"
		       "  [*] Take @caller.c, 1\n");
	ZT_EXPECT_NO_REPORTS(test);
	zt_actor_stop(test, &other.actor);
	destroy(test, mutex);
}

static void a_nested_take_leaves_no_trace(struct kunit *test)
{
	zorva_mutex_t *mutex = create(test, "nested");
	const char *before;

	take(test, mutex, 1);
	before = zt_lock(test, DETAIL, "nested");
	take(test, mutex, 2);
	take(test, mutex, 3);
	ZT_EXPECT_TEXT(test, zt_lock(test, DETAIL, "nested"), "%s", before);

	/* However many there were, one give releases it. */
	give(test, mutex, 4);
	start(test, &other, "zt_other", mutex);
	other_takes(test, &other, 5);
	other_gives(test, &other, 6);

	ZT_EXPECT_TEXT(test, zt_history(test, DETAIL, "nested"),
		       "  [*] Give @other.c, 6\n"
		       "  [*] Take @other.c, 5\n"
		       "  [*] Give @caller.c, 4\n"
		       "  [*] Take @caller.c, 1\n");
	zt_actor_stop(test, &other.actor);
	destroy(test, mutex);
}

static void who_held_it_last_must_take_it_again(struct kunit *test)
{
	zorva_mutex_t *mutex = create(test, "again");

	/* The locker is still this task, but nothing is held. */
	take(test, mutex, 1);
	give(test, mutex, 2);
	take(test, mutex, 3);

	ZT_EXPECT_TEXT(test, zt_history(test, DETAIL, "again"),
		       "  [*] Take @caller.c, 3\n"
		       "  [*] Give @caller.c, 2\n"
		       "  [*] Take @caller.c, 1\n");
	ZT_EXPECT_TEXT(test, zt_value(test, DETAIL, "again", "Status"), "Take");
	give(test, mutex, 4);
	destroy(test, mutex);
}

static void a_give_by_another_task_is_ignored(struct kunit *test)
{
	zorva_mutex_t *mutex = create(test, "not yours");

	start(test, &other, "zt_other", mutex);
	start(test, &third, "zt_third", mutex);
	take(test, mutex, 1);
	other_gives(test, &other, 2);

	ZT_EXPECT_TEXT(test, zt_value(test, DETAIL, "not yours", "Status"),
		       "Take");
	ZT_EXPECT_TEXT(test, zt_value(test, DETAIL, "not yours", "Locker"),
		       "%d (%s)", current->pid, current->comm);
	ZT_EXPECT_TEXT(test, zt_history(test, DETAIL, "not yours"),
		       "  [*] Give @other.c, 2\n"
		       "  [*] Take @caller.c, 1\n");
	other_waits(test, &third, 3);

	/* The holder's own still counts. */
	give(test, mutex, 4);
	other_has_it(test, &third);
	other_gives(test, &third, 5);
	ZT_EXPECT_NO_REPORTS(test);
	zt_actor_stop(test, &other.actor);
	zt_actor_stop(test, &third.actor);
	destroy(test, mutex);
}

static void a_give_of_a_free_mutex_is_recorded(struct kunit *test)
{
	zorva_mutex_t *mutex = create(test, "given");

	ZT_EXPECT_TEXT(test, zt_lock(test, DETAIL, "given"), "%s", "");
	give(test, mutex, 7);

	ZT_EXPECT_TEXT(test, zt_history(test, DETAIL, "given"),
		       "  [*] Give @caller.c, 7\n");
	ZT_EXPECT_TEXT(test, zt_value(test, DETAIL, "given", "Status"), "Give");

	/* It stays free, and can be taken and given as ever. */
	give(test, mutex, 8);
	take(test, mutex, 9);
	ZT_EXPECT_TEXT(test, zt_value(test, DETAIL, "given", "Status"), "Take");
	give(test, mutex, 10);
	give(test, mutex, 11);
	ZT_EXPECT_TEXT(test, zt_value(test, DETAIL, "given", "Status"), "Give");
	take(test, mutex, 12);
	ZT_EXPECT_TEXT(test, zt_value(test, DETAIL, "given", "Status"), "Take");
	give(test, mutex, 13);
	ZT_EXPECT_NO_REPORTS(test);
	destroy(test, mutex);
}

static void nine_calls_leave_the_newest_eight(struct kunit *test)
{
	zorva_mutex_t *mutex = create(test, "ring");
	u32 line;

	for (line = 1; line <= 9; line += 2) {
		take(test, mutex, line);
		if (line < 9)
			give(test, mutex, line + 1);
	}
	ZT_EXPECT_TEXT(test, zt_history(test, DETAIL, "ring"),
		       "  [*] Take @caller.c, 9\n"
		       "  [*] Give @caller.c, 8\n"
		       "  [*] Take @caller.c, 7\n"
		       "  [*] Give @caller.c, 6\n"
		       "  [*] Take @caller.c, 5\n"
		       "  [*] Give @caller.c, 4\n"
		       "  [*] Take @caller.c, 3\n"
		       "  [*] Give @caller.c, 2\n");

	/* Once around, and one more. */
	for (line = 10; line <= 17; line++)
		give(test, mutex, line);
	ZT_EXPECT_TEXT(test, zt_history(test, DETAIL, "ring"),
		       "  [*] Give @caller.c, 17\n"
		       "  [*] Give @caller.c, 16\n"
		       "  [*] Give @caller.c, 15\n"
		       "  [*] Give @caller.c, 14\n"
		       "  [*] Give @caller.c, 13\n"
		       "  [*] Give @caller.c, 12\n"
		       "  [*] Give @caller.c, 11\n"
		       "  [*] Give @caller.c, 10\n");
	destroy(test, mutex);
}

static void a_file_is_cut_to_15_characters(struct kunit *test)
{
	zorva_mutex_t *mutex = create(test, "files");

	zorva_mutex_take_track(COMP, mutex, "a_name_of_14.c", 1);
	zorva_mutex_give_track(COMP, mutex, "a_name_of_15s.c", 2);
	zorva_mutex_take_track(COMP, mutex, "a_name_of_16_s.c", 3);
	zorva_mutex_give_track(COMP, mutex, "a_name_of_20_chars.c", 4);
	zorva_mutex_take_track(COMP, mutex, "", 5);
	/* Also one that does not lie at a word. */
	zorva_mutex_give_track(COMP, mutex, &"xa_name_of_20_chars.c"[1], 6);

	ZT_EXPECT_TEXT(test, zt_history(test, DETAIL, "files"),
		       "  [*] Give @a_name_of_20_ch, 6\n"
		       "  [*] Take @, 5\n"
		       "  [*] Give @a_name_of_20_ch, 4\n"
		       "  [*] Take @a_name_of_16_s., 3\n"
		       "  [*] Give @a_name_of_15s.c, 2\n"
		       "  [*] Take @a_name_of_14.c, 1\n");
	destroy(test, mutex);
}

static void the_locker_is_the_last_that_got_it(struct kunit *test)
{
	zorva_mutex_t *mutex = create(test, "locker");

	start(test, &other, "a_task_of_18_chars", mutex);
	take(test, mutex, 1);
	other_waits(test, &other, 2);
	ZT_EXPECT_TEXT(test, zt_value(test, DETAIL, "locker", "Locker"),
		       "%d (%s)", current->pid, current->comm);

	give(test, mutex, 3);
	other_has_it(test, &other);
	ZT_EXPECT_TEXT(test, zt_value(test, DETAIL, "locker", "Locker"),
		       "%d (a_task_of_18_ch)", zt_task_of(&other.actor)->pid);
	other_gives(test, &other, 4);
	zt_actor_stop(test, &other.actor);
	destroy(test, mutex);
}

static void is_locked_tells_the_holder_only(struct kunit *test)
{
	zorva_mutex_t *mutex = create(test, "asked");

	start(test, &other, "zt_other", mutex);
	KUNIT_EXPECT_EQ(test, is_locked(mutex), 0u);
	take(test, mutex, 1);
	KUNIT_EXPECT_EQ(test, is_locked(mutex), 1u);
	KUNIT_EXPECT_EQ(test, other_asks(test, &other), 0u);

	/* Neither an ignored take nor the question itself changes it. */
	take(test, mutex, 2);
	KUNIT_EXPECT_EQ(test, is_locked(mutex), 1u);
	KUNIT_EXPECT_EQ(test, is_locked(mutex), 1u);

	give(test, mutex, 3);
	KUNIT_EXPECT_EQ(test, is_locked(mutex), 0u);

	other_takes(test, &other, 4);
	KUNIT_EXPECT_EQ(test, other_asks(test, &other), 1u);
	KUNIT_EXPECT_EQ(test, is_locked(mutex), 0u);
	other_gives(test, &other, 5);
	KUNIT_EXPECT_EQ(test, other_asks(test, &other), 0u);
	ZT_EXPECT_NO_REPORTS(test);
	zt_actor_stop(test, &other.actor);
	destroy(test, mutex);
}

static void is_locked_goes_by_the_calls_not_by_the_lock(struct kunit *test)
{
	zorva_mutex_t *mutex = create(test, "handed");

	start(test, &other, "zt_other", mutex);
	start(test, &third, "zt_third", mutex);

	/* After a hand-over the new holder is told 0, and the old one too. */
	take(test, mutex, 1);
	other_waits(test, &other, 2);
	KUNIT_EXPECT_EQ(test, is_locked(mutex), 1u);
	give(test, mutex, 3);
	other_has_it(test, &other);
	ZT_EXPECT_TEXT(test, zt_value(test, DETAIL, "handed", "Status"),
		       "Take");
	KUNIT_EXPECT_EQ(test, other_asks(test, &other), 0u);
	KUNIT_EXPECT_EQ(test, is_locked(mutex), 0u);

	/* The next one that waits makes it right again. */
	other_waits(test, &third, 4);
	KUNIT_EXPECT_EQ(test, other_asks(test, &other), 1u);

	/* And a give by somebody else makes it wrong again. */
	give(test, mutex, 5);
	KUNIT_EXPECT_EQ(test, other_asks(test, &other), 0u);

	other_gives(test, &other, 6);
	other_has_it(test, &third);
	KUNIT_EXPECT_EQ(test, other_asks(test, &third), 0u);
	other_gives(test, &third, 7);
	ZT_EXPECT_NO_REPORTS(test);
	zt_actor_stop(test, &other.actor);
	zt_actor_stop(test, &third.actor);
	destroy(test, mutex);
}

static void indexes_are_never_used_again(struct kunit *test)
{
	zorva_mutex_t *first = create(test, "index 1");
	zorva_mutex_t *second = create(test, "index 2"), *fourth;
	unsigned int index = 0;

	give(test, first, 1);
	give(test, second, 1);
	KUNIT_EXPECT_EQ(test,
			sscanf(zt_value(test, DETAIL, "index 1", "Index"), "%u",
			       &index),
			1);
	ZT_EXPECT_TEXT(test, zt_value(test, DETAIL, "index 2", "Index"), "%u",
		       index + 1);

	destroy(test, second);
	destroy(test, create(test, "index 3"));
	fourth = create(test, "index 4");
	give(test, fourth, 1);
	ZT_EXPECT_TEXT(test, zt_value(test, DETAIL, "index 4", "Index"), "%u",
		       index + 3);
	destroy(test, first);
	destroy(test, fourth);
}

/* The names that the detailed report shows, in its order. */
static const char *shown(struct kunit *test)
{
	const char *text = zt_file(test, DETAIL), *names = "";

	while ((text = strstr(text, "\nName      : "))) {
		const char *name = text + 13;

		text = strchrnul(name, '\n');
		names = zt_text(test, "%s%.*s ", names, (int)(text - name),
				name);
	}
	return names;
}

static void destroyed_ones_leave_the_others_listed(struct kunit *test)
{
	static const char *const names[] = { "a", "b", "c", "d", "e" };
	zorva_mutex_t *mutex[5];
	unsigned int i;

	for (i = 0; i < ARRAY_SIZE(names); i++) {
		mutex[i] = create(test, names[i]);
		give(test, mutex[i], 1);
	}
	ZT_EXPECT_TEXT(test, shown(test), "e d c b a ");

	/* One in the middle, the newest, the oldest; one new; the rest. */
	destroy(test, mutex[2]);
	ZT_EXPECT_TEXT(test, shown(test), "e d b a ");
	destroy(test, mutex[4]);
	ZT_EXPECT_TEXT(test, shown(test), "d b a ");
	destroy(test, mutex[0]);
	ZT_EXPECT_TEXT(test, shown(test), "d b ");
	mutex[0] = create(test, "f");
	give(test, mutex[0], 1);
	ZT_EXPECT_TEXT(test, shown(test), "f d b ");
	destroy(test, mutex[3]);
	destroy(test, mutex[1]);
	ZT_EXPECT_TEXT(test, shown(test), "f ");
	destroy(test, mutex[0]);
	ZT_EXPECT_TEXT(test, shown(test), "%s", "");
}

static void a_held_mutex_is_destroyed_all_the_same(struct kunit *test)
{
	zorva_mutex_t *mutex;

	if (ZT_KERNEL_WATCHES)
		return;

	mutex = create(test, "held");
	take(test, mutex, 1);
	KUNIT_EXPECT_EQ(test,
			zorva_mutex_destroy_track(COMP, mutex, "caller.c", 2),
			ZORVA_RC_OK);
	ZT_EXPECT_REPORTS(test, DESTROYED("held"));
	ZT_EXPECT_NO_USAGE(test, COMP);
	ZT_EXPECT_TEXT(test, shown(test), "%s", "");
}

static void any_component_may_use_a_mutex(struct kunit *test)
{
	zorva_mutex_t *mutex = create(test, "common");

	KUNIT_EXPECT_EQ(test, zorva_mutex_take_track(1, mutex, "caller.c", 1),
			ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, zorva_mutex_is_locked_track(56, mutex), 1u);
	ZT_EXPECT_TEXT(test, zt_value(test, DETAIL, "common", "Component"),
		       "%s (%u)", _componentName[COMP], COMP);
	KUNIT_EXPECT_EQ(test, zorva_mutex_give_track(56, mutex, "caller.c", 2),
			ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test,
			zorva_mutex_destroy_track(1, mutex, "caller.c", 3),
			ZORVA_RC_OK);
	ZT_EXPECT_REPORTS(test, DESTROYED("common"));
	ZT_EXPECT_NO_USAGE(test, COMP);
}

static const u32 nobody[] = { 0, 57, 58, 0x80000001, 0xFFFFFFFF };

/* The two checks that a component's ID has to pass. */
static unsigned int place_of(u32 comp)
{
	return comp == 0 ? 0 : 1;
}

static void create_refuses(struct kunit *test)
{
	struct zt_checks checks =
		ZT_CHECKS("zorva_sem.cpp", "zorva_mutex_create_track");
	const u32 *comp;

	for (comp = nobody; comp < nobody + ARRAY_SIZE(nobody); comp++) {
		ZT_EXPECT_NULL(test,
			       zorva_mutex_create_track(*comp, "x", NULL, 1));
		zt_expect_refused(test, &checks, place_of(*comp));
	}
	ZT_EXPECT_NULL(test, zorva_mutex_create_track(COMP, "x", NULL, 1));
	zt_expect_refused(test, &checks, 2);
	ZT_EXPECT_NO_USAGE(test, COMP);
}

static void destroy_refuses(struct kunit *test)
{
	struct zt_checks checks =
		ZT_CHECKS("zorva_sem.cpp", "zorva_mutex_destroy_track");
	zorva_mutex_t *mutex = create(test, "kept");
	const u32 *comp;

	for (comp = nobody; comp < nobody + ARRAY_SIZE(nobody); comp++) {
		KUNIT_EXPECT_EQ(test,
				zorva_mutex_destroy_track(*comp, NULL, NULL, 1),
				ZORVA_RC_BAD_COMPONENT);
		zt_expect_refused(test, &checks, place_of(*comp));
	}
	KUNIT_EXPECT_EQ(test, zorva_mutex_destroy_track(COMP, NULL, NULL, 1),
			ZORVA_RC_NULL_ARG);
	zt_expect_refused(test, &checks, 2);
	KUNIT_EXPECT_EQ(test, zorva_mutex_destroy_track(COMP, mutex, NULL, 1),
			ZORVA_RC_NULL_ARG);
	zt_expect_refused(test, &checks, 3);

	give(test, mutex, 5);
	ZT_EXPECT_TEXT(test, shown(test), "kept ");
	destroy(test, mutex);
}

/* Take and give have the same checks, and none of them leaves a trace. */
static void refuses(struct kunit *test, const char *func,
		    u32 (*call)(u32 compId, zorva_mutex_t *mutex,
				const char *file, u32 line))
{
	struct zt_checks checks = ZT_CHECKS("zorva_sem.cpp", func);
	zorva_mutex_t *mutex = create(test, "as it was");
	const char *before;
	const u32 *comp;

	take(test, mutex, 1);
	before = zt_lock(test, DETAIL, "as it was");
	for (comp = nobody; comp < nobody + ARRAY_SIZE(nobody); comp++) {
		KUNIT_EXPECT_EQ(test, call(*comp, NULL, NULL, 1),
				ZORVA_RC_BAD_COMPONENT);
		zt_expect_refused(test, &checks, place_of(*comp));
		KUNIT_EXPECT_EQ(test, call(*comp, mutex, "caller.c", 1),
				ZORVA_RC_BAD_COMPONENT);
		zt_expect_refused(test, &checks, place_of(*comp));
	}
	KUNIT_EXPECT_EQ(test, call(COMP, NULL, NULL, 1), ZORVA_RC_NULL_ARG);
	zt_expect_refused(test, &checks, 2);
	KUNIT_EXPECT_EQ(test, call(COMP, mutex, NULL, 1), ZORVA_RC_NULL_ARG);
	zt_expect_refused(test, &checks, 3);
	ZT_EXPECT_TEXT(test, zt_lock(test, DETAIL, "as it was"), "%s", before);
	give(test, mutex, 2);
	destroy(test, mutex);
}

static void take_refuses(struct kunit *test)
{
	refuses(test, "zorva_mutex_take_track", zorva_mutex_take_track);
}

static void give_refuses(struct kunit *test)
{
	refuses(test, "zorva_mutex_give_track", zorva_mutex_give_track);
}

static void is_locked_refuses(struct kunit *test)
{
	struct zt_checks checks =
		ZT_CHECKS("zorva_sem.cpp", "zorva_mutex_is_locked_track");
	const u32 *comp;

	for (comp = nobody; comp < nobody + ARRAY_SIZE(nobody); comp++) {
		KUNIT_EXPECT_EQ(test, zorva_mutex_is_locked_track(*comp, NULL),
				ZORVA_RC_BAD_COMPONENT);
		zt_expect_refused(test, &checks, place_of(*comp));
	}
	KUNIT_EXPECT_EQ(test, zorva_mutex_is_locked_track(COMP, NULL),
			ZORVA_RC_NULL_ARG);
	zt_expect_refused(test, &checks, 2);
}

static void a_create_without_memory_leaves_nothing(struct kunit *test)
{
	const char *before = shown(test);
	zorva_mutex_t *mutex;
	unsigned int n, failed = 0;

	for (n = 1;; n++) {
		zt_forget_reports();
		zt_mark_log();
		zt_fail_allocation(n);
		mutex = zorva_mutex_create_track(COMP, "scarce", "caller.c", 1);
		if (!zt_end_failing())
			break;
		failed++;
		ZT_EXPECT_NULL(test, mutex);
		/* The allocator's own report is all there is. */
		KUNIT_EXPECT_EQ(test, zt_report_count(), 1u);
		KUNIT_EXPECT_EQ(test, zt_report(test, 0)->level, 1u);
		ZT_EXPECT_TEXT(test, zt_report(test, 0)->func,
			       "zorva_malloc_track");
		KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 1u);
		ZT_EXPECT_NO_USAGE(test, COMP);
		ZT_EXPECT_TEXT(test, shown(test), "%s", before);
	}
	KUNIT_EXPECT_EQ(test, failed, 1u);
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, mutex);
	destroy(test, mutex);
}

static void takes_and_gives_allocate_nothing(struct kunit *test)
{
	zorva_mutex_t *mutex = create(test, "frugal");

	zt_fail_allocation(1);
	take(test, mutex, 1);
	KUNIT_EXPECT_EQ(test, is_locked(mutex), 1u);
	give(test, mutex, 2);
	KUNIT_EXPECT_EQ(test,
			zorva_mutex_destroy_track(COMP, mutex, "caller.c", 3),
			ZORVA_RC_OK);
	KUNIT_EXPECT_FALSE(test, zt_end_failing());
	ZT_EXPECT_REPORTS(test, DESTROYED("frugal"));
}

#define WARNING_OF_TAKE                                                        \
	"[ZORVA] zorva_mutex_take_track - in_interrupt.(caller.c, 12)\n"
#define WARNING_OF_GIVE                                                        \
	"[ZORVA] zorva_mutex_give_track - in_interrupt.(caller.c, -13)\n"

/* What a mutex that was free went through there. */
struct visit {
	zorva_mutex_t *mutex;
	bool in_interrupt;
	u32 took;
	u32 gave;
};

static void take_and_give_here(void *arg)
{
	struct visit *visit = arg;

	visit->in_interrupt = in_interrupt();
	visit->took =
		zorva_mutex_take_track(COMP, visit->mutex, "caller.c", 12);
	visit->gave =
		zorva_mutex_give_track(COMP, visit->mutex, "caller.c", -13);
}

static void run_with_bottom_halves_off(void (*fn)(void *arg), void *arg)
{
	local_bh_disable();
	fn(arg);
	local_bh_enable();
}

/* Each warning stands on a line of its own, and a stack follows it. */
static void expect_warnings(struct kunit *test, const char *context)
{
	const char *log = zt_log(test);
	const char *of_give = strstr(log, WARNING_OF_GIVE);
	const char *trace;

	KUNIT_EXPECT_EQ_MSG(test, zt_stack_dumps(), 2u, "%s", context);
	KUNIT_EXPECT_EQ_MSG(test,
			    strncmp(log, WARNING_OF_TAKE,
				    strlen(WARNING_OF_TAKE)),
			    0, "%s: %s", context, log);
	KUNIT_EXPECT_TRUE_MSG(test, of_give && of_give[-1] == '\n', "%s: %s",
			      context, log);
	trace = strstr(log, ZT_STACK_TITLE);
	KUNIT_EXPECT_TRUE_MSG(test, trace && trace < of_give, "%s: %s", context,
			      log);
}

static void an_interrupt_is_warned_and_not_refused(struct kunit *test)
{
	static const char history[] = "  [*] Give @caller.c, -13\n"
				      "  [*] Take @caller.c, 12\n";
	const struct zt_call_context bottom_halves_off = {
		.name = "bottom halves off",
		.run = run_with_bottom_halves_off,
	};
	const struct zt_call_context *context = &bottom_halves_off;
	unsigned int warned = 0, i;

	if (ZT_KERNEL_WATCHES)
		return;

	for (i = 0; i <= zt_context_count; i++) {
		struct visit visit = {
			.mutex = create(test, "in interrupt"),
		};

		zt_mark_log();
		context->run(take_and_give_here, &visit);

		KUNIT_EXPECT_EQ(test, visit.took, ZORVA_RC_OK);
		KUNIT_EXPECT_EQ(test, visit.gave, ZORVA_RC_OK);
		if (visit.in_interrupt) {
			expect_warnings(test, context->name);
			warned++;
		} else {
			ZT_EXPECT_TEXT(test, zt_log(test), "%s", "");
		}
		ZT_EXPECT_TEXT(test, zt_history(test, DETAIL, "in interrupt"),
			       "%s", history);
		ZT_EXPECT_TEXT(test,
			       zt_value(test, DETAIL, "in interrupt", "Status"),
			       "Give");
		ZT_EXPECT_NO_REPORTS(test);
		destroy(test, visit.mutex);

		context = zt_contexts + i;
	}
	/* Timers of both kinds, the tasklet, and the first. */
	KUNIT_EXPECT_EQ(test, warned, 4u);
}

static struct kunit_case cases[] = {
	KUNIT_CASE(creation_and_destruction_are_reported),
	KUNIT_CASE(a_null_name_is_made_of_component_and_line),
	KUNIT_CASE(a_name_is_cut_to_31_characters),
	KUNIT_CASE(a_name_is_taken_as_it_is),
	KUNIT_CASE(the_owner_pays),
	KUNIT_CASE(a_mutex_keeps_others_out),
	KUNIT_CASE(a_nested_take_leaves_no_trace),
	KUNIT_CASE(who_held_it_last_must_take_it_again),
	KUNIT_CASE(a_give_by_another_task_is_ignored),
	KUNIT_CASE(a_give_of_a_free_mutex_is_recorded),
	KUNIT_CASE(nine_calls_leave_the_newest_eight),
	KUNIT_CASE(a_file_is_cut_to_15_characters),
	KUNIT_CASE(the_locker_is_the_last_that_got_it),
	KUNIT_CASE(is_locked_tells_the_holder_only),
	KUNIT_CASE(is_locked_goes_by_the_calls_not_by_the_lock),
	KUNIT_CASE(indexes_are_never_used_again),
	KUNIT_CASE(destroyed_ones_leave_the_others_listed),
	KUNIT_CASE(a_held_mutex_is_destroyed_all_the_same),
	KUNIT_CASE(any_component_may_use_a_mutex),
	KUNIT_CASE(create_refuses),
	KUNIT_CASE(destroy_refuses),
	KUNIT_CASE(take_refuses),
	KUNIT_CASE(give_refuses),
	KUNIT_CASE(is_locked_refuses),
	KUNIT_CASE(a_create_without_memory_leaves_nothing),
	KUNIT_CASE(takes_and_gives_allocate_nothing),
	KUNIT_CASE(an_interrupt_is_warned_and_not_refused),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_mutex",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Tracked mutexes of ZORVA");
