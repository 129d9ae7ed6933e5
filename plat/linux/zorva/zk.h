/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The kernel as the C++ sources see it.
 *
 * The kernel's headers are not C++, so nothing but this header stands between
 * the two. Functions of the kernel are restated under their own names; what
 * the kernel has only as a macro, an inline function or a structure's member
 * is a function of zk.c with the prefix zk_. Structures that a record embeds
 * are opaque storage, of the size that zk_sizes.h takes from the kernel's own
 * headers.
 *
 * zk.c includes the kernel's headers and then this one, so the C compiler
 * compares every prototype here with the kernel's. A name in parentheses keeps
 * a macro of that name, which some architectures have, from being expanded.
 */
#ifndef ZORVA_ZK_H
#define ZORVA_ZK_H

#include "zk_sizes.h"

#ifdef __cplusplus

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "zorva/types.h"

#define likely(x) __builtin_expect(!!(x), 1)
#define unlikely(x) __builtin_expect(!!(x), 0)

#define ZK_OPAQUE(name, size, alignment)                                       \
	struct name {                                                          \
		alignas(alignment) unsigned char storage[size];                \
	}

extern "C" {

using gfp_t = unsigned int;
using loff_t = long long;
using ssize_t = ptrdiff_t;
using umode_t = unsigned short;
using ktime_t = s64;

inline constexpr gfp_t GFP_ATOMIC = ZK_GFP_ATOMIC;
inline constexpr gfp_t GFP_KERNEL = ZK_GFP_KERNEL;
inline constexpr gfp_t __GFP_ZERO = ZK_GFP_ZERO;
inline constexpr int EPERM = 1;
inline constexpr int ENOMEM = 12;
inline constexpr int EFAULT = 14;

/* Takes and gives away the log's continuation, as KERN_CONT does. */
#define KERN_CONT "\001c"

enum tk_offsets {
	TK_OFFS_REAL = 0,
	TK_OFFS_BOOT = ZK_TK_OFFS_BOOT,
};

ZK_OPAQUE(spinlock, ZK_SIZEOF_SPINLOCK, ZK_ALIGNOF_SPINLOCK);
using spinlock_t = struct spinlock;

#endif /* __cplusplus */

struct file;
struct inode;
struct proc_dir_entry;
struct proc_ops;
struct seq_file;

/* Text and memory. */
int(snprintf)(char *buf, size_t size, const char *fmt, ...)
	__attribute__((format(printf, 3, 4)));
int(vsnprintf)(char *buf, size_t size, const char *fmt, va_list args);
void *(memset)(void *s, int c, size_t count);
size_t(strlen)(const char *s);
int(strcmp)(const char *a, const char *b);
int zk_iscntrl(int c);

/* The kernel log. */
int(printk)(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
int(vprintk)(const char *fmt, va_list args);
void(dump_stack)(void);

/* The heap. */
void *(__kmalloc)(size_t size, gfp_t flags);
void(kfree)(const void *block);

/*
 * Reads a word that may lie in nobody's memory: unwatched by the sanitizers,
 * and 0 where nothing can be read.
 */
u32 zk_peek(const void *address);

/* Locks. Those with static initialisers, which are macros, live in zk.c. */
extern spinlock_t _mallocMemLck;
unsigned long zk_spin_lock_irqsave(spinlock_t *lock);
void zk_spin_unlock_irqrestore(spinlock_t *lock, unsigned long flags);

/* Clocks. */
ktime_t(ktime_get_coarse_with_offset)(enum tk_offsets offs);
ktime_t(ktime_get_with_offset)(enum tk_offsets offs);
void zk_ktime_get_ts64(s64 *secs, u32 *nsecs);

/* Proc and sequence files. */
struct proc_dir_entry *(proc_mkdir)(const char *name,
				    struct proc_dir_entry *parent);
struct proc_dir_entry *(proc_create)(const char *name, umode_t mode,
				     struct proc_dir_entry *parent,
				     const struct proc_ops *ops);
void(remove_proc_entry)(const char *name, struct proc_dir_entry *parent);
const struct proc_ops *zk_report_ops(unsigned int report);
int(single_open_size)(struct file *file,
		      int (*show)(struct seq_file *seq, void *unused),
		      void *data, size_t size);
int(single_release)(struct inode *inode, struct file *file);
void(seq_vprintf)(struct seq_file *seq, const char *fmt, va_list args);
struct seq_file *zk_seq_of(struct file *file);
void *zk_seq_private(struct seq_file *seq);
void zk_seq_set_private(struct seq_file *seq, void *data);
unsigned long zk_copy_from_user(void *to, const void *from,
				unsigned long count);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
