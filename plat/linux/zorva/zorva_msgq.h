/* SPDX-License-Identifier: GPL-2.0 */
/* The record of a message queue, and the report. */
#ifndef ZORVA_MSGQ_PRIVATE_H
#define ZORVA_MSGQ_PRIVATE_H

#include "zk.h"
#include "zorva/msgq.h"
#include "zorva/mutex.h"

/* The ring of a queue. */
struct msg_ring {
	u32 component;
	u32 maxDepth;
	u32 msgSize;
	u32 readOffset;	 /* of the oldest message */
	u32 writeOffset; /* of the next free slot */
	u32 bufferSize;
	s32 currDepth;
	s32 maxSeen; /* the highest currDepth so far */
	char *buffer;
};

/*
 * Packed: the link lies at an odd address, and is reached only through
 * functions that rely on no alignment.
 */
struct [[gnu::packed]] zorva_msg_queue {
	msg_ring ring;
	char name[33];
	zorva_sem_t *txSem;  /* counts the free slots */
	zorva_sem_t *rxSem;  /* counts the stored messages */
	zorva_mutex_t *lock; /* guards the ring */
	unsigned char link[ZK_SIZEOF_LIST_HEAD];
};

static_assert(sizeof(void *) != 4 || sizeof(zorva_msg_queue) == 89);

extern "C" {

/* Prints all queues, oldest first; returns 0. */
int zorva_msg_queue_dump(struct seq_file *seq);
}

#endif
