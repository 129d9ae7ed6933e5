// SPDX-License-Identifier: GPL-2.0
/*
 * The four reports of locks, byte for byte. The first tests want a zorva that
 * has never made a lock: this suite runs before all others that make some.
 *
 * Times are compared, too: every test begins early in a second and is over
 * before the next.
 */
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/semaphore.h>
#include <linux/string.h>
#include <linux/timekeeping.h>

#include "zorva_lock_test.h"

#define COMP ZT_LOCK_REPORT_COMPONENT
#define OWNER _componentName[COMP]

#define HEAD(title)                                                            \
	"\n"                                                                   \
	"----------------\n" title "\n"                                        \
	"Current Time : %u\n"                                                  \
	"----------------\n"                                                   \
	"\n"
#define MUTEX_HEAD HEAD("Dump all ACTIVE & LOCKED mutex(s)")
#define MUTEX_DETAIL_HEAD HEAD("Dump all ACTIVE mutex(s)")
#define SEM_HEAD HEAD("Dump all ACTIVE & LOCKED semaphore(s)")
#define SEM_DETAIL_HEAD HEAD("Dump all ACTIVE semaphore(s)")

/* The reports by what stands below their heads. */
#define EXPECT_MUTEXES(test, text, ...)                                        \
	ZT_EXPECT_FILE(test, "zorva.mutex", MUTEX_HEAD text, now, ##__VA_ARGS__)
#define EXPECT_MUTEX_DETAIL(test, text, ...)                                   \
	ZT_EXPECT_FILE(test, "zorva.mutex.detail", MUTEX_DETAIL_HEAD text,     \
		       now, ##__VA_ARGS__)
#define EXPECT_SEMS(test, text, ...)                                           \
	ZT_EXPECT_FILE(test, "zorva.sem", SEM_HEAD text, now, ##__VA_ARGS__)
#define EXPECT_SEM_DETAIL(test, text, ...)                                     \
	ZT_EXPECT_FILE(test, "zorva.sem.detail", SEM_DETAIL_HEAD text, now,    \
		       ##__VA_ARGS__)

/* The second in which the test runs. */
static u32 now;

static void wait_for_a_young_second(void)
{
	struct timespec64 time;

	for (;;) {
		ktime_get_coarse_boottime_ts64(&time);
		if (time.tv_nsec < 500 * NSEC_PER_MSEC)
			break;
		msleep(10);
	}
	now = time.tv_sec;
}

static int enter(struct kunit *test)
{
	const int result = zt_init(test);

	wait_for_a_young_second();
	return result;
}

static void leave(struct kunit *test)
{
	KUNIT_EXPECT_EQ_MSG(test, zt_uptime_secs(), now,
			    "the second was over before the test");
	zt_exit(test);
}

static zorva_mutex_t *new_mutex(struct kunit *test, const char *name)
{
	zorva_mutex_t *mutex =
		zorva_mutex_create_track(COMP, name, "caller.c", 21);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, mutex);
	return mutex;
}

static zorva_sem_t *new_sem(struct kunit *test, const char *name, u32 count)
{
	zorva_sem_t *sem =
		zorva_sem_create_track(COMP, name, count, "caller.c", 21);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, sem);
	return sem;
}

static void take(zorva_mutex_t *mutex, u32 line)
{
	zorva_mutex_take_track(COMP, mutex, "caller.c", line);
}

static void give(zorva_mutex_t *mutex, u32 line)
{
	zorva_mutex_give_track(COMP, mutex, "caller.c", line);
}

static void sem_take(zorva_sem_t *sem, u32 timeout, u32 line)
{
	zorva_sem_take_track(COMP, sem, timeout, "caller.c", line);
}

static void sem_give(zorva_sem_t *sem, u32 line)
{
	zorva_sem_give_track(COMP, sem, "caller.c", line);
}

static void end_mutex(zorva_mutex_t *mutex)
{
	zorva_mutex_destroy_track(COMP, mutex, "caller.c", 22);
}

static void end_sem(zorva_sem_t *sem)
{
	zorva_sem_destroy_track(COMP, sem, "caller.c", 22);
}

/* The index of the next mutex and of the next semaphore. */
static u32 next_mutex(struct kunit *test)
{
	zorva_mutex_t *mutex = new_mutex(test, "counter");
	u32 index = 0;

	give(mutex, 1);
	sscanf(zt_value(test, "zorva.mutex.detail", "counter", "Index"), "%u",
	       &index);
	end_mutex(mutex);
	return index + 1;
}

static u32 next_sem(struct kunit *test)
{
	zorva_sem_t *sem = new_sem(test, "counter", 1);
	u32 index = 0;

	sem_give(sem, 1);
	sscanf(zt_value(test, "zorva.sem.detail", "counter", "Index"), "%u",
	       &index);
	end_sem(sem);
	return index + 1;
}

static void expect_all_empty(struct kunit *test)
{
	ZT_EXPECT_FILE(test, "zorva.mutex", "%s", "");
	ZT_EXPECT_FILE(test, "zorva.mutex.detail", "%s", "");
	ZT_EXPECT_FILE(test, "zorva.sem", "%s", "");
	ZT_EXPECT_FILE(test, "zorva.sem.detail", "%s", "");
}

static void before_the_first_lock_all_are_empty(struct kunit *test)
{
	expect_all_empty(test);
}

/*
 * What passes for a lock where none can have been made: a block of zeros that
 * begins with the kernel's own object, as every lock does.
 */
#define ENOUGH 512u

static zorva_mutex_t *forge_mutex(struct kunit *test)
{
	void *block = zorva_malloc_track(COMP, ENOUGH, "caller.c", 1);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, block);
	mutex_init((struct mutex *)block);
	return block;
}

static zorva_sem_t *forge_sem(struct kunit *test, int count)
{
	void *block = zorva_malloc_track(COMP, ENOUGH, "caller.c", 1);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, block);
	sema_init((struct semaphore *)block, count);
	return block;
}

#define NO_MUTEX_LOCK(func)                                                    \
	ZT_ERROR("zorva_sem.cpp", func, "invalid mutex debug lock.")
#define NO_SEM_LOCK                                                            \
	ZT_ERROR("zorva_sem.cpp", "zorva_sem_history_record",                  \
		 "invalid sem debug lock.")

static void a_mutex_before_the_first_is_not_recorded(struct kunit *test)
{
	zorva_mutex_t *mutex = forge_mutex(test);

	KUNIT_EXPECT_EQ(test, zorva_mutex_is_locked_track(COMP, mutex), 0u);
	ZT_EXPECT_REPORTS(test, NO_MUTEX_LOCK("zorva_mutex_is_locked_track"));

	/* It can be taken and given all the same. */
	zt_forget_reports();
	KUNIT_EXPECT_EQ(test, zorva_mutex_take_track(COMP, mutex, "x.c", 1),
			ZORVA_RC_OK);
	KUNIT_EXPECT_TRUE(test, mutex_is_locked((struct mutex *)mutex));
	KUNIT_EXPECT_EQ(test, zorva_mutex_give_track(COMP, mutex, "x.c", 2),
			ZORVA_RC_OK);
	KUNIT_EXPECT_FALSE(test, mutex_is_locked((struct mutex *)mutex));
	ZT_EXPECT_REPORTS(test,
			  NO_MUTEX_LOCK("zorva_mutex_history_record")
				  NO_MUTEX_LOCK("zorva_mutex_history_record"));

	/* Its end is reported as that of any other. */
	zt_forget_reports();
	KUNIT_EXPECT_EQ(test, zorva_mutex_destroy_track(COMP, mutex, "x.c", 3),
			ZORVA_RC_OK);
	ZT_EXPECT_REPORTS(test, ZT_REPORT(3, "zorva_sem.cpp",
					  "zorva_mutex_destroy_track",
					  "Mutex '' has been destroyed"));
	ZT_EXPECT_NO_USAGE(test, COMP);
	expect_all_empty(test);
}

static void a_semaphore_before_the_first_is_not_recorded(struct kunit *test)
{
	zorva_sem_t *sem = forge_sem(test, 1);

	KUNIT_EXPECT_EQ(test, zorva_sem_take_track(COMP, sem, 0, "x.c", 1),
			ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, zorva_sem_take_track(COMP, sem, 0, "x.c", 1),
			ZORVA_RC_FAIL);
	KUNIT_EXPECT_EQ(test, zorva_sem_give_track(COMP, sem, "x.c", 2),
			ZORVA_RC_OK);
	ZT_EXPECT_REPORTS(test, NO_SEM_LOCK NO_SEM_LOCK NO_SEM_LOCK);

	/* Unlike that of a mutex, its end is not reported. */
	zt_forget_reports();
	KUNIT_EXPECT_EQ(test, zorva_sem_destroy_track(COMP, sem, "x.c", 3),
			ZORVA_RC_OK);
	ZT_EXPECT_NO_REPORTS(test);
	ZT_EXPECT_NO_USAGE(test, COMP);
	expect_all_empty(test);
}

static void the_first_mutex_has_index_1(struct kunit *test)
{
	zorva_mutex_t *first = new_mutex(test, "first"), *second, *fourth;

	/* That there is one is all that is known yet, but not of the others. */
	EXPECT_MUTEXES(test, "\nNumber of Mutex: 0\n\n");
	EXPECT_MUTEX_DETAIL(test, "\nTotal number of Mutex: 1 (active 0)\n\n");
	ZT_EXPECT_FILE(test, "zorva.sem", "%s", "");
	ZT_EXPECT_FILE(test, "zorva.sem.detail", "%s", "");

	second = new_mutex(test, "second");
	give(first, 1);
	give(second, 2);
	EXPECT_MUTEX_DETAIL(test,
			    "Index     : 2\n"
			    "Name      : second\n"
			    "Component : %s (49)\n"
			    "Status    : Give\n"
			    "---------------------------------\n"
			    "  [%016u] Give @caller.c, 2\n"
			    "\n"
			    "Index     : 1\n"
			    "Name      : first\n"
			    "Component : %s (49)\n"
			    "Status    : Give\n"
			    "---------------------------------\n"
			    "  [%016u] Give @caller.c, 1\n"
			    "\n"
			    "\nTotal number of Mutex: 2 (active 2)\n\n",
			    OWNER, now, OWNER, now);

	/* No index comes back with what has gone. */
	end_mutex(second);
	end_mutex(new_mutex(test, "third"));
	fourth = new_mutex(test, "fourth");
	give(fourth, 1);
	ZT_EXPECT_TEXT(test,
		       zt_value(test, "zorva.mutex.detail", "fourth", "Index"),
		       "4");
	end_mutex(first);
	end_mutex(fourth);
}

static void the_first_semaphore_has_index_1(struct kunit *test)
{
	zorva_sem_t *first = new_sem(test, "first", 0), *second, *fourth;

	EXPECT_SEMS(test, "\nNumber of Semaphore: 0\n\n");
	EXPECT_SEM_DETAIL(test,
			  "\nTotal number of Semaphore: 1 (active 0)\n\n");

	second = new_sem(test, "second", 0);
	sem_give(first, 1);
	sem_give(second, 2);
	EXPECT_SEM_DETAIL(test,
			  "Index     : 2\n"
			  "Name      : second\n"
			  "Component : %s (49)\n"
			  "Status    : Give\n"
			  "---------------------------------\n"
			  "  [%016u] Give @caller.c, 2\n"
			  "\n"
			  "Index     : 1\n"
			  "Name      : first\n"
			  "Component : %s (49)\n"
			  "Status    : Give\n"
			  "---------------------------------\n"
			  "  [%016u] Give @caller.c, 1\n"
			  "\n"
			  "\nTotal number of Semaphore: 2 (active 2)\n\n",
			  OWNER, now, OWNER, now);

	end_sem(second);
	end_sem(new_sem(test, "third", 0));
	fourth = new_sem(test, "fourth", 0);
	sem_give(fourth, 1);
	ZT_EXPECT_TEXT(test,
		       zt_value(test, "zorva.sem.detail", "fourth", "Index"),
		       "4");
	end_sem(first);
	end_sem(fourth);
}

static void without_locks_there_are_head_and_total(struct kunit *test)
{
	ZT_EXPECT_FILE(test, "zorva.mutex",
		       "\n"
		       "----------------\n"
		       "Dump all ACTIVE & LOCKED mutex(s)\n"
		       "Current Time : %u\n"
		       "----------------\n"
		       "\n"
		       "\n"
		       "Number of Mutex: 0\n"
		       "\n",
		       now);
	ZT_EXPECT_FILE(test, "zorva.mutex.detail",
		       "\n"
		       "----------------\n"
		       "Dump all ACTIVE mutex(s)\n"
		       "Current Time : %u\n"
		       "----------------\n"
		       "\n"
		       "\n"
		       "Total number of Mutex: 0 (active 0)\n"
		       "\n",
		       now);
	ZT_EXPECT_FILE(test, "zorva.sem",
		       "\n"
		       "----------------\n"
		       "Dump all ACTIVE & LOCKED semaphore(s)\n"
		       "Current Time : %u\n"
		       "----------------\n"
		       "\n"
		       "\n"
		       "Number of Semaphore: 0\n"
		       "\n",
		       now);
	ZT_EXPECT_FILE(test, "zorva.sem.detail",
		       "\n"
		       "----------------\n"
		       "Dump all ACTIVE semaphore(s)\n"
		       "Current Time : %u\n"
		       "----------------\n"
		       "\n"
		       "\n"
		       "Total number of Semaphore: 0 (active 0)\n"
		       "\n",
		       now);
}

static void locks_never_used_are_only_counted(struct kunit *test)
{
	zorva_mutex_t *mutex[2] = { new_mutex(test, "a"),
				    new_mutex(test, "b") };
	zorva_sem_t *sem[3] = { new_sem(test, "a", 0), new_sem(test, "b", 0),
				new_sem(test, "c", 1) };

	/* Not even those without a unit are shown. */
	EXPECT_MUTEXES(test, "\nNumber of Mutex: 0\n\n");
	EXPECT_MUTEX_DETAIL(test, "\nTotal number of Mutex: 2 (active 0)\n\n");
	EXPECT_SEMS(test, "\nNumber of Semaphore: 0\n\n");
	EXPECT_SEM_DETAIL(test,
			  "\nTotal number of Semaphore: 3 (active 0)\n\n");

	/* A question is no use. */
	zorva_mutex_is_locked_track(COMP, mutex[0]);
	EXPECT_MUTEX_DETAIL(test, "\nTotal number of Mutex: 2 (active 0)\n\n");
	end_mutex(mutex[0]);
	end_mutex(mutex[1]);
	end_sem(sem[0]);
	end_sem(sem[1]);
	end_sem(sem[2]);
}

static void a_mutex_that_was_given_back(struct kunit *test)
{
	const u32 index = next_mutex(test);
	zorva_mutex_t *mutex = new_mutex(test, "used once");

	take(mutex, 10);
	give(mutex, 20);
	EXPECT_MUTEXES(test, "\nNumber of Mutex: 0\n\n");
	EXPECT_MUTEX_DETAIL(test,
			    "Index     : %u\n"
			    "Name      : used once\n"
			    "Component : %s (49)\n"
			    "Status    : Give\n"
			    "---------------------------------\n"
			    "  [%016u] Give @caller.c, 20\n"
			    "  [%016u] Take @caller.c, 10\n"
			    "\n"
			    "\nTotal number of Mutex: 1 (active 1)\n\n",
			    index, OWNER, now, now);
	end_mutex(mutex);
}

static void a_mutex_that_is_held(struct kunit *test)
{
	const u32 index = next_mutex(test);
	zorva_mutex_t *mutex = new_mutex(test, "held");

	give(mutex, 1);
	take(mutex, 2);
	EXPECT_MUTEXES(test,
		       "Index     : %u\n"
		       "Name      : held\n"
		       "Component : %s (49)\n"
		       "Status    : Take\n"
		       "Locker    : %d (kunit_try_catch)\n"
		       "---------------------------------\n"
		       "  [%016u] Take @caller.c, 2\n"
		       "  [%016u] Give @caller.c, 1\n"
		       "\n"
		       "\nNumber of Mutex: 1\n\n",
		       index, OWNER, current->pid, now, now);
	EXPECT_MUTEX_DETAIL(test,
			    "Index     : %u\n"
			    "Name      : held\n"
			    "Component : %s (49)\n"
			    "Status    : Take\n"
			    "Locker    : %d (kunit_try_catch)\n"
			    "---------------------------------\n"
			    "  [%016u] Take @caller.c, 2\n"
			    "  [%016u] Give @caller.c, 1\n"
			    "\n"
			    "\nTotal number of Mutex: 1 (active 1)\n\n",
			    index, OWNER, current->pid, now, now);
	give(mutex, 3);
	end_mutex(mutex);
}

static struct zt_actor actor;

static void take_here(void *arg)
{
	zorva_mutex_take_track(COMP, arg, "actor.c", 1);
}

static void give_here(void *arg)
{
	zorva_mutex_give_track(COMP, arg, "actor.c", 2);
}

static void the_locker_is_another_task(struct kunit *test)
{
	const u32 index = next_mutex(test);
	zorva_mutex_t *mutex = new_mutex(test, "theirs");

	zt_actor_start(test, &actor, "the holder");
	zt_do(test, &actor, take_here, mutex);
	/* The newest call is a give, the lock is held all the same. */
	give(mutex, 5);
	EXPECT_MUTEXES(test,
		       "Index     : %u\n"
		       "Name      : theirs\n"
		       "Component : %s (49)\n"
		       "Status    : Take\n"
		       "Locker    : %d (the holder)\n"
		       "---------------------------------\n"
		       "  [%016u] Give @caller.c, 5\n"
		       "  [%016u] Take @actor.c, 1\n"
		       "\n"
		       "\nNumber of Mutex: 1\n\n",
		       index, OWNER, zt_task_of(&actor)->pid, now, now);

	/* After its own give it is no longer shown as the locker. */
	zt_do(test, &actor, give_here, mutex);
	ZT_EXPECT_TEXT(test,
		       zt_value(test, "zorva.mutex.detail", "theirs", "Locker"),
		       "(none)");
	zt_actor_stop(test, &actor);
	end_mutex(mutex);
}

static void the_totals_count_what_is_shown(struct kunit *test)
{
	zorva_mutex_t *held = new_mutex(test, "held");
	zorva_mutex_t *free = new_mutex(test, "free");
	zorva_mutex_t *unused = new_mutex(test, "unused");
	zorva_mutex_t *held_too = new_mutex(test, "held too");
	const u32 index = next_mutex(test) - 5;
	int pid;

	zt_actor_start(test, &actor, "the holder");
	pid = zt_task_of(&actor)->pid;
	take(held, 1);
	give(free, 2);
	zt_do(test, &actor, take_here, held_too);
	EXPECT_MUTEXES(test,
		       "Index     : %u\n"
		       "Name      : held too\n"
		       "Component : %s (49)\n"
		       "Status    : Take\n"
		       "Locker    : %d (the holder)\n"
		       "---------------------------------\n"
		       "  [%016u] Take @actor.c, 1\n"
		       "\n"
		       "Index     : %u\n"
		       "Name      : held\n"
		       "Component : %s (49)\n"
		       "Status    : Take\n"
		       "Locker    : %d (kunit_try_catch)\n"
		       "---------------------------------\n"
		       "  [%016u] Take @caller.c, 1\n"
		       "\n"
		       "\nNumber of Mutex: 2\n\n",
		       index + 3, OWNER, pid, now, index, OWNER, current->pid,
		       now);
	EXPECT_MUTEX_DETAIL(test,
			    "Index     : %u\n"
			    "Name      : held too\n"
			    "Component : %s (49)\n"
			    "Status    : Take\n"
			    "Locker    : %d (the holder)\n"
			    "---------------------------------\n"
			    "  [%016u] Take @actor.c, 1\n"
			    "\n"
			    "Index     : %u\n"
			    "Name      : free\n"
			    "Component : %s (49)\n"
			    "Status    : Give\n"
			    "---------------------------------\n"
			    "  [%016u] Give @caller.c, 2\n"
			    "\n"
			    "Index     : %u\n"
			    "Name      : held\n"
			    "Component : %s (49)\n"
			    "Status    : Take\n"
			    "Locker    : %d (kunit_try_catch)\n"
			    "---------------------------------\n"
			    "  [%016u] Take @caller.c, 1\n"
			    "\n"
			    "\nTotal number of Mutex: 4 (active 3)\n\n",
			    index + 3, OWNER, pid, now, index + 1, OWNER, now,
			    index, OWNER, current->pid, now);
	give(held, 4);
	zt_do(test, &actor, give_here, held_too);
	zt_actor_stop(test, &actor);
	end_mutex(free);
	end_mutex(held_too);
	end_mutex(unused);
	end_mutex(held);
}

static void semaphores_by_their_units(struct kunit *test)
{
	zorva_sem_t *empty = new_sem(test, "empty", 1);
	zorva_sem_t *rich = new_sem(test, "rich", 0);
	zorva_sem_t *unused = new_sem(test, "unused", 0);
	zorva_sem_t *refused = new_sem(test, "refused", 0);
	const u32 index = next_sem(test) - 5;

	sem_take(empty, ZORVA_WAIT_FOREVER, 1);
	sem_give(rich, 2);
	sem_give(rich, 3);
	sem_take(rich, 250, 4);
	sem_take(refused, ZORVA_NO_WAIT, 5);
	EXPECT_SEMS(test,
		    "Index     : %u\n"
		    "Name      : refused\n"
		    "Component : %s (49)\n"
		    "Status    : Take\n"
		    "---------------------------------\n"
		    "  [%016u] Take @caller.c, 5 (0 msec)\n"
		    "\n"
		    "Index     : %u\n"
		    "Name      : empty\n"
		    "Component : %s (49)\n"
		    "Status    : Take\n"
		    "---------------------------------\n"
		    "  [%016u] Take @caller.c, 1 (forever)\n"
		    "\n"
		    "\nNumber of Semaphore: 2\n\n",
		    index + 3, OWNER, now, index, OWNER, now);
	EXPECT_SEM_DETAIL(test,
			  "Index     : %u\n"
			  "Name      : refused\n"
			  "Component : %s (49)\n"
			  "Status    : Take\n"
			  "---------------------------------\n"
			  "  [%016u] Take @caller.c, 5 (0 msec)\n"
			  "\n"
			  "Index     : %u\n"
			  "Name      : rich\n"
			  "Component : %s (49)\n"
			  "Status    : Give\n"
			  "---------------------------------\n"
			  "  [%016u] Take @caller.c, 4 (250 msec)\n"
			  "  [%016u] Give @caller.c, 3\n"
			  "  [%016u] Give @caller.c, 2\n"
			  "\n"
			  "Index     : %u\n"
			  "Name      : empty\n"
			  "Component : %s (49)\n"
			  "Status    : Take\n"
			  "---------------------------------\n"
			  "  [%016u] Take @caller.c, 1 (forever)\n"
			  "\n"
			  "\nTotal number of Semaphore: 4 (active 3)\n\n",
			  index + 3, OWNER, now, index + 1, OWNER, now, now,
			  now, index, OWNER, now);

	/* With its last unit gone, the newest call does not matter. */
	sem_take(rich, 1, 6);
	sem_give(refused, 7);
	ZT_EXPECT_TEXT(test, zt_value(test, "zorva.sem", "rich", "Status"),
		       "Take");
	ZT_EXPECT_TEXT(test,
		       zt_value(test, "zorva.sem.detail", "refused", "Status"),
		       "Give");
	end_sem(empty);
	end_sem(rich);
	end_sem(unused);
	end_sem(refused);
}

static void the_suffix_of_a_take_is_its_limit(struct kunit *test)
{
	static const struct {
		u32 timeout;
		const char *suffix;
	} cases[] = {
		{ 0, " (0 msec)" },
		{ 1, " (1 msec)" },
		{ 250, " (250 msec)" },
		{ 9999999, " (9999999 msec)" },
		/* From eight digits on it is cut. */
		{ 10000000, " (10000000 msec" },
		{ 99999999, " (99999999 msec" },
		{ 100000000, " (100000000 mse" },
		{ 1000000000, " (1000000000 ms" },
		{ 0x80000000, " (2147483648 ms" },
		{ 0xFFFFFFFE, " (4294967294 ms" },
		{ 0xFFFFFFFF, " (forever)" },
	};
	zorva_sem_t *sem = new_sem(test, "limits", ARRAY_SIZE(cases));
	unsigned int i;

	for (i = 0; i < ARRAY_SIZE(cases); i++) {
		const char *want = zt_text(test, "  [*] Take @caller.c, %u%s\n",
					   i + 1, cases[i].suffix);
		const char *history;

		sem_take(sem, cases[i].timeout, i + 1);
		history = zt_history(test, "zorva.sem.detail", "limits");
		ZT_EXPECT_TEXT(test,
			       zt_text(test, "%.*s", (int)strlen(want),
				       history),
			       "%s", want);
	}
	end_sem(sem);
}

static void line_0_ends_a_history(struct kunit *test)
{
	zorva_mutex_t *mutex = new_mutex(test, "holes");
	zorva_sem_t *sem = new_sem(test, "holes", 9);

	take(mutex, 1);
	give(mutex, 0);
	take(mutex, 3);
	give(mutex, 4);
	sem_take(sem, 1, 1);
	sem_give(sem, 0);
	sem_take(sem, 3, 3);
	sem_give(sem, 4);
	ZT_EXPECT_TEXT(test, zt_history(test, "zorva.mutex.detail", "holes"),
		       "  [*] Give @caller.c, 4\n"
		       "  [*] Take @caller.c, 3\n");
	ZT_EXPECT_TEXT(test, zt_history(test, "zorva.sem.detail", "holes"),
		       "  [*] Give @caller.c, 4\n"
		       "  [*] Take @caller.c, 3 (3 msec)\n");

	/* As the newest one it hides them all, but the lock is shown. */
	take(mutex, 0);
	sem_give(sem, 0);
	ZT_EXPECT_TEXT(test, zt_history(test, "zorva.mutex.detail", "holes"),
		       "%s", "");
	ZT_EXPECT_TEXT(test, zt_history(test, "zorva.mutex", "holes"), "%s",
		       "");
	ZT_EXPECT_TEXT(test, zt_history(test, "zorva.sem.detail", "holes"),
		       "%s", "");
	give(mutex, 5);
	end_mutex(mutex);
	end_sem(sem);
}

static void a_line_is_a_signed_number(struct kunit *test)
{
	zorva_mutex_t *mutex = new_mutex(test, "signed");
	zorva_sem_t *sem = new_sem(test, "signed", 2);

	take(mutex, 0x7FFFFFFF);
	give(mutex, 0x80000000);
	sem_give(sem, 0xFFFFFFFF);
	sem_take(sem, 5, 0xFFFFFFFE);
	ZT_EXPECT_TEXT(test, zt_history(test, "zorva.mutex.detail", "signed"),
		       "  [*] Give @caller.c, -2147483648\n"
		       "  [*] Take @caller.c, 2147483647\n");
	ZT_EXPECT_TEXT(test, zt_history(test, "zorva.sem.detail", "signed"),
		       "  [*] Take @caller.c, -2 (5 msec)\n"
		       "  [*] Give @caller.c, -1\n");
	end_mutex(mutex);
	end_sem(sem);
}

static void each_call_has_its_own_time(struct kunit *test)
{
	const u32 mutex_index = next_mutex(test), sem_index = next_sem(test);
	zorva_mutex_t *mutex = new_mutex(test, "old");
	zorva_sem_t *sem = new_sem(test, "old", 1);
	const u32 then = now;

	take(mutex, 1);
	sem_take(sem, 5, 1);
	msleep(600);
	wait_for_a_young_second();
	KUNIT_EXPECT_GT(test, now, then);
	give(mutex, 2);
	sem_give(sem, 2);
	EXPECT_MUTEX_DETAIL(test,
			    "Index     : %u\n"
			    "Name      : old\n"
			    "Component : %s (49)\n"
			    "Status    : Give\n"
			    "---------------------------------\n"
			    "  [%016u] Give @caller.c, 2\n"
			    "  [%016u] Take @caller.c, 1\n"
			    "\n"
			    "\nTotal number of Mutex: 1 (active 1)\n\n",
			    mutex_index, OWNER, now, then);
	EXPECT_SEM_DETAIL(test,
			  "Index     : %u\n"
			  "Name      : old\n"
			  "Component : %s (49)\n"
			  "Status    : Give\n"
			  "---------------------------------\n"
			  "  [%016u] Give @caller.c, 2\n"
			  "  [%016u] Take @caller.c, 1 (5 msec)\n"
			  "\n"
			  "\nTotal number of Semaphore: 1 (active 1)\n\n",
			  sem_index, OWNER, now, then);
	end_mutex(mutex);
	end_sem(sem);
}

static void a_full_history_has_eight_lines(struct kunit *test)
{
	const u32 index = next_sem(test);
	zorva_sem_t *sem = new_sem(test, "full", 0);
	u32 line;

	for (line = 1; line <= 20; line++)
		sem_give(sem, line);
	EXPECT_SEM_DETAIL(test,
			  "Index     : %u\n"
			  "Name      : full\n"
			  "Component : %s (49)\n"
			  "Status    : Give\n"
			  "---------------------------------\n"
			  "  [%016u] Give @caller.c, 20\n"
			  "  [%016u] Give @caller.c, 19\n"
			  "  [%016u] Give @caller.c, 18\n"
			  "  [%016u] Give @caller.c, 17\n"
			  "  [%016u] Give @caller.c, 16\n"
			  "  [%016u] Give @caller.c, 15\n"
			  "  [%016u] Give @caller.c, 14\n"
			  "  [%016u] Give @caller.c, 13\n"
			  "\n"
			  "\nTotal number of Semaphore: 1 (active 1)\n\n",
			  index, OWNER, now, now, now, now, now, now, now, now);
	end_sem(sem);
}

static void reading_changes_nothing(struct kunit *test)
{
	zorva_mutex_t *mutex = new_mutex(test, "read");
	zorva_sem_t *sem = new_sem(test, "read", 0);
	const char *mutexes, *sems;
	unsigned int i;

	take(mutex, 1);
	sem_take(sem, ZORVA_NO_WAIT, 1);
	mutexes = zt_file(test, "zorva.mutex");
	sems = zt_file(test, "zorva.sem");
	for (i = 0; i < 3; i++) {
		zt_file(test, "zorva.mutex.detail");
		zt_file(test, "zorva.sem.detail");
		ZT_EXPECT_FILE(test, "zorva.mutex", "%s", mutexes);
		ZT_EXPECT_FILE(test, "zorva.sem", "%s", sems);
	}
	KUNIT_EXPECT_EQ(test, zorva_mutex_is_locked_track(COMP, mutex), 1u);
	give(mutex, 2);
	end_mutex(mutex);
	end_sem(sem);
}

/*
 * A report that fills its buffer ends there and then; the kernel takes a
 * buffer of twice the size and asks again, until it fits.
 */
#define LOCKS 400u

static char want[256 * 1024];
static size_t length;

/* The second in which all of them were used. */
static u32 then;

/* A report, and the second in which all of it was made. */
static const char *report_of(struct kunit *test, const char *name)
{
	const char *text;

	do {
		now = zt_uptime_secs();
		text = zt_file(test, name);
	} while (zt_uptime_secs() != now);
	return text;
}

static __printf(1, 2) void add(const char *format, ...)
{
	va_list args;

	va_start(args, format);
	length +=
		vscnprintf(want + length, sizeof(want) - length, format, args);
	va_end(args);
}

/* What is said of one of the many that all look the same. */
static void add_mutex(u32 index, bool held)
{
	add("Index     : %u\n"
	    "Name      : one of a great many mutexes\n"
	    "Component : %s (49)\n"
	    "Status    : %s\n",
	    index, OWNER, held ? "Take" : "Give");
	if (held)
		add("Locker    : %d (kunit_try_catch)\n", current->pid);
	add("---------------------------------\n");
	if (!held)
		add("  [%016u] Give @caller.c, 2\n", then);
	add("  [%016u] Take @caller.c, 1\n\n", then);
}

static void four_hundred_mutexes_are_all_shown(struct kunit *test)
{
	static zorva_mutex_t *mutex[LOCKS];
	const char *text;
	u32 index, i;

	if (ZT_KERNEL_WATCHES)
		return;

	index = next_mutex(test);
	for (i = 0; i < LOCKS; i++)
		mutex[i] = new_mutex(test, "one of a great many mutexes");
	wait_for_a_young_second();
	for (i = 0; i < LOCKS; i++) {
		take(mutex[i], 1);
		if (i % 4 == 3)
			give(mutex[i], 2);
	}
	then = now;
	KUNIT_EXPECT_EQ(test, zt_uptime_secs(), then);

	text = report_of(test, "zorva.mutex");
	length = 0;
	add(MUTEX_HEAD, now);
	for (i = LOCKS; i-- > 0;)
		if (i % 4 != 3)
			add_mutex(index + i, true);
	add("\nNumber of Mutex: 300\n\n");
	KUNIT_EXPECT_GT(test, length, (size_t)32768);
	ZT_EXPECT_TEXT(test, text, "%s", want);

	text = report_of(test, "zorva.mutex.detail");
	length = 0;
	add(MUTEX_DETAIL_HEAD, now);
	for (i = LOCKS; i-- > 0;)
		add_mutex(index + i, i % 4 != 3);
	add("\nTotal number of Mutex: 400 (active 400)\n\n");
	KUNIT_EXPECT_GT(test, length, (size_t)65536);
	ZT_EXPECT_TEXT(test, text, "%s", want);

	for (i = 0; i < LOCKS; i++) {
		give(mutex[i], 3);
		end_mutex(mutex[i]);
	}
	wait_for_a_young_second();
	EXPECT_MUTEX_DETAIL(test, "\nTotal number of Mutex: 0 (active 0)\n\n");
}

static void add_sem(u32 index, bool empty)
{
	add("Index     : %u\n"
	    "Name      : one of a great many semaphores\n"
	    "Component : %s (49)\n"
	    "Status    : %s\n"
	    "---------------------------------\n",
	    index, OWNER, empty ? "Take" : "Give");
	if (!empty)
		add("  [%016u] Give @caller.c, 2\n", then);
	add("  [%016u] Take @caller.c, 1 (forever)\n\n", then);
}

static void four_hundred_semaphores_are_all_shown(struct kunit *test)
{
	static zorva_sem_t *sem[LOCKS];
	const u32 index = next_sem(test);
	const char *text;
	u32 i;

	for (i = 0; i < LOCKS; i++)
		sem[i] = new_sem(test, "one of a great many semaphores", 1);
	wait_for_a_young_second();
	for (i = 0; i < LOCKS; i++) {
		sem_take(sem[i], ZORVA_WAIT_FOREVER, 1);
		if (i % 4 == 3)
			sem_give(sem[i], 2);
	}
	then = now;
	KUNIT_EXPECT_EQ(test, zt_uptime_secs(), then);

	text = report_of(test, "zorva.sem");
	length = 0;
	add(SEM_HEAD, now);
	for (i = LOCKS; i-- > 0;)
		if (i % 4 != 3)
			add_sem(index + i, true);
	add("\nNumber of Semaphore: 300\n\n");
	KUNIT_EXPECT_GT(test, length, (size_t)32768);
	ZT_EXPECT_TEXT(test, text, "%s", want);

	text = report_of(test, "zorva.sem.detail");
	length = 0;
	add(SEM_DETAIL_HEAD, now);
	for (i = LOCKS; i-- > 0;)
		add_sem(index + i, i % 4 != 3);
	add("\nTotal number of Semaphore: 400 (active 400)\n\n");
	KUNIT_EXPECT_GT(test, length, (size_t)65536);
	ZT_EXPECT_TEXT(test, text, "%s", want);

	for (i = 0; i < LOCKS; i++)
		end_sem(sem[i]);
	wait_for_a_young_second();
	EXPECT_SEM_DETAIL(test,
			  "\nTotal number of Semaphore: 0 (active 0)\n\n");
}

static struct kunit_case cases[] = {
	/* These four in this order, before any other. */
	KUNIT_CASE(before_the_first_lock_all_are_empty),
	KUNIT_CASE(a_mutex_before_the_first_is_not_recorded),
	KUNIT_CASE(a_semaphore_before_the_first_is_not_recorded),
	KUNIT_CASE(the_first_mutex_has_index_1),
	KUNIT_CASE(the_first_semaphore_has_index_1),
	KUNIT_CASE(without_locks_there_are_head_and_total),
	KUNIT_CASE(locks_never_used_are_only_counted),
	KUNIT_CASE(a_mutex_that_was_given_back),
	KUNIT_CASE(a_mutex_that_is_held),
	KUNIT_CASE(the_locker_is_another_task),
	KUNIT_CASE(the_totals_count_what_is_shown),
	KUNIT_CASE(semaphores_by_their_units),
	KUNIT_CASE(the_suffix_of_a_take_is_its_limit),
	KUNIT_CASE(line_0_ends_a_history),
	KUNIT_CASE(a_line_is_a_signed_number),
	KUNIT_CASE(each_call_has_its_own_time),
	KUNIT_CASE(a_full_history_has_eight_lines),
	KUNIT_CASE(reading_changes_nothing),
	KUNIT_CASE(four_hundred_mutexes_are_all_shown),
	KUNIT_CASE(four_hundred_semaphores_are_all_shown),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_lock_report",
	.init = enter,
	.exit = leave,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Reports of the locks of ZORVA");
