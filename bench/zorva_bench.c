// SPDX-License-Identifier: GPL-2.0
/*
 * Counts the instructions of each call on the emulated board, beside those of
 * the kernel's bare primitive for the same job.
 *
 * The emulator lets the processor's counter run by instructions executed; a
 * loop of known length tells how many there are to a count. What is measured
 * runs in batches, and the cheapest batch counts: that is the one in which no
 * clock tick fell.
 */
#include <linux/completion.h>
#include <linux/delay.h>
#include <linux/kernel.h>
#include <linux/kthread.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/sched.h>
#include <linux/semaphore.h>
#include <linux/seq_file.h>
#include <linux/slab.h>
#include <linux/vmalloc.h>
#include <linux/wait.h>

#include <zorva/zorva.h>

#include <asm/mipsregs.h>

#include "zorva_kernel.h"

#define BATCHES 12
#define ROUNDS 250
#define OWNER ZORVA_COMP_DIAG

/* What the records of a block cost besides the caller's bytes. */
#define BLOCK_OVERHEAD 56

static bool only_kernel;
module_param(only_kernel, bool, 0);
MODULE_PARM_DESC(only_kernel, "end after the rows of the heap");
static bool only_longest;
module_param(only_longest, bool, 0);
MODULE_PARM_DESC(only_longest, "do once what holds a spin lock the longest");

static u32 counts_per_million;

/* What a round of nothing takes: the loop itself. */
static u32 loop_instructions;

static noinline void million_instructions(void)
{
	unsigned long n = 500000;

	asm volatile("	.set push\n"
		     "	.set noreorder\n"
		     "1:	bnez %0, 1b\n"
		     "	addiu %0, %0, -1\n"
		     "	.set pop\n"
		     : "+r"(n));
}

static void calibrate(void)
{
	unsigned int i;

	counts_per_million = ~0u;
	for (i = 0; i < BATCHES; ++i) {
		u32 before = read_c0_count();
		u32 counts;

		million_instructions();
		counts = read_c0_count() - before;
		counts_per_million = min(counts_per_million, counts);
	}
}

static u32 instructions(u32 counts, u32 rounds)
{
	return div64_u64((u64)counts * 1000000 + counts_per_million / 2,
			 (u64)counts_per_million * rounds);
}

/* A call that fails is cheap: what has to hold for the figures to count. */
#define EXPECT(condition)                                                      \
	do {                                                                   \
		if (!(condition))                                              \
			pr_err("bench: error: line %d: not %s\n", __LINE__,    \
			       #condition);                                    \
	} while (0)

static void print_row(const char *name, u32 ours, u32 kernels)
{
	pr_info("bench: %s %u %u\n", name, ours, kernels);
}

/* The instructions of one round of a statement. */
#define MEASURE(statement) MEASURE_ROUNDS(ROUNDS, statement)

/* A batch has to be shorter than a clock tick. */
#define MEASURE_ROUNDS(rounds, statement)                                      \
	({                                                                     \
		u32 best_ = ~0u, batch_, round_;                               \
                                                                               \
		for (batch_ = 0; batch_ < BATCHES; ++batch_) {                 \
			u32 before_ = read_c0_count();                         \
                                                                               \
			for (round_ = 0; round_ < (rounds); ++round_) {        \
				statement;                                     \
			}                                                      \
			best_ = min(best_, read_c0_count() - before_);         \
		}                                                              \
		instructions(best_, rounds) - loop_instructions;               \
	})

static void bench_memory(u32 size, const char *name)
{
	u32 ours, kernels;

	ours = MEASURE({
		void *block = zorva_malloc(OWNER, size);

		zorva_free(OWNER, block);
	});
	kernels = MEASURE({
		void *block = kzalloc(size + BLOCK_OVERHEAD, GFP_ATOMIC);

		barrier();
		kfree(block);
	});
	print_row(name, ours, kernels);
}

#define LIVE_BLOCKS 4096

static void bench_memory_live(void)
{
	void **live = vmalloc(LIVE_BLOCKS * sizeof(*live));
	u32 i;

	EXPECT(live);
	if (!live)
		return;
	for (i = 0; i < LIVE_BLOCKS; ++i) {
		live[i] = zorva_malloc(OWNER, 16);
		EXPECT(live[i]);
	}
	bench_memory(64, "malloc_free_64_live_4096");
	bench_memory(1024, "malloc_free_1024_live_4096");
	for (i = 0; i < LIVE_BLOCKS; ++i)
		zorva_free(OWNER, live[i]);
	vfree(live);
}

static void bench_locks(void)
{
	static DEFINE_MUTEX(bare_mutex);
	static struct semaphore bare_sem;
	zorva_mutex_t *mutex = zorva_mutex_create(OWNER, "bench");
	zorva_sem_t *sem = zorva_sem_create(OWNER, "bench", 1);
	u32 ours, kernels;

	sema_init(&bare_sem, 1);
	EXPECT(zorva_mutex_take(OWNER, mutex) == ZORVA_RC_OK);
	EXPECT(zorva_mutex_is_locked(OWNER, mutex));
	EXPECT(zorva_mutex_give(OWNER, mutex) == ZORVA_RC_OK);
	ours = MEASURE({
		zorva_mutex_take(OWNER, mutex);
		zorva_mutex_give(OWNER, mutex);
	});
	kernels = MEASURE({
		mutex_lock(&bare_mutex);
		mutex_unlock(&bare_mutex);
	});
	print_row("mutex_take_give", ours, kernels);

	EXPECT(zorva_sem_take(OWNER, sem, ZORVA_NO_WAIT) == ZORVA_RC_OK);
	EXPECT(zorva_sem_give(OWNER, sem) == ZORVA_RC_OK);
	ours = MEASURE({
		zorva_sem_take(OWNER, sem, ZORVA_WAIT_FOREVER);
		zorva_sem_give(OWNER, sem);
	});
	kernels = MEASURE({
		down(&bare_sem);
		up(&bare_sem);
	});
	print_row("sem_take_give", ours, kernels);
	zorva_mutex_destroy(OWNER, mutex);
	zorva_sem_destroy(OWNER, sem);
}

/*
 * A lock handed from the measuring thread to one that already waits for it.
 * The taker is a real-time thread: whenever it can run, cond_resched() lets it
 * run until it waits again.
 */
struct hand_over {
	struct task_struct *taker;
	struct semaphore go, ready;
	void (*take)(struct hand_over *hand_over);
	void (*give)(struct hand_over *hand_over);
	zorva_mutex_t *mutex;
	zorva_sem_t *sem;
	struct mutex bare_mutex;
	struct semaphore bare_sem;
	bool is_mutex;
	bool is_asking; /* the taker is inside the take */
	u32 taken;	/* by the taker */
	u32 rounds, faults;
};

static void take_mutex(struct hand_over *hand_over)
{
	zorva_mutex_take(OWNER, hand_over->mutex);
}

static void give_mutex(struct hand_over *hand_over)
{
	zorva_mutex_give(OWNER, hand_over->mutex);
}

static void take_bare_mutex(struct hand_over *hand_over)
{
	mutex_lock(&hand_over->bare_mutex);
}

static void give_bare_mutex(struct hand_over *hand_over)
{
	mutex_unlock(&hand_over->bare_mutex);
}

static void take_sem(struct hand_over *hand_over)
{
	zorva_sem_take(OWNER, hand_over->sem, ZORVA_WAIT_FOREVER);
}

static void give_sem(struct hand_over *hand_over)
{
	zorva_sem_give(OWNER, hand_over->sem);
}

static void take_bare_sem(struct hand_over *hand_over)
{
	down(&hand_over->bare_sem);
}

static void give_bare_sem(struct hand_over *hand_over)
{
	up(&hand_over->bare_sem);
}

static int taker(void *argument)
{
	struct hand_over *hand_over = argument;
	u32 i;

	sched_set_fifo(current);
	up(&hand_over->ready);
	for (i = 0; i < BATCHES * ROUNDS; ++i) {
		/* A semaphore's unit is used up; a mutex is given back. */
		if (hand_over->is_mutex)
			down(&hand_over->go);
		WRITE_ONCE(hand_over->is_asking, true);
		hand_over->take(hand_over);
		WRITE_ONCE(hand_over->is_asking, false);
		++hand_over->taken;
		if (hand_over->is_mutex)
			hand_over->give(hand_over);
	}
	up(&hand_over->ready);
	return 0;
}

/* Gives what the taker waits for, and sees to it that it did. */
static void give_to_taker(struct hand_over *hand_over)
{
	if (!READ_ONCE(hand_over->is_asking) ||
	    zt_task_state(hand_over->taker) != TASK_UNINTERRUPTIBLE)
		++hand_over->faults;
	hand_over->give(hand_over);
	cond_resched();
	if (READ_ONCE(hand_over->taken) != ++hand_over->rounds)
		++hand_over->faults;
}

static u32 measure_hand_over(struct hand_over *hand_over)
{
	u32 result;

	sema_init(&hand_over->go, 0);
	sema_init(&hand_over->ready, 0);
	hand_over->taken = 0;
	hand_over->rounds = 0;
	hand_over->taker = kthread_create(taker, hand_over, "taker");
	EXPECT(!IS_ERR(hand_over->taker));
	if (IS_ERR(hand_over->taker))
		return 0;
	/* It is looked at until it has ended. */
	get_task_struct(hand_over->taker);
	wake_up_process(hand_over->taker);
	down(&hand_over->ready);
	cond_resched();
	if (hand_over->is_mutex)
		result = MEASURE({
			hand_over->take(hand_over);
			up(&hand_over->go);
			cond_resched();
			give_to_taker(hand_over);
		});
	else
		result = MEASURE(give_to_taker(hand_over));
	down(&hand_over->ready);
	put_task_struct(hand_over->taker);
	return result;
}

static void bench_hand_overs(void)
{
	static struct hand_over hand_over;
	u32 ours, kernels;

	hand_over.is_mutex = true;
	hand_over.mutex = zorva_mutex_create(OWNER, "hand-over");
	mutex_init(&hand_over.bare_mutex);
	hand_over.take = take_mutex;
	hand_over.give = give_mutex;
	ours = measure_hand_over(&hand_over);
	hand_over.take = take_bare_mutex;
	hand_over.give = give_bare_mutex;
	kernels = measure_hand_over(&hand_over);
	EXPECT(hand_over.faults == 0);
	print_row("mutex_hand_over", ours, kernels);
	zorva_mutex_destroy(OWNER, hand_over.mutex);

	hand_over.is_mutex = false;
	hand_over.sem = zorva_sem_create(OWNER, "hand-over", 0);
	sema_init(&hand_over.bare_sem, 0);
	hand_over.take = take_sem;
	hand_over.give = give_sem;
	ours = measure_hand_over(&hand_over);
	hand_over.take = take_bare_sem;
	hand_over.give = give_bare_sem;
	kernels = measure_hand_over(&hand_over);
	EXPECT(hand_over.faults == 0);
	print_row("sem_hand_over", ours, kernels);
	zorva_sem_destroy(OWNER, hand_over.sem);
}

#define MSG_SIZE 64

/* What a queue is made of: a buffer, two counts and a lock. */
struct bare_queue {
	struct semaphore slots, messages;
	struct mutex lock;
	char buffer[MSG_SIZE];
};

static void init_bare(struct bare_queue *queue)
{
	sema_init(&queue->slots, 1);
	sema_init(&queue->messages, 0);
	mutex_init(&queue->lock);
}

/* A length that the compiler does not know, as with any queue. */
static noinline void send_bare(struct bare_queue *queue, const void *msg,
			       u32 length)
{
	down(&queue->slots);
	mutex_lock(&queue->lock);
	memcpy(queue->buffer, msg, length);
	mutex_unlock(&queue->lock);
	up(&queue->messages);
}

static noinline void receive_bare(struct bare_queue *queue, void *msg,
				  u32 length)
{
	down(&queue->messages);
	mutex_lock(&queue->lock);
	memcpy(msg, queue->buffer, length);
	mutex_unlock(&queue->lock);
	up(&queue->slots);
}

static void bench_messages(void)
{
	zorva_msg_queue_t *queue =
		zorva_msg_queue_create(OWNER, "bench", 8, MSG_SIZE);
	static struct bare_queue bare;
	char msg[MSG_SIZE] = "";
	u32 length = MSG_SIZE;
	u32 ours, kernels;

	init_bare(&bare);
	OPTIMIZER_HIDE_VAR(length);
	EXPECT(zorva_msg_queue_send(OWNER, queue, msg, length, ZORVA_NO_WAIT) ==
	       ZORVA_RC_OK);
	EXPECT(zorva_msg_queue_receive(OWNER, queue, msg, length,
				       ZORVA_NO_WAIT) == ZORVA_RC_OK);
	ours = MEASURE({
		zorva_msg_queue_send(OWNER, queue, msg, length,
				     ZORVA_WAIT_FOREVER);
		zorva_msg_queue_receive(OWNER, queue, msg, length,
					ZORVA_WAIT_FOREVER);
	});
	kernels = MEASURE({
		send_bare(&bare, msg, length);
		receive_bare(&bare, msg, length);
	});
	print_row("send_receive_64", ours, kernels);
	zorva_msg_queue_delete(OWNER, queue);
}

static void bench_events(void)
{
	zorva_event_t *event = zorva_event_create(OWNER, "bench");
	const u32 set[2] = { 1, 0 };
	struct completion bare;
	u32 ours, kernels, got[2];

	init_completion(&bare);
	ours = MEASURE({
		zorva_event_set(OWNER, event, set);
		zorva_event_wait(OWNER, event, got, ZORVA_WAIT_FOREVER);
	});
	EXPECT(got[0] == 1);
	kernels = MEASURE({
		complete(&bare);
		wait_for_completion(&bare);
	});
	print_row("event_set_wait", ours, kernels);
	zorva_event_destroy(OWNER, event);
}

struct pair {
	zorva_msg_queue_t *there, *back;
	struct bare_queue bare_there, bare_back;
	struct semaphore done;
	u32 length;
};

static void echo_messages(void *argument)
{
	struct pair *pair = argument;
	char msg[MSG_SIZE];
	u32 i;

	for (i = 0; i < BATCHES * ROUNDS; ++i) {
		zorva_msg_queue_receive(OWNER, pair->there, msg, pair->length,
					ZORVA_WAIT_FOREVER);
		zorva_msg_queue_send(OWNER, pair->back, msg, pair->length,
				     ZORVA_WAIT_FOREVER);
	}
	up(&pair->done);
}

static void echo_bare(void *argument)
{
	struct pair *pair = argument;
	char msg[MSG_SIZE];
	u32 i;

	for (i = 0; i < BATCHES * ROUNDS; ++i) {
		receive_bare(&pair->bare_there, msg, pair->length);
		send_bare(&pair->bare_back, msg, pair->length);
	}
	up(&pair->done);
}

static void bench_ping_pong(void)
{
	static struct pair pair = { .length = MSG_SIZE };
	char msg[MSG_SIZE] = "";
	u32 ours, kernels;

	pair.there = zorva_msg_queue_create(OWNER, "there", 1, MSG_SIZE);
	pair.back = zorva_msg_queue_create(OWNER, "back", 1, MSG_SIZE);
	init_bare(&pair.bare_there);
	init_bare(&pair.bare_back);
	sema_init(&pair.done, 0);

	EXPECT(zorva_thread_create(OWNER, "echo", 0, 128, echo_messages,
				   &pair));
	ours = MEASURE({
		zorva_msg_queue_send(OWNER, pair.there, msg, pair.length,
				     ZORVA_WAIT_FOREVER);
		zorva_msg_queue_receive(OWNER, pair.back, msg, pair.length,
					ZORVA_WAIT_FOREVER);
	});
	down(&pair.done);
	EXPECT(zorva_thread_create(OWNER, "echo", 0, 128, echo_bare, &pair));
	kernels = MEASURE({
		send_bare(&pair.bare_there, msg, pair.length);
		receive_bare(&pair.bare_back, msg, pair.length);
	});
	down(&pair.done);
	print_row("queue_ping_pong", ours, kernels);
	zorva_msg_queue_delete(OWNER, pair.there);
	zorva_msg_queue_delete(OWNER, pair.back);
}

static void bench_wake_ups(void)
{
	DECLARE_WAIT_QUEUE_HEAD_ONSTACK(queue);
	u32 ours, kernels, id;
	bool woken;

	EXPECT(zorva_wait_module_create(OWNER, &id) == ZORVA_RC_OK);
	ours = MEASURE({
		zorva_wake_up(OWNER, id);
		zorva_wait_event(OWNER, id);
	});
	EXPECT(zorva_wake_up(OWNER, id) == ZORVA_RC_OK);
	EXPECT(zorva_wait_event(OWNER, id) == ZORVA_RC_OK);
	kernels = MEASURE({
		WRITE_ONCE(woken, true);
		wake_up_interruptible(&queue);
		wait_event_interruptible(queue, READ_ONCE(woken));
		WRITE_ONCE(woken, false);
	});
	print_row("wake_wait", ours, kernels);
	zorva_wait_module_destroy(OWNER, id);
}

static void bench_clocks(void)
{
	struct timespec64 now;
	u32 ours, kernels, secs;
	volatile u32 result;

	EXPECT(zorva_uptime_secs_get(&secs) == ZORVA_RC_OK);
	EXPECT((u32)ktime_get_boottime_seconds() - secs <= 1);
	ours = MEASURE(zorva_uptime_secs_get(&secs));
	kernels = MEASURE(result = ktime_get_boottime_seconds());
	print_row("uptime_secs", ours, kernels);

	ours = MEASURE(result = zorva_time_usecs_ret());
	kernels = MEASURE(ktime_get_ts64(&now));
	print_row("time_usecs", ours, kernels);
}

static void bench_atomics(void)
{
	atomic_t counter = ATOMIC_INIT(0);
	volatile s32 result;
	u32 ours, kernels;

	ours = MEASURE(result = zorva_atomic_add_return(1, &counter));
	EXPECT(atomic_read(&counter) == BATCHES * ROUNDS);
	kernels = MEASURE(result = atomic_add_return_relaxed(1, &counter));
	EXPECT(atomic_read(&counter) == 2 * BATCHES * ROUNDS);
	print_row("atomic_add_return", ours, kernels);
}

#define THREAD_ROUNDS 40

static void say_done(void *argument)
{
	up(argument);
}

static int say_done_bare(void *argument)
{
	up(argument);
	return 0;
}

/* Threads that run to their end before the next one is made. */
static void bench_threads(void)
{
	struct semaphore done;
	u32 ours, kernels, failed = 0;

	sema_init(&done, 0);
	ours = MEASURE_ROUNDS(THREAD_ROUNDS, {
		if (zorva_thread_create(OWNER, "bench", 0, 128, say_done,
					&done))
			down(&done);
		else
			++failed;
	});
	kernels = MEASURE_ROUNDS(THREAD_ROUNDS, {
		if (!IS_ERR(kthread_run(say_done_bare, &done, "bench")))
			down(&done);
		else
			++failed;
	});
	EXPECT(failed == 0);
	print_row("thread_create_exit", ours, kernels);
}

/*
 * The longest time that interrupts stay off: a timer that should fire all the
 * time tells how late it was at worst.
 */
#define PROBE_NSECS 5000

static struct hrtimer probe;
static u32 probe_last, probe_worst, probe_firings;

static enum hrtimer_restart probe_fires(struct hrtimer *timer)
{
	const u32 now = read_c0_count();

	probe_worst = max(probe_worst, now - probe_last);
	probe_last = now;
	++probe_firings;
	hrtimer_forward_now(timer, ns_to_ktime(PROBE_NSECS));
	return HRTIMER_RESTART;
}

static void probe_start(void)
{
	hrtimer_setup(&probe, probe_fires, CLOCK_MONOTONIC, HRTIMER_MODE_REL);
	probe_worst = 0;
	probe_firings = 0;
	probe_last = read_c0_count();
	hrtimer_start(&probe, ns_to_ktime(PROBE_NSECS), HRTIMER_MODE_REL);
}

/* The instructions between two firings at worst. */
static u32 probe_stop(void)
{
	hrtimer_cancel(&probe);
	return instructions(probe_worst, 1);
}

static char report_text[4096];
static struct zt_files files;

/*
 * Reads a report to its end as a program does. Without a report it is as long
 * about nothing, through several clock ticks: what the board itself does.
 */
static int read_report(const char *path)
{
	struct file *file;
	ssize_t got;
	u32 i;

	if (!path) {
		for (i = 0; i < 25; ++i)
			million_instructions();
		return 0;
	}
	file = zt_open(&files, path, O_RDONLY);
	if (IS_ERR(file))
		return PTR_ERR(file);
	got = zt_read_away(&files, file, report_text, sizeof(report_text));
	filp_close(file, NULL);
	return got;
}

/*
 * A short report is read until the probe has seen enough of it. A clock tick
 * that falls into the longest stretch of one time does so in another place the
 * next time.
 */
static u32 irqs_off(const char *path)
{
	u32 best = ~0u, i;

	for (i = 0; i < 3; ++i) {
		probe_start();
		do
			read_report(path);
		while (READ_ONCE(probe_firings) < 20);
		best = min(best, probe_stop());
	}
	return best;
}

/*
 * How long others wait for a report: a real-time thread is woken all the time
 * while it is read, and takes and gives a mutex and a semaphore then. Nobody
 * else uses these; what it may have to wait for is the processor, and what
 * takes and gives of all objects have in common. Counted from the interrupt
 * that wakes it to the end of the second take.
 */
#define WAITER_NSECS 50000

static struct waiter {
	struct hrtimer timer;
	struct task_struct *thread;
	zorva_mutex_t *mutex;
	zorva_sem_t *sem;
	u32 woken_at, worst, rounds;
	bool expired, stop;
} waiter;

static enum hrtimer_restart wake_waiter(struct hrtimer *timer)
{
	waiter.woken_at = read_c0_count();
	WRITE_ONCE(waiter.expired, true);
	wake_up_process(waiter.thread);
	return HRTIMER_NORESTART;
}

static int take_when_woken(void *unused)
{
	u32 wait;

	sched_set_fifo(current);
	for (;;) {
		set_current_state(TASK_UNINTERRUPTIBLE);
		WRITE_ONCE(waiter.expired, false);
		hrtimer_start(&waiter.timer, ns_to_ktime(WAITER_NSECS),
			      HRTIMER_MODE_REL);
		while (!READ_ONCE(waiter.expired)) {
			schedule();
			set_current_state(TASK_UNINTERRUPTIBLE);
		}
		__set_current_state(TASK_RUNNING);
		if (READ_ONCE(waiter.stop))
			break;
		zorva_mutex_take(OWNER, waiter.mutex);
		zorva_sem_take(OWNER, waiter.sem, ZORVA_WAIT_FOREVER);
		wait = read_c0_count() - waiter.woken_at;
		zorva_sem_give(OWNER, waiter.sem);
		zorva_mutex_give(OWNER, waiter.mutex);
		waiter.worst = max(waiter.worst, wait);
		++waiter.rounds;
	}
	return 0;
}

static u32 take_waits(const char *path)
{
	waiter.worst = 0;
	waiter.rounds = 0;
	waiter.stop = false;
	waiter.mutex = zorva_mutex_create(OWNER, "waiter");
	waiter.sem = zorva_sem_create(OWNER, "waiter", 1);
	hrtimer_init(&waiter.timer, CLOCK_MONOTONIC, HRTIMER_MODE_REL);
	waiter.timer.function = wake_waiter;
	waiter.thread = kthread_create(take_when_woken, NULL, "waiter");
	EXPECT(!IS_ERR(waiter.thread));
	if (IS_ERR(waiter.thread))
		return 0;
	get_task_struct(waiter.thread);
	wake_up_process(waiter.thread);
	msleep(20);
	do {
		EXPECT(read_report(path) == 0);
		cond_resched();
	} while (READ_ONCE(waiter.rounds) < 20);
	WRITE_ONCE(waiter.stop, true);
	kthread_stop(waiter.thread);
	put_task_struct(waiter.thread);
	zorva_mutex_destroy(OWNER, waiter.mutex);
	zorva_sem_destroy(OWNER, waiter.sem);
	return instructions(waiter.worst, 1);
}

static void bench_report(const char *name, const char *path)
{
	char row[64];
	u32 before, whole;

	before = read_c0_count();
	EXPECT(read_report(path) == 0);
	whole = instructions(read_c0_count() - before, 1);

	snprintf(row, sizeof(row), "report_%s", name);
	print_row(row, whole, 0);
	snprintf(row, sizeof(row), "irqs_off_%s", name);
	print_row(row, irqs_off(path), 0);
	if (!path)
		return;
	snprintf(row, sizeof(row), "take_waits_%s", name);
	print_row(row, take_waits(path), 0);
}

#define OBJECTS 1000
#define THREADS 500

static void wait_for_end(void *argument)
{
	down(argument);
}

static void bench_thread_report(void)
{
	static struct semaphore end;
	u32 i;

	sema_init(&end, 0);
	for (i = 0; i < THREADS; ++i)
		EXPECT(zorva_thread_create(OWNER, "bench", 0, 128, wait_for_end,
					   &end));
	bench_report("thread_500", "/proc/zorva/zorva.thread");
	for (i = 0; i < THREADS; ++i)
		up(&end);
	/* They end here, and not in what is measured next. */
	msleep(500);
}

static void bench_reports(void)
{
	static zorva_mutex_t *mutexes[OBJECTS];
	static zorva_sem_t *sems[OBJECTS];
	static void *blocks[LIVE_BLOCKS];
	static zorva_msg_queue_t *queues[OBJECTS];
	u32 i;

	bench_report("none", NULL);
	bench_report("msgq_0", "/proc/zorva/zorva.msgq");
	for (i = 0; i < LIVE_BLOCKS; ++i) {
		blocks[i] = zorva_malloc(1 + i % 8, 16);
		EXPECT(blocks[i]);
	}
	bench_report("mem_4096", "/proc/zorva/zorva.mem");
	bench_report("mem_detail_4096", "/proc/zorva/zorva.mem.detail");
	for (i = 0; i < LIVE_BLOCKS; ++i)
		zorva_free(OWNER, blocks[i]);

	for (i = 0; i < OBJECTS; ++i) {
		mutexes[i] = zorva_mutex_create(OWNER, "bench");
		EXPECT(zorva_mutex_take(OWNER, mutexes[i]) == ZORVA_RC_OK);
		sems[i] = zorva_sem_create(OWNER, "bench", 1);
		EXPECT(zorva_sem_take(OWNER, sems[i], ZORVA_NO_WAIT) ==
		       ZORVA_RC_OK);
	}
	bench_report("mutex_1000", "/proc/zorva/zorva.mutex");
	bench_report("mutex_detail_1000", "/proc/zorva/zorva.mutex.detail");
	bench_report("sem_1000", "/proc/zorva/zorva.sem");
	bench_report("sem_detail_1000", "/proc/zorva/zorva.sem.detail");
	for (i = 0; i < OBJECTS; ++i) {
		zorva_mutex_give(OWNER, mutexes[i]);
		zorva_mutex_destroy(OWNER, mutexes[i]);
		zorva_sem_destroy(OWNER, sems[i]);
	}

	for (i = 0; i < OBJECTS; ++i) {
		queues[i] = zorva_msg_queue_create(OWNER, "bench", 1, 4);
		EXPECT(queues[i]);
	}
	bench_report("msgq_1000", "/proc/zorva/zorva.msgq");
	for (i = 0; i < OBJECTS; ++i)
		zorva_msg_queue_delete(OWNER, queues[i]);

	bench_thread_report();
}

static void no_callback(unsigned long data)
{
}

static void no_timer(struct timer_list *timer)
{
}

static enum hrtimer_restart no_hrtimer(struct hrtimer *timer)
{
	return HRTIMER_NORESTART;
}

static u32 bench_tick_timer(u32 id)
{
	EXPECT(zorva_timer_start(OWNER, &id, 60000) == ZORVA_RC_OK);
	EXPECT(zorva_timer_stop(OWNER, &id) == ZORVA_RC_OK);
	return MEASURE({
		zorva_timer_start(OWNER, &id, 60000);
		zorva_timer_stop(OWNER, &id);
	});
}

static u32 bench_hrt_timer(u32 id)
{
	EXPECT(zorva_hrt_timer_start(OWNER, &id, 60000) == ZORVA_RC_OK);
	EXPECT(zorva_hrt_timer_stop(OWNER, &id) == ZORVA_RC_OK);
	return MEASURE({
		zorva_hrt_timer_start(OWNER, &id, 60000);
		zorva_hrt_timer_stop(OWNER, &id);
	});
}

static void bench_timers(void)
{
	static struct timer_list bare;
	static struct hrtimer bare_hrt;
	u32 kernels, kernels_hrt, first, hrt_first, id, i;

	timer_setup(&bare, no_timer, 0);
	kernels = MEASURE({
		bare.expires = jiffies + 6000;
		add_timer(&bare);
		timer_delete(&bare);
	});
	hrtimer_setup(&bare_hrt, no_hrtimer, CLOCK_MONOTONIC, HRTIMER_MODE_REL);
	kernels_hrt = MEASURE({
		hrtimer_start_range_ns(&bare_hrt, 60000000000ull, 0,
				       HRTIMER_MODE_REL);
		hrtimer_cancel(&bare_hrt);
	});

	zorva_timer_init(OWNER, &first, no_callback, 0);
	print_row("timer_start_stop_1", bench_tick_timer(first), kernels);
	for (i = 1; i < 1000; ++i)
		EXPECT(zorva_timer_init(OWNER, &id, no_callback, i) ==
		       ZORVA_RC_OK);
	print_row("timer_start_stop_1000", bench_tick_timer(id), kernels);

	zorva_hrt_timer_init(OWNER, &hrt_first, no_callback, 0);
	print_row("hrt_start_stop_1", bench_hrt_timer(hrt_first), kernels_hrt);
	for (i = 1; i < 64; ++i)
		EXPECT(zorva_hrt_timer_init(OWNER, &id, no_callback, i) ==
		       ZORVA_RC_OK);
	print_row("hrt_start_stop_64", bench_hrt_timer(id), kernels_hrt);

	bench_report("timer_1000", "/proc/zorva/zorva.timer");
	bench_report("hrt_64", "/proc/zorva/zorva.hrt");
}

/* For a kernel that measures by itself how long nobody is let in. */
static void do_longest(void)
{
	static void *blocks[LIVE_BLOCKS];
	u32 id, i;

	for (i = 0; i < LIVE_BLOCKS; ++i) {
		blocks[i] = zorva_malloc(1 + i % 8, 16);
		EXPECT(blocks[i]);
	}
	EXPECT(read_report("/proc/zorva/zorva.mem.detail") == 0);
	for (i = 0; i < LIVE_BLOCKS; ++i)
		zorva_free(OWNER, blocks[i]);
	for (i = 0; i < 1000; ++i)
		EXPECT(zorva_timer_init(OWNER, &id, no_callback, i) ==
		       ZORVA_RC_OK);
	EXPECT(read_report("/proc/zorva/zorva.timer") == 0);
}

static int __init zorva_bench_init(void)
{
	const int error = zt_files_init(&files);

	if (error)
		return error;
	if (only_longest) {
		do_longest();
		return 0;
	}
	/* The 64-bit nanoseconds of a young machine fit 32 bits. */
	while (ktime_get_ns() < 5000000000ull)
		msleep(100);

	calibrate();
	loop_instructions = MEASURE(barrier());
	print_row("counts_per_million", counts_per_million, 0);
	print_row("loop", loop_instructions, 0);
	bench_memory(64, "malloc_free_64");
	bench_memory(1024, "malloc_free_1024");
	if (only_kernel)
		return 0;
	bench_memory_live();
	bench_locks();
	bench_hand_overs();
	bench_messages();
	bench_events();
	bench_ping_pong();
	bench_wake_ups();
	bench_clocks();
	bench_atomics();
	bench_threads();
	bench_reports();
	/* Last: timers are never deleted, and would stand in the reports. */
	bench_timers();
	return 0;
}

static void __exit zorva_bench_exit(void)
{
}

module_init(zorva_bench_init);
module_exit(zorva_bench_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Instruction counts of the ZORVA module");
