/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What the suites of threads and locks share: tasks that do one thing after
 * the other beside the test, threads of zorva whose end is seen, refused
 * calls, and the parts of a lock's report.
 *
 * A test that is given up leaves its tasks behind, so they are never on its
 * stack.
 */
#ifndef ZORVA_LOCK_TEST_H
#define ZORVA_LOCK_TEST_H

#include <linux/delay.h>
#include <linux/jiffies.h>
#include <linux/kernel.h>
#include <linux/kthread.h>
#include <linux/sched.h>
#include <linux/sched/signal.h>
#include <linux/sched/task.h>
#include <linux/string.h>

#include "zorva_test.h"

/* The components that each suite may own objects for. */
#define ZT_THREAD_COMPONENT 46u
#define ZT_MUTEX_COMPONENT 47u
#define ZT_SEM_COMPONENT 48u
#define ZT_LOCK_REPORT_COMPONENT 49u
#define ZT_LOCK_LOAD_COMPONENT 50u /* to 53 */

/*
 * A kernel that watches itself has something to say about locks that are taken
 * in interrupts, freed while they are held, or held by the hundred. Tests that
 * do so leave it alone.
 */
#define ZT_KERNEL_WATCHES                                                      \
	(IS_ENABLED(CONFIG_PROVE_LOCKING) ||                                   \
	 IS_ENABLED(CONFIG_DEBUG_ATOMIC_SLEEP))

/* Gives the others time to run, until something has happened. */
#define ZT_RUN_UNTIL(condition)                                                \
	do {                                                                   \
		const unsigned long zt_end_ = jiffies + 5 * HZ;                \
                                                                               \
		while (!(condition) && time_before(jiffies, zt_end_))          \
			schedule_timeout_uninterruptible(1);                   \
	} while (0)

/* A test that does not see it happen is given up. */
#define ZT_WAIT_FOR(test, condition)                                           \
	do {                                                                   \
		ZT_RUN_UNTIL(condition);                                       \
		KUNIT_ASSERT_TRUE(test, condition);                            \
	} while (0)

/* Waiting for a lock, or for a tick. */
static inline bool zt_is_blocked(struct task_struct *task)
{
	return zt_task_state(task) == TASK_UNINTERRUPTIBLE;
}

/* A kernel thread that zorva does not know, and what it was last told to do. */
struct zt_actor {
	struct kthread_worker *worker;
	struct kthread_work work;
	void (*fn)(void *arg);
	void *arg;
	bool busy;
};

static inline void zt_act(struct kthread_work *work)
{
	struct zt_actor *actor = container_of(work, struct zt_actor, work);

	actor->fn(actor->arg);
	WRITE_ONCE(actor->busy, false);
}

static inline void zt_actor_start(struct kunit *test, struct zt_actor *actor,
				  const char *name)
{
	actor->worker = kthread_create_worker(0, "%s", name);
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, actor->worker);
	kthread_init_work(&actor->work, zt_act);
	actor->busy = false;
}

static inline struct task_struct *zt_task_of(struct zt_actor *actor)
{
	return actor->worker->task;
}

/* Tells an actor to do something, which need not come to an end. */
static inline void zt_begin(struct kunit *test, struct zt_actor *actor,
			    void (*fn)(void *arg), void *arg)
{
	KUNIT_ASSERT_FALSE(test, READ_ONCE(actor->busy));
	actor->fn = fn;
	actor->arg = arg;
	WRITE_ONCE(actor->busy, true);
	kthread_queue_work(actor->worker, &actor->work);
}

static inline void zt_expect_blocked(struct kunit *test, struct zt_actor *actor)
{
	ZT_RUN_UNTIL(zt_is_blocked(zt_task_of(actor)));
	KUNIT_EXPECT_TRUE(test, zt_is_blocked(zt_task_of(actor)));
	KUNIT_EXPECT_TRUE(test, READ_ONCE(actor->busy));
}

static inline void zt_finish(struct kunit *test, struct zt_actor *actor)
{
	ZT_WAIT_FOR(test, !READ_ONCE(actor->busy));
}

static inline void zt_do(struct kunit *test, struct zt_actor *actor,
			 void (*fn)(void *arg), void *arg)
{
	zt_begin(test, actor, fn, arg);
	zt_finish(test, actor);
}

static inline void zt_actor_stop(struct kunit *test, struct zt_actor *actor)
{
	zt_finish(test, actor);
	kthread_destroy_worker(actor->worker);
}

/* A thread of zorva; the task outlives it, to be looked at. */
struct zt_thread {
	void (*body)(void *arg);
	void *arg;
	u32 pid;
	struct task_struct *task;
};

static inline void zt_thread_entry(void *arg)
{
	struct zt_thread *thread = arg;

	get_task_struct(current);
	WRITE_ONCE(thread->task, current);
	thread->body(thread->arg);
}

static inline void zt_thread_start(struct kunit *test, struct zt_thread *thread,
				   u32 comp, const char *name, s32 priority,
				   void (*body)(void *arg), void *arg)
{
	thread->body = body;
	thread->arg = arg;
	thread->task = NULL;
	thread->pid = zorva_thread_create_track(comp, name, 0, priority,
						zt_thread_entry, thread,
						"caller.c", 31);
	KUNIT_ASSERT_NE(test, thread->pid, 0u);
	ZT_WAIT_FOR(test, READ_ONCE(thread->task));
	KUNIT_EXPECT_EQ(test, (u32)thread->task->pid, thread->pid);
}

static inline bool zt_is_gone(const struct zt_thread *thread)
{
	return zt_task_state(thread->task) == TASK_DEAD;
}

/* Waits for the end of a thread, and returns its exit code. */
static inline int zt_thread_end(struct kunit *test, struct zt_thread *thread)
{
	int exit_code;

	ZT_WAIT_FOR(test, zt_is_gone(thread));
	exit_code = zt_exit_code(thread->task);
	put_task_struct(thread->task);
	return exit_code;
}

/*
 * The argument checks of a function, by their place among them, and where the
 * source has each.
 */
struct zt_checks {
	const char *file;
	const char *func;
	s32 line[8];
};

#define ZT_CHECKS(in, of)                                                      \
	{                                                                      \
		.file = in, .func = of,                                        \
	}

/*
 * One argument was refused: that is all that was reported, from the line of
 * that check.
 */
static inline void zt_expect_refused(struct kunit *test,
				     struct zt_checks *checks,
				     unsigned int place)
{
	unsigned int i;
	s32 line;

	ZT_EXPECT_REPORTS(test, ZT_ERROR("%s", "%s", "invalid parameter"),
			  checks->file, checks->func);
	line = zt_report(test, 0)->line;
	for (i = 0; i < ARRAY_SIZE(checks->line); i++)
		if (i == place && checks->line[i])
			KUNIT_EXPECT_EQ(test, line, checks->line[i]);
		else
			KUNIT_EXPECT_NE(test, line, checks->line[i]);
	checks->line[place] = line;
	zt_forget_reports();
}

static inline const char *zt_put_star(char *to, const char *from)
{
	*to = '*';
	return from + strspn(from, "0123456789");
}

/*
 * A text with a star for each time of a history and each line of the module's
 * own source.
 */
static inline const char *zt_masked(struct kunit *test, const char *text)
{
	static const char own[] = "zorva_sem.cpp, ";
	const size_t length = strlen(own);
	char *masked = kunit_kzalloc(test, strlen(text) + 1, GFP_KERNEL);
	char *to = masked;

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, masked);
	while (*text) {
		if (*text == '[' && strspn(text + 1, "0123456789") == 16) {
			*to++ = *text++;
			text = zt_put_star(to++, text);
		} else if (strncmp(text, own, length) == 0 &&
			   text[length] >= '1' && text[length] <= '9') {
			memcpy(to, own, length);
			to += length;
			text = zt_put_star(to++, text + length);
		} else {
			*to++ = *text++;
		}
	}
	return masked;
}

#define ZT_LOCK_LINE "---------------------------------\n"

/* What a report of locks says of the one with a name, or "". */
static inline const char *zt_lock(struct kunit *test, const char *report,
				  const char *name)
{
	const char *text = zt_file(test, report);
	const char *line = zt_text(test, "\nName      : %s\n", name);
	const char *start = strstr(text, line), *end;

	if (!start)
		return "";
	/* The index stands before the name. */
	while (start > text && start[-1] != '\n')
		start--;
	end = strstr(start, "\n\n");
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, (const void *)end);
	return zt_masked(test,
			 zt_text(test, "%.*s", (int)(end + 1 - start), start));
}

/* The history that a report shows for a lock. */
static inline const char *zt_history(struct kunit *test, const char *report,
				     const char *name)
{
	const char *lock = zt_lock(test, report, name);
	const char *line = strstr(lock, ZT_LOCK_LINE);

	return line ? line + strlen(ZT_LOCK_LINE) : "(not shown)\n";
}

/* One value that a report shows for a lock. */
static inline const char *zt_value(struct kunit *test, const char *report,
				   const char *name, const char *field)
{
	const char *lock = zt_lock(test, report, name);
	const char *line = strstr(lock, zt_text(test, "%-10s: ", field));

	if (!line)
		return "(none)";
	line += 12;
	return zt_text(test, "%.*s", (int)(strchrnul(line, '\n') - line), line);
}

#endif
