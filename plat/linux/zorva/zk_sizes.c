// SPDX-License-Identifier: GPL-2.0
/*
 * The kernel's sizes and constants, for C++ sources that cannot include its
 * headers. Compiled to assembly, from which Kbuild makes zk_sizes.h.
 */
#include <linux/gfp.h>
#include <linux/kbuild.h>
#include <linux/spinlock.h>
#include <linux/timekeeping.h>

#define STRUCTURE(name, type)                                                  \
	DEFINE(ZK_SIZEOF_##name, sizeof(type));                                \
	DEFINE(ZK_ALIGNOF_##name, __alignof__(type))

int main(void)
{
	DEFINE(ZK_GFP_ATOMIC, (__force unsigned int)GFP_ATOMIC);
	DEFINE(ZK_GFP_KERNEL, (__force unsigned int)GFP_KERNEL);
	DEFINE(ZK_GFP_ZERO, (__force unsigned int)__GFP_ZERO);
	DEFINE(ZK_TK_OFFS_BOOT, TK_OFFS_BOOT);
	DEFINE(ZK_PAGE_SIZE, PAGE_SIZE);
	STRUCTURE(SPINLOCK, spinlock_t);
	return 0;
}
