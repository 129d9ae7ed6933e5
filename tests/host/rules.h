/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What the tests of the rules have in common: each test breaks one and notes
 * the line at which it does; there it has to be told so.
 */
#ifndef HOST_RULES_H
#define HOST_RULES_H

#include "check.h"

#define OWNER ZORVA_COMP_PORT

static unsigned int line;
static zorva_mutex_t *mutex;
static zorva_sem_t *sem;
static zorva_event_t *event;
static zorva_msg_queue_t *queue;
static u32 wait_id;
static u32 timer;

static void expect_told_in(const char *file, const char *name,
			   void (*test)(void *), const char *part)
{
	char place[64];
	u32 result;

	line = 0;
	result = zorva_host_run(test, NULL);
	snprintf(place, sizeof(place), "[%s:%u]", file, line);
	expect(name, result && strstr(told, place) && strstr(told, part));
}

#define expect_told(name, test, part)                                          \
	expect_told_in(ZORVA_FILE, name, test, part)

#endif
