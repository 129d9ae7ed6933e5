// SPDX-License-Identifier: GPL-2.0
/*
 * Deliberate faults, for trying out what zorva makes of them. Under
 * /sys/module/fw_fault/parameters:
 *
 *	echo overrun >fault	writes one byte too many into a block, and keeps
 *				it
 *	echo release >fault	frees that block
 *	echo double-free >fault	frees a block twice
 *	echo leak >fault	forgets a block five times a second, from now on
 *	echo full-queue >fault	fills a queue that nobody reads
 *	echo deadlock >fault	makes two threads wait for each other
 *
 * What the last three do cannot be undone: the module then stays loaded until
 * the board restarts.
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/completion.h>
#include <linux/if_ether.h>
#include <linux/kernel.h>
#include <linux/module.h>
#include <linux/moduleparam.h>
#include <linux/string.h>

#include <zorva/zorva.h>

#define LABEL_SIZE 16u
#define LEAK_MSECS 200u
#define SAMPLE_SIZE 48u
#define TRAP_DEPTH 4u
#define TRAP_MSECS 100u
#define PRIORITY 128

/* The lock of the module's parameters guards these. */
static char *torn_label;
static u32 leak_timer;
static zorva_msg_queue_t *trap_queue;
static zorva_mutex_t *stp_lock;
static zorva_mutex_t *lag_lock;

/*
 * The classic one: room for the characters of a text, but not for its end.
 * The zero goes into the guard behind the block, and nobody notices yet.
 */
static int fault_overrun(void)
{
	static const char label[] = "Uplink to core 1";

	BUILD_BUG_ON(sizeof(label) != LABEL_SIZE + 1);
	if (torn_label)
		return -EBUSY;

	torn_label = zorva_malloc(ZORVA_COMP_VLAN, LABEL_SIZE);
	if (!torn_label)
		return -ENOMEM;
	memcpy(torn_label, label, sizeof(label));
	return 0;
}

/* The free finds the guard overwritten, says so, and frees the block. */
static void fault_release(void)
{
	zorva_free(ZORVA_COMP_VLAN, torn_label);
	torn_label = NULL;
}

/* The second free finds the mark of the first, and leaves the block alone. */
static int fault_double_free(void)
{
	u8 *const frame = zorva_malloc(ZORVA_COMP_FDB, ETH_ZLEN);

	if (!frame)
		return -ENOMEM;
	zorva_free(ZORVA_COMP_FDB, frame);
	zorva_free(ZORVA_COMP_FDB, frame);
	return 0;
}

/* For good: what a fault has left running needs the module's code. */
static void stay_loaded(void)
{
	__module_get(THIS_MODULE);
}

/* A sample of each port's counters, which nobody remembers. */
static void leak_sample(unsigned long unused)
{
	zorva_malloc(ZORVA_COMP_RMON, SAMPLE_SIZE);
	zorva_timer_start(ZORVA_COMP_RMON, &leak_timer, LEAK_MSECS);
}

static int fault_leak(void)
{
	if (leak_timer)
		return -EBUSY;
	if (zorva_timer_init(ZORVA_COMP_RMON, &leak_timer, leak_sample, 0))
		return -ENOMEM;
	stay_loaded();
	zorva_timer_start(ZORVA_COMP_RMON, &leak_timer, LEAK_MSECS);
	return 0;
}

/* Traps for a manager that was never started: the last one finds no room. */
static int fault_full_queue(void)
{
	u32 trap;

	if (trap_queue)
		return -EBUSY;
	trap_queue = zorva_msg_queue_create(ZORVA_COMP_SNMP, "snmp-trap",
					    TRAP_DEPTH, sizeof(trap));
	if (!trap_queue)
		return -ENOMEM;
	stay_loaded();
	for (trap = 0; trap <= TRAP_DEPTH; trap++)
		zorva_msg_queue_send(ZORVA_COMP_SNMP, trap_queue, &trap,
				     sizeof(trap), TRAP_MSECS);
	return 0;
}

/*
 * The classic one: two locks, taken in one order here and in the other order
 * there. Each thread waits until the other has its first, so that it always
 * goes wrong; in the field it takes years.
 */

static DECLARE_COMPLETION(stp_has_lock);
static DECLARE_COMPLETION(lag_has_lock);

static void stp_update(void *unused)
{
	zorva_mutex_take(ZORVA_COMP_STP, stp_lock);
	complete(&stp_has_lock);
	wait_for_completion(&lag_has_lock);
	zorva_mutex_take(ZORVA_COMP_STP, lag_lock);
	zorva_mutex_give(ZORVA_COMP_STP, lag_lock);
	zorva_mutex_give(ZORVA_COMP_STP, stp_lock);
}

static void lag_update(void *unused)
{
	zorva_mutex_take(ZORVA_COMP_LAG, lag_lock);
	complete(&lag_has_lock);
	wait_for_completion(&stp_has_lock);
	zorva_mutex_take(ZORVA_COMP_LAG, stp_lock);
	zorva_mutex_give(ZORVA_COMP_LAG, stp_lock);
	zorva_mutex_give(ZORVA_COMP_LAG, lag_lock);
}

static int fault_deadlock(void)
{
	if (stp_lock)
		return -EBUSY;
	stp_lock = zorva_mutex_create(ZORVA_COMP_STP, "stp");
	lag_lock = zorva_mutex_create(ZORVA_COMP_LAG, "lag");
	if (!stp_lock || !lag_lock)
		return -ENOMEM;
	stay_loaded();
	if (!zorva_thread_create(ZORVA_COMP_STP, "stp-update", 0, PRIORITY,
				 stp_update, NULL) ||
	    !zorva_thread_create(ZORVA_COMP_LAG, "lag-update", 0, PRIORITY,
				 lag_update, NULL))
		return -ENOMEM;
	return 0;
}

static int set_fault(const char *text, const struct kernel_param *param)
{
	if (sysfs_streq(text, "overrun"))
		return fault_overrun();
	if (sysfs_streq(text, "double-free"))
		return fault_double_free();
	if (sysfs_streq(text, "leak"))
		return fault_leak();
	if (sysfs_streq(text, "full-queue"))
		return fault_full_queue();
	if (sysfs_streq(text, "deadlock"))
		return fault_deadlock();
	if (!sysfs_streq(text, "release"))
		return -EINVAL;
	fault_release();
	return 0;
}

static const struct kernel_param_ops fault_ops = { .set = set_fault };
module_param_cb(fault, &fault_ops, NULL, 0200);
MODULE_PARM_DESC(fault,
		 "overrun, release, double-free, leak, full-queue or deadlock");

static int __init fw_fault_init(void)
{
	return 0;
}
module_init(fw_fault_init);

static void __exit fw_fault_exit(void)
{
	kernel_param_lock(THIS_MODULE);
	fault_release();
	kernel_param_unlock(THIS_MODULE);
}
module_exit(fw_fault_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Example firmware: deliberate faults");
