/* SPDX-License-Identifier: GPL-2.0 */
/* What the fake kernel's services that block have from each other. */
#ifndef FAKE_SCHEDULER_H
#define FAKE_SCHEDULER_H

#include "fiber.h"
#include "internal.h"
#include "tasks.h"

#include <limits.h>
#include <memory>

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

namespace fake
{

/* A call that the firmware makes: of what, from where, and on what. */
struct firmware_call {
	const char *function = nullptr; /* null outside of any */
	const void *from = nullptr;	/* the return address */
	const char *file = nullptr;	/* the caller's, if the call has it */
	u32 line = 0;
	const void *object = nullptr;
	u64 number = 0; /* counts up in each life */
};

} // namespace fake

struct task_struct {
	unsigned int references;
	pid_t number;
	struct pid id;
	char comm[ZK_TASK_COMM_LEN];
	bool is_kthread;
	bool left;
	bool runs_others;
	bool stands_still; /* can run again, whatever its state says */
	bool on_cpu;
	bool preempted; /* ready, whatever its state says */
	long state;
	long exit_code;
	std::string blocked_in;
	std::vector<const void *> taken;
	std::vector<fake::firmware_call> taken_at; /* one for each of taken */
	/* Calls that it is in; one from an interrupt comes last. */
	std::vector<fake::firmware_call> calling;
	fake::firmware_call made_by;
	const void *waits_for; /* a mutex */

	u64 private_signals;
	u64 shared_signals;
	bool signal_pending;
	bool group_exits;
	uintptr_t actions[65];

	std::function<int()> body;
	std::unique_ptr<fake::fiber> stack;
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
/*
 * Names what is done instead, which does not return, and what tells of a
 * deadlock by the states of all tasks.
 */
void on_fatal(void (*handler)());
void on_deadlock(void (*handler)(const std::string &states));
/* Ends the test when somebody is told of deadlocks; else time will show it. */
void note_circle();
/* Ends it likewise when time comes to this; LLONG_MAX for never. */
void set_time_limit(s64 nsecs);
/* Names what is called by each task that ends. */
void on_task_end(void (*handler)(const struct task_struct *task));
[[noreturn]] void fatal_deadlock(const std::string &states);

/* Tasks. A new one is blocked; one that ends has one reference less. */
struct task_struct *make_task(const std::string &comm, bool is_kthread);
void put_task(struct task_struct *task);
struct task_struct *look_up(pid_t pid);
void set_comm(struct task_struct *task, const std::string &comm);

struct task_struct *running();
/* Switches to another task, if the state says that this one is blocked. */
void switch_tasks(const char *caller);
/* Ends the running task, which is not the main one. */
[[noreturn]] void end_task(long code);
void set_body(struct task_struct *task, std::function<int()> body);
/* Who has taken a lock and not given it; null for nobody. */
struct task_struct *holder_of(const void *lock);
std::vector<struct task_struct *> all_tasks();
/* The call of the firmware's in which the running task is. */
firmware_call current_call();

/*
 * The order of tasks by chance: at every so many places, on average, at which
 * the running task could give way to another that is ready, it does. 0: the
 * one that has been ready for longest goes on, and only when another blocks.
 */
void set_order(u64 seed, u32 mean_period, bool also_in_kernel_calls);
/*
 * Lets time pass as well at places of the order, now and then, up to an expiry
 * or the end of a sleep that is not far: as if the one that runs were slow.
 */
void let_time_pass(bool may_pass);
enum class switch_point {
	firmware_call,
	kernel_call
};
void may_switch(switch_point where);
/* How often chance had something to decide, or would have had with an order. */
u64 choices();

/* Makes a task ready if its state is one of those. */
bool wake(struct task_struct *task, long states);
/* Lets all others go on who can, or wait like the running task. */
void wait_for_other_processors(const char *caller);
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

/* Whose calls made the blocks that are still allocated, one for each. */
std::vector<firmware_call> calls_that_left_blocks();
/* Tells whether an address lies in a freed block, and whose calls those were. */
bool was_freed(const void *address, firmware_call *made, firmware_call *freed);

/* Things that will happen, one for each owner. */
void set_event(const void *owner, s64 when, std::function<void()> what);
bool cancel_event(const void *owner);
bool has_event(const void *owner);
/* Lets happen what is due, unless interrupts are off. */
void run_due_events();
/* Moves on to what happens next, if that is within so many nanoseconds. */
void run_event_within(s64 nsecs);
/* Moves on to what happens next. False when nothing ever will. */
bool run_next_event();
/* The time of the tick at which the count of ticks will have that value. */
s64 time_of_tick(unsigned long tick);

/* Lists. */
void init_list(fake_link *head);
bool is_empty(const fake_link *head);
void insert_after(fake_link *link, fake_link *place);
void unlink(fake_link *link);

} // namespace fake

#endif
