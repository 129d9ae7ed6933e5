// SPDX-License-Identifier: GPL-2.0
/*
 * Threads that end in each way there is, and wait modules of which every
 * signal has to wake one waiter once.
 */
#include <linux/pid.h>
#include <linux/rcupdate.h>
#include <linux/spinlock.h>

#include "soak.h"

#define CHURNERS 2
#define WAITS 3
#define WAIT_OF_INTERRUPTS (WAITS - 1)

/* Of each thread that makes threads. */
static struct churner {
	zorva_sem_t *sem;
	bool ran;
} churners[CHURNERS];

static void returns(void *argument)
{
	struct churner *const churner = argument;

	WRITE_ONCE(churner->ran, true);
}

static void exits(void *argument)
{
	struct churner *const churner = argument;

	WRITE_ONCE(churner->ran, true);
	zorva_thread_exit(SOAK_THREAD_COMP, 3);
	soak_violation("a thread goes on after its exit");
}

static void sleeps(void *argument)
{
	struct churner *const churner = argument;

	WRITE_ONCE(churner->ran, true);
	zorva_time_sleep(1000);
	soak_violation("a killed thread goes on after its sleep");
}

static void takes(void *argument)
{
	struct churner *const churner = argument;

	WRITE_ONCE(churner->ran, true);
	for (;;)
		zorva_sem_take(SOAK_THREAD_COMP, churner->sem, 20);
}

static bool is_alive(u32 pid)
{
	bool alive;

	rcu_read_lock();
	alive = pid_task(find_vpid(pid), PIDTYPE_PID);
	rcu_read_unlock();
	return alive;
}

void soak_thread_step(struct soak_actor *actor)
{
	static void (*const entries[])(void *argument) = { returns, exits,
							   sleeps, takes };
	const u32 *const decide = actor->decide;
	struct churner *const churner = &churners[actor->index];
	const u32 comp = SOAK_THREAD_COMP + actor->index;
	const unsigned int kind = decide[0] % ARRAY_SIZE(entries);
	/* The record is the first; those of the kernel are left alone. */
	const unsigned int n = soak_decide_failure(decide[1], 100, 1);
	bool failed;
	u32 pid;

	churner->ran = false;
	if (entries[kind] == takes) {
		churner->sem = zorva_sem_create(comp, "soak-thread", 0);
		if (!churner->sem)
			return;
	}
	soak_begin_failing(n);
	pid = zorva_thread_create(comp, "soak-short", 4096,
				  100 + decide[2] % 99, entries[kind], churner);
	failed = soak_end_failing(n);
	SOAK_CHECK(failed == (pid == 0), "a thread's PID is %u%s", pid,
		   failed ? " without memory" : "");
	if (pid) {
		atomic_inc(&soak_expected.threads_created);
		if (entries[kind] == sleeps || entries[kind] == takes) {
			u32 rc;

			if (decide[3] % 2)
				zorva_time_usleep(decide[4] % 30000);
			rc = zorva_thread_destroy(comp, pid);
			SOAK_CHECK(!rc, "a thread cannot be killed: 0x%x", rc);
		}
		SOAK_WAIT(!is_alive(pid), "a thread does not end");
		SOAK_CHECK(READ_ONCE(churner->ran), "a thread never ran");
	}
	if (entries[kind] == takes) {
		zorva_sem_destroy(comp, churner->sem);
		churner->sem = NULL;
	}
}

/*
 * A wait module is signalled again only when the signal before has woken its
 * waiter, so that none may be merged.
 */
static DEFINE_SPINLOCK(waits_lock); /* guards the numbers of all */
static struct soak_wait {
	u32 id;
	u32 signalled;
	u32 woken;
	unsigned long since;
	bool ending;
} waits[WAITS];

static void signal(struct soak_wait *wait)
{
	unsigned long flags;
	u32 rc;

	spin_lock_irqsave(&waits_lock, flags);
	if (wait->signalled == wait->woken) {
		wait->signalled++;
		wait->since = jiffies;
		rc = zorva_wake_up(SOAK_WAIT_COMP, wait->id);
		SOAK_CHECK(!rc, "a wait module cannot be signalled: 0x%x", rc);
	} else {
		SOAK_CHECK(time_before(jiffies, wait->since + 20 * HZ),
			   "a wake-up was lost");
	}
	spin_unlock_irqrestore(&waits_lock, flags);
}

void soak_wake_in_interrupt(void)
{
	if (READ_ONCE(soak_phase) == SOAK_RUNNING)
		signal(&waits[WAIT_OF_INTERRUPTS]);
}

/*
 * Signals, and makes a wait module of its own for a moment. It is the only
 * one who makes and destroys any, and always the youngest.
 */
void soak_waker_step(struct soak_actor *actor)
{
	const u32 *const decide = actor->decide;
	const unsigned int n = soak_decide_failure(decide[1], 100, 1);
	u32 id = ~0u, rc;
	bool failed;

	signal(&waits[decide[0] % WAIT_OF_INTERRUPTS]);
	if (decide[2] % 4)
		return;
	soak_begin_failing(n);
	rc = zorva_wait_module_create(SOAK_WAIT_COMP, &id);
	failed = soak_end_failing(n);
	SOAK_CHECK(rc == (failed ? ZORVA_RC_FAIL : ZORVA_RC_OK),
		   "a wait module cannot be made: 0x%x", rc);
	if (rc)
		return;
	SOAK_CHECK(id == waits[WAITS - 1].id + 1, "a wait module's ID is %u",
		   id);
	/* Remembered, so the wait returns at once. */
	rc = zorva_wake_up(SOAK_WAIT_COMP, id);
	SOAK_CHECK(!rc, "a wait module cannot be signalled: 0x%x", rc);
	rc = zorva_wait_event(SOAK_WAIT_COMP, id);
	SOAK_CHECK(!rc, "a wait module cannot be waited for: 0x%x", rc);
	rc = zorva_wait_module_destroy(SOAK_WAIT_COMP, id);
	SOAK_CHECK(!rc, "a wait module cannot be destroyed: 0x%x", rc);
}

void soak_waiter_step(struct soak_actor *actor)
{
	struct soak_wait *const wait = &waits[actor->index];
	unsigned long flags;
	u32 rc;

	/* The last signal of all has come: nobody would wake it again. */
	if (READ_ONCE(wait->ending) &&
	    READ_ONCE(wait->signalled) == wait->woken) {
		zorva_time_usleep(10000);
		return;
	}
	rc = zorva_wait_event(SOAK_WAIT_COMP, wait->id);
	SOAK_CHECK(!rc, "a wait module cannot be waited for: 0x%x", rc);
	spin_lock_irqsave(&waits_lock, flags);
	SOAK_CHECK(wait->signalled == wait->woken + 1,
		   "a waiter was woken %u times by %u signals", wait->woken + 1,
		   wait->signalled);
	wait->woken++;
	spin_unlock_irqrestore(&waits_lock, flags);
}

void soak_release_waiters(void)
{
	unsigned int i;

	for (i = 0; i < WAITS; i++) {
		struct soak_wait *const wait = &waits[i];

		SOAK_WAIT(READ_ONCE(wait->woken) == wait->signalled,
			  "wait module %u: %u wake-ups of %u", i, wait->woken,
			  wait->signalled);
		WRITE_ONCE(wait->ending, true);
		signal(wait);
		SOAK_WAIT(READ_ONCE(wait->woken) == wait->signalled,
			  "wait module %u: the last wake-up was lost", i);
	}
}

int soak_thread_set_up(void)
{
	unsigned int i;

	for (i = 0; i < WAITS; i++) {
		const u32 rc =
			zorva_wait_module_create(SOAK_WAIT_COMP, &waits[i].id);

		if (rc)
			return -ENOMEM;
	}
	return 0;
}

void soak_thread_take_down(void)
{
	u32 woken = 0;
	unsigned int i;

	for (i = WAITS; i-- > 0;) {
		const u32 rc =
			zorva_wait_module_destroy(SOAK_WAIT_COMP, waits[i].id);

		SOAK_CHECK(!rc, "a wait module cannot be destroyed: 0x%x", rc);
		woken += waits[i].woken;
	}
	pr_info("soak: threads: %d made; wait modules: %u wake-ups\n",
		atomic_read(&soak_expected.threads_created), woken);
}
