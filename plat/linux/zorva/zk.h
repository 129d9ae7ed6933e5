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

/*
 * What changed after 5.10, whose names the sources use. Where zk.c has the
 * function instead, the comment says so; what changed within a function of
 * zk.c is said there.
 */
#define ZK_SINCE(major, minor)                                                 \
	(ZK_LINUX_VERSION >= ((major) << 16) + ((minor) << 8))

/* 5.15: printk() is a macro over _printk(). zk.c has the function. */

/* 5.16: usleep_range() is inline. */
#if ZK_SINCE(5, 16)
#define usleep_range zk_usleep_range
#endif

/* 5.18: what a kernel thread's flush_signals() leaves is of consequence. */
#if ZK_SINCE(5, 18)
#define flush_signals zk_flush_signals
#endif

/* 6.1: __wake_up() returns a number, and del_timer() has another name. */
#if ZK_SINCE(6, 1)
#define __wake_up zk_wake_up
#define del_timer timer_delete
#endif

/* 6.10: __kmalloc() is a macro. zk.c has the function. */

/* 6.13: a timer gets its function where it is initialised. */
#if ZK_SINCE(6, 13)
#define hrtimer_init zk_hrtimer_init
#endif

/* 6.15: __mutex_init() may be inline. */
#if ZK_SINCE(6, 15)
#define __mutex_init zk_mutex_init
#endif

/* 6.16: init_timer_key() has another name. */
#if ZK_SINCE(6, 16)
#define init_timer_key timer_init_key
#endif

#ifdef __cplusplus

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "zorva/types.h"

#define likely(x) __builtin_expect(!!(x), 1)
#define unlikely(x) __builtin_expect(!!(x), 0)

/*
 * Whether a kernel lets others come in between where a uniprocessor that
 * preempts no task lets nobody: other processors, or also just other tasks.
 * Its configuration says so, and what hangs on it leaves no code elsewhere.
 */
inline bool zk_is_smp()
{
	return ZK_SMP;
}

inline bool zk_interleaves()
{
	return ZK_SMP || ZK_PREEMPTION;
}

/*
 * A load and a store of what others may read or write at the same time, as the
 * kernel's READ_ONCE() and WRITE_ONCE(): one access, as it stands. Where nobody
 * comes in between they are plain ones, which the compiler places better.
 */
template <class T>
inline T read_once(const T &from)
{
	return zk_interleaves() ? *const_cast<const volatile T *>(&from) : from;
}

template <class T>
inline void write_once(T &to, T value)
{
	if (zk_interleaves())
		*const_cast<volatile T *>(&to) = value;
	else
		to = value;
}

/*
 * What is written before the first is seen by all who see what is written after
 * it, and have the second between their reading of the two. On a uniprocessor
 * only the compiler has to keep the order.
 */
inline void zk_smp_wmb()
{
	if (zk_is_smp())
		__atomic_thread_fence(__ATOMIC_RELEASE);
	else
		__asm__ inline volatile("" : : : "memory");
}

inline void zk_smp_rmb()
{
	if (zk_is_smp())
		__atomic_thread_fence(__ATOMIC_ACQUIRE);
	else
		__asm__ inline volatile("" : : : "memory");
}

/*
 * Who reads what was stored last sees all that was written before it, as with
 * the kernel's smp_load_acquire() and smp_store_release().
 */
template <class T>
inline T load_acquire(const T &from)
{
	if (zk_is_smp())
		return __atomic_load_n(&from, __ATOMIC_ACQUIRE);

	const T value = read_once(from);

	zk_smp_rmb();
	return value;
}

template <class T>
inline void store_release(T &to, T value)
{
	if (zk_is_smp()) {
		__atomic_store_n(&to, value, __ATOMIC_RELEASE);
		return;
	}
	zk_smp_wmb();
	write_once(to, value);
}

/*
 * A load of what may have been freed, or of where a damaged size points: the
 * look is meant, so a detector of the kernel's is not told of it.
 */
#if ZK_KASAN
/* Volatile, or the load would be made part of the callers all the same. */
template <class T>
[[gnu::noinline, gnu::no_sanitize_address]] T read_freed(const T &from)
{
	return *const_cast<const volatile T *>(&from);
}
#else
template <class T>
inline T read_freed(const T &from)
{
	return from;
}
#endif

/* The record around one of its members, which may lie at any address. */
#define container_of(pointer, type, member)                                    \
	(reinterpret_cast<type *>(reinterpret_cast<char *>(pointer) -          \
				  __builtin_offsetof(type, member)))

/* Tracked blocks are aligned to a word; nothing in them may expect more. */
#define ZK_OPAQUE(name, size, alignment)                                       \
	struct name {                                                          \
		alignas((alignment) > sizeof(long)                             \
				? sizeof(long)                                 \
				: (alignment)) unsigned char storage[size];    \
	}

/* Arguments on the stack, even where all others go in registers. */
#ifdef __i386__
#define asmlinkage __attribute__((regparm(0)))
#else
#define asmlinkage
#endif

extern "C" {

using gfp_t = unsigned int;
using loff_t = long long;
using ssize_t = ptrdiff_t;
using umode_t = unsigned short;
using ktime_t = s64;
using pid_t = int;
using clockid_t = int;
using __sighandler_t = void (*)(int);

inline constexpr gfp_t GFP_ATOMIC = ZK_GFP_ATOMIC;
inline constexpr gfp_t GFP_KERNEL = ZK_GFP_KERNEL;
inline constexpr gfp_t __GFP_ZERO = ZK_GFP_ZERO;
inline constexpr int EPERM = 1;
inline constexpr int ENOMEM = 12;
inline constexpr int EFAULT = 14;
inline constexpr int ETIME = 62;
inline constexpr int SIGKILL = 9;
inline constexpr int SIGTERM = 15;
inline constexpr int SCHED_RR = 2;
inline constexpr int TASK_INTERRUPTIBLE = ZK_TASK_INTERRUPTIBLE;
inline constexpr clockid_t CLOCK_MONOTONIC = 1;

/* The action that lets a signal through to a kernel thread. */
#define SIG_KTHREAD (reinterpret_cast<__sighandler_t>(2))

/* The prefix of a line that continues the log's last one. */
#define KERN_CONT "\001c"

enum tk_offsets {
	TK_OFFS_REAL = 0,
	TK_OFFS_BOOT = ZK_TK_OFFS_BOOT,
};
enum hrtimer_mode {
	HRTIMER_MODE_ABS = 0,
	HRTIMER_MODE_REL = ZK_HRTIMER_MODE_REL,
};
enum hrtimer_restart {
	HRTIMER_NORESTART,
	HRTIMER_RESTART,
};

ZK_OPAQUE(spinlock, ZK_SIZEOF_SPINLOCK, ZK_ALIGNOF_SPINLOCK);
using spinlock_t = struct spinlock;
ZK_OPAQUE(mutex, ZK_SIZEOF_MUTEX, ZK_ALIGNOF_MUTEX);
ZK_OPAQUE(semaphore, ZK_SIZEOF_SEMAPHORE, ZK_ALIGNOF_SEMAPHORE);
ZK_OPAQUE(list_head, ZK_SIZEOF_LIST_HEAD, ZK_ALIGNOF_LIST_HEAD);
ZK_OPAQUE(timer_list, ZK_SIZEOF_TIMER_LIST, ZK_ALIGNOF_TIMER_LIST);
ZK_OPAQUE(hrtimer, ZK_SIZEOF_HRTIMER, ZK_ALIGNOF_HRTIMER);
ZK_OPAQUE(wait_queue_head, ZK_SIZEOF_WAIT_QUEUE_HEAD,
	  ZK_ALIGNOF_WAIT_QUEUE_HEAD);
ZK_OPAQUE(wait_queue_entry, ZK_SIZEOF_WAIT_QUEUE_ENTRY,
	  ZK_ALIGNOF_WAIT_QUEUE_ENTRY);
ZK_OPAQUE(notifier_block, ZK_SIZEOF_NOTIFIER_BLOCK, ZK_ALIGNOF_NOTIFIER_BLOCK);
ZK_OPAQUE(lock_class_key, ZK_SIZEOF_LOCK_CLASS_KEY, ZK_ALIGNOF_LOCK_CLASS_KEY);

#endif /* __cplusplus */

/*
 * A function of the kernel's own. On MIPS it is too far away for a call, and
 * reached by its address in a register; the module's own functions, those of
 * zk.c among them, are near each other. A call that was left near shows in the
 * check after linking, and would keep the module from being loaded.
 */
#ifdef __mips__
#define ZK_FAR __attribute__((far))
#else
#define ZK_FAR
#endif

struct file;
struct inode;
struct pid;
struct proc_dir_entry;
struct proc_ops;
struct seq_file;
struct task_struct;

/* Text and memory. */
ZK_FAR int(snprintf)(char *buf, size_t size, const char *fmt, ...)
	__attribute__((format(printf, 3, 4)));
ZK_FAR int(vsnprintf)(char *buf, size_t size, const char *fmt, va_list args);
void *(memcpy)(void *to, const void *from, size_t count);
void *(memset)(void *s, int c, size_t count);
ZK_FAR size_t(strlen)(const char *s);
ZK_FAR int(strcmp)(const char *a, const char *b);
int zk_iscntrl(int c);

/*
 * The compiler calls these by itself, too, and then takes them for near, as
 * all it was told about; on MIPS they are the functions of zk.c therefore.
 */
void *zk_memcpy(void *to, const void *from, size_t count);
void *zk_memset(void *s, int c, size_t count);
#if defined(__mips__) && defined(__cplusplus)
__asm__(".set memcpy, zk_memcpy\n\t.set memset, zk_memset");
#endif

/* The kernel log. */
ZK_FAR asmlinkage int(printk)(const char *fmt, ...)
	__attribute__((format(printf, 1, 2)));
ZK_FAR asmlinkage int(vprintk)(const char *fmt, va_list args);
ZK_FAR asmlinkage void(dump_stack)(void);

/* The heap. */
ZK_FAR void *(__kmalloc)(size_t size, gfp_t flags);
ZK_FAR void(kfree)(const void *block);

/* Takes what may be large; sleeps, and fails without a complaint. */
void *zk_kvmalloc(size_t size);
ZK_FAR void(kvfree)(const void *block);

/*
 * Reads a word that may lie in nobody's memory: unwatched by the sanitizers,
 * and 0 where nothing can be read, and at addresses that are not mapped and
 * may be those of devices.
 */
u32 zk_peek(const void *address);

/* Locks. Those with static initialisers, which are macros, live in zk.c. */
extern spinlock_t _mallocMemLck;
extern spinlock_t _zorvaLockDbgLck;
extern spinlock_t _zorvaThreadLock;
extern spinlock_t _zorvaTimerLock;
extern spinlock_t _waitListLck;
extern struct mutex zorva_msgq_list_lock;
unsigned long zk_local_irq_save(void);
void zk_local_irq_restore(unsigned long flags);
unsigned long zk_spin_lock_irqsave(spinlock_t *lock);
void zk_spin_unlock_irqrestore(spinlock_t *lock, unsigned long flags);
ZK_FAR void(__mutex_init)(struct mutex *lock, const char *name,
			  struct lock_class_key *key);
void zk_mutex_lock(struct mutex *lock);
ZK_FAR void(mutex_unlock)(struct mutex *lock);
ZK_FAR bool(mutex_is_locked)(struct mutex *lock);
void zk_sema_init(struct semaphore *sem, u32 count);
u32 zk_sema_count(const struct semaphore *sem);
ZK_FAR void(down)(struct semaphore *sem);
ZK_FAR int(down_trylock)(struct semaphore *sem);
ZK_FAR int(down_timeout)(struct semaphore *sem, long jiffies);
ZK_FAR void(up)(struct semaphore *sem);

/* Lists. */
extern struct list_head kthread_list;
extern struct list_head zorva_msgq_list;
void zk_list_add(struct list_head *link, struct list_head *head);
void zk_list_del(struct list_head *link);
struct list_head *zk_list_next(const struct list_head *link);

/*
 * The same for links at any address, and for a list that has such links: no
 * access relies on an alignment.
 */
void zk_list_add_tail_unaligned(void *link, struct list_head *head);
void zk_list_del_unaligned(void *link);
void *zk_list_next_unaligned(const void *link);

/* Tasks. zk_in_interrupt() is true with bottom halves off, too. */
bool zk_in_interrupt(void);
struct task_struct *zk_current(void);
pid_t zk_current_pid(void);
bool zk_current_is_kthread(void);

/* Gives the calling task a command name, cut to what there is room for. */
void zk_set_comm(const char *name);
pid_t zk_task_pid_nr(const struct task_struct *task);
struct pid *zk_task_pid(struct task_struct *task);
long zk_task_state(const struct task_struct *task);
void zk_get_task_struct(struct task_struct *task);
void zk_put_task_struct(struct task_struct *task);

/*
 * Copies the command name of the task with that PID, as the calling task sees
 * PIDs. False when there is none; then nothing is copied.
 */
bool zk_comm_of_pid(pid_t pid, char comm[ZK_TASK_COMM_LEN]);
ZK_FAR struct task_struct *(kthread_create_on_node)(int (*fn)(void *data),
						    void *data, int node,
						    const char namefmt[], ...)
	__attribute__((format(printf, 4, 5)));
ZK_FAR int(wake_up_process)(struct task_struct *task);
ZK_FAR void(set_user_nice)(struct task_struct *task, long nice);

/* Refused with an error on a kernel that does not export its own. */
int zk_sched_setscheduler(struct task_struct *task, int policy, int priority);

/* Signals. */
ZK_FAR void(kernel_sigaction)(int signal, __sighandler_t action);
ZK_FAR int(kill_pid)(struct pid *pid, int signal, int privileged);
ZK_FAR void(flush_signals)(struct task_struct *task);
bool zk_signal_pending(void);
bool zk_fatal_signal_pending(void);

/* True when the signal waits for the task itself or for its whole group. */
bool zk_signal_is_pending(int signal);
void zk_complete_and_exit(long code) __attribute__((noreturn));

/* Timers. */
extern unsigned long volatile jiffies;
ZK_FAR unsigned long(__msecs_to_jiffies)(const unsigned int msecs);
ZK_FAR void(init_timer_key)(struct timer_list *timer,
			    void (*function)(struct timer_list *timer),
			    unsigned int flags, const char *name,
			    struct lock_class_key *key);

/* Starts a timer that expires when that many ticks are over. */
void zk_add_timer(struct timer_list *timer, unsigned long ticks);
ZK_FAR int(mod_timer)(struct timer_list *timer, unsigned long expires);
ZK_FAR int(del_timer)(struct timer_list *timer);
ZK_FAR void(hrtimer_init)(struct hrtimer *timer, clockid_t clock,
			  enum hrtimer_mode mode);
void zk_hrtimer_set_function(
	struct hrtimer *timer,
	enum hrtimer_restart (*function)(struct hrtimer *timer));
ZK_FAR void(hrtimer_start_range_ns)(struct hrtimer *timer, ktime_t expires,
				    u64 slack, const enum hrtimer_mode mode);
ZK_FAR int(hrtimer_cancel)(struct hrtimer *timer);

/*
 * Only for kernels with several processors. A timer is armed from its start
 * until the kernel takes it for expired, and runs from then on until its
 * function has returned.
 */
bool zk_timer_is_armed(const struct timer_list *timer);
bool zk_timer_runs(struct timer_list *timer); /* of one that is not armed */
bool zk_hrtimer_is_armed(struct hrtimer *timer);

/* Cancels, unless the timer runs; true when it does, armed anew or not. */
bool zk_hrtimer_cancel_or_runs(struct hrtimer *timer);

/* False with interrupts or bottom halves off. */
bool zk_may_wait(void);
void zk_cpu_relax(void);

/* Sleeping and waiting. */
ZK_FAR void(__init_waitqueue_head)(struct wait_queue_head *queue,
				   const char *name,
				   struct lock_class_key *key);
ZK_FAR void(init_wait_entry)(struct wait_queue_entry *entry, int flags);
ZK_FAR long(prepare_to_wait_event)(struct wait_queue_head *queue,
				   struct wait_queue_entry *entry, int state);
ZK_FAR void(finish_wait)(struct wait_queue_head *queue,
			 struct wait_queue_entry *entry);
ZK_FAR void(__wake_up)(struct wait_queue_head *queue, unsigned int mode,
		       int count, void *key);
ZK_FAR asmlinkage void(schedule)(void);
ZK_FAR signed long(schedule_timeout)(signed long timeout);
void zk_cond_resched(void);
ZK_FAR void(yield)(void);
ZK_FAR void(usleep_range)(unsigned long min, unsigned long max);
void zk_udelay(unsigned long usecs);

/* Network events. */
void zk_notifier_init(struct notifier_block *block,
		      int (*call)(struct notifier_block *block,
				  unsigned long event, void *data));
int zk_register_netevent_notifier(struct notifier_block *block);
int zk_unregister_netevent_notifier(struct notifier_block *block);

/* Clocks. */
ZK_FAR ktime_t(ktime_get_coarse_with_offset)(enum tk_offsets offs);
ZK_FAR ktime_t(ktime_get_with_offset)(enum tk_offsets offs);
ZK_FAR u32(ktime_get_resolution_ns)(void);
void zk_ktime_get_ts64(s64 *secs, u32 *nsecs);

/* Proc and sequence files. */
ZK_FAR struct proc_dir_entry *(proc_mkdir)(const char *name,
					   struct proc_dir_entry *parent);
ZK_FAR struct proc_dir_entry *(proc_create)(const char *name, umode_t mode,
					    struct proc_dir_entry *parent,
					    const struct proc_ops *ops);
ZK_FAR void(remove_proc_entry)(const char *name, struct proc_dir_entry *parent);
const struct proc_ops *zk_report_ops(unsigned int report);
ZK_FAR int(single_open_size)(struct file *file,
			     int (*show)(struct seq_file *seq, void *unused),
			     void *data, size_t size);
ZK_FAR int(single_release)(struct inode *inode, struct file *file);
ZK_FAR void(seq_vprintf)(struct seq_file *seq, const char *fmt, va_list args);
struct seq_file *zk_seq_of(struct file *file);
bool zk_seq_has_overflowed(struct seq_file *seq);
void *zk_seq_private(struct seq_file *seq);
void zk_seq_set_private(struct seq_file *seq, void *data);
unsigned long zk_copy_from_user(void *to, const void *from,
				unsigned long count);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
