/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The fake kernel's tasks, the time that passes for them, and the calls that
 * the module makes: what tests set, and what they look at.
 *
 * Each task is a thread of the host, and only one runs at any time: it runs
 * until it blocks, and then the one that has been ready for longest goes on.
 * Time stands still while a task can run. When none can, it jumps to what
 * happens next, an expiry or the end of a sleep; when nothing ever will, the
 * test fails with the state of every task, and ends.
 */
#ifndef FAKE_TASKS_H
#define FAKE_TASKS_H

#include "kernel.h"

namespace fake
{

/* Tasks. The test itself is a task of user space, "main" with PID 100. */

enum class kind {
	kernel_thread,
	user_space
};

inline constexpr pid_t main_pid = 100;

/* Makes the running task one of that kind. */
void become(kind what);
/* Gives the running task another command name. */
void rename_self(const char *comm);
/* Makes a task that is ready to run; PIDs count up from 101. */
pid_t start_task(const char *comm, std::function<void()> body,
		 kind what = kind::kernel_thread);
/* Lets all tasks that can run do so until they are blocked. No time passes. */
void run_others();

/* Tells whether a task has ended, and what with: -1 for one that has not. */
bool has_ended(pid_t pid);
long exit_code_of(pid_t pid);
std::string comm_of(pid_t pid);
/* What a task that has not ended is blocked in: "down", "mutex_lock"... */
std::string blocked_in(pid_t pid);
/* References to the kernel's record of a task; 0 when there is none. */
unsigned int references_to(pid_t pid);
/*
 * The tasks that have not ended, and those that have and are referred to, as
 * text; without the main one, and without those that a test left on purpose.
 */
std::string tasks_left();
void leave_task(pid_t pid);
/* The kernel's record of a task, which has not ended. */
struct task_struct *task_of(pid_t pid);

/* Makes no thread for the next so many that are asked for. */
void refuse_threads(unsigned int count);
/*
 * Makes no thread from now on, but returns an error as a pointer. A task that
 * wakes that up is complained of, and ends as it does in the kernel.
 */
void fail_threads(int error);
/* Makes the setting of a scheduler fail with an error. */
void refuse_scheduler(int error);
/* Makes waits for a semaphore that have a time limit fail with an error. */
void fail_timed_wait(int error);
/* Makes the look-up of PIDs find nobody. */
void hide_pids();

/* Sends a signal as the kernel itself does. */
void send_signal(pid_t pid, int signal);

/* Time, in nanoseconds of the monotonic clock. */

s64 now();
/* Lets time pass with the running task busy; what is due happens meanwhile. */
void advance(s64 nsecs);
/* Lets time pass with the running task asleep. */
void sleep_for(s64 nsecs);
/* Makes the count of ticks have a value now. */
void set_jiffies(unsigned long value);
/* The resolution of timers; 1 unless set. */
void set_resolution(u32 nsecs);
/* How long a yield takes; 1,000 unless set. */
void set_yield_cost(s64 nsecs);

/* Timers. */

/* The count of ticks at which a tick timer expires; it must be pending. */
unsigned long expiry_of(const struct timer_list *timer);
/* The time at which a high-resolution timer expires; it must be pending. */
s64 expiry_of(const struct hrtimer *timer);
bool is_pending(const void *timer);

/* Network events. */

/* Makes the next subscriptions fail with an error. */
void refuse_netevents(int error);
/* Raises an event as the kernel does, in a soft interrupt; the last result. */
int raise_netevent(unsigned long event, void *data);
size_t netevent_listeners();
int netevent_priority(const struct notifier_block *block);

/* Calls. */

/* A call of the module's: "usleep_range 5 8", by whom, where and when. */
struct call {
	std::string text;
	const void *object; /* the lock, timer, queue... it was made on */
	pid_t by;
	context at;
	s64 when;
};

const std::vector<call> &calls();
/* Those to the named functions, in the order in which they were made. */
std::vector<call> calls_to(const std::vector<std::string> &names);
std::vector<std::string> call_texts(const std::vector<std::string> &names);
/* Forgets all calls so far. */
void forget_calls();
/* Is called after each call that is recorded, before the call is carried out. */
void on_call(std::function<void(const call &made)> hook);

} // namespace fake

#endif
