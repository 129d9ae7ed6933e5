// SPDX-License-Identifier: GPL-2.0
/*
 * Mutexes around pairs of counters, a semaphore whose units are counted, and
 * event flags of which each is posted again only once it was collected.
 */
#include <linux/spinlock.h>

#include "soak.h"

#define MUTEXES 2
#define MUTEX_ACTORS 4
#define SEM_ACTORS 2
#define SEM_UNITS 3
#define SETTERS 3

/* The pair and the owner belong to who holds the mutex. */
static struct guarded {
	zorva_mutex_t *mutex;
	struct soak_actor *owner;
	u32 first;
	u32 second;
	u32 added[MUTEX_ACTORS]; /* each actor's own part */
} guarded[MUTEXES];

/* Counted by atomics, and by the module's own ones. */
static zorva_atomic_t entered, inside;

void soak_mutex_step(struct soak_actor *actor)
{
	const u32 *const decide = actor->decide;
	struct guarded *const pair = &guarded[decide[0] % MUTEXES];
	u32 rc;

	rc = zorva_mutex_take(SOAK_MUTEX_COMP, pair->mutex);
	SOAK_CHECK(!rc, "a mutex cannot be taken: 0x%x", rc);
	SOAK_CHECK(!pair->owner, "a mutex has two owners");
	pair->owner = actor;
	zorva_atomic_inc(&entered);
	zorva_atomic_add_return(5, &inside);
	pair->first++;
	if (decide[1] % 4 == 0)
		zorva_time_usleep(1 + decide[2] % 15000);
	else
		cond_resched();
	if (decide[1] % 8 == 1) {
		/* A second take by the holder leaves no trace. */
		rc = zorva_mutex_take(SOAK_MUTEX_COMP, pair->mutex);
		SOAK_CHECK(!rc, "a mutex cannot be taken twice: 0x%x", rc);
	}
	SOAK_CHECK(pair->owner == actor, "a mutex has lost its owner");
	SOAK_CHECK(pair->first == pair->second + 1, "a mutex was passed by");
	pair->second++;
	pair->added[actor->index]++;
	zorva_atomic_sub_return(4, &inside);
	zorva_atomic_dec_return(&inside);
	pair->owner = NULL;
	rc = zorva_mutex_give(SOAK_MUTEX_COMP, pair->mutex);
	SOAK_CHECK(!rc, "a mutex cannot be given: 0x%x", rc);
}

/* Each is counted by one actor, and read by all. */
static zorva_sem_t *sem;
static u32 given[SEM_ACTORS], taken[SEM_ACTORS];

static void count(u32 *counter)
{
	WRITE_ONCE(*counter, *counter + 1);
}

static u32 sum(const u32 *counters, unsigned int number)
{
	u32 all = 0;

	while (number-- > 0)
		all += READ_ONCE(counters[number]);
	return all;
}

void soak_sem_give_step(struct soak_actor *actor)
{
	u32 rc;

	/* Not so far ahead that the count would not matter. */
	if (sum(given, SEM_ACTORS) > sum(taken, SEM_ACTORS) + 20)
		return;
	rc = zorva_sem_give(SOAK_SEM_COMP, sem);
	SOAK_CHECK(!rc, "a unit cannot be given: 0x%x", rc);
	count(&given[actor->index]);
}

void soak_sem_take_step(struct soak_actor *actor)
{
	const u32 *const decide = actor->decide;
	const u32 timeout = decide[0] % 3 ? 1 + decide[1] % 50 : ZORVA_NO_WAIT;
	const u32 rc = zorva_sem_take(SOAK_SEM_COMP, sem, timeout);
	u32 all_taken;

	if (!rc)
		count(&taken[actor->index]);
	else
		SOAK_CHECK(rc == (timeout == ZORVA_NO_WAIT ? ZORVA_RC_FAIL
							   : ZORVA_RC_TIMEOUT),
			   "a unit cannot be taken: 0x%x", rc);
	/* A giver counts a unit once it is there, so each may be one behind. */
	all_taken = sum(taken, SEM_ACTORS);
	smp_rmb();
	SOAK_CHECK(all_taken <= sum(given, SEM_ACTORS) + SEM_UNITS + SEM_ACTORS,
		   "more units were taken than given");
}

/*
 * A bit is outstanding from before it is set until it has been collected. Each
 * setter has bits of its own, and counts its own sets.
 */
static zorva_event_t *event;
static u32 sets[SETTERS];
static DEFINE_SPINLOCK(outstanding_lock); /* guards what follows */
static u32 outstanding[2];
static u32 bits_set, bits_collected, waits;

static u32 own_bits(const struct soak_actor *actor)
{
	return 0x49249249u << actor->index;
}

void soak_event_set_step(struct soak_actor *actor)
{
	const u32 *const decide = actor->decide;
	u32 bits[2], rc;
	unsigned int i;

	if (sum(sets, SETTERS) > READ_ONCE(waits) + 20)
		return;
	spin_lock(&outstanding_lock);
	for (i = 0; i < 2; i++) {
		bits[i] = decide[i] & own_bits(actor) & ~outstanding[i];
		outstanding[i] |= bits[i];
		bits_set += hweight32(bits[i]);
	}
	spin_unlock(&outstanding_lock);
	rc = zorva_event_set(SOAK_EVENT_COMP, event, bits);
	SOAK_CHECK(!rc, "an event cannot be set: 0x%x", rc);
	count(&sets[actor->index]);
}

/* Waits once; true when a signal has come. */
static bool collect(u32 timeout)
{
	unsigned int i;
	u32 bits[2];
	const u32 rc = zorva_event_wait(SOAK_EVENT_COMP, event, bits, timeout);

	if (rc) {
		SOAK_CHECK(rc == (timeout == ZORVA_NO_WAIT ? ZORVA_RC_FAIL
							   : ZORVA_RC_TIMEOUT),
			   "an event cannot be waited for: 0x%x", rc);
		SOAK_CHECK(!bits[0] && !bits[1], "bits without a signal");
		return false;
	}
	spin_lock(&outstanding_lock);
	WRITE_ONCE(waits, waits + 1);
	for (i = 0; i < 2; i++) {
		SOAK_CHECK(!(bits[i] & ~outstanding[i]),
			   "bits 0x%x were collected that were not set",
			   bits[i] & ~outstanding[i]);
		outstanding[i] &= ~bits[i];
		bits_collected += hweight32(bits[i]);
	}
	spin_unlock(&outstanding_lock);
	return true;
}

void soak_event_wait_step(struct soak_actor *actor)
{
	const u32 *const decide = actor->decide;

	collect(decide[0] % 4 ? 1 + decide[1] % 40 : ZORVA_NO_WAIT);
}

int soak_locks_set_up(void)
{
	unsigned int i;

	for (i = 0; i < MUTEXES; i++) {
		guarded[i].mutex = zorva_mutex_create(SOAK_MUTEX_COMP, "soak");
		if (!guarded[i].mutex)
			return -ENOMEM;
	}
	sem = zorva_sem_create(SOAK_SEM_COMP, "soak", SEM_UNITS);
	event = zorva_event_create(SOAK_EVENT_COMP, "soak");
	return sem && event ? 0 : -ENOMEM;
}

void soak_locks_take_down(void)
{
	u32 all_taken, all_given, takes = 0;
	unsigned int i, k;

	for (i = 0; i < MUTEXES; i++) {
		struct guarded *const pair = &guarded[i];
		u32 added = 0;

		for (k = 0; k < MUTEX_ACTORS; k++)
			added += pair->added[k];
		SOAK_CHECK(pair->first == added && pair->second == added,
			   "a mutex counts %u and %u, not %u", pair->first,
			   pair->second, added);
		takes += added;
		zorva_mutex_destroy(SOAK_MUTEX_COMP, pair->mutex);
	}
	SOAK_CHECK(zorva_atomic_read(&entered) == takes &&
			   zorva_atomic_read(&inside) == 0,
		   "atomic counters hold %d and %d, not %u and 0",
		   zorva_atomic_read(&entered), zorva_atomic_read(&inside),
		   takes);

	while (!zorva_sem_take(SOAK_SEM_COMP, sem, ZORVA_NO_WAIT))
		taken[0]++;
	all_taken = taken[0] + taken[1];
	all_given = given[0] + given[1];
	SOAK_CHECK(all_taken == all_given + SEM_UNITS,
		   "%u units were taken of %u", all_taken,
		   all_given + SEM_UNITS);
	zorva_sem_destroy(SOAK_SEM_COMP, sem);

	while (collect(ZORVA_NO_WAIT))
		;
	SOAK_CHECK(bits_set == bits_collected && !outstanding[0] &&
			   !outstanding[1],
		   "%u bits were set, %u collected", bits_set, bits_collected);
	SOAK_CHECK(waits == sets[0] + sets[1] + sets[2],
		   "%u signals came of %u", waits, sets[0] + sets[1] + sets[2]);
	zorva_event_destroy(SOAK_EVENT_COMP, event);
	pr_info("soak: locks: %u takes, %u units, %u event bits in %u sets\n",
		takes, all_taken, bits_set, waits);
}
