// SPDX-License-Identifier: GPL-2.0
/*
 * Timers of both kinds that are started, stopped and refreshed by threads and
 * by their own callbacks. Each start has to give one callback, not too early
 * and not never, or a stop.
 *
 * A timer belongs to one actor; beside it only its own callback uses it. Its
 * model changes together with the timer, under a lock and with interrupts off.
 * On one processor nothing comes in between. On several, a callback may have
 * begun by then and wait for the lock: a start that finds the timer at rest all
 * the same comes on top of that one, and whether a start that is stopped with
 * interrupts off still gives its callback is in doubt until the actor stops the
 * timer with interrupts on, which waits for it.
 */
#include <linux/cpumask.h>
#include <linux/ktime.h>
#include <linux/spinlock.h>

#include "soak.h"

#define ACTORS 2
#define TICK_TIMERS 8
#define HRT_TIMERS 6
#define TIMERS (TICK_TIMERS + HRT_TIMERS)
#define LATE_SECS 10

static struct soak_timer {
	bool hrt;
	u32 id;
	spinlock_t lock; /* guards what follows */
	u32 period;	 /* of the last start */
	ktime_t started;
	unsigned long started_tick;
	u32 outstanding; /* starts without a callback or a stop */
	u32 doubtful;	 /* those of them that were stopped */
	u32 starts;
	u32 fired;
	u32 stopped;
} timers[TIMERS];

static struct soak_account before;

static bool is_alone(void)
{
	return num_online_cpus() == 1;
}

static void note_start(struct soak_timer *timer, u32 period)
{
	timer->period = period;
	timer->started = ktime_get();
	timer->started_tick = jiffies;
	timer->outstanding++;
	timer->starts++;
}

/* The lock is held. */
static void start(struct soak_timer *timer, u32 period)
{
	const u32 outstanding = timer->outstanding;
	struct soak_timer noted = *timer;
	u32 rc;

	/* Read before the call: it may not end earlier than that. */
	note_start(&noted, period);
	rc = timer->hrt
		     ? zorva_hrt_timer_start(SOAK_TIMER_COMP, &timer->id,
					     period)
		     : zorva_timer_start(SOAK_TIMER_COMP, &timer->id, period);
	if (is_alone())
		SOAK_CHECK(rc == (outstanding ? ZORVA_RC_FAIL : ZORVA_RC_OK),
			   "a start of a timer that was %srunning: 0x%x",
			   outstanding ? "" : "not ", rc);
	else
		SOAK_CHECK(rc == ZORVA_RC_OK
				   ? outstanding <= 1
				   : rc == ZORVA_RC_FAIL &&
					     (outstanding || timer->doubtful),
			   "a start of a timer with %u starts: 0x%x",
			   outstanding, rc);
	if (rc)
		return;
	timer->period = noted.period;
	timer->started = noted.started;
	timer->started_tick = noted.started_tick;
	timer->outstanding = noted.outstanding;
	timer->starts = noted.starts;
}

/* What was outstanding is stopped, or, when it is not known, in doubt. */
static void note_stop(struct soak_timer *timer, bool known)
{
	if (known)
		timer->stopped += timer->outstanding;
	else
		timer->doubtful += timer->outstanding;
	timer->outstanding = 0;
}

static void call_stop(struct soak_timer *timer)
{
	const u32 rc =
		timer->hrt ? zorva_hrt_timer_stop(SOAK_TIMER_COMP, &timer->id)
			   : zorva_timer_stop(SOAK_TIMER_COMP, &timer->id);

	SOAK_CHECK(!rc, "a timer cannot be stopped: 0x%x", rc);
}

/* With interrupts on: afterwards no callback is running, and none will come. */
static void stop(struct soak_timer *timer)
{
	unsigned long flags;

	call_stop(timer);
	spin_lock_irqsave(&timer->lock, flags);
	SOAK_CHECK(timer->outstanding <= 1, "a timer has %u starts",
		   timer->outstanding);
	note_stop(timer, true);
	timer->stopped += timer->doubtful;
	timer->doubtful = 0;
	spin_unlock_irqrestore(&timer->lock, flags);
}

/* The lock is held. */
static void refresh(struct soak_timer *timer, u32 period)
{
	u32 rc;

	note_stop(timer, is_alone());
	note_start(timer, period);
	rc = timer->hrt
		     ? zorva_hrt_timer_refresh(SOAK_TIMER_COMP, &timer->id,
					       period)
		     : zorva_timer_refresh(SOAK_TIMER_COMP, &timer->id, period);
	SOAK_CHECK(!rc, "a timer cannot be refreshed: 0x%x", rc);
}

static bool is_early(const struct soak_timer *timer)
{
	if (timer->hrt)
		return ktime_ms_delta(ktime_get(), timer->started) <
		       timer->period;
	return jiffies - timer->started_tick < timer->period / 10;
}

/*
 * The lock is held. The callback may be that of a start in doubt, but not where
 * one start came on top of another: the other's callback had begun by then, and
 * those before it are over.
 */
static void note_callback(struct soak_timer *timer, unsigned long index)
{
	const bool on_top = timer->outstanding > 1;

	timer->fired++;
	if (timer->doubtful && !on_top &&
	    (!timer->outstanding || is_early(timer))) {
		timer->doubtful--;
		return;
	}
	SOAK_CHECK(timer->outstanding, "timer %lu: a callback without a start",
		   index);
	/* Of two starts the first one's time is no longer known. */
	SOAK_CHECK(on_top || !timer->outstanding || !is_early(timer),
		   "timer %lu: %u ms ended too early", index, timer->period);
	if (timer->outstanding)
		timer->outstanding--;
}

static void expired(unsigned long index)
{
	struct soak_timer *const timer = &timers[index];
	unsigned long flags;

	SOAK_CHECK(in_interrupt(), "a callback outside an interrupt");
	spin_lock_irqsave(&timer->lock, flags);
	note_callback(timer, index);
	if (timer->fired % 4 == 0 && READ_ONCE(soak_phase) == SOAK_RUNNING)
		start(timer, timer->period);
	spin_unlock_irqrestore(&timer->lock, flags);

	soak_mem_in_interrupt(index);
	if (index == 0)
		soak_wake_in_interrupt();
}

void soak_timer_step(struct soak_actor *actor)
{
	const u32 *const decide = actor->decide;
	struct soak_timer *const timer =
		&timers[decide[0] % (TIMERS / ACTORS) * ACTORS + actor->index];
	const u32 period = 1 + decide[1] % (decide[2] % 8 ? 40 : 400);
	unsigned long flags;

	spin_lock_irqsave(&timer->lock, flags);
	SOAK_CHECK(!timer->outstanding ||
			   ktime_ms_delta(ktime_get(), timer->started) <
				   timer->period + LATE_SECS * 1000,
		   "a timer of %u ms has not ended", timer->period);
	switch (decide[3] % 8) {
	case 0:
		call_stop(timer);
		note_stop(timer, is_alone());
		break;
	case 1:
	case 2:
		refresh(timer, period);
		break;
	case 3:
		break;
	default:
		start(timer, period);
		break;
	}
	spin_unlock_irqrestore(&timer->lock, flags);
	if (decide[3] % 8 == 3)
		stop(timer);
}

static u32 make(unsigned int index)
{
	struct soak_timer *const timer = &timers[index];

	return timer->hrt ? zorva_hrt_timer_init(SOAK_TIMER_COMP, &timer->id,
						 expired, index)
			  : zorva_timer_init(SOAK_TIMER_COMP, &timer->id,
					     expired, index);
}

/* Once without the memory for each of what a first timer needs. */
static void make_without_memory(unsigned int index)
{
	unsigned int n;

	for (n = 1; SOAK_CAN_FAIL && n <= 3; n++) {
		u32 rc;

		soak_begin_failing(n);
		rc = make(index);
		if (!soak_end_failing(n))
			soak_violation("timer %u needs %u allocations", index,
				       n - 1);
		SOAK_CHECK(rc == ZORVA_RC_FAIL, "a timer without memory: 0x%x",
			   rc);
		/* The list stays once it was made: then two are left. */
		if (n == 2)
			break;
	}
}

int soak_timer_set_up(void)
{
	unsigned int i;

	for (i = 0; i < TIMERS; i++) {
		u32 rc;

		timers[i].hrt = i >= TICK_TIMERS;
		spin_lock_init(&timers[i].lock);
		if (i == 0 || i == TICK_TIMERS)
			make_without_memory(i);
		rc = make(i);
		if (rc) {
			soak_violation("a timer cannot be made: 0x%x", rc);
			return -ENOMEM;
		}
	}
	before = soak_account_of(ZORVA_COMPONENT_SELF);
	return 0;
}

/* Timers are never deleted; they and their list stay, stopped. */
void soak_timer_take_down(void)
{
	u32 starts = 0, fired = 0, stopped = 0;
	struct soak_account after;
	unsigned int i;

	for (i = 0; i < TIMERS; i++)
		stop(&timers[i]);
	/* Nothing may come any more. */
	schedule_timeout_uninterruptible(HZ / 2);
	for (i = 0; i < TIMERS; i++) {
		const struct soak_timer *const timer = &timers[i];

		SOAK_CHECK(timer->starts == timer->fired + timer->stopped,
			   "timer %u: %u starts, %u callbacks, %u stops", i,
			   timer->starts, timer->fired, timer->stopped);
		starts += timer->starts;
		fired += timer->fired;
		stopped += timer->stopped;
	}
	SOAK_CHECK(fired > 0, "no timer has ever ended");
	after = soak_account_of(ZORVA_COMPONENT_SELF);
	SOAK_CHECK(after.bytes == before.bytes && after.blocks == before.blocks,
		   "%s owns %u bytes in %u blocks, not %u in %u",
		   _componentName[ZORVA_COMPONENT_SELF], after.bytes,
		   after.blocks, before.bytes, before.blocks);
	pr_info("soak: timers: %u starts, %u callbacks, %u stops\n", starts,
		fired, stopped);
}
