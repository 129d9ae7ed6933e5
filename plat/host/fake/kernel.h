/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The fake kernel as tests see it: what they set, and what they look at.
 *
 * It implements what zk.h declares, and complains, by failing the
 * running test, about calls that the kernel forbids. It starts once in a
 * process, which runs one test.
 *
 * Include this before any header of the host: zk.h has constants that the
 * host has as macros.
 */
#ifndef FAKE_KERNEL_H
#define FAKE_KERNEL_H

/*
 * The host's offset is another type where a long has 64 bits: from here on the
 * name stands for the kernel's.
 */
#include <sys/types.h>
#define loff_t kernel_loff_t

/*
 * The host declares these itself, and not to throw. The two of the printf
 * family are the kernel's here: the module's build has them under these names.
 */
#define memcpy kernel_memcpy
#define memset kernel_memset
#define strcmp kernel_strcmp
#define strlen kernel_strlen
#define snprintf kernel_snprintf
#define vsnprintf kernel_vsnprintf
#include "zk.h"
#undef memcpy
#undef memset
#undef strcmp
#undef strlen
#undef snprintf
#undef vsnprintf

#include <functional>
#include <string>
#include <vector>

namespace fake
{

/*
 * Sets all but the proc file system back to how the process began, for one
 * that runs many short lives of the module. Complains of what is left of the
 * last one: tasks, pending timers, subscriptions, blocks.
 */
void restart();

/*
 * Names what is told of a failure of the running test; without one the text is
 * printed and the process ends.
 */
void on_failure(void (*handler)(const std::string &what));

/*
 * Makes it a kernel that preempts tasks, or one with several processors, each
 * of which runs a task: where neither is said, it is the target's.
 */
void preempt_tasks();
void use_several_processors();

/* Lets other tasks run as run_others() does, though this one has not blocked. */
void preempt();
/*
 * Lets the other processors go on until each waits for this one, or has no
 * task that can run, whatever this one has in hand: it keeps its locks and its
 * interrupt.
 */
void run_other_processors();

/* Context: what the processor of the running task is doing. */

struct context {
	bool interrupts_off;
	bool in_interrupt;
	std::vector<const void *> locks;
	/* The semaphores and mutexes that the running task has taken. */
	std::vector<const void *> taken;

	/* True while nothing forbids the caller to sleep. */
	bool may_sleep() const;
	/* True while the lock is held, and interrupts are off with it. */
	bool holds(const void *lock) const;
	/* True while the task has a unit of the semaphore, or the mutex. */
	bool has_taken(const void *lock) const;
};

context current_context();
/* How often a task has offered to give way, in a long work. */
size_t rests();
/* How often any spin lock was taken. */
size_t spin_locks_taken();
/* Are called each time a spin lock was taken, and before it is given. */
void after_spin_lock(std::function<void(const void *lock)> hook);
void before_spin_unlock(std::function<void(const void *lock)> hook);

/* While they live: a hard interrupt, a soft interrupt, interrupts off. */
class hard_interrupt {
public:
	hard_interrupt();
	~hard_interrupt();
	hard_interrupt(const hard_interrupt &) = delete;
	hard_interrupt &operator=(const hard_interrupt &) = delete;

private:
	const bool were_off_;
};

class soft_interrupt {
public:
	soft_interrupt();
	~soft_interrupt();
	soft_interrupt(const soft_interrupt &) = delete;
	soft_interrupt &operator=(const soft_interrupt &) = delete;
};

class interrupts_off {
public:
	interrupts_off();
	~interrupts_off();
	interrupts_off(const interrupts_off &) = delete;
	interrupts_off &operator=(const interrupts_off &) = delete;

private:
	const bool were_off_;
};

/* The heap. */

struct heap_call {
	enum kind {
		allocated,
		refused,
		freed,
		kvallocated,
		kvrefused,
		kvfreed
	} what;
	size_t size;
	gfp_t flags;
	const void *block;
	context at;
};

/* The calls of the module, not those of the kernel on its behalf. */
const std::vector<heap_call> &heap_calls();
/* Blocks of anybody, without those that a test left on purpose. */
size_t live_blocks();
/* Accepts that a block is still allocated when the test ends. */
void leave_allocated(const void *block);
/* Makes the nth allocation from now fail; 1 is the next one. */
void fail_allocation(unsigned int nth);
/* Makes every allocation of more bytes than that fail. */
void fail_allocations_above(size_t size);
/* Is called before each kvmalloc, while others may run. */
void before_kvmalloc(std::function<void()> hook);
/*
 * Lets these bytes of a freed block be read and written. They keep what they
 * held; all others of it are out of bounds until the process ends.
 */
void allow_access_to_freed(const void *address, size_t size);

/* The log. */

struct log_entry {
	std::string text;
	context at;
};

/*
 * What printk was given, formatted, its prefix included; "<stack>\n" for a
 * dumped stack, and "WARNING: " before what the kernel itself complains of.
 * Entries that no test looked at fail it when it ends.
 */
const std::vector<log_entry> &kernel_log();
/* The same as one text. */
std::string log_text();
size_t log_size();
/* Tells whether anything was logged since the log was last looked at. */
bool log_has_unseen();

/* Formats as the kernel does. */
std::string format(const char *fmt, ...);

/* Clocks, in nanoseconds. They stand still unless a test moves them. */

/* Sets the time since boot, of which some was spent suspended. */
void set_uptime(s64 nsecs, s64 suspended = 0);
/* The context of each reading of the coarse clock so far. */
const std::vector<context> &coarse_readings();

/* Single words of memory. */

/* Makes a word read from an address have a value. */
void set_word(const void *address, u32 value);
/* The addresses from which words were read. */
const std::vector<const void *> &words_read();

/* User space. Its memory is the host's. */

/* Makes the next copy from user space fail after so many bytes. */
void fail_user_copy_after(size_t bytes);

/* The proc file system. */

/* Every call that the module made: "mkdir zorva", "remove zorva/x"... */
const std::vector<std::string> &proc_calls();
/* The entries of a directory as "zorva.mem 0444"; "" is the top. */
std::vector<std::string> proc_list(const std::string &directory);
/* Makes the next directories fail to be made. */
void refuse_directories(unsigned int count);
/* Is called after each entry that was made, or refused. */
void after_proc_create(std::function<void(const std::string &name)> hook);
size_t open_files();

enum class access {
	reading,
	writing
};
enum class user {
	root,
	nobody
};

/* A file of the proc file system, open for as long as it lives. */
class proc_file {
public:
	explicit proc_file(const std::string &path,
			   access how = access::reading, user who = user::root);
	~proc_file();
	proc_file(const proc_file &) = delete;
	proc_file &operator=(const proc_file &) = delete;

	/* 0 when the file is open, else why it is not. */
	int error() const
	{
		return error_;
	}
	ssize_t read(char *buffer, size_t count);
	ssize_t write(const void *text, size_t count);
	loff_t seek(loff_t offset, int whence = 0);
	int close();

	/* One read, of as many bytes as the file has for it. */
	std::string read(size_t count = 1 << 20);
	/* Reads of so many bytes each until the end of the file. */
	std::string read_all(size_t chunk);
	/* The size of the buffer that the text is formatted into. */
	size_t buffer_size() const;
	struct seq_file *seq() const;

private:
	struct file *file_ = nullptr;
	int error_ = 0;
};

/* The whole text of a report file, read as "cat" does. */
std::string read_report(const std::string &path);

struct seq_print {
	std::string text;
	context at;
};

/* Every print into a sequence file, in runs that overflowed too. */
const std::vector<seq_print> &seq_prints();
/* Is called at each of them. */
void on_seq_print(std::function<void(const seq_print &made)> hook);

} // namespace fake

#endif
