/* SPDX-License-Identifier: GPL-2.0 */
/* What the fake kernel's services that block have from each other. */
#ifndef FAKE_SCHEDULER_H
#define FAKE_SCHEDULER_H

#include "internal.h"
#include "tasks.h"

#include <limits.h>
#include <setjmp.h>

#include <pthread.h>

inline constexpr int ENOENT_ = 2;
inline constexpr int ESRCH_ = 3;
inline constexpr int ERESTARTSYS_ = 512;

inline constexpr long state_running = 0;
inline constexpr long state_interruptible = TASK_INTERRUPTIBLE;
inline constexpr long state_uninterruptible = 2;
inline constexpr long state_dead = 0x80;

/* The actions of signals. */
inline constexpr uintptr_t action_default = 0;
inline constexpr uintptr_t action_ignore = 1;

struct pid {
	struct task_struct *task;
};

struct task_struct {
	unsigned int references;
	pid_t number;
	struct pid id;
	char comm[ZK_TASK_COMM_LEN];
	bool is_kthread;
	bool left;
	bool runs_others;
	bool on_cpu;
	long state;
	long exit_code;
	std::string blocked_in;
	std::vector<const void *> taken;

	u64 private_signals;
	u64 shared_signals;
	bool signal_pending;
	bool group_exits;
	uintptr_t actions[65];

	/* The thread of the host, and what it runs. */
	bool started;
	pthread_cond_t may_run;
	std::function<int()> body;
	jmp_buf end;
};

/* A link of a list of the kernel's; an empty list is linked to itself. */
struct fake_link {
	fake_link *next;
	fake_link *prev;
};

namespace fake
{

void record(const std::string &text, const void *object = nullptr);
/* Fails the test and ends the process: there is no way to go on. */
[[noreturn]] void fatal(const std::string &what);

/* Tasks. A new one is blocked; one that ends has one reference less. */
struct task_struct *make_task(const std::string &comm, bool is_kthread);
void put_task(struct task_struct *task);
struct task_struct *look_up(pid_t pid);
void set_comm(struct task_struct *task, const std::string &comm);

struct task_struct *running();
/* Switches to another task, if the state says that this one is blocked. */
void switch_tasks(const char *caller);
/* Makes a task ready if its state is one of those. */
bool wake(struct task_struct *task, long states);
bool signal_ends_sleep(const struct task_struct *task, long state);
/*
 * Blocks the running task, in the state that it has set, for at most so many
 * ticks. Returns those that are left.
 */
long sleep_at_most(long ticks, const char *caller);
void sleep_until(s64 when, const char *caller);

/* Keeps account of what the running task has taken and not given. */
void note_taken(const void *lock);
void note_given(const void *lock);

/* Things that will happen, one for each owner. */
void set_event(const void *owner, s64 when, std::function<void()> what);
bool cancel_event(const void *owner);
bool has_event(const void *owner);
/* Lets happen what is due, unless interrupts are off. */
void run_due_events();
/* Moves on to what happens next. False when nothing ever will. */
bool run_next_event();
/* The time of the tick at which the count of ticks will have that value. */
s64 time_of_tick(unsigned long jiffies);

/* Lists. */
void init_list(fake_link *head);
bool is_empty(const fake_link *head);
void insert_after(fake_link *link, fake_link *place);
void unlink(fake_link *link);

} // namespace fake

#endif
