/* SPDX-License-Identifier: GPL-2.0 */
/*
 * A soak: many threads and timers use all services at random, and each keeps
 * a model beside what it uses, which says what has to come out.
 *
 * An actor is a thread that makes one small step after another. What a step
 * does is decided by numbers that follow from the seed, the actor and the
 * step's number alone, so that a seed repeats all decisions of every actor,
 * though not the order in which the actors run.
 */
#ifndef ZORVA_SOAK_H
#define ZORVA_SOAK_H

#include <linux/jiffies.h>
#include <linux/kernel.h>
#include <linux/sched.h>
#include <linux/types.h>

#include <zorva/zorva.h>

/* The components that own what is used here; nobody else may. */
#define SOAK_MEM_COMP 10u /* to 13 */
#define SOAK_IRQ_COMP 14u
#define SOAK_MUTEX_COMP 15u
#define SOAK_SEM_COMP 16u
#define SOAK_QUEUE_COMP 17u
#define SOAK_EVENT_COMP 18u
#define SOAK_THREAD_COMP 19u /* to 20 */
#define SOAK_CHURN_COMP 21u  /* to 22 */
#define SOAK_NETEVENT_COMP 23u
#define SOAK_TIMER_COMP 24u
#define SOAK_WAIT_COMP 25u
#define SOAK_ACTOR_COMP 26u /* of the actors' own threads */
#define SOAK_LAST_COMP 26u

/* Actors end one group after the other, so that what was sent arrives. */
enum soak_phase {
	SOAK_RUNNING,
	SOAK_DRAINING, /* who only takes goes on */
	SOAK_ENDING,
};

extern enum soak_phase soak_phase;

struct soak_actor {
	const char *name;
	void (*step)(struct soak_actor *actor);
	unsigned int index; /* among the actors with the same step */
	s32 priority;
	enum soak_phase ends_in;

	u32 steps;
	u32 decide[6]; /* the numbers that decide this step */
	u32 decisions; /* a digest of those of the first steps */
	bool ended;
};

/* What the model expects, and what the module's reports have said. */
struct soak_tally {
	atomic_t no_memory; /* allocations that failed */
	atomic_t invalid_parameter;
	atomic_t send_failed;
	atomic_t threads_created;
	atomic_t threads_ended;
};

extern struct soak_tally soak_expected, soak_said;

/* A finding that the model does not allow. Any context. */
void soak_violation(const char *format, ...) __printf(1, 2);

#define SOAK_CHECK(condition, ...)                                             \
	do {                                                                   \
		if (!(condition))                                              \
			soak_violation(__VA_ARGS__);                           \
	} while (0)

/* Waits for a condition that has to come true soon. */
#define SOAK_WAIT(condition, ...)                                              \
	do {                                                                   \
		const unsigned long limit_ = jiffies + 20 * HZ;                \
                                                                               \
		while (!(condition) && time_before(jiffies, limit_))           \
			schedule_timeout_uninterruptible(1);                   \
		SOAK_CHECK(condition, __VA_ARGS__);                            \
	} while (0)

/*
 * Makes the n-th allocation of the calls up to soak_end_failing() fail, none
 * when n is 0. The end tells whether one has failed: never on a kernel that
 * injects no failures.
 */
#ifdef CONFIG_FAULT_INJECTION
#define SOAK_CAN_FAIL true
static inline void soak_begin_failing(unsigned int n)
{
	current->fail_nth = n;
}

static inline bool soak_end_failing(unsigned int n)
{
	const bool failed = n != 0 && current->fail_nth == 0;

	current->fail_nth = 0;
	if (failed)
		atomic_inc(&soak_expected.no_memory);
	return failed;
}
#else
#define SOAK_CAN_FAIL false
static inline void soak_begin_failing(unsigned int n)
{
}

static inline bool soak_end_failing(unsigned int n)
{
	return false;
}
#endif

/* Decides for a failure once in so many times: 1 to @most, otherwise 0. */
static inline unsigned int soak_decide_failure(u32 decide, unsigned int every,
					       unsigned int most)
{
	if (!SOAK_CAN_FAIL)
		return 0;
	return decide % every == 0 ? 1 + decide / every % most : 0;
}

/* A component's line in the usage table; all zero when there is none. */
struct soak_account {
	u32 bytes;
	u32 blocks;
	u32 allocs;
};

struct soak_account soak_account_of(u32 comp);

/* A whole report file, for kvfree(); null was counted as a violation. */
char *soak_read_report(const char *name);
void soak_write_filter(const char *text);

/* The number that follows a text in a report, or -1. */
int soak_number_in_report(const char *name, const char *text);

/* Registers the function that the module's reports go to. */
void soak_register_reports(void);
void soak_check_reports(void);

/*
 * Each file's part: set up and take down run in the main thread, alone; the
 * check at the end looks at what the actors left.
 */
int soak_mem_set_up(void);
void soak_mem_take_down(void);
void soak_mem_step(struct soak_actor *actor);
void soak_mem_in_interrupt(unsigned int index);

int soak_locks_set_up(void);
void soak_locks_take_down(void);
void soak_mutex_step(struct soak_actor *actor);
void soak_sem_give_step(struct soak_actor *actor);
void soak_sem_take_step(struct soak_actor *actor);
void soak_event_set_step(struct soak_actor *actor);
void soak_event_wait_step(struct soak_actor *actor);

int soak_queue_set_up(void);
void soak_queue_take_down(void);
void soak_send_step(struct soak_actor *actor);
void soak_receive_step(struct soak_actor *actor);

int soak_timer_set_up(void);
void soak_timer_take_down(void);
void soak_timer_step(struct soak_actor *actor);

int soak_thread_set_up(void);
void soak_thread_take_down(void);
void soak_thread_step(struct soak_actor *actor);
void soak_waker_step(struct soak_actor *actor);
void soak_waiter_step(struct soak_actor *actor);
void soak_release_waiters(void);
void soak_wake_in_interrupt(void);

int soak_churn_set_up(void);
void soak_churn_take_down(void);
void soak_churn_step(struct soak_actor *actor);
void soak_netevent_step(struct soak_actor *actor);
void soak_reader_step(struct soak_actor *actor);

#endif
