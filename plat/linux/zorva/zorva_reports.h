/* SPDX-License-Identifier: GPL-2.0 */
/* The report files, in the order of their creation; for C and C++. */
#ifndef ZORVA_REPORTS_H
#define ZORVA_REPORTS_H

/*
 * X(id, entry, dump, writer): the name of the entry under /proc/zorva, the
 * function that prints its text, and its write handler if it has one.
 */
#define ZORVA_REPORTS(X)                                                       \
	X(mutex, "zorva.mutex", zorva_mutex_dump, NULL)                        \
	X(mutex_detail, "zorva.mutex.detail", zorva_mutex_dump_detail, NULL)   \
	X(sem, "zorva.sem", zorva_sem_dump, NULL)                              \
	X(sem_detail, "zorva.sem.detail", zorva_sem_dump_detail, NULL)         \
	X(mem, "zorva.mem", zorva_mem_dump, NULL)                              \
	X(mem_detail, "zorva.mem.detail", zorva_mem_dump_detail,               \
	  zorva_mem_detail_write)                                              \
	X(thread, "zorva.thread", zorva_thread_dump, NULL)                     \
	X(timer, "zorva.timer", zorva_timer_dump, NULL)                        \
	X(hrt, "zorva.hrt", zorva_hrt_timer_dump, NULL)                        \
	X(msgq, "zorva.msgq", zorva_msg_queue_dump, NULL)

#ifdef __cplusplus
extern "C" {
#endif

struct file;
struct inode;

#define ZORVA_REPORT_OPEN(id, entry, dump, writer)                             \
	int zorva_##id##_open(struct inode *inode, struct file *file);
ZORVA_REPORTS(ZORVA_REPORT_OPEN)
#undef ZORVA_REPORT_OPEN

int zorva_report_release(struct inode *inode, struct file *file);
ssize_t zorva_mem_detail_write(struct file *file, const char *text,
			       size_t count, loff_t *position);

#ifdef __cplusplus
}
#endif

#endif
