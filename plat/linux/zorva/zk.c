// SPDX-License-Identifier: GPL-2.0
/*
 * The one C file: it includes the kernel's headers and then the header that
 * restates them for C++, so every prototype there is checked here. It holds
 * what C++ cannot say: the kernel's macros and inline functions as functions,
 * objects with static initialisers, the operation tables, the exports and the
 * module's metadata.
 */
#include <linux/ctype.h>
#include <linux/delay.h>
#include <linux/export.h>
#include <linux/hrtimer.h>
#include <linux/kernel.h>
#include <linux/kthread.h>
#include <linux/list.h>
#include <linux/mm.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/notifier.h>
#include <linux/pid_namespace.h>
#include <linux/printk.h>
#include <linux/proc_fs.h>
#include <linux/sched.h>
#include <linux/sched/signal.h>
#include <linux/sched/task.h>
#include <linux/semaphore.h>
#include <linux/seq_file.h>
#include <linux/slab.h>
#include <linux/spinlock.h>
#include <linux/string.h>
#include <linux/timekeeping.h>
#include <linux/timer.h>
#include <linux/uaccess.h>
#include <linux/version.h>
#include <linux/wait.h>
#include <net/netevent.h>
#include <uapi/linux/sched/types.h>
#if defined(CONFIG_MIPS) && defined(CONFIG_32BIT)
#include <asm/addrspace.h>
#include <asm/paccess.h>
#endif

/*
 * The kernel's own, under names that zk.h leaves alone: beyond that header the
 * kernel's names of these stand for the functions here.
 */
static inline void kernel_flush_signals(struct task_struct *task)
{
	flush_signals(task);
}

static inline void kernel_mutex_init(struct mutex *lock, const char *name,
				     struct lock_class_key *key)
{
	__mutex_init(lock, name, key);
}

static inline void kernel_wake_up(struct wait_queue_head *queue,
				  unsigned int mode, int count, void *key)
{
	__wake_up(queue, mode, count, key);
}

#include "zk.h"
#include "zorva_reports.h"
#include "zorva/zorva.h"

#if ZK_SINCE(5, 15)
int(printk)(const char *fmt, ...)
{
	va_list args;
	int length;

	va_start(args, fmt);
	length = vprintk(fmt, args);
	va_end(args);
	return length;
}
#endif

#if ZK_SINCE(6, 10)
void *(__kmalloc)(size_t size, gfp_t flags)
{
	return kmalloc(size, flags);
}
#endif

int zk_iscntrl(int c)
{
	return iscntrl(c);
}

void *zk_memcpy(void *to, const void *from, size_t count)
{
	return memcpy(to, from, count);
}

void *zk_memset(void *s, int c, size_t count)
{
	return memset(s, c, count);
}

void *zk_kvmalloc(size_t size)
{
	return kvmalloc(size, GFP_KERNEL | __GFP_NOWARN);
}

u32 zk_peek(const void *address)
{
	u32 word;

#if defined(CONFIG_MIPS) && defined(CONFIG_32BIT)
	/*
	 * In the segments that are not mapped, devices lie beyond memory, and
	 * uncached anywhere: a read may change their registers. In memory a
	 * bus error is still survived, but only so: the other way is for page
	 * faults, of which there are none here.
	 */
	if (KSEGX(address) == KSEG1)
		return 0;
	if (KSEGX(address) == KSEG0) {
		if (address >= high_memory)
			return 0;
		return get_dbe(word, (u32 *)address) ? 0 : word;
	}
#endif
	/* Some architectures copy by what KASAN looks at. */
#if defined(CONFIG_KASAN_GENERIC) || defined(CONFIG_KASAN_SW_TAGS)
	current->kasan_depth++;
#endif
	if (copy_from_kernel_nofault(&word, address, sizeof(word)))
		word = 0;
#if defined(CONFIG_KASAN_GENERIC) || defined(CONFIG_KASAN_SW_TAGS)
	current->kasan_depth--;
#endif
	return word;
}

DEFINE_SPINLOCK(_mallocMemLck);
DEFINE_SPINLOCK(_zorvaLockDbgLck);
DEFINE_SPINLOCK(_zorvaThreadLock);
DEFINE_SPINLOCK(_zorvaTimerLock);
DEFINE_SPINLOCK(_waitListLck);
DEFINE_MUTEX(zorva_msgq_list_lock);
LIST_HEAD(kthread_list);
LIST_HEAD(zorva_msgq_list);

unsigned long zk_local_irq_save(void)
{
	unsigned long flags;

	local_irq_save(flags);
	return flags;
}

void zk_local_irq_restore(unsigned long flags)
{
	local_irq_restore(flags);
}

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

#if ZK_SINCE(6, 15)
void zk_mutex_init(struct mutex *lock, const char *name,
		   struct lock_class_key *key)
{
	kernel_mutex_init(lock, name, key);
}
#endif

void zk_mutex_lock(struct mutex *lock)
{
	mutex_lock(lock);
}

void zk_sema_init(struct semaphore *sem, u32 count)
{
	sema_init(sem, count);
}

u32 zk_sema_count(const struct semaphore *sem)
{
	return READ_ONCE(sem->count);
}

void zk_list_add(struct list_head *link, struct list_head *head)
{
	list_add(link, head);
}

void zk_list_del(struct list_head *link)
{
	list_del(link);
}

struct list_head *zk_list_next(const struct list_head *link)
{
	return link->next;
}

/* A link of which the compiler knows that it may lie at any address. */
struct unaligned_link {
	struct unaligned_link *next;
	struct unaligned_link *prev;
} __packed;

void zk_list_add_tail_unaligned(void *link, struct list_head *head)
{
	struct unaligned_link *new = link;
	struct unaligned_link *next = (struct unaligned_link *)head;
	struct unaligned_link *prev = next->prev;

	BUILD_BUG_ON(sizeof(*new) != sizeof(*head));
	new->next = next;
	new->prev = prev;
	prev->next = new;
	next->prev = new;
}

void zk_list_del_unaligned(void *link)
{
	struct unaligned_link *old = link;

	old->next->prev = old->prev;
	old->prev->next = old->next;
	old->next = (struct unaligned_link *)LIST_POISON1;
	old->prev = (struct unaligned_link *)LIST_POISON2;
}

void *zk_list_next_unaligned(const void *link)
{
	const struct unaligned_link *from = link;

	return from->next;
}

bool zk_in_interrupt(void)
{
	return in_interrupt();
}

struct task_struct *zk_current(void)
{
	return current;
}

pid_t zk_current_pid(void)
{
	return current->pid;
}

bool zk_current_is_kthread(void)
{
	return current->flags & PF_KTHREAD;
}

void zk_set_comm(const char *name)
{
	char comm[TASK_COMM_LEN] = {};

	/* Who reads it meanwhile has the lock, or finds an end at least. */
	strscpy(comm, name, sizeof(comm));
	task_lock(current);
	memcpy(current->comm, comm, sizeof(comm));
	task_unlock(current);
}

pid_t zk_task_pid_nr(const struct task_struct *task)
{
	return task->pid;
}

struct pid *zk_task_pid(struct task_struct *task)
{
	return task_pid(task);
}

long zk_task_state(const struct task_struct *task)
{
	/*
	 * The task changes it with no lock that a reader could take. 5.14: the
	 * member has another name; the values in use are the same.
	 */
#if ZK_SINCE(5, 14)
	return READ_ONCE(task->__state);
#else
	return READ_ONCE(task->state);
#endif
}

void zk_get_task_struct(struct task_struct *task)
{
	get_task_struct(task);
}

void zk_put_task_struct(struct task_struct *task)
{
	put_task_struct(task);
}

bool zk_comm_of_pid(pid_t pid, char comm[TASK_COMM_LEN])
{
	struct task_struct *task;

	/* Most ask about themselves; then there is nothing to look up. */
	if (pid == current->pid &&
	    task_active_pid_ns(current) == &init_pid_ns) {
		memcpy(comm, current->comm, TASK_COMM_LEN);
		return true;
	}

	rcu_read_lock();
	task = pid_task(find_vpid(pid), PIDTYPE_PID);
	if (task)
		get_task_comm(*(char(*)[TASK_COMM_LEN])comm, task);
	rcu_read_unlock();
	return task;
}

extern typeof(sched_setscheduler) sched_setscheduler __weak;

/*
 * Code that asks for a weak function goes through a table of addresses on
 * arm64, and the kernel loads no module that has one.
 */
static typeof(sched_setscheduler) *const volatile set_scheduler =
	sched_setscheduler;

int zk_sched_setscheduler(struct task_struct *task, int policy, int priority)
{
	const struct sched_param param = { .sched_priority = priority };
	typeof(sched_setscheduler) *const set = set_scheduler;

	if (!set)
		return -ENOSYS;
	return set(task, policy, &param);
}

#if ZK_SINCE(5, 18)
/*
 * The first SIGKILL marks the thread as one that exits, and from 5.18 on every
 * later signal to such a thread is dropped: it could not be told to end any
 * more. A program's mark is left alone, for it does exit.
 */
void zk_flush_signals(struct task_struct *task)
{
	unsigned long flags;

	kernel_flush_signals(task);
	if (!(task->flags & PF_KTHREAD))
		return;
	spin_lock_irqsave(&task->sighand->siglock, flags);
	task->signal->flags &= ~SIGNAL_GROUP_EXIT;
	spin_unlock_irqrestore(&task->sighand->siglock, flags);
}
#endif

bool zk_signal_pending(void)
{
	return signal_pending(current);
}

bool zk_fatal_signal_pending(void)
{
	return fatal_signal_pending(current);
}

bool zk_signal_is_pending(int signal)
{
	return sigismember(&current->pending.signal, signal) ||
	       sigismember(&current->signal->shared_pending.signal, signal);
}

void zk_complete_and_exit(long code)
{
	/* 5.17: it has another name. */
#if ZK_SINCE(5, 17)
	kthread_complete_and_exit(NULL, code);
#else
	complete_and_exit(NULL, code);
#endif
}

void zk_add_timer(struct timer_list *timer, unsigned long ticks)
{
	/*
	 * An interrupt that refreshes a timer before its expiry has been
	 * marked leaves it pending, which add_timer would take for a bug.
	 */
	mod_timer(timer, jiffies + ticks);
}

#if ZK_SINCE(6, 13)
static enum hrtimer_restart expired_too_early(struct hrtimer *timer)
{
	return HRTIMER_NORESTART;
}

void zk_hrtimer_init(struct hrtimer *timer, clockid_t clock,
		     enum hrtimer_mode mode)
{
	hrtimer_setup(timer, expired_too_early, clock, mode);
}
#endif

void zk_hrtimer_set_function(
	struct hrtimer *timer,
	enum hrtimer_restart (*function)(struct hrtimer *timer))
{
#if ZK_SINCE(6, 13)
	hrtimer_update_function(timer, function);
#else
	timer->function = function;
#endif
}

#if ZK_SINCE(5, 16)
void zk_usleep_range(unsigned long min, unsigned long max)
{
	usleep_range_state(min, max, TASK_UNINTERRUPTIBLE);
}
#endif

#if ZK_SINCE(6, 1)
void zk_wake_up(struct wait_queue_head *queue, unsigned int mode, int count,
		void *key)
{
	kernel_wake_up(queue, mode, count, key);
}
#endif

void zk_cond_resched(void)
{
	cond_resched();
}

#ifdef CONFIG_SMP
bool zk_timer_is_armed(const struct timer_list *timer)
{
	return timer_pending(timer);
}

bool zk_timer_runs(struct timer_list *timer)
{
	/* 6.15: it has another name. */
#if ZK_SINCE(6, 15)
	return timer_delete_sync_try(timer) < 0;
#else
	return try_to_del_timer_sync(timer) < 0;
#endif
}

bool zk_hrtimer_is_armed(struct hrtimer *timer)
{
	return hrtimer_is_queued(timer);
}

bool zk_hrtimer_cancel_or_runs(struct hrtimer *timer)
{
	return hrtimer_try_to_cancel(timer) < 0;
}

bool zk_may_wait(void)
{
	return !in_interrupt() && !irqs_disabled();
}

void zk_cpu_relax(void)
{
	cpu_relax();
}
#endif

void zk_udelay(unsigned long usecs)
{
	udelay(usecs);
}

void zk_notifier_init(struct notifier_block *block,
		      int (*call)(struct notifier_block *block,
				  unsigned long event, void *data))
{
	block->notifier_call = call;
}

int zk_register_netevent_notifier(struct notifier_block *block)
{
	return IS_ENABLED(CONFIG_NET) ? register_netevent_notifier(block)
				      : -ENOSYS;
}

int zk_unregister_netevent_notifier(struct notifier_block *block)
{
	return IS_ENABLED(CONFIG_NET) ? unregister_netevent_notifier(block)
				      : -ENOSYS;
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

bool zk_seq_has_overflowed(struct seq_file *seq)
{
	return seq_has_overflowed(seq);
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
EXPORT_SYMBOL(zorva_atomic_inc);
EXPORT_SYMBOL(zorva_atomic_add_return);
EXPORT_SYMBOL(zorva_atomic_set);
EXPORT_SYMBOL(zorva_atomic_dec_return);
EXPORT_SYMBOL(zorva_atomic_sub_return);
EXPORT_SYMBOL(zorva_atomic_read);
EXPORT_SYMBOL(zorva_md5_hash);
EXPORT_SYMBOL(zorva_thread_create_track);
EXPORT_SYMBOL(zorva_thread_destroy_track);
EXPORT_SYMBOL(zorva_thread_exit_track);
EXPORT_SYMBOL(zorva_mutex_create_track);
EXPORT_SYMBOL(zorva_mutex_destroy_track);
EXPORT_SYMBOL(zorva_mutex_take_track);
EXPORT_SYMBOL(zorva_mutex_give_track);
EXPORT_SYMBOL(zorva_mutex_is_locked_track);
EXPORT_SYMBOL(zorva_sem_create_track);
EXPORT_SYMBOL(zorva_sem_destroy_track);
EXPORT_SYMBOL(zorva_sem_take_track);
EXPORT_SYMBOL(zorva_sem_give_track);
EXPORT_SYMBOL(zorva_msg_queue_create_track);
EXPORT_SYMBOL(zorva_msg_queue_delete_track);
EXPORT_SYMBOL(zorva_msg_queue_send_track);
EXPORT_SYMBOL(zorva_msg_queue_receive_track);
EXPORT_SYMBOL(zorva_msg_queue_depth);
EXPORT_SYMBOL(zorva_msg_queue_max_depth);
EXPORT_SYMBOL(zorva_event_create);
EXPORT_SYMBOL(zorva_event_destroy);
EXPORT_SYMBOL(zorva_event_wait);
EXPORT_SYMBOL(zorva_event_set);
EXPORT_SYMBOL(zorva_timer_init_track);
EXPORT_SYMBOL(zorva_timer_start_track);
EXPORT_SYMBOL(zorva_timer_stop_track);
EXPORT_SYMBOL(zorva_timer_refresh_track);
EXPORT_SYMBOL(zorva_hrt_timer_init_track);
EXPORT_SYMBOL(zorva_hrt_timer_start_track);
EXPORT_SYMBOL(zorva_hrt_timer_stop_track);
EXPORT_SYMBOL(zorva_hrt_timer_refresh_track);
EXPORT_SYMBOL(zorva_wait_module_create_track);
EXPORT_SYMBOL(zorva_wait_module_destroy_track);
EXPORT_SYMBOL(zorva_wait_event_track);
EXPORT_SYMBOL(zorva_wake_up_track);
EXPORT_SYMBOL(zorva_time_usleep);
EXPORT_SYMBOL(zorva_time_sleep);
EXPORT_SYMBOL(zorva_time_udelay);
EXPORT_SYMBOL(zorva_time_mdelay);
EXPORT_SYMBOL(zorva_netevent_ntfy_register);
EXPORT_SYMBOL(zorva_netevent_ntfy_unregister);

#ifdef CONFIG_X86_KERNEL_IBT
/*
 * Where nobody names a function, objtool takes away what a call through a
 * pointer has to land at; the kernel calls these two, which are in C++.
 */
___ADDRESSABLE(init_module, __initdata)
___ADDRESSABLE(cleanup_module, __exitdata)
#endif

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("ZORVA Module");
