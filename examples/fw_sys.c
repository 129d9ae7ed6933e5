// SPDX-License-Identifier: GPL-2.0
/*
 * System services: the flash, into which only one may write at a time, the
 * counter of operating hours, and a watch over the clock that measures how late
 * a high-resolution timer is. Under /sys/module/fw_sys/parameters:
 *
 *	echo busy >flash	as if the flash were erasing a block
 *	echo free >flash	it is done
 *	cat hours		hours in operation
 *	cat clock		what the watch has seen
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/kernel.h>
#include <linux/module.h>
#include <linux/moduleparam.h>
#include <linux/string.h>

#include <zorva/zorva.h>

#include "fw_sys.h"

#define HOUR_SECS 3600u
#define HOURS_PRIORITY 255
#define WATCH_MSECS 20u

/* The lock of the module's parameters guards both. */
static bool running;
static bool erasing;

/* The flash. */

static zorva_sem_t *flash;

zorva_sem_t *fw_flash(void)
{
	return flash;
}
EXPORT_SYMBOL_GPL(fw_flash);

/* A semaphore has no owner: whoever writes the parameter may give. */
static int set_flash(const char *text, const struct kernel_param *param)
{
	if (!running)
		return -ENODEV;
	if (sysfs_streq(text, "busy")) {
		if (zorva_sem_take(ZORVA_COMP_CFG, flash, ZORVA_NO_WAIT))
			return -EBUSY;
		erasing = true;
		return 0;
	}
	if (!sysfs_streq(text, "free") || !erasing)
		return -EINVAL;
	erasing = false;
	zorva_sem_give(ZORVA_COMP_CFG, flash);
	return 0;
}

static const struct kernel_param_ops flash_ops = { .set = set_flash };
module_param_cb(flash, &flash_ops, NULL, 0200);
MODULE_PARM_DESC(flash, "busy or free");

/* The operating hours. */

static u32 hours_thread;
static zorva_atomic_t hours;

/* Never returns: zorva_thread_destroy() ends it in its sleep. */
static void count_hours(void *unused)
{
	for (;;) {
		zorva_time_sleep(HOUR_SECS);
		zorva_atomic_inc(&hours);
	}
}

static int get_hours(char *text, const struct kernel_param *param)
{
	return sprintf(text, "%d\n", zorva_atomic_read(&hours));
}

static const struct kernel_param_ops hours_ops = { .get = get_hours };
module_param_cb(hours, &hours_ops, NULL, 0444);
MODULE_PARM_DESC(hours, "hours in operation since the module was loaded");

/*
 * The watch over the clock. Its callback, a hard interrupt, writes the figures;
 * who reads them may see those of two expiries.
 */

static u32 watch_timer;
static bool watch_ends;
static u32 watch_due;
static u32 watch_expiries;
static u32 watch_worst;

static void watch_start(void)
{
	watch_due = zorva_time_usecs_ret() + WATCH_MSECS * 1000u;
	zorva_hrt_timer_start(ZORVA_COMP_TIME, &watch_timer, WATCH_MSECS);
}

/* A timer runs once for each start: this one starts itself again. */
static void watch_expired(unsigned long unused)
{
	const u32 late = zorva_time_usecs_ret() - watch_due;

	watch_expiries++;
	watch_worst = max(watch_worst, late);
	if (!READ_ONCE(watch_ends))
		watch_start();
}

static int get_clock(char *text, const struct kernel_param *param)
{
	return sprintf(text, "%u expiries, at most %u us late\n",
		       watch_expiries, watch_worst);
}

static const struct kernel_param_ops clock_ops = { .get = get_clock };
module_param_cb(clock, &clock_ops, NULL, 0444);
MODULE_PARM_DESC(clock, "how late the high-resolution timer was");

/* Load and unload. */

/*
 * A timer cannot be deleted: its ID and its record stay with zorva for good, so
 * each load of this module leaves one. What the module owes is that the
 * callback does not run once its code is gone. The flag comes first: an expiry
 * between the two would start the timer again.
 */
static void watch_stop(void)
{
	WRITE_ONCE(watch_ends, true);
	zorva_hrt_timer_stop(ZORVA_COMP_TIME, &watch_timer);
}

static int __init fw_sys_init(void)
{
	flash = zorva_sem_create(ZORVA_COMP_CFG, "flash", 1);
	if (!flash)
		return -ENOMEM;
	hours_thread = zorva_thread_create(ZORVA_COMP_SYS, "op-hours", 0,
					   HOURS_PRIORITY, count_hours, NULL);
	if (!hours_thread)
		goto no_thread;
	if (zorva_hrt_timer_init(ZORVA_COMP_TIME, &watch_timer, watch_expired,
				 0))
		goto no_timer;
	watch_start();

	kernel_param_lock(THIS_MODULE);
	running = true;
	kernel_param_unlock(THIS_MODULE);
	return 0;

no_timer:
	zorva_thread_destroy(ZORVA_COMP_SYS, hours_thread);
	zorva_thread_wait(hours_thread);
no_thread:
	zorva_sem_destroy(ZORVA_COMP_CFG, flash);
	return -ENOMEM;
}
module_init(fw_sys_init);

static void __exit fw_sys_exit(void)
{
	kernel_param_lock(THIS_MODULE);
	running = false;
	kernel_param_unlock(THIS_MODULE);

	watch_stop();
	zorva_thread_destroy(ZORVA_COMP_SYS, hours_thread);
	zorva_thread_wait(hours_thread);
	zorva_sem_destroy(ZORVA_COMP_CFG, flash);
}
module_exit(fw_sys_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Example firmware: flash, operating hours, clock");
