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
#include <linux/delay.h>
#include <linux/fs.h>
#include <linux/hrtimer.h>
#include <linux/kernel.h>
#include <linux/kthread.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/sched.h>
#include <linux/semaphore.h>
#include <linux/seq_file.h>
#include <linux/slab.h>
#include <linux/timer.h>
#include <linux/uaccess.h>
#include <linux/vmalloc.h>
#include <linux/wait.h>

#include <zorva/zorva.h>

#include <asm/mipsregs.h>

#define BATCHES 12
#define ROUNDS 250
#define OWNER ZORVA_COMP_DIAG

/* What the records of a block cost besides the caller's bytes. */
#define BLOCK_OVERHEAD 56

static bool only_kernel;
module_param(only_kernel, bool, 0);
MODULE_PARM_DESC(only_kernel, "end after the rows of the heap");

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

static void print_row(const char *name, u32 ours, u32 kernels)
{
	pr_info("bench: %s %u %u\n", name, ours, kernels);
}

/* The instructions of one round of a statement. */
#define MEASURE(statement)                                                     \
	({                                                                     \
		u32 best_ = ~0u, batch_, round_;                               \
                                                                               \
		for (batch_ = 0; batch_ < BATCHES; ++batch_) {                 \
			u32 before_ = read_c0_count();                         \
                                                                               \
			for (round_ = 0; round_ < ROUNDS; ++round_) {          \
				statement;                                     \
			}                                                      \
			best_ = min(best_, read_c0_count() - before_);         \
		}                                                              \
		instructions(best_, ROUNDS) - loop_instructions;               \
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

	if (!live)
		return;
	for (i = 0; i < LIVE_BLOCKS; ++i)
		live[i] = zorva_malloc(OWNER, 16);
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
	ours = MEASURE({
		zorva_mutex_take(OWNER, mutex);
		zorva_mutex_give(OWNER, mutex);
	});
	kernels = MEASURE({
		mutex_lock(&bare_mutex);
		mutex_unlock(&bare_mutex);
	});
	print_row("mutex_take_give", ours, kernels);

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

static void bench_messages(void)
{
	zorva_msg_queue_t *queue =
		zorva_msg_queue_create(OWNER, "bench", 8, 64);
	zorva_event_t *event = zorva_event_create(OWNER, "bench");
	const u32 set[2] = { 1, 0 };
	char msg[64] = "";
	u32 got[2];

	print_row("send_receive_64", MEASURE({
			  zorva_msg_queue_send(OWNER, queue, msg, sizeof(msg),
					       ZORVA_WAIT_FOREVER);
			  zorva_msg_queue_receive(OWNER, queue, msg,
						  sizeof(msg),
						  ZORVA_WAIT_FOREVER);
		  }),
		  0);
	print_row("event_set_wait", MEASURE({
			  zorva_event_set(OWNER, event, set);
			  zorva_event_wait(OWNER, event, got,
					   ZORVA_WAIT_FOREVER);
		  }),
		  0);
	zorva_msg_queue_delete(OWNER, queue);
	zorva_event_destroy(OWNER, event);
}

struct pair {
	zorva_msg_queue_t *there, *back;
	struct semaphore bare_there, bare_back, done;
	zorva_mutex_t *mutex;
	u32 rounds;
};

static void echo_messages(void *argument)
{
	struct pair *pair = argument;
	char msg[64];
	u32 i;

	for (i = 0; i < pair->rounds; ++i) {
		zorva_msg_queue_receive(OWNER, pair->there, msg, sizeof(msg),
					ZORVA_WAIT_FOREVER);
		zorva_msg_queue_send(OWNER, pair->back, msg, sizeof(msg),
				     ZORVA_WAIT_FOREVER);
	}
	up(&pair->done);
}

static void echo_bare(void *argument)
{
	struct pair *pair = argument;
	u32 i;

	for (i = 0; i < pair->rounds; ++i) {
		down(&pair->bare_there);
		up(&pair->bare_back);
	}
	up(&pair->done);
}

static void bench_ping_pong(void)
{
	struct pair pair = { .rounds = BATCHES * ROUNDS };
	char msg[64] = "";
	u32 ours, kernels;

	pair.there = zorva_msg_queue_create(OWNER, "there", 1, 64);
	pair.back = zorva_msg_queue_create(OWNER, "back", 1, 64);
	sema_init(&pair.bare_there, 0);
	sema_init(&pair.bare_back, 0);
	sema_init(&pair.done, 0);

	zorva_thread_create(OWNER, "echo", 0, 128, echo_messages, &pair);
	ours = MEASURE({
		zorva_msg_queue_send(OWNER, pair.there, msg, sizeof(msg),
				     ZORVA_WAIT_FOREVER);
		zorva_msg_queue_receive(OWNER, pair.back, msg, sizeof(msg),
					ZORVA_WAIT_FOREVER);
	});
	down(&pair.done);
	zorva_thread_create(OWNER, "echo", 0, 128, echo_bare, &pair);
	kernels = MEASURE({
		up(&pair.bare_there);
		down(&pair.bare_back);
	});
	down(&pair.done);
	print_row("queue_ping_pong", ours, kernels);
	zorva_msg_queue_delete(OWNER, pair.there);
	zorva_msg_queue_delete(OWNER, pair.back);
}

/* Takes the mutex by turns with the measuring thread, which yields to it. */
static void hand_over(void *argument)
{
	struct pair *pair = argument;
	u32 i;

	for (i = 0; i < pair->rounds; ++i) {
		zorva_mutex_take(OWNER, pair->mutex);
		yield();
		zorva_mutex_give(OWNER, pair->mutex);
		yield();
	}
	up(&pair->done);
}

static void bench_hand_over(void)
{
	struct pair pair = { .rounds = BATCHES * ROUNDS };
	u32 ours;

	pair.mutex = zorva_mutex_create(OWNER, "hand-over");
	sema_init(&pair.done, 0);
	zorva_thread_create(OWNER, "taker", 0, 128, hand_over, &pair);
	ours = MEASURE({
		zorva_mutex_take(OWNER, pair.mutex);
		yield();
		zorva_mutex_give(OWNER, pair.mutex);
		yield();
	});
	down(&pair.done);
	print_row("mutex_contended_hand_over", ours, 0);
	zorva_mutex_destroy(OWNER, pair.mutex);
}

static void bench_small(void)
{
	u32 id, secs;

	zorva_wait_module_create(OWNER, &id);
	print_row("wake_wait", MEASURE({
			  zorva_wake_up(OWNER, id);
			  zorva_wait_event(OWNER, id);
		  }),
		  0);
	zorva_wait_module_destroy(OWNER, id);
	print_row("uptime_secs", MEASURE(zorva_uptime_secs_get(&secs)),
		  MEASURE(({
			  volatile time64_t now = ktime_get_seconds();

			  (void)now;
		  })));
}

/*
 * The longest time that interrupts stay off: a timer that should fire all the
 * time tells how late it was at worst.
 */
#define PROBE_NSECS 5000

static struct hrtimer probe;
static u32 probe_last, probe_worst;

static enum hrtimer_restart probe_fires(struct hrtimer *timer)
{
	const u32 now = read_c0_count();

	probe_worst = max(probe_worst, now - probe_last);
	probe_last = now;
	hrtimer_forward_now(timer, ns_to_ktime(PROBE_NSECS));
	return HRTIMER_RESTART;
}

static void probe_start(void)
{
	hrtimer_init(&probe, CLOCK_MONOTONIC, HRTIMER_MODE_REL);
	probe.function = probe_fires;
	probe_worst = 0;
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

/* Reads a report to its end as a program does. */
static int read_report(const char *path)
{
	struct file *file = filp_open(path, O_RDONLY, 0);
	mm_segment_t before;
	ssize_t got;

	if (IS_ERR(file))
		return PTR_ERR(file);
	before = get_fs();
	set_fs(KERNEL_DS);
	do
		got = file->f_op->read(file, (char __user *)report_text,
				       sizeof(report_text), &file->f_pos);
	while (got > 0);
	set_fs(before);
	filp_close(file, NULL);
	return got;
}

static void bench_report(const char *name, const char *path)
{
	char row[64];
	u32 before, whole, worst;

	before = read_c0_count();
	if (read_report(path))
		pr_err("bench: cannot read %s\n", path);
	whole = instructions(read_c0_count() - before, 1);

	probe_start();
	read_report(path);
	worst = probe_stop();

	snprintf(row, sizeof(row), "report_%s", name);
	print_row(row, whole, 0);
	snprintf(row, sizeof(row), "irqs_off_%s", name);
	print_row(row, worst, 0);
}

#define OBJECTS 1000

static void bench_reports(void)
{
	static zorva_mutex_t *mutexes[OBJECTS];
	static zorva_sem_t *sems[OBJECTS];
	static void *blocks[LIVE_BLOCKS];
	static zorva_msg_queue_t *queues[OBJECTS];
	u32 i;

	bench_report("nothing", "/proc/zorva/zorva.msgq");
	for (i = 0; i < LIVE_BLOCKS; ++i)
		blocks[i] = zorva_malloc(1 + i % 8, 16);
	bench_report("mem_4096", "/proc/zorva/zorva.mem");
	bench_report("mem_detail_4096", "/proc/zorva/zorva.mem.detail");
	for (i = 0; i < LIVE_BLOCKS; ++i)
		zorva_free(OWNER, blocks[i]);

	for (i = 0; i < OBJECTS; ++i) {
		mutexes[i] = zorva_mutex_create(OWNER, "bench");
		zorva_mutex_take(OWNER, mutexes[i]);
		sems[i] = zorva_sem_create(OWNER, "bench", 1);
		zorva_sem_take(OWNER, sems[i], ZORVA_NO_WAIT);
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

	for (i = 0; i < OBJECTS; ++i)
		queues[i] = zorva_msg_queue_create(OWNER, "bench", 1, 4);
	bench_report("msgq_1000", "/proc/zorva/zorva.msgq");
	for (i = 0; i < OBJECTS; ++i)
		zorva_msg_queue_delete(OWNER, queues[i]);

	bench_report("thread", "/proc/zorva/zorva.thread");
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
	return MEASURE({
		zorva_timer_start(OWNER, &id, 60000);
		zorva_timer_stop(OWNER, &id);
	});
}

static u32 bench_hrt_timer(u32 id)
{
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
		del_timer(&bare);
	});
	hrtimer_init(&bare_hrt, CLOCK_MONOTONIC, HRTIMER_MODE_REL);
	bare_hrt.function = no_hrtimer;
	kernels_hrt = MEASURE({
		hrtimer_start_range_ns(&bare_hrt, 60000000000ull, 0,
				       HRTIMER_MODE_REL);
		hrtimer_cancel(&bare_hrt);
	});

	zorva_timer_init(OWNER, &first, no_callback, 0);
	print_row("timer_start_stop_1", bench_tick_timer(first), kernels);
	for (i = 1; i < 1000; ++i)
		zorva_timer_init(OWNER, &id, no_callback, i);
	print_row("timer_start_stop_1000", bench_tick_timer(id), kernels);

	zorva_hrt_timer_init(OWNER, &hrt_first, no_callback, 0);
	print_row("hrt_start_stop_1", bench_hrt_timer(hrt_first), kernels_hrt);
	for (i = 1; i < 64; ++i)
		zorva_hrt_timer_init(OWNER, &id, no_callback, i);
	print_row("hrt_start_stop_64", bench_hrt_timer(id), kernels_hrt);

	bench_report("timer_1000", "/proc/zorva/zorva.timer");
	bench_report("hrt_64", "/proc/zorva/zorva.hrt");
}

static int __init zorva_bench_init(void)
{
	/* The 64-bit nanoseconds of a young machine fit 32 bits. */
	while (ktime_get_ns() < 5000000000ull)
		msleep(100);

	calibrate();
	loop_instructions = MEASURE(barrier());
	pr_info("bench: counts_per_million %u 0\n", counts_per_million);
	pr_info("bench: loop %u 0\n", loop_instructions);
	bench_memory(64, "malloc_free_64");
	bench_memory(1024, "malloc_free_1024");
	if (only_kernel)
		return 0;
	bench_memory_live();
	bench_locks();
	bench_hand_over();
	bench_messages();
	bench_ping_pong();
	bench_small();
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
