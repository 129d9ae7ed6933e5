/* SPDX-License-Identifier: GPL-2.0 */
/*
 * zorva on the developer's machine: the real services on a kernel that is
 * simulated, for tests of firmware code.
 *
 * A life of the module is what lies between its load and its unload. In each,
 * the kernel has just booted: time stands at 0 and moves only when a thread
 * waits or the test says so. The test itself is a task, "main" with PID 100;
 * it may sleep. Threads run one at a time, on the one thread of the host that
 * has begun the life: no call here may come from another.
 *
 * What the kernel would not allow fails the test where it happens, by the
 * caller's file and line; so does what is left when a life ends, and a
 * deadlock. A test that is run by zorva_host_run(), _explore(), _repeat() or
 * _sweep() is left there and then: what it and its threads have on their
 * stacks is dropped, without any destructor.
 *
 * Calls of this header are no calls of zorva: they do not let other threads
 * run, unless that is said.
 */
#ifndef ZORVA_HOST_H
#define ZORVA_HOST_H

#include <zorva/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Failures. */

/**
 * typedef zorva_host_failure_fn - is told of a failure
 * @text: what happened, in one or more lines, without a newline at the end
 * @file: basename of the source file, or "" where it is not known
 * @line: the line, or 0
 *
 * May return; a test that cannot go on then is left, or, between
 * zorva_host_begin() and zorva_host_end(), the process ends.
 */
typedef void (*zorva_host_failure_fn)(const char *text, const char *file,
				      u32 line);

/**
 * zorva_host_on_failure() - names the function that is told of failures
 * @fn: the function; null for what happens without one
 *
 * Without one a failure is printed to standard error, and between
 * zorva_host_begin() and zorva_host_end() the process is aborted.
 *
 * Context: Any time, in a life or not.
 */
void zorva_host_on_failure(zorva_host_failure_fn fn);

/**
 * zorva_host_on_check() - names a function that tells of failed checks
 * @failed: returns a number other than 0 when a check of the test framework
 *          has failed; null for none
 *
 * It is asked at the end of each life that zorva_host_run(), _explore(),
 * _repeat() or _sweep() has begun, and makes that one fail.
 *
 * Context: Any time, in a life or not.
 */
void zorva_host_on_check(int (*failed)(void));

/**
 * zorva_host_fail() - fails the running test
 * @text: why
 * @file: basename of the caller's source file
 * @line: the caller's line
 *
 * Context: In a life, anywhere in the test or in its threads.
 */
void zorva_host_fail(const char *text, const char *file, u32 line);

/* Fails the running test unless a condition is true. For tests in plain C. */
#define ZORVA_HOST_CHECK(condition)                                            \
	do {                                                                   \
		if (!(condition))                                              \
			zorva_host_fail("is not true: " #condition,            \
					ZORVA_FILE, __LINE__);                 \
	} while (0)

/* Rules that zorva_host_allow() names. */
/* A mutex is given only by the thread that holds it. */
#define ZORVA_HOST_STRANGERS_GIVE 1u
/* No block is freed twice, and none is written to outside of its bytes. */
#define ZORVA_HOST_DAMAGE 2u

/**
 * zorva_host_allow() - lets the firmware break rules without failing the test
 * @rules: %ZORVA_HOST_STRANGERS_GIVE and %ZORVA_HOST_DAMAGE, either or both; 0,
 *         as without a call, for none
 *
 * The module bears both on the target: it ignores the give, and reports the
 * damage. For tests of what firmware makes of that. All other rules hold
 * always.
 *
 * Context: Any time, in a life or not; it stays for those that follow.
 */
void zorva_host_allow(u32 rules);

/* Lives. */

/**
 * zorva_host_begin() - begins a life of the module
 *
 * Whatever an earlier life has left is forgotten. Threads run in the order in
 * which they became ready, and only when another blocks.
 *
 * Context: Outside of a life.
 */
void zorva_host_begin(void);

/**
 * zorva_host_end() - ends the life, and looks at what it has left
 *
 * Left are: threads that have not ended, objects and blocks, by the call that
 * made them, timers that still run, subscriptions, interrupts that are off.
 * Timers themselves cannot be deleted and do not count. Each is told of in one
 * failure.
 *
 * Context: In the life, in the test's own task.
 * Return: 0: nothing was left; otherwise 1.
 */
u32 zorva_host_end(void);

/**
 * zorva_host_run() - runs a test in a life of its own
 * @test: the test
 * @argument: what it is given
 *
 * Like zorva_host_begin(), the test, zorva_host_end(); but a test that fails
 * is left at once, and the process goes on.
 *
 * Context: Outside of a life.
 * Return: 0: passed; 1: failed, which was told of.
 */
u32 zorva_host_run(void (*test)(void *argument), void *argument);

/**
 * zorva_host_time_limit() - limits the time of each life
 * @secs: seconds of the life's own time; 0 for no limit
 *
 * Without a call it is 600. A test whose threads wait for each other while it
 * looks every now and then whether they have come to an end fails when that
 * time is over.
 *
 * Context: Outside of a life.
 */
void zorva_host_time_limit(u32 secs);

/* Orders of threads. */

/* In which places a thread may have to give way to another one that is ready:
 * before and after each call of zorva; */
#define ZORVA_HOST_CALLS 0u
/* between any two calls of zorva into the kernel as well, as on a kernel that
 * preempts. docs/host.md lists the windows that are left open there. */
#define ZORVA_HOST_KERNEL_CALLS 1u
/* and added to one of them: time may pass at calls of zorva, up to an expiry or
 * the end of a sleep within 100 ms, as if threads were slow. Otherwise threads
 * that sleep until different times never meet. A test must then not count on
 * how long something takes. */
#define ZORVA_HOST_SLOWLY 2u

/**
 * zorva_host_explore() - runs a test in many orders of its threads
 * @test: the test; it is run in a life of its own each time
 * @argument: what it is given
 * @orders: how many; they have the seeds 1 to @orders. With 0 nothing is run,
 *          and nothing fails
 * @places: %ZORVA_HOST_CALLS or %ZORVA_HOST_KERNEL_CALLS, and
 *          %ZORVA_HOST_SLOWLY added or not
 *
 * Stops at the first order that fails, and tells its seed. A test must do the
 * same each time: it must not depend on the host's time, on addresses, or on
 * what an earlier run of it has left in variables.
 *
 * With the variable ZORVA_HOST_SEED in the environment, only the order with
 * that seed is run.
 *
 * Context: Outside of a life.
 * Return: 0: all passed; 1: one failed, which was told of.
 */
u32 zorva_host_explore(void (*test)(void *argument), void *argument, u32 orders,
		       u32 places);

/**
 * zorva_host_repeat() - runs a test in the order that has a seed
 * @test: the test
 * @argument: what it is given
 * @seed: the seed, from a failure of zorva_host_explore(); with 0 threads run
 *        in the order in which they became ready
 * @places: as in that call
 *
 * Context: Outside of a life.
 * Return: 0: passed; 1: failed, which was told of.
 */
u32 zorva_host_repeat(void (*test)(void *argument), void *argument, u64 seed,
		      u32 places);

/**
 * zorva_host_failed_seed() - tells the seed of the order that failed
 *
 * Context: Any time.
 * Return: That of the last zorva_host_explore() that returned 1; 0 when the
 * last one returned 0.
 */
u64 zorva_host_failed_seed(void);

/* Memory. */

/**
 * zorva_host_fail_allocation() - makes one allocation fail
 * @nth: which of those from now on, the next one is 1; 0 for none
 *
 * Counts what zorva allocates: a message queue makes several.
 *
 * Context: In a life, anywhere.
 */
void zorva_host_fail_allocation(u32 nth);

/**
 * zorva_host_sweep() - runs a test with each of its allocations failing
 * @test: the test; it has to bear that, and must leave nothing
 * @argument: what it is given
 *
 * Runs the test with the first allocation failing, then with the second, and
 * so on until one run comes to its end without a failing one.
 *
 * Context: Outside of a life.
 * Return: 0: all passed; 1: one failed, which was told of.
 */
u32 zorva_host_sweep(void (*test)(void *argument), void *argument);

/* Time. */

/**
 * zorva_host_pass_time() - lets time pass while the caller is busy
 * @usecs: microseconds, at most U64_MAX / 1000
 *
 * Timers expire meanwhile, but no other thread runs.
 *
 * Context: In a life, anywhere; nothing expires in an interrupt or with
 * interrupts off.
 */
void zorva_host_pass_time(u64 usecs);

/**
 * zorva_host_sleep() - lets time pass while the caller sleeps
 * @usecs: microseconds, at most U64_MAX / 1000
 *
 * Context: In a life, in a thread; sleeps, so other threads run.
 */
void zorva_host_sleep(u64 usecs);

/**
 * zorva_host_settle() - lets all other threads run until they are blocked
 *
 * No time passes.
 *
 * Context: In a life, in a thread; sleeps.
 */
void zorva_host_settle(void);

/**
 * zorva_host_now() - tells the time since the life began
 *
 * Context: In a life, anywhere.
 * Return: Microseconds.
 */
u64 zorva_host_now(void);

/* Contexts. */

/**
 * zorva_host_hard_interrupt() - runs a function as a hard interrupt does
 * @fn: the function
 * @argument: what it is given
 *
 * Context: In a life, anywhere but with interrupts off.
 */
void zorva_host_hard_interrupt(void (*fn)(void *argument), void *argument);

/**
 * zorva_host_soft_interrupt() - runs a function as a soft interrupt does
 * @fn: the function
 * @argument: what it is given
 *
 * Context: In a life, anywhere but in an interrupt.
 */
void zorva_host_soft_interrupt(void (*fn)(void *argument), void *argument);

/**
 * zorva_host_without_interrupts() - runs a function with interrupts off
 * @fn: the function
 * @argument: what it is given
 *
 * Context: In a life, anywhere.
 */
void zorva_host_without_interrupts(void (*fn)(void *argument), void *argument);

/**
 * zorva_host_network_event() - raises a network event
 * @event: its number
 * @data: what comes with it
 *
 * Context: In a life, in a thread; those who subscribed are called as in a
 * soft interrupt.
 * Return: The result of the last one that was called.
 */
int zorva_host_network_event(unsigned long event, void *data);

/* What there is to see. */

/**
 * zorva_host_thread_has_ended() - tells whether a thread has ended
 * @pid: its PID, from zorva_thread_create()
 *
 * Context: In a life, anywhere.
 * Return: 1 when it has ended, 0 when not or when there was none.
 */
int zorva_host_thread_has_ended(u32 pid);

/**
 * zorva_host_report() - reads a report file
 * @name: its name, "zorva.mutex"
 *
 * Context: In a life, in a thread.
 * Return: Its whole text, valid until the next call; null when there is no
 * such file.
 */
const char *zorva_host_report(const char *name);

/**
 * zorva_host_reports() - tells what zorva has reported
 *
 * That is what the debug-print function is given: one line for each report,
 * "1 zorva_sem_create_track: invalid parameter" with its level and function.
 *
 * Context: In a life, anywhere.
 * Return: The reports of this life so far, valid until the next one.
 */
const char *zorva_host_reports(void);

/**
 * zorva_host_log() - tells what is in the kernel log
 *
 * Context: In a life, anywhere.
 * Return: The log of this life so far, valid until the next call.
 */
const char *zorva_host_log(void);

#ifdef __cplusplus
}
#endif

#endif
