// SPDX-License-Identifier: GPL-2.0
/*
 * Deliberate faults, for trying out what zorva makes of them. Under
 * /sys/module/fw_fault/parameters:
 *
 *	echo overrun >fault	writes one byte too many into a block, and keeps
 *				it
 *	echo release >fault	frees that block
 *	echo double-free >fault	frees a block twice
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/if_ether.h>
#include <linux/kernel.h>
#include <linux/module.h>
#include <linux/moduleparam.h>
#include <linux/string.h>

#include <zorva/zorva.h>

#define LABEL_SIZE 16u

/* The lock of the module's parameters guards it. */
static char *torn_label;

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

static int set_fault(const char *text, const struct kernel_param *param)
{
	if (sysfs_streq(text, "overrun"))
		return fault_overrun();
	if (sysfs_streq(text, "double-free"))
		return fault_double_free();
	if (!sysfs_streq(text, "release"))
		return -EINVAL;
	fault_release();
	return 0;
}

static const struct kernel_param_ops fault_ops = { .set = set_fault };
module_param_cb(fault, &fault_ops, NULL, 0200);
MODULE_PARM_DESC(fault, "overrun, release or double-free");

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
