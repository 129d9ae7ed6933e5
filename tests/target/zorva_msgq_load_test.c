// SPDX-License-Identifier: GPL-2.0
/* Queues under load, with many threads and with the reports being read. */
#include <linux/module.h>
#include <linux/slab.h>
#include <linux/string.h>

#include "zorva_msg_test.h"

#define PRODUCERS 4u
#define CONSUMERS 4u
#define MESSAGES 20000u
#define EACH (MESSAGES / PRODUCERS)
#define LOAD_DEPTH 8u

/* No wait should last that long: who comes to its end gives up. */
#define STUCK_MSECS 20000u

struct message {
	u32 producer;
	u32 serial;
	u32 check;
};

/* All threads share one; the kernel does not preempt them. */
struct traffic {
	zorva_msg_queue_t *queue;
	atomic_t producers;
	unsigned int failed;
	unsigned int torn;
	unsigned int doubled;
	unsigned int out_of_order;
	atomic_t received;
	unsigned int step;
	struct completion look;
	/* With a reader, who takes a step waits until it was looked at. */
	bool has_reader;
	struct completion looked;
	u8 seen[PRODUCERS][EACH];
};

static u32 check_of(const struct message *message)
{
	return ~(message->producer * 0x01000193 ^ message->serial);
}

static void produce(void *arg)
{
	struct traffic *traffic = arg;
	struct message message = {
		.producer = atomic_inc_return(&traffic->producers) - 1
	};

	for (; message.serial < EACH; message.serial++) {
		message.check = check_of(&message);
		if (zorva_msg_queue_send(MSG_CALLER, traffic->queue, &message,
					 sizeof(message), STUCK_MSECS)) {
			traffic->failed++;
			return;
		}
	}
}

static void note(struct traffic *traffic, const struct message *message,
		 s32 newest[PRODUCERS])
{
	if (atomic_inc_return(&traffic->received) % traffic->step == 0 &&
	    traffic->has_reader) {
		complete(&traffic->look);
		if (!wait_for_completion_timeout(&traffic->looked, 20 * HZ))
			traffic->failed++;
	}
	if (message->check != check_of(message) ||
	    message->producer >= PRODUCERS || message->serial >= EACH) {
		traffic->torn++;
		return;
	}
	if (traffic->seen[message->producer][message->serial]++)
		traffic->doubled++;
	if ((s32)message->serial <= newest[message->producer])
		traffic->out_of_order++;
	newest[message->producer] = message->serial;
}

static void consume(void *arg)
{
	s32 newest[PRODUCERS] = { -1, -1, -1, -1 };
	struct traffic *traffic = arg;
	struct message message;
	unsigned int i;

	for (i = 0; i < MESSAGES / CONSUMERS; i++) {
		if (zorva_msg_queue_receive(MSG_CALLER, traffic->queue,
					    &message, sizeof(message),
					    STUCK_MSECS)) {
			traffic->failed++;
			return;
		}
		note(traffic, &message, newest);
	}
}

/* Every text that is read stays in memory until the test's end. */
#define READINGS 20u

static struct traffic *new_traffic(struct kunit *test)
{
	struct traffic *traffic =
		kunit_kzalloc(test, sizeof(*traffic), GFP_KERNEL);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, traffic);
	traffic->step = MESSAGES / READINGS;
	init_completion(&traffic->look);
	init_completion(&traffic->looked);
	traffic->queue =
		msg_make(test, "load", LOAD_DEPTH, sizeof(struct message));
	return traffic;
}

static void start_traffic(struct kunit *test, struct traffic *traffic,
			  struct msg_thread *threads[PRODUCERS + CONSUMERS])
{
	unsigned int i;

	for (i = 0; i < PRODUCERS; i++)
		threads[i] = msg_start(test, produce, traffic);
	for (i = 0; i < CONSUMERS; i++)
		threads[PRODUCERS + i] = msg_start(test, consume, traffic);
}

static void expect_all_arrived(struct kunit *test, struct traffic *traffic)
{
	unsigned int i, lost = 0;

	for (i = 0; i < MESSAGES; i++)
		lost += !traffic->seen[i / EACH][i % EACH];
	KUNIT_EXPECT_EQ(test, traffic->failed, 0u);
	KUNIT_EXPECT_EQ(test, traffic->torn, 0u);
	KUNIT_EXPECT_EQ(test, traffic->doubled, 0u);
	KUNIT_EXPECT_EQ(test, traffic->out_of_order, 0u);
	KUNIT_EXPECT_EQ(test, atomic_read(&traffic->received), (int)MESSAGES);
	KUNIT_EXPECT_EQ(test, lost, 0u);
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_depth(MSG_OWNER, traffic->queue),
			0);
	KUNIT_EXPECT_EQ(test,
			zorva_msg_queue_max_depth(MSG_OWNER, traffic->queue),
			(s32)LOAD_DEPTH);
	ZT_EXPECT_NO_REPORTS(test);
}

static void all_messages_of_many_threads_arrive_once(struct kunit *test)
{
	struct msg_thread *threads[PRODUCERS + CONSUMERS];
	struct traffic *traffic = new_traffic(test);
	unsigned int i;

	start_traffic(test, traffic, threads);
	for (i = 0; i < ARRAY_SIZE(threads); i++)
		msg_join_within(test, threads[i], 60);

	expect_all_arrived(test, traffic);
	msg_drop(test, traffic->queue);
}

static bool is_running(struct msg_thread **threads, unsigned int count)
{
	unsigned int i;

	for (i = 0; i < count; i++)
		if (!completion_done(&threads[i]->done))
			return true;
	return false;
}

/* A report of the queue is whole and its depths are possible ones. */
static void expect_sound_report(struct kunit *test)
{
	const char *text = zt_file(test, "zorva.msgq");
	const char *depths = strstr(text, "Curr Depth   : ");
	s32 curr = -1, seen = -1;

	KUNIT_ASSERT_TRUE(test, depths != NULL);
	KUNIT_EXPECT_EQ(test, 2,
			sscanf(depths, "Curr Depth : %d Max Seen : %d", &curr,
			       &seen));
	ZT_EXPECT_TEXT(test, text, MSG_QUEUE_TEXT, "load", MSG_OWNER,
		       _componentName[MSG_OWNER], (u32)sizeof(struct message),
		       LOAD_DEPTH, curr, seen);
	KUNIT_EXPECT_GE(test, curr, 0);
	KUNIT_EXPECT_LE(test, curr, seen);
	KUNIT_EXPECT_LE(test, seen, (s32)LOAD_DEPTH);
}

static void expect_ending(struct kunit *test, const char *name,
			  const char *ending)
{
	const char *text = zt_file(test, name);
	const size_t length = strlen(text), tail = strlen(ending);

	KUNIT_ASSERT_GT(test, length, tail);
	ZT_EXPECT_TEXT(test, text + length - tail, "%s", ending);
}

static void reports_are_read_while_messages_pass(struct kunit *test)
{
	struct msg_thread *threads[PRODUCERS + CONSUMERS];
	struct traffic *traffic = new_traffic(test);
	unsigned int i, readings = 0;

	traffic->has_reader = true;
	start_traffic(test, traffic, threads);
	for (i = 0; i < READINGS; i++) {
		KUNIT_ASSERT_NE(test, 0ul,
				wait_for_completion_timeout(&traffic->look,
							    20 * HZ));
		readings += atomic_read(&traffic->received) < (int)MESSAGES;
		expect_sound_report(test);
		expect_ending(test, "zorva.mutex.detail",
			      "\nTotal number of Mutex: 1 (active 1)\n\n");
		expect_ending(test, "zorva.sem.detail",
			      "\nTotal number of Semaphore: 2 (active 2)\n\n");
		complete(&traffic->looked);
	}
	for (i = 0; i < ARRAY_SIZE(threads); i++)
		msg_join_within(test, threads[i], 60);

	/* Each consumer can be one step further than what was looked at. */
	KUNIT_EXPECT_GE(test, readings, READINGS - CONSUMERS);
	expect_all_arrived(test, traffic);
	msg_drop(test, traffic->queue);
}

#define ROUNDS 5000u

/* One side of the game: sends on what it receives, one higher. */
struct player {
	zorva_msg_queue_t *in;
	zorva_msg_queue_t *out;
	unsigned int wrong;
	u32 first;
	u32 last;
};

static void play(void *arg)
{
	struct player *player = arg;
	u32 ball, expected = player->first;
	unsigned int i;

	for (i = 0; i < ROUNDS; i++, expected += 2) {
		if (zorva_msg_queue_receive(MSG_CALLER, player->in, &ball,
					    sizeof(ball), STUCK_MSECS))
			break;
		player->wrong += ball != expected;
		player->last = ball++;
		if (zorva_msg_queue_send(MSG_CALLER, player->out, &ball,
					 sizeof(ball), STUCK_MSECS))
			break;
	}
	player->wrong += i != ROUNDS;
}

static void two_threads_play_through_two_queues(struct kunit *test)
{
	zorva_msg_queue_t *ping = msg_make(test, "ping", 1, sizeof(u32));
	zorva_msg_queue_t *pong = msg_make(test, "pong", 1, sizeof(u32));
	struct player a = { .in = ping, .out = pong, .first = 0 };
	struct player b = { .in = pong, .out = ping, .first = 1 };
	struct msg_thread *first, *second;
	u32 ball = 0;

	first = msg_start(test, play, &a);
	second = msg_start(test, play, &b);
	zorva_msg_queue_send(MSG_CALLER, ping, &ball, sizeof(ball), 0);
	msg_join_within(test, first, 60);
	msg_join_within(test, second, 60);

	KUNIT_EXPECT_EQ(test, a.wrong, 0u);
	KUNIT_EXPECT_EQ(test, b.wrong, 0u);
	KUNIT_EXPECT_EQ(test, a.last, 2 * ROUNDS - 2);
	KUNIT_EXPECT_EQ(test, b.last, 2 * ROUNDS - 1);
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_depth(MSG_OWNER, ping), 1);
	KUNIT_EXPECT_EQ(test, zorva_msg_queue_max_depth(MSG_OWNER, ping), 1);
	ZT_EXPECT_NO_REPORTS(test);
	msg_drop(test, ping);
	msg_drop(test, pong);
}

/* Messages that found no slot in time, and only those, are missing. */
struct lossy {
	zorva_msg_queue_t *queue;
	u32 sent;
	u32 lost;
	u32 other;
};

static void send_with_little_patience(void *arg)
{
	struct lossy *lossy = arg;
	u32 serial;

	for (serial = 0; serial < 60; serial++) {
		const u32 result =
			zorva_msg_queue_send(MSG_CALLER, lossy->queue, &serial,
					     sizeof(serial),
					     serial % 2 ? 10 : ZORVA_NO_WAIT);

		if (result == ZORVA_RC_OK)
			lossy->sent++;
		else if (result ==
			 (serial % 2 ? ZORVA_RC_TIMEOUT : ZORVA_RC_FAIL))
			lossy->lost++;
		else
			lossy->other++;
	}
}

static void a_message_is_stored_or_its_send_failed(struct kunit *test)
{
	zorva_msg_queue_t *queue = msg_make(test, "lossy", 2, sizeof(u32));
	struct lossy lossy = { .queue = queue };
	struct msg_thread *sender =
		msg_start(test, send_with_little_patience, &lossy);
	u32 serial, received = 0;
	s32 newest = -1;
	bool more;

	do {
		more = is_running(&sender, 1);
		if (zorva_msg_queue_receive(MSG_CALLER, queue, &serial,
					    sizeof(serial), 0) == ZORVA_RC_OK) {
			KUNIT_EXPECT_GT(test, (s32)serial, newest);
			newest = serial;
			received++;
			more = true;
		}
		msleep(20);
	} while (more);
	msg_join(test, sender);

	KUNIT_EXPECT_GT(test, lossy.sent, 0u);
	KUNIT_EXPECT_GT(test, lossy.lost, 0u);
	KUNIT_EXPECT_EQ(test, lossy.sent + lossy.lost, 60u);
	KUNIT_EXPECT_EQ(test, received, lossy.sent);
	KUNIT_EXPECT_EQ(test, lossy.other, 0u);
	KUNIT_EXPECT_EQ(test, zt_report_count(), 2 * lossy.lost);
	msg_drop(test, queue);
}

/* Makes and deletes queues, three at a time and not in order. */
static void churn(void *arg)
{
	unsigned int *failed = arg;
	zorva_msg_queue_t *queues[3] = {};
	unsigned int i;

	for (i = 0; i < 300; i++) {
		zorva_msg_queue_t **queue = &queues[i * i % 3];

		if (*queue)
			*failed += zorva_msg_queue_delete(MSG_CALLER, *queue) !=
				   ZORVA_RC_OK;
		*queue = zorva_msg_queue_create(MSG_OWNER, NULL, 1, 1);
		*failed += !*queue;
		schedule();
	}
	for (i = 0; i < 3; i++)
		if (queues[i])
			zorva_msg_queue_delete(MSG_CALLER, queues[i]);
}

static void queues_come_and_go_while_the_report_is_read(struct kunit *test)
{
	struct msg_thread *threads[3];
	unsigned int i, failed = 0;

	for (i = 0; i < ARRAY_SIZE(threads); i++)
		threads[i] = msg_start(test, churn, &failed);
	for (i = 0; i < READINGS; i++) {
		const char *text = zt_file(test, "zorva.msgq");

		schedule();
		for (; *text; text = strstr(text, "\n\n") + 2)
			KUNIT_ASSERT_EQ(test, 0,
					strncmp(text, "Queue Name   : ", 15));
	}
	for (i = 0; i < ARRAY_SIZE(threads); i++)
		msg_join_within(test, threads[i], 60);

	KUNIT_EXPECT_EQ(test, failed, 0u);
	ZT_EXPECT_FILE(test, "zorva.msgq", "%s", "");
}

static struct kunit_case cases[] = {
	KUNIT_CASE(all_messages_of_many_threads_arrive_once),
	KUNIT_CASE(reports_are_read_while_messages_pass),
	KUNIT_CASE(two_threads_play_through_two_queues),
	KUNIT_CASE(a_message_is_stored_or_its_send_failed),
	KUNIT_CASE(queues_come_and_go_while_the_report_is_read),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_msgq_load",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Queues of ZORVA under load");
