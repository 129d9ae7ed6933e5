// SPDX-License-Identifier: GPL-2.0
/*
 * Removes the directory that zorva leaves behind when it is unloaded, so that
 * it can be loaded again. Loading this does it; it never stays loaded.
 */
#include <linux/module.h>
#include <linux/proc_fs.h>

static int __init sweep_init(void)
{
	remove_proc_subtree("zorva", NULL);
	return -EAGAIN;
}

module_init(sweep_init);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Removes the directory of ZORVA");
