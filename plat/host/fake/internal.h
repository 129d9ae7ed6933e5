/* SPDX-License-Identifier: GPL-2.0 */
/* What the parts of the fake kernel have from each other. */
#ifndef FAKE_INTERNAL_H
#define FAKE_INTERNAL_H

#include "kernel.h"

#include <stdarg.h>

namespace fake
{

/* Fails the running test. */
void fail(const std::string &what);
/* The same: the kernel forbids what was just done. */
void complain(const std::string &what);
/* Complains when the caller may not sleep. */
void might_sleep(const char *caller);

/*
 * After this, restart() drops without a complaint what is left: the tasks of
 * a test that failed in the middle.
 */
void forsake();
bool is_forsaken();

/*
 * Puts the module's data back as they were at the first call; false where they
 * were not set apart when the module was linked.
 */
bool restore_module();

/* Tells whether nothing forbids the caller to sleep. */
bool current_context_may_sleep();

/*
 * What a part of the fake kernel does when all begins anew: a static object
 * beside the state that it sets back.
 */
struct at_restart {
	explicit at_restart(void (*action)());
};

/* What the running task has taken and not given. */
std::vector<const void *> taken_by_running();

/* The whole ticks since the start of the clock, rounded down. */
s64 ticks_now();
/* The clock that all others run off. */
s64 monotonic_time();
void set_monotonic_time(s64 nsecs);

/* Empties the proc file system, as for a module that was never loaded. */
void forget_proc_entries();

/* The kernel's own use of the heap. */
void *kernel_alloc(size_t size);
void kernel_free(void *block);

std::string vformat(const char *fmt, va_list args);

/* A complaint of the kernel in the log; the second one only the first time. */
void warn(const std::string &text);
void warn_once(bool &warned, const std::string &text);

/* Tells whether bytes can be read, without the sanitizers' noticing. */
bool readable(const void *address, size_t size);

/* What the sequence files do for the operation tables. */
ssize_t seq_read(struct file *file, char *buffer, size_t count,
		 loff_t *position);
loff_t seq_lseek(struct file *file, loff_t offset, int whence);

} // namespace fake

/* An open file; the same for the proc entries and the sequence files. */
struct file {
	void *private_data;
	loff_t position;
	struct proc_dir_entry *entry;
	bool writable;
	bool dead;
};

struct proc_ops {
	int (*open)(struct inode *inode, struct file *file);
	ssize_t (*read)(struct file *file, char *buffer, size_t count,
			loff_t *position);
	ssize_t (*write)(struct file *file, const char *text, size_t count,
			 loff_t *position);
	loff_t (*lseek)(struct file *file, loff_t offset, int whence);
	int (*release)(struct inode *inode, struct file *file);
};

#endif
