// SPDX-License-Identifier: GPL-2.0
/*
 * The one C file: it includes the kernel's headers and then the header that
 * restates them for C++, so every prototype there is checked here. It holds
 * what C++ cannot say: the kernel's macros and inline functions as functions,
 * objects with static initialisers, the operation tables, the exports and the
 * module's metadata.
 */
#include <linux/ctype.h>
#include <linux/export.h>
#include <linux/kernel.h>
#include <linux/module.h>
#include <linux/printk.h>
#include <linux/proc_fs.h>
#include <linux/sched.h>
#include <linux/seq_file.h>
#include <linux/slab.h>
#include <linux/spinlock.h>
#include <linux/string.h>
#include <linux/timekeeping.h>
#include <linux/uaccess.h>

#include "zk.h"
#include "zorva_reports.h"
#include "zorva/zorva.h"

int zk_iscntrl(int c)
{
	return iscntrl(c);
}

u32 zk_peek(const void *address)
{
	u32 word;

	if (copy_from_kernel_nofault(&word, address, sizeof(word)))
		return 0;
	return word;
}

DEFINE_SPINLOCK(_mallocMemLck);

unsigned long zk_spin_lock_irqsave(spinlock_t *lock)
{
	unsigned long flags;

	spin_lock_irqsave(lock, flags);
	return flags;
}

void zk_spin_unlock_irqrestore(spinlock_t *lock, unsigned long flags)
{
	spin_unlock_irqrestore(lock, flags);
}

void zk_ktime_get_ts64(s64 *secs, u32 *nsecs)
{
	struct timespec64 now;

	ktime_get_ts64(&now);
	*secs = now.tv_sec;
	*nsecs = now.tv_nsec;
}

#define REPORT_OPS(id, entry, dump, writer)                                    \
	{                                                                      \
		.proc_open = zorva_##id##_open,                                \
		.proc_read = seq_read,                                         \
		.proc_write = writer,                                          \
		.proc_lseek = seq_lseek,                                       \
		.proc_release = zorva_report_release,                          \
	},

static const struct proc_ops report_ops[] = { ZORVA_REPORTS(REPORT_OPS) };

const struct proc_ops *zk_report_ops(unsigned int report)
{
	return &report_ops[report];
}

struct seq_file *zk_seq_of(struct file *file)
{
	return file->private_data;
}

void *zk_seq_private(struct seq_file *seq)
{
	return seq->private;
}

void zk_seq_set_private(struct seq_file *seq, void *data)
{
	seq->private = data;
}

unsigned long zk_copy_from_user(void *to, const void *from, unsigned long count)
{
	return copy_from_user(to, (const void __user *)from, count);
}

EXPORT_SYMBOL(_componentName);
EXPORT_SYMBOL(zorva_debug_pr_fn_register);
EXPORT_SYMBOL(zorva_proc_printf);
EXPORT_SYMBOL(zorva_strlcpy);
EXPORT_SYMBOL(zorva_malloc_track);
EXPORT_SYMBOL(zorva_free_track);
EXPORT_SYMBOL(zorva_free_cleanup);
EXPORT_SYMBOL(zorva_mem_overhead_get);
EXPORT_SYMBOL(zorva_uptime_get);
EXPORT_SYMBOL(zorva_uptime_secs_get);
EXPORT_SYMBOL(zorva_uptime_ticks_get);
EXPORT_SYMBOL(zorva_time_usecs_ret);
EXPORT_SYMBOL(zorva_time_msecs_ret);
EXPORT_SYMBOL(zorva_time_secs_ret);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("ZORVA Module");
