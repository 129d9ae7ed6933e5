/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What the suites of queues and events share: threads that wait, the lock
 * reports without what differs from run to run, and a queue as it lies in
 * memory.
 *
 * A call that waits is made by a thread of its own. The kernel does not
 * preempt, so a call that did not wait has not been switched away from: that,
 * and not the clock, tells whether it returned at once.
 */
#ifndef ZORVA_MSG_TEST_H
#define ZORVA_MSG_TEST_H

#include <linux/completion.h>
#include <linux/delay.h>
#include <linux/err.h>
#include <linux/jiffies.h>
#include <linux/kernel.h>
#include <linux/kthread.h>
#include <linux/list.h>
#include <linux/sched.h>
#include <linux/sched/task.h>
#include <linux/slab.h>
#include <linux/string.h>

#include "zorva_account.h"
#include "zorva_test.h"

/* Who owns the objects, and who else uses them. */
#define MSG_OWNER 53u
#define MSG_CALLER 54u

/* A queue as it lies in memory. */
struct msg_queue_record {
	u32 component;
	u32 max_depth;
	u32 msg_size;
	u32 read_offset;
	u32 write_offset;
	u32 buffer_size;
	s32 curr_depth;
	s32 max_seen;
	char *buffer;
	char name[33];
	zorva_sem_t *tx_sem;
	zorva_sem_t *rx_sem;
	zorva_mutex_t *lock;
	struct list_head link;
} __packed;

static_assert(sizeof(void *) != 4 ||
	      (offsetof(struct msg_queue_record, tx_sem) == 69 &&
	       offsetof(struct msg_queue_record, link) == 81 &&
	       sizeof(struct msg_queue_record) == 89));
/* The link lies at an odd address everywhere. */
static_assert(offsetof(struct msg_queue_record, link) % 2 == 1);

static inline struct msg_queue_record *msg_record_of(zorva_msg_queue_t *queue)
{
	return (struct msg_queue_record *)queue;
}

/* A queue whose making is not looked at. */
static inline zorva_msg_queue_t *msg_make(struct kunit *test, const char *name,
					  u32 depth, u32 size)
{
	zorva_msg_queue_t *queue = zorva_msg_queue_create_track(MSG_OWNER, name,
								depth, size,
								"maker.c", 120);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, queue);
	zt_forget_reports();
	return queue;
}

static inline void msg_drop(struct kunit *test, zorva_msg_queue_t *queue)
{
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_delete(MSG_OWNER, queue),
			ZORVA_RC_OK);
}

/*
 * Takes a lock out of a record for the time of a call. No macro that asks for
 * the member's address will do: it lies at an odd one.
 */
#define MSG_WITHOUT(lock, call)                                                \
	do {                                                                   \
		const typeof(lock) msg_kept_ = (lock);                         \
                                                                               \
		(lock) = NULL;                                                 \
		call;                                                          \
		(lock) = msg_kept_;                                            \
	} while (0)

#define MSG_QUEUE_TEXT                                                         \
	"Queue Name   : %s\n"                                                  \
	"Component ID : %u (%s)\n"                                             \
	"Msg Size     : %u bytes\n"                                            \
	"Max Depth    : %u\n"                                                  \
	"Curr Depth   : %d\n"                                                  \
	"Max Seen     : %d\n\n"

/* A thread that runs one function. */
struct msg_thread {
	void (*run)(void *arg);
	void *arg;
	struct task_struct *task;
	struct completion done;
};

static inline int msg_thread_main(void *data)
{
	struct msg_thread *thread = data;

	thread->run(thread->arg);
	zt_complete_and_exit(&thread->done, 0);
}

static inline struct msg_thread *msg_start(struct kunit *test,
					   void (*run)(void *arg), void *arg)
{
	struct msg_thread *thread = kzalloc(sizeof(*thread), GFP_KERNEL);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, thread);
	thread->run = run;
	thread->arg = arg;
	init_completion(&thread->done);
	thread->task = kthread_create(msg_thread_main, thread, "zorva_msg");
	KUNIT_ASSERT_FALSE(test, IS_ERR(thread->task));
	get_task_struct(thread->task);
	wake_up_process(thread->task);
	return thread;
}

/* True while the thread sleeps inside a call that no signal ends. */
static inline bool msg_is_waiting(struct msg_thread *thread)
{
	return !completion_done(&thread->done) &&
	       zt_task_state(thread->task) == TASK_UNINTERRUPTIBLE;
}

/* Expects that the thread waits, and has not stopped for a moment. */
static inline void msg_expect_waiting(struct kunit *test,
				      struct msg_thread *thread)
{
	const unsigned long latest = jiffies + msecs_to_jiffies(5000);
	unsigned long switches;

	while (!msg_is_waiting(thread) && time_before(jiffies, latest))
		msleep(10);
	/* It says so before it has gone to sleep. */
	msleep(20);
	switches = READ_ONCE(thread->task->nvcsw);
	KUNIT_EXPECT_TRUE(test, msg_is_waiting(thread));
	msleep(120);
	KUNIT_EXPECT_TRUE(test, msg_is_waiting(thread));
	KUNIT_EXPECT_EQ(test, READ_ONCE(thread->task->nvcsw), switches);
}

/* A thread that does not end, and what it uses, is left as it is. */
static inline void msg_join_within(struct kunit *test,
				   struct msg_thread *thread, unsigned int secs)
{
	KUNIT_ASSERT_NE_MSG(test,
			    wait_for_completion_timeout(&thread->done,
							secs * HZ),
			    0ul, "a thread does not end");
	put_task_struct(thread->task);
	kfree(thread);
}

static inline void msg_join(struct kunit *test, struct msg_thread *thread)
{
	msg_join_within(test, thread, 5);
}

/* How long a call took, and whether the caller had to wait. */
struct msg_pace {
	unsigned long start;
	unsigned long switches;
	unsigned long ticks;
	bool waited;
};

static inline void msg_start_pace(struct msg_pace *pace)
{
	pace->start = jiffies;
	pace->switches = current->nvcsw;
}

static inline void msg_end_pace(struct msg_pace *pace)
{
	pace->waited = current->nvcsw != pace->switches;
	pace->ticks = jiffies - pace->start;
}

/*
 * A time limit's length is that many ticks and the rest of one. A busy host
 * may make it longer, but never shorter.
 */
static inline void msg_expect_pace(struct kunit *test,
				   const struct msg_pace *pace,
				   unsigned int msecs)
{
	KUNIT_EXPECT_EQ(test, pace->waited, (bool)(msecs != 0));
	if (msecs) {
		KUNIT_EXPECT_GE(test, pace->ticks, msecs_to_jiffies(msecs));
		KUNIT_EXPECT_LT(test, pace->ticks,
				msecs_to_jiffies(msecs) + HZ / 2);
	}
}

/* A message's way in or out, by whichever thread runs it. */
struct msg_transfer {
	zorva_msg_queue_t *queue;
	char message[16];
	u32 length;
	u32 timeout;
	u32 result;
	struct msg_pace pace;
};

/* Before the call its result is none that there is. */
#define MSG_TRANSFER(to, text, size, msecs)                                    \
	{                                                                      \
		.queue = to, .message = text, .length = size,                  \
		.timeout = msecs, .result = ~1u,                               \
	}

static inline void msg_send(void *arg)
{
	struct msg_transfer *transfer = arg;

	msg_start_pace(&transfer->pace);
	transfer->result =
		zorva_msg_queue_send_track(MSG_CALLER, transfer->queue,
					   transfer->message, transfer->length,
					   transfer->timeout, "sender.c", 77);
	msg_end_pace(&transfer->pace);
}

static inline void msg_receive(void *arg)
{
	struct msg_transfer *transfer = arg;

	msg_start_pace(&transfer->pace);
	transfer->result = zorva_msg_queue_receive_track(MSG_CALLER,
							 transfer->queue,
							 transfer->message,
							 transfer->length,
							 transfer->timeout,
							 "receiver.c", 78);
	msg_end_pace(&transfer->pace);
}

/* Sends and receives texts without waiting. */
static inline u32 msg_put(zorva_msg_queue_t *queue, const char *text)
{
	return zorva_msg_queue_send_track(MSG_CALLER, queue, text, strlen(text),
					  ZORVA_NO_WAIT, "sender.c", 77);
}

/* The next message, or its receive's code, as a text. */
static inline const char *msg_get(struct kunit *test, zorva_msg_queue_t *queue)
{
	char message[32] = "";
	const u32 result =
		zorva_msg_queue_receive_track(MSG_CALLER, queue, message,
					      sizeof(message) - 1,
					      ZORVA_NO_WAIT, "receiver.c", 78);

	return result ? zt_text(test, "error 0x%x", result)
		      : zt_text(test, "%s", message);
}

/* Expects messages of one character each, and no more. */
static inline void msg_expect_messages(struct kunit *test,
				       zorva_msg_queue_t *queue,
				       const char *messages)
{
	for (; *messages; messages++)
		ZT_EXPECT_TEXT(test, msg_get(test, queue), "%c", *messages);
	ZT_EXPECT_TEXT(test, msg_get(test, queue), "error 0xffffffff");
}

#define MSG_SEND_ERRORS(code, name, file, line)                                \
	ZT_ERROR("zorva_msgq.cpp", "zorva_msg_queue_send_track",               \
		 "error 0x" code)                                              \
	ZT_ERROR("zorva_msgq.cpp", "zorva_msg_queue_send_track",               \
		 "send to queue '" name "' failed (0x" code ", " file          \
		 ", " line ")")

/* Expects one "invalid parameter" of a function, and returns its line. */
static inline s32 msg_refused(struct kunit *test, const char *file,
			      const char *func)
{
	s32 line = 0;

	ZT_EXPECT_REPORTS(test, ZT_ERROR("%s", "%s", "invalid parameter"), file,
			  func);
	if (zt_report_count())
		line = zt_report(test, 0)->line;
	zt_forget_reports();
	return line;
}

/* Each test of an argument stands in a line of its own, in their order. */
static inline void msg_expect_rising(struct kunit *test, const s32 *lines,
				     unsigned int count)
{
	unsigned int i;

	KUNIT_EXPECT_GT(test, lines[0], 0);
	for (i = 1; i < count; i++)
		KUNIT_EXPECT_GT(test, lines[i], lines[i - 1]);
}

/* The IDs that own nothing, and which of two tests refuses each. */
static const struct msg_wrong_id {
	u32 id;
	unsigned int test;
} msg_wrong_ids[] = { { 0, 0 }, { 57, 1 }, { 58, 1 }, { 0xFFFFFFFF, 1 } };

/*
 * Replaces the number that follows each of the prefix's places at the start
 * of a line by T, and expects it between the two.
 */
static inline const char *msg_without_number(struct kunit *test,
					     const char *text,
					     const char *prefix, u32 from,
					     u32 to)
{
	char *copy = kunit_kzalloc(test, strlen(text) + 1, GFP_KERNEL);
	char *out = copy;

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, copy);
	while (*text) {
		const size_t length = strchrnul(text, '\n') - text;
		const char *end = text + length + (text[length] != '\0');

		if (strncmp(text, prefix, strlen(prefix)) == 0) {
			char *rest;
			u32 number;

			memcpy(out, text, strlen(prefix));
			out += strlen(prefix);
			text += strlen(prefix);
			number = simple_strtoul(text, &rest, 10);
			KUNIT_EXPECT_GE(test, number, from);
			KUNIT_EXPECT_LE(test, number, to);
			/* Histories have 16 digits, the head what it takes. */
			if (*rest == ']')
				KUNIT_EXPECT_EQ(test, (int)(rest - text), 16);
			*out++ = 'T';
			text = rest;
		}
		memcpy(out, text, end - text);
		out += end - text;
		text = end;
	}
	return copy;
}

/* A lock report with T for every time, each of them not before "since". */
static inline const char *msg_locks(struct kunit *test, const char *name,
				    u32 since)
{
	const char *text = zt_file(test, name);
	const u32 now = zt_uptime_secs();

	text = msg_without_number(test, text, "Current Time : ", since, now);
	return msg_without_number(test, text, "  [", since, now);
}

#define MSG_HEAD(title)                                                        \
	"\n----------------\nDump all ACTIVE " title                           \
	"\nCurrent Time : T\n----------------\n\n"
#define MSG_LOCK(name, status)                                                 \
	"Index     : %u\nName      : " name "\nComponent : %s (%u)\n"          \
	"Status    : " status "\n---------------------------------\n"

/* The index that a lock has in its report, or 0. */
static inline u32 msg_index(struct kunit *test, const char *report,
			    const char *name)
{
	const char *line = zt_text(test, "\nName      : %s\n", name);
	const char *found = strstr(report, line);

	while (found && found > report && found[-1] != '\n')
		found--;
	if (!found || strncmp(found, "Index     : ", 12) != 0)
		return 0;
	return simple_strtoul(found + 12, NULL, 10);
}

/* Everything that the reports tell, but for the time at which they tell it. */
static inline const char *msg_state(struct kunit *test)
{
	const char *text = zt_text(test, "%s%s%s", zt_file(test, "zorva.msgq"),
				   zt_file(test, "zorva.mutex.detail"),
				   zt_file(test, "zorva.sem.detail"));

	return msg_without_number(test, text, "Current Time : ", 0, U32_MAX);
}

/* The blocks that came after another one and are still there. */
static inline const char *msg_blocks_since(struct kunit *test,
					   struct zt_block *old)
{
	struct zt_block *block = zt_newest_block(test);
	const char *text = "";

	for (; block && block != old; block = block->older)
		text = zt_text(test, "%s%u bytes of %u, %s\n", text,
			       block->size, block->comp, block->file);
	return text;
}

/*
 * A report of the allocator as it stands at an index; where in the module the
 * allocation was made is taken from the report itself.
 */
static inline const char *msg_no_memory(struct kunit *test, unsigned int index,
					u32 size, const char *file)
{
	const char *colon = "";

	if (index < zt_report_count())
		colon = strrchr(zt_report(test, index)->text, ':') ?: "";
	return zt_text(test,
		       ZT_ERROR("zorva_mem.cpp", "zorva_malloc_track",
				"Memory allocation failed: %u bytes (%s:%lu)"),
		       size, file,
		       *colon ? simple_strtoul(colon + 1, NULL, 10) : 0);
}

#endif
