// SPDX-License-Identifier: GPL-2.0
/*
 * What a debugger has to know of the kernel, as debug information: a switch's
 * vmlinux seldom has its own. Compiled with the kernel's headers and its
 * configuration; nothing of it is ever loaded.
 */
#include <linux/list.h>
#include <linux/mm.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/sched.h>
#include <linux/semaphore.h>
#include <linux/timekeeper_internal.h>
#include <linux/version.h>

struct module *zorva_gdb_module;
struct task_struct *zorva_gdb_task_struct;
struct mutex *zorva_gdb_mutex;
struct semaphore *zorva_gdb_semaphore;
struct list_head *zorva_gdb_list_head;
struct timekeeper *zorva_gdb_timekeeper;

/* kernel/time/timekeeping.c keeps this to itself. */
struct zorva_gdb_tk_core {
	seqcount_raw_spinlock_t seq;
	struct timekeeper timekeeper;
} ____cacheline_aligned;
struct zorva_gdb_tk_core *zorva_gdb_tk_core;

enum zorva_gdb_constants {
	zorva_gdb_version = LINUX_VERSION_CODE,
#if defined(CONFIG_MIPS) && defined(CONFIG_32BIT) && !defined(CONFIG_HIGHMEM)
	/* Modules lie in memory that only the kernel's page table leads to. */
	zorva_gdb_pgdir_shift = PGDIR_SHIFT,
	zorva_gdb_page_shift = PAGE_SHIFT,
	zorva_gdb_pfn_shift = _PFN_SHIFT,
	zorva_gdb_page_present = _PAGE_PRESENT,
	zorva_gdb_pte_size = sizeof(pte_t),
#endif
};
enum zorva_gdb_constants zorva_gdb_constants;

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("types for zorva-gdb.py; not to be loaded");
