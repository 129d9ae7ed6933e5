// SPDX-License-Identifier: GPL-2.0
/*
 * A switch at rest, for the debugger to read: something for each report, and
 * nothing that changes by itself. Writing "stop" to the parameter dumps the
 * stack, where the debugger waits; "panic" makes the kernel panic.
 */
#include <linux/kernel.h>
#include <linux/module.h>
#include <linux/moduleparam.h>
#include <linux/semaphore.h>

#include <zorva/zorva.h>

#define OWNER ZORVA_COMP_PORT
#define OTHER ZORVA_COMP_VLAN
#define HOUR_MSECS 3600000u
#define QUEUE_DEPTH 4u

static zorva_mutex_t *held;
static zorva_sem_t *empty;
static struct semaphore started;

static void on_time(unsigned long data)
{
}

/* Holds a mutex for ever, and waits for ever. */
static void hold(void *argument)
{
	zorva_mutex_take(OWNER, held);
	up(&started);
	zorva_sem_take(OWNER, empty, ZORVA_WAIT_FOREVER);
}

/* Waits for the mutex that the other holds. */
static void want(void *argument)
{
	up(&started);
	zorva_mutex_take(OTHER, held);
}

static void make_locks(void)
{
	zorva_mutex_t *mutex = zorva_mutex_create(OTHER, NULL);
	zorva_sem_t *sem = zorva_sem_create(OWNER, "units", 3);
	unsigned int i;

	held = zorva_mutex_create(OWNER, "held");
	empty = zorva_sem_create(OWNER, "empty", 0);
	zorva_mutex_create(OWNER, "never used");
	/* More than a history remembers. */
	for (i = 0; i < 6; ++i) {
		zorva_mutex_take(OTHER, mutex);
		zorva_mutex_give(OTHER, mutex);
	}
	zorva_sem_take(OWNER, sem, 250);
	zorva_sem_take(OWNER, sem, 0xFFFFFFF0u);
	zorva_sem_give(OWNER, sem);
}

static void make_queues(void)
{
	zorva_msg_queue_t *full =
		zorva_msg_queue_create(OTHER, "full", QUEUE_DEPTH, 10);
	char text[10] = "message";
	unsigned int i;

	zorva_msg_queue_create(OWNER, NULL, 2, 4);
	for (i = 0; i < QUEUE_DEPTH; ++i)
		zorva_msg_queue_send(OTHER, full, text, sizeof(text),
				     ZORVA_NO_WAIT);
}

static void make_timers(void)
{
	u32 ids[4];

	zorva_timer_init(OWNER, &ids[0], on_time, 7);
	zorva_timer_init(OTHER, &ids[1], on_time, 0xFFFFFFFFu);
	zorva_timer_start(OWNER, &ids[0], HOUR_MSECS);
	zorva_hrt_timer_init(OWNER, &ids[2], on_time, 1);
	zorva_hrt_timer_init(OWNER, &ids[3], on_time, 2);
	zorva_hrt_timer_start(OWNER, &ids[3], HOUR_MSECS);
}

/*
 * A torn guard, a torn start mark, a torn size, and whole blocks of two owners.
 * Of a torn block the report shows what is at four times its rounded size. The
 * sizes keep that within the block's memory, where nobody else writes.
 */
static void make_blocks(void)
{
	char *guard = zorva_malloc(OWNER, 10);
	u32 *start = zorva_malloc(OTHER, 4);
	u32 *sized = zorva_malloc(OTHER, 64);
	unsigned int i;

	for (i = 1; i < 40; ++i)
		zorva_malloc(i % 3 ? OWNER : OTHER, i);
	guard[12] = 1;
	start[-13] = 1;
	for (i = 0; i < 64 / sizeof(*sized); ++i)
		sized[i] = 0x5A5A0000 + i;
	sized[-12] = 12;
}

static int end_set(const char *text, const struct kernel_param *kp)
{
	if (sysfs_streq(text, "panic"))
		panic("on purpose");
	dump_stack();
	return 0;
}

static const struct kernel_param_ops end_ops = {
	.set = end_set,
};
module_param_cb(end, &end_ops, NULL, 0200);

static int __init dead_init(void)
{
	sema_init(&started, 0);
	make_locks();
	make_queues();
	make_timers();
	make_blocks();
	zorva_thread_create(OWNER, "holder", 0, 128, hold, NULL);
	down(&started);
	zorva_thread_create(OTHER, NULL, 0, 30, want, NULL);
	down(&started);
	return 0;
}
module_init(dead_init);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("a switch at rest, for the debugger");
