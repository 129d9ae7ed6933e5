// SPDX-License-Identifier: GPL-2.0
/*
 * Power over Ethernet: the kernel's side of fw_poe_cxx.cpp. Under
 * /sys/module/fw_poe/parameters:
 *
 *	echo "3 15400" >ask	port 3 asks for 15.4 W; 0 gives back what it has
 *	cat granted		milliwatts that all ports have
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/kernel.h>
#include <linux/module.h>
#include <linux/moduleparam.h>

#include <zorva/zorva.h>

#include "fw_poe.h"

static u32 budget = 60000;
module_param(budget, uint, 0444);
MODULE_PARM_DESC(budget, "what there is for all ports, in milliwatts");

/* The lock of the module's parameters guards it. */
static bool running;

void fw_poe_refused(u32 port, u32 milliwatts)
{
	pr_warn("port %u: no %u mW left\n", port, milliwatts);
}

void fw_poe_wait_for(u32 pid)
{
	zorva_thread_wait(pid);
}

static int set_ask(const char *text, const struct kernel_param *param)
{
	u32 port;
	u32 milliwatts;

	if (!running)
		return -ENODEV;
	if (sscanf(text, "%u %u", &port, &milliwatts) != 2)
		return -EINVAL;
	return fw_poe_ask(port, milliwatts) ? 0 : -EINVAL;
}

static int get_granted(char *text, const struct kernel_param *param)
{
	return sprintf(text, "%u\n", running ? fw_poe_granted() : 0);
}

static const struct kernel_param_ops ask_ops = { .set = set_ask };
module_param_cb(ask, &ask_ops, NULL, 0200);
MODULE_PARM_DESC(ask, "a port asks for power: its number and milliwatts");

static const struct kernel_param_ops granted_ops = { .get = get_granted };
module_param_cb(granted, &granted_ops, NULL, 0444);
MODULE_PARM_DESC(granted, "milliwatts that all ports have");

static void set_running(bool now)
{
	kernel_param_lock(THIS_MODULE);
	running = now;
	kernel_param_unlock(THIS_MODULE);
}

static int __init fw_poe_init(void)
{
	if (!fw_poe_start(budget))
		return -ENOMEM;
	set_running(true);
	return 0;
}
module_init(fw_poe_init);

static void __exit fw_poe_exit(void)
{
	set_running(false);
	fw_poe_stop();
}
module_exit(fw_poe_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Example firmware: power over Ethernet, in C++");
