// SPDX-License-Identifier: GPL-2.0
/*
 * Messages with the sender's number and a sequence number: one queue with one
 * receiver, who has to see each sender's messages without a gap, and one with
 * two receivers, each of whom sees a rising sequence; together they get all.
 */
#include <linux/jhash.h>
#include <linux/spinlock.h>
#include <linux/string.h>

#include "soak.h"

#define QUEUES 2
#define SENDERS 3
#define RECEIVERS 3
#define DEPTH 5
#define MESSAGE_SIZE 61

struct message {
	u32 sender;
	u32 sequence;
	u32 hash;
};

static const unsigned int queue_of[RECEIVERS] = { 0, 1, 1 };

static zorva_msg_queue_t *queues[QUEUES];
static u32 sent[QUEUES][SENDERS];
static DEFINE_SPINLOCK(sums_lock); /* guards what follows */
static u32 sent_sum[QUEUES], received_sum[QUEUES];
/* Each of these belongs to one actor. */
static u32 received[RECEIVERS][SENDERS];
static u32 next_expected[RECEIVERS][SENDERS];

static u32 hash_of(u32 queue, u32 sender, u32 sequence)
{
	return jhash_3words(queue, sender, sequence, 0);
}

/* The bytes behind the head of a message follow from it, too. */
static void fill(u8 *buffer, const struct message *head)
{
	memset(buffer, head->hash, MESSAGE_SIZE);
	memcpy(buffer, head, sizeof(*head));
}

void soak_send_step(struct soak_actor *actor)
{
	const u32 *const decide = actor->decide;
	const u32 queue = decide[0] % QUEUES;
	const u32 timeout = decide[1] % 8 ? 200 + decide[2] % 50
					  : ZORVA_NO_WAIT;
	struct message head = { actor->index, sent[queue][actor->index] };
	u8 buffer[MESSAGE_SIZE];
	s32 depth;
	u32 rc;

	head.hash = hash_of(queue, head.sender, head.sequence);
	fill(buffer, &head);
	rc = zorva_msg_queue_send(SOAK_QUEUE_COMP, queues[queue], buffer,
				  sizeof(buffer), timeout);
	if (rc) {
		SOAK_CHECK(rc == (timeout == ZORVA_NO_WAIT ? ZORVA_RC_FAIL
							   : ZORVA_RC_TIMEOUT),
			   "a message cannot be sent: 0x%x", rc);
		atomic_inc(&soak_expected.send_failed);
	} else {
		sent[queue][actor->index]++;
		spin_lock(&sums_lock);
		sent_sum[queue] += head.hash;
		spin_unlock(&sums_lock);
	}
	depth = zorva_msg_queue_depth(SOAK_QUEUE_COMP, queues[queue]);
	SOAK_CHECK(depth >= 0 && depth <= DEPTH, "a queue holds %d messages",
		   depth);
}

static void check(unsigned int receiver, const u8 *buffer)
{
	const u32 queue = queue_of[receiver];
	struct message head;
	u8 whole[MESSAGE_SIZE];
	u32 *next;

	memcpy(&head, buffer, sizeof(head));
	if (head.sender >= SENDERS ||
	    head.hash != hash_of(queue, head.sender, head.sequence)) {
		soak_violation("a message nobody has sent: %u of %u",
			       head.sequence, head.sender);
		return;
	}
	fill(whole, &head);
	SOAK_CHECK(memcmp(buffer, whole, sizeof(whole)) == 0,
		   "a message has changed");

	next = &next_expected[receiver][head.sender];
	SOAK_CHECK(head.sequence == *next ||
			   (queue == 1 && head.sequence > *next),
		   "queue %u: message %u of %u came, not %u", queue,
		   head.sequence, head.sender, *next);
	*next = head.sequence + 1;
	received[receiver][head.sender]++;
	spin_lock(&sums_lock);
	received_sum[queue] += head.hash;
	spin_unlock(&sums_lock);
}

static bool receive(unsigned int receiver, u32 timeout)
{
	u8 buffer[MESSAGE_SIZE];
	const u32 rc = zorva_msg_queue_receive(SOAK_QUEUE_COMP,
					       queues[queue_of[receiver]],
					       buffer, sizeof(buffer), timeout);

	if (rc) {
		SOAK_CHECK(rc == (timeout == ZORVA_NO_WAIT ? ZORVA_RC_FAIL
							   : ZORVA_RC_TIMEOUT),
			   "a message cannot be received: 0x%x", rc);
		return false;
	}
	check(receiver, buffer);
	return true;
}

void soak_receive_step(struct soak_actor *actor)
{
	const u32 *const decide = actor->decide;

	receive(actor->index,
		decide[0] % 4 ? 10 + decide[1] % 100 : ZORVA_NO_WAIT);
	/* The queue has to run full at times. */
	if (decide[2] % 64 == 0)
		zorva_time_usleep(300000);
}

int soak_queue_set_up(void)
{
	unsigned int i;

	for (i = 0; i < QUEUES; i++) {
		queues[i] = zorva_msg_queue_create(SOAK_QUEUE_COMP, "soak",
						   DEPTH, MESSAGE_SIZE);
		if (!queues[i])
			return -ENOMEM;
	}
	return 0;
}

void soak_queue_take_down(void)
{
	unsigned int i, k, receiver;
	u32 all = 0;
	s32 deepest;

	while (receive(0, ZORVA_NO_WAIT) || receive(1, ZORVA_NO_WAIT))
		;
	for (i = 0; i < QUEUES; i++) {
		for (k = 0; k < SENDERS; k++) {
			u32 got = 0;

			for (receiver = 0; receiver < RECEIVERS; receiver++)
				if (queue_of[receiver] == i)
					got += received[receiver][k];
			SOAK_CHECK(got == sent[i][k],
				   "queue %u: %u messages came of %u", i, got,
				   sent[i][k]);
			all += got;
		}
		SOAK_CHECK(sent_sum[i] == received_sum[i],
			   "queue %u: other messages came than were sent", i);
		deepest = zorva_msg_queue_max_depth(SOAK_QUEUE_COMP, queues[i]);
		SOAK_CHECK(deepest > 0 && deepest <= DEPTH,
			   "queue %u held up to %d messages", i, deepest);
		zorva_msg_queue_delete(SOAK_QUEUE_COMP, queues[i]);
	}
	pr_info("soak: queues: %u messages, %d sends without a slot\n", all,
		atomic_read(&soak_expected.send_failed));
}
