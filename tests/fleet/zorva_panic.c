// SPDX-License-Identifier: GPL-2.0
/* The end of a switch: loading this makes the kernel panic. */
#include <linux/kernel.h>
#include <linux/module.h>

static int __init panic_init(void)
{
	panic("on purpose");
}
module_init(panic_init);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("makes the kernel panic");
