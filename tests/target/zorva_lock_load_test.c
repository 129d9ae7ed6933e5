// SPDX-License-Identifier: GPL-2.0
/*
 * Many threads at once: over one mutex, over semaphores, and over the lists of
 * locks and threads while the reports are read.
 */
#include <linux/module.h>
#include <linux/rcupdate.h>
#include <linux/string.h>

#include "zorva_lock_test.h"

enum {
	COMP = ZT_LOCK_LOAD_COMPONENT,
	BORN_AND_GONE,
};

/*
 * Eight threads add to one number, each with the processor given away between
 * its reading and its writing.
 */
#define ADDERS 8u
#define ADDITIONS 100u

static zorva_mutex_t *guard;
static unsigned int number, inside, crowds;

static void add(void *arg)
{
	unsigned int i;

	for (i = 0; i < ADDITIONS; i++) {
		unsigned int read;

		zorva_mutex_take_track(COMP, guard, "adder.c", 1);
		if (++inside != 1)
			crowds++;
		read = READ_ONCE(number);
		yield();
		WRITE_ONCE(number, read + 1);
		inside--;
		zorva_mutex_give_track(COMP, guard, "adder.c", 2);
		if (i % 8 == 0)
			yield();
	}
}

static void a_mutex_loses_no_update_of_eight_threads(struct kunit *test)
{
	static struct zt_thread adder[ADDERS];
	unsigned int i;

	guard = zorva_mutex_create_track(COMP, "guard", "caller.c", 1);
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, guard);
	number = 0;
	inside = 0;
	crowds = 0;
	zorva_mutex_take_track(COMP, guard, "caller.c", 2);
	for (i = 0; i < ADDERS; i++)
		zt_thread_start(test, &adder[i], COMP, "adder", 120 + i, add,
				NULL);
	zorva_mutex_give_track(COMP, guard, "caller.c", 3);

	for (i = 0; i < ADDERS; i++)
		KUNIT_EXPECT_EQ(test, zt_thread_end(test, &adder[i]), 0);
	KUNIT_EXPECT_EQ(test, number, ADDERS * ADDITIONS);
	KUNIT_EXPECT_EQ(test, crowds, 0u);
	ZT_EXPECT_TEXT(test,
		       zt_value(test, "zorva.mutex.detail", "guard", "Status"),
		       "Give");
	zorva_mutex_destroy_track(COMP, guard, "caller.c", 4);
}

/*
 * Producers and consumers of numbers, through a ring of few places: each
 * number is made once and used up once.
 */
#define MAKERS 3u
#define NUMBERS 300u
#define PLACES 4u

static struct {
	zorva_sem_t *places;
	zorva_sem_t *numbers;
	zorva_mutex_t *lock;
	u32 ring[PLACES];
	u32 in, out;
	u32 used[MAKERS * NUMBERS];
	u32 failures;
} ring;

static void count_failure(u32 result)
{
	if (result != ZORVA_RC_OK)
		ring.failures++;
}

static void produce(void *arg)
{
	const u32 first = (unsigned long)arg * NUMBERS;
	u32 i;

	for (i = first; i < first + NUMBERS; i++) {
		count_failure(
			zorva_sem_take(COMP, ring.places, ZORVA_WAIT_FOREVER));
		count_failure(zorva_mutex_take(COMP, ring.lock));
		ring.ring[ring.in++ % PLACES] = i;
		if (i % 3 == 0)
			yield();
		count_failure(zorva_mutex_give(COMP, ring.lock));
		count_failure(zorva_sem_give(COMP, ring.numbers));
	}
}

static void consume(void *arg)
{
	u32 i;

	for (i = 0; i < NUMBERS; i++) {
		count_failure(zorva_sem_take(COMP, ring.numbers, 4000));
		count_failure(zorva_mutex_take(COMP, ring.lock));
		ring.used[ring.ring[ring.out++ % PLACES]]++;
		if (i % 5 == 0)
			yield();
		count_failure(zorva_mutex_give(COMP, ring.lock));
		count_failure(zorva_sem_give(COMP, ring.places));
	}
}

static void no_number_is_lost_between_semaphores(struct kunit *test)
{
	static struct zt_thread maker[MAKERS], user[MAKERS];
	unsigned long i;

	memset(&ring, 0, sizeof(ring));
	ring.places = zorva_sem_create(COMP, "places", PLACES);
	ring.numbers = zorva_sem_create(COMP, "numbers", 0);
	ring.lock = zorva_mutex_create(COMP, "ring");
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, ring.places);
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, ring.numbers);
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, ring.lock);
	for (i = 0; i < MAKERS; i++) {
		zt_thread_start(test, &user[i], COMP, "user", 100, consume,
				NULL);
		zt_thread_start(test, &maker[i], COMP, "maker", 100, produce,
				(void *)i);
	}
	for (i = 0; i < MAKERS; i++) {
		KUNIT_EXPECT_EQ(test, zt_thread_end(test, &maker[i]), 0);
		KUNIT_EXPECT_EQ(test, zt_thread_end(test, &user[i]), 0);
	}

	KUNIT_EXPECT_EQ(test, ring.failures, 0u);
	KUNIT_EXPECT_EQ(test, ring.in, MAKERS * NUMBERS);
	KUNIT_EXPECT_EQ(test, ring.out, MAKERS * NUMBERS);
	for (i = 0; i < MAKERS * NUMBERS; i++)
		KUNIT_EXPECT_EQ_MSG(test, ring.used[i], 1u, "number %lu", i);
	for (i = 0; i < PLACES; i++)
		KUNIT_EXPECT_EQ(test, zorva_sem_take(COMP, ring.places, 0),
				ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, zorva_sem_take(COMP, ring.places, 0),
			ZORVA_RC_FAIL);
	KUNIT_EXPECT_EQ(test, zorva_sem_take(COMP, ring.numbers, 0),
			ZORVA_RC_FAIL);
	zorva_sem_destroy(COMP, ring.places);
	zorva_sem_destroy(COMP, ring.numbers);
	zorva_mutex_destroy(COMP, ring.lock);
}

/* Killed while they wait: one unit goes through all of their hands. */
#define CROWD 50u

static zorva_sem_t *gate;

static void wait_at_the_gate(void *arg)
{
	zorva_sem_take_track(COMP, gate, ZORVA_WAIT_FOREVER, "crowd.c", 1);
}

static void a_killed_crowd_hands_one_unit_on(struct kunit *test)
{
	static struct zt_thread crowd[CROWD];
	unsigned int i;

	gate = zorva_sem_create_track(COMP, "gate", 0, "caller.c", 1);
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, gate);
	for (i = 0; i < CROWD; i++)
		zt_thread_start(test, &crowd[i], COMP, "crowd", 128,
				wait_at_the_gate, NULL);
	for (i = 0; i < CROWD; i++)
		KUNIT_EXPECT_EQ(test,
				zorva_thread_destroy_track(COMP, crowd[i].pid,
							   "caller.c", 2),
				ZORVA_RC_OK);
	msleep(50);
	for (i = 0; i < CROWD; i++)
		KUNIT_EXPECT_FALSE(test, zt_is_gone(&crowd[i]));

	zorva_sem_give_track(COMP, gate, "caller.c", 3);
	for (i = 0; i < CROWD; i++)
		KUNIT_EXPECT_EQ(test, zt_thread_end(test, &crowd[i]), 1);
	KUNIT_EXPECT_EQ(test, zorva_sem_take_track(COMP, gate, 0, "x.c", 4),
			ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, zorva_sem_take_track(COMP, gate, 0, "x.c", 5),
			ZORVA_RC_FAIL);
	ZT_EXPECT_FILE(test, "zorva.thread", "%s", "");
	zorva_sem_destroy_track(COMP, gate, NULL, 0);
}

/*
 * The kernel's threads, but for those that end, as that of the test before may,
 * and for workers, which come as work does.
 */
static unsigned int thread_count(void)
{
	const unsigned int flags = PF_KTHREAD | PF_EXITING | PF_WQ_WORKER;
	const struct task_struct *task;
	unsigned int count = 0;

	rcu_read_lock();
	for_each_process(task) count += (task->flags & flags) == PF_KTHREAD;
	rcu_read_unlock();
	return count;
}

static void take_a_nap(void *arg)
{
	schedule_timeout_uninterruptible(2);
}

struct account {
	u32 bytes, allocs, frees;
};

static struct account account_of(struct kunit *test, u32 comp)
{
	struct account account = {};

	KUNIT_EXPECT_EQ(test,
			sscanf(zt_mem_row(test, comp), "%*s %u %*u %u %u",
			       &account.bytes, &account.allocs, &account.frees),
			3);
	return account;
}

static void two_hundred_threads_leave_nothing(struct kunit *test)
{
	enum {
		THREADS = 200
	};
	static struct zt_thread thread[THREADS];
	const unsigned int threads = thread_count();
	struct account before, after;
	unsigned int i;
	void *kept;

	/* With one block the account stays in sight. */
	kept = zorva_malloc_track(BORN_AND_GONE, 1, "caller.c", 1);
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, kept);
	before = account_of(test, BORN_AND_GONE);

	/* Many are there at the same time, others have gone by then. */
	for (i = 0; i < THREADS; i++)
		zt_thread_start(test, &thread[i], BORN_AND_GONE, NULL,
				i % 7 == 0 ? 30 : (int)i, take_a_nap, NULL);
	/* In the end this test is the last to know of each task. */
	for (i = 0; i < THREADS; i++) {
		ZT_WAIT_FOR(test, zt_is_gone(&thread[i]));
		ZT_WAIT_FOR(test, refcount_read(&thread[i].task->usage) == 1);
		KUNIT_EXPECT_EQ(test, zt_thread_end(test, &thread[i]), 0);
	}

	after = account_of(test, BORN_AND_GONE);
	KUNIT_EXPECT_EQ(test, after.bytes, before.bytes);
	KUNIT_EXPECT_EQ(test, after.allocs - before.allocs, THREADS + 0u);
	KUNIT_EXPECT_EQ(test, after.frees - before.frees, THREADS + 0u);
	ZT_EXPECT_FILE(test, "zorva.thread", "%s", "");
	ZT_WAIT_FOR(test, thread_count() <= threads);
	zorva_free_track(BORN_AND_GONE, kept, "caller.c", 2);
}

/*
 * Threads that make locks, use and destroy them, and threads that make
 * threads, while the test reads all five reports.
 */
#define ROUNDS 60u

static unsigned int failures;

static void make_locks(void *arg)
{
	zorva_mutex_t *mutex[3] = {};
	zorva_sem_t *sem[3] = {};
	unsigned int i;

	for (i = 0; i < ROUNDS; i++) {
		const unsigned int slot = i % 3;

		if (mutex[slot]) {
			zorva_mutex_destroy(COMP, mutex[slot]);
			zorva_sem_destroy(COMP, sem[slot]);
		}
		mutex[slot] = zorva_mutex_create(COMP, NULL);
		yield();
		sem[slot] = zorva_sem_create(COMP, NULL, 0);
		if (!mutex[slot] || !sem[slot]) {
			failures++;
			return;
		}
		failures += zorva_mutex_take(COMP, mutex[slot]) != 0;
		failures += zorva_sem_take(COMP, sem[slot], 1) !=
			    ZORVA_RC_TIMEOUT;
		failures += zorva_mutex_is_locked(COMP, mutex[slot]) != 1;
		yield();
		failures += zorva_mutex_give(COMP, mutex[slot]) != 0;
		failures += zorva_sem_give(COMP, sem[slot]) != 0;
		yield();
	}
	for (i = 0; i < 3; i++) {
		zorva_mutex_destroy(COMP, mutex[i]);
		zorva_sem_destroy(COMP, sem[i]);
	}
}

static void make_threads(void *arg)
{
	unsigned int i;

	for (i = 0; i < ROUNDS; i++) {
		if (!zorva_thread_create(COMP, "child", 0, i % 2 ? 30 : 200,
					 take_a_nap, NULL))
			failures++;
		schedule_timeout_uninterruptible(1);
	}
}

static unsigned int occurrences(const char *text, const char *what)
{
	unsigned int count = 0;

	for (; (text = strstr(text, what)); text += strlen(what))
		count++;
	return count;
}

/* Reads a report and gives its memory back at once. */
static void expect_whole(struct kunit *test, const char *report,
			 const char *title, const char *total)
{
	const char *text = zt_file(test, report);
	const char *end = strstr(text, total);
	u32 listed = 0, shown = 0;
	bool detail = false;

	if (!end || strncmp(text, title, strlen(title)) != 0) {
		KUNIT_FAIL(test, "%s is torn", report);
		return;
	}
	end += strlen(total);
	detail = sscanf(end, ": %u (active %u)", &listed, &shown) == 2;
	if (!detail)
		sscanf(end, ": %u", &shown);
	KUNIT_EXPECT_EQ(test, strncmp(text + strlen(text) - 2, "\n\n", 2), 0);
	KUNIT_EXPECT_EQ_MSG(test, shown, occurrences(text, "\nName      : "),
			    "%s", report);
	KUNIT_EXPECT_EQ_MSG(test, shown,
			    occurrences(text, "\nStatus    : Take\n") +
				    occurrences(text, "\nStatus    : Give\n"),
			    "%s", report);
	if (detail)
		KUNIT_EXPECT_GE(test, listed, shown);
	kunit_kfree(test, text);
}

/* Every thread has its five lines and an empty one. */
static void expect_threads(struct kunit *test)
{
	const char *text = zt_file(test, "zorva.thread");
	const unsigned int threads = occurrences(text, "Component : ");

	KUNIT_EXPECT_EQ(test, occurrences(text, "\n"), threads * 6);
	KUNIT_EXPECT_EQ(test, occurrences(text, "\nName      : maker\nPID"),
			threads -
				occurrences(text, "\nName      : child\nPID"));
	kunit_kfree(test, text);
}

static void reports_are_whole_while_everything_changes(struct kunit *test)
{
	static struct zt_thread maker[6];
	unsigned int i, left, reads = 0;

	failures = 0;
	for (i = 0; i < ARRAY_SIZE(maker); i++)
		zt_thread_start(test, &maker[i], COMP, "maker", 128,
				i % 3 ? make_locks : make_threads, NULL);
	do {
		expect_whole(test, "zorva.mutex", "\n----------------\nDump",
			     "\n\nNumber of Mutex");
		expect_whole(test, "zorva.mutex.detail",
			     "\n----------------\nDump",
			     "\n\nTotal number of Mutex");
		expect_whole(test, "zorva.sem", "\n----------------\nDump",
			     "\n\nNumber of Semaphore");
		expect_whole(test, "zorva.sem.detail",
			     "\n----------------\nDump",
			     "\n\nTotal number of Semaphore");
		expect_threads(test);
		yield();
		reads++;
		left = 0;
		for (i = 0; i < ARRAY_SIZE(maker); i++)
			left += !zt_is_gone(&maker[i]);
	} while (left && reads < 100000);
	for (i = 0; i < ARRAY_SIZE(maker); i++)
		KUNIT_EXPECT_EQ(test, zt_thread_end(test, &maker[i]), 0);

	KUNIT_EXPECT_EQ(test, failures, 0u);
	KUNIT_EXPECT_GT(test, reads, 10u);
	ZT_WAIT_FOR(test, *zt_mem_row(test, COMP) == '\0');
	ZT_EXPECT_FILE(test, "zorva.thread", "%s", "");
}

static struct kunit_case cases[] = {
	KUNIT_CASE(a_mutex_loses_no_update_of_eight_threads),
	KUNIT_CASE(no_number_is_lost_between_semaphores),
	KUNIT_CASE(a_killed_crowd_hands_one_unit_on),
	KUNIT_CASE(two_hundred_threads_leave_nothing),
	KUNIT_CASE(reports_are_whole_while_everything_changes),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_lock_load",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Threads and locks of ZORVA under load");
