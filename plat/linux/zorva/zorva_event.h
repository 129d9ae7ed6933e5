/* SPDX-License-Identifier: GPL-2.0 */
/* The record of an event object. */
#ifndef ZORVA_EVENT_PRIVATE_H
#define ZORVA_EVENT_PRIVATE_H

#include "zk.h"
#include "zorva_text.h"
#include "zorva/event.h"
#include "zorva/mutex.h"

struct zorva_event {
	u32 component; /* written last: 0 until completely made */
	u32 pending[2];
	char name[name_size];
	zorva_sem_t *signal; /* given once for each set */
	zorva_mutex_t *lock; /* guards pending */
};

#endif
