/* SPDX-License-Identifier: GPL-2.0 */
/* The record of a wait module. */
#ifndef ZORVA_WAIT_PRIVATE_H
#define ZORVA_WAIT_PRIVATE_H

#include "zk.h"
#include "zorva/wait.h"

struct wait_module {
	u32 component;
	u32 waitId;
	u32 state; /* 1 once made; only then is it found */
	wait_queue_head queue;
	s32 count; /* 1: somebody waits; negative: woken with nobody there */
	wait_module *previous;
	wait_module *next;
};

static_assert(ZK_SIZEOF_WAIT_QUEUE_HEAD != 8 || sizeof(void *) != 4 ||
	      sizeof(wait_module) == 32);

extern "C" {

/* The oldest wait module; the list is guarded by _waitListLck. */
extern wait_module *_zorvaWaitHead;

wait_module *_zorva_wait_module_find(u32 waitId);

/* Prints nothing; returns 0. */
int zorva_wait_module_dump(struct seq_file *seq);
}

#endif
