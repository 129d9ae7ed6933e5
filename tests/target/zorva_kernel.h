/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What the tests, the soak and the bench need of the kernel that is not the
 * same on every kernel, in one form. What changed is said where it is told by
 * the kernel's version.
 */
#ifndef ZORVA_KERNEL_H
#define ZORVA_KERNEL_H

#include <linux/fs.h>
#include <linux/hrtimer.h>
#include <linux/kmsg_dump.h>
#include <linux/kthread.h>
#include <linux/mm.h>
#include <linux/mman.h>
#include <linux/namei.h>
#include <linux/sched.h>
#include <linux/sched/mm.h>
#include <linux/sched/signal.h>
#include <linux/sched/task.h>
#include <linux/timer.h>
#include <linux/uaccess.h>
#include <linux/version.h>
#if __has_include(<linux/hrtimer_bases.h>)
#include <linux/hrtimer_bases.h>
#endif
#ifdef CONFIG_UML_TIME_TRAVEL_SUPPORT
#include <shared/timetravel.h>
#endif

#define ZT_SINCE(major, minor)                                                 \
	(LINUX_VERSION_CODE >= KERNEL_VERSION(major, minor, 0))

/* 5.11: in_irq() has another name. */
#if !ZT_SINCE(5, 11)
#define in_hardirq() in_irq()
#endif

/* 5.13: a place in the log is not part of a dumper any more. */
#if ZT_SINCE(5, 13)
#define zt_log_place kmsg_dump_iter
#define ZT_LOG_PLACE_INIT                                                      \
	{                                                                      \
	}
#else
#define zt_log_place kmsg_dumper
#define ZT_LOG_PLACE_INIT                                                      \
	{                                                                      \
		.active = true                                                 \
	}
#endif

/* What stands above the stack that dump_stack() shows. */
#ifdef CONFIG_ARM64
#define ZT_STACK_TITLE "Call trace:"
#else
#define ZT_STACK_TITLE "Call Trace:"
#endif

/* 5.14: the member has another name. */
static inline unsigned int zt_task_state(const struct task_struct *task)
{
#if ZT_SINCE(5, 14)
	return READ_ONCE(task->__state);
#else
	return READ_ONCE(task->state);
#endif
}

extern typeof(sched_setscheduler) sched_setscheduler __weak;

/* Stock kernels do not export it. arm64's load no code that asks for it itself.
 */
static inline bool zt_has_sched_setscheduler(void)
{
	static typeof(sched_setscheduler) *const volatile it =
		sched_setscheduler;

	return it;
}

/* 6.18: the heap may take memory itself for what is freed, and do without it. */
static inline bool zt_heap_allocates_to_free(void)
{
	return ZT_SINCE(6, 18);
}

/* 5.17: it has another name. */
static inline void __noreturn zt_complete_and_exit(struct completion *done,
						   long code)
{
#if ZT_SINCE(5, 17)
	kthread_complete_and_exit(done, code);
#else
	complete_and_exit(done, code);
#endif
}

/*
 * The exit code of a kernel thread that has ended; the caller holds a
 * reference to its task. 5.17: the task does not have it any more.
 */
static inline int zt_exit_code(struct task_struct *task)
{
#if ZT_SINCE(5, 17)
	return kthread_stop(task);
#else
	return task->exit_code;
#endif
}

/* 5.17: the function is gone. */
static inline bool zt_group_exits(const struct signal_struct *signal)
{
#if ZT_SINCE(5, 17)
	return signal->flags & SIGNAL_GROUP_EXIT;
#else
	return signal_group_exit(signal);
#endif
}

/*
 * 5.18: signals to a group that exits are dropped. zorva takes the mark away
 * with the signals, so that a second kill is seen, and then it is fatal again.
 */
#define ZT_SECOND_KILL_IS_FATAL ZT_SINCE(5, 18)

/* 6.2: del_timer() and its kin have other names. */
#if !ZT_SINCE(6, 2)
#define timer_delete del_timer
#define timer_delete_sync del_timer_sync
#endif

/* 6.16: one more of them. */
#if !ZT_SINCE(6, 16)
#define timer_destroy_on_stack destroy_timer_on_stack
#endif

/* 6.13: a timer gets its function where it is initialised. */
#if !ZT_SINCE(6, 13)
static inline void
hrtimer_setup(struct hrtimer *timer,
	      enum hrtimer_restart (*function)(struct hrtimer *timer),
	      clockid_t clock, enum hrtimer_mode mode)
{
	hrtimer_init(timer, clock, mode);
	timer->function = function;
}

static inline void
hrtimer_setup_on_stack(struct hrtimer *timer,
		       enum hrtimer_restart (*function)(struct hrtimer *timer),
		       clockid_t clock, enum hrtimer_mode mode)
{
	hrtimer_init_on_stack(timer, clock, mode);
	timer->function = function;
}
#endif

/* 5.16: a test can say that it was skipped. */
#if ZT_SINCE(5, 16)
#define ZT_SKIP(test, ...) kunit_skip(test, __VA_ARGS__)
#else
#define ZT_SKIP(test, ...) KUNIT_FAIL(test, __VA_ARGS__)
#endif

/*
 * User Mode Linux can have a time of its own. It passes in sleeps, and not
 * while somebody counts loops.
 */
#ifdef CONFIG_UML_TIME_TRAVEL_SUPPORT
#define ZT_OWN_TIME (time_travel_mode != TT_MODE_OFF)
#else
#define ZT_OWN_TIME false
#endif

/*
 * KASAN looks at each access of a test, too. Those that are wrong on purpose
 * are made unwatched.
 */
#if defined(CONFIG_KASAN_GENERIC) || defined(CONFIG_KASAN_SW_TAGS)
#define ZT_KASAN true
#define ZT_UNWATCHED(...)                                                      \
	do {                                                                   \
		current->kasan_depth++;                                        \
		__VA_ARGS__;                                                   \
		current->kasan_depth--;                                        \
	} while (0)
#else
#define ZT_KASAN false
#define ZT_UNWATCHED(...)                                                      \
	do {                                                                   \
		__VA_ARGS__;                                                   \
	} while (0)
#endif

/*
 * Files that are read through their own operation, which takes its buffer for
 * one of a user. Threads of the kernel open them, too.
 *
 * 5.14: a kernel's address does not pass for a user's any more, on this or
 * that architecture, and file_open_root() has one argument less. 7.0: threads
 * of the kernel see no root. So the program that loads the module lends them
 * its own, and its memory.
 */
struct zt_files {
	struct path root;
	struct mm_struct *mm;
};

#if ZT_SINCE(5, 14)

/* Called by the program; returns 0 or an error. */
static inline int zt_files_init(struct zt_files *files)
{
	const int error = kern_path("/", LOOKUP_DIRECTORY, &files->root);

	if (error)
		return error;
	files->mm = current->mm;
	mmget(files->mm);
	return 0;
}

static inline void zt_files_exit(struct zt_files *files)
{
	mmput(files->mm);
	path_put(&files->root);
}

/* Takes an absolute path. */
static inline struct file *zt_open(const struct zt_files *files,
				   const char *path, int flags)
{
	return file_open_root(&files->root, path + 1, flags, 0);
}

/*
 * Which allocation of this task is to fail, and which was; on a kernel that
 * injects no failures none.
 */
static inline unsigned int zt_swap_fail_nth(unsigned int fail_nth)
{
#ifdef CONFIG_FAULT_INJECTION
	swap(current->fail_nth, fail_nth);
#endif
	return fail_nth;
}

/* A region of the program's memory, beside its own. */
struct zt_lent {
	char __user *start;
	size_t size;
	bool borrowed;
	unsigned int fail_nth;
};

/* The region's own allocations are not those that a test counts. */
static inline int zt_borrow(const struct zt_files *files, struct zt_lent *lent,
			    size_t size)
{
	unsigned long start;

	lent->fail_nth = zt_swap_fail_nth(0);
	lent->size = size;
	lent->borrowed = !current->mm;
	if (lent->borrowed)
		kthread_use_mm(files->mm);
	start = vm_mmap(NULL, 0, size, PROT_READ | PROT_WRITE,
			MAP_ANONYMOUS | MAP_PRIVATE | MAP_POPULATE, 0);
	if (IS_ERR_VALUE(start)) {
		if (lent->borrowed)
			kthread_unuse_mm(files->mm);
		zt_swap_fail_nth(lent->fail_nth);
		return (int)start;
	}
	lent->start = (char __user *)start;
	return 0;
}

static inline void zt_hand_back(const struct zt_files *files,
				const struct zt_lent *lent)
{
	const unsigned int fail_nth = zt_swap_fail_nth(0);

	vm_munmap((unsigned long)lent->start, lent->size);
	if (lent->borrowed)
		kthread_unuse_mm(files->mm);
	zt_swap_fail_nth(fail_nth);
}

/* Reads to the end, or as much as there is room for, and terminates it. */
static inline ssize_t zt_read_whole(const struct zt_files *files,
				    struct file *file, char *buffer,
				    size_t size)
{
	struct zt_lent lent;
	size_t length = 0;
	loff_t position = 0;
	ssize_t count = zt_borrow(files, &lent, size);

	if (count)
		return count;
	zt_swap_fail_nth(lent.fail_nth);
	do {
		count = file->f_op->read(file, lent.start + length,
					 size - 1 - length, &position);
		if (count > 0)
			length += count;
	} while (count > 0);
	if (copy_from_user(buffer, lent.start, length))
		count = -EFAULT;
	zt_hand_back(files, &lent);

	buffer[length] = '\0';
	return count < 0 ? count : length;
}

/* Reads to the end as a program does that keeps nothing. */
static inline ssize_t zt_read_away(const struct zt_files *files,
				   struct file *file, char *buffer, size_t size)
{
	struct zt_lent lent;
	ssize_t count = zt_borrow(files, &lent, size);

	if (count)
		return count;
	do
		count = file->f_op->read(file, lent.start, size, &file->f_pos);
	while (count > 0);
	zt_hand_back(files, &lent);
	return count;
}

static inline ssize_t zt_write(const struct zt_files *files, struct file *file,
			       const char *text)
{
	const size_t length = strlen(text);
	struct zt_lent lent;
	loff_t position = 0;
	ssize_t count = zt_borrow(files, &lent, length + 1);

	if (count)
		return count;
	count = -EFAULT;
	if (!copy_to_user(lent.start, text, length)) {
		zt_swap_fail_nth(lent.fail_nth);
		count = file->f_op->write(file, lent.start, length, &position);
	}
	zt_hand_back(files, &lent);
	return count;
}

#else

static inline int zt_files_init(struct zt_files *files)
{
	return 0;
}

static inline void zt_files_exit(struct zt_files *files)
{
}

static inline struct file *zt_open(const struct zt_files *files,
				   const char *path, int flags)
{
	return filp_open(path, flags, 0);
}

static inline ssize_t zt_read_whole(const struct zt_files *files,
				    struct file *file, char *buffer,
				    size_t size)
{
	const mm_segment_t segment = get_fs();
	size_t length = 0;
	loff_t position = 0;
	ssize_t count;

	set_fs(KERNEL_DS);
	do {
		count = file->f_op->read(file,
					 (char __force __user *)buffer + length,
					 size - 1 - length, &position);
		if (count > 0)
			length += count;
	} while (count > 0);
	set_fs(segment);

	buffer[length] = '\0';
	return count < 0 ? count : length;
}

static inline ssize_t zt_read_away(const struct zt_files *files,
				   struct file *file, char *buffer, size_t size)
{
	const mm_segment_t segment = get_fs();
	ssize_t count;

	set_fs(KERNEL_DS);
	do
		count = file->f_op->read(file, (char __force __user *)buffer,
					 size, &file->f_pos);
	while (count > 0);
	set_fs(segment);
	return count;
}

static inline ssize_t zt_write(const struct zt_files *files, struct file *file,
			       const char *text)
{
	const mm_segment_t segment = get_fs();
	loff_t position = 0;
	ssize_t count;

	set_fs(KERNEL_DS);
	count = file->f_op->write(file, (const char __force __user *)text,
				  strlen(text), &position);
	set_fs(segment);
	return count;
}

#endif

#endif
