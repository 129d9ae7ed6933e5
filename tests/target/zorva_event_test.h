/* SPDX-License-Identifier: GPL-2.0 */
/* What the suites of events share. */
#ifndef ZORVA_EVENT_TEST_H
#define ZORVA_EVENT_TEST_H

#include <linux/ctype.h>

#include "zorva_msg_test.h"

#define EVENT_INFO(func, text) ZT_REPORT(3, "zorva_event.cpp", func, text)
#define LOCK_INFO(func, text) ZT_REPORT(3, "zorva_sem.cpp", func, text)

/* What a create and a destroy say; the three arguments are the names. */
#define CREATED                                                                \
	LOCK_INFO("zorva_sem_create_track", "Semaphore '%s' has been created") \
	LOCK_INFO("zorva_mutex_create_track", "Mutex '%s' has been created")   \
	EVENT_INFO("zorva_event_create", "Event '%s' has been created")
#define DESTROYED                                                              \
	LOCK_INFO("zorva_sem_destroy_track",                                   \
		  "Semaphore '%s' has been destroyed")                         \
	LOCK_INFO("zorva_mutex_destroy_track",                                 \
		  "Mutex '%s' has been destroyed")                             \
	EVENT_INFO("zorva_event_destroy", "Event '%s' has been destroyed")

/* An event as it lies in memory. */
struct event_record {
	u32 component;
	u32 pending[2];
	char name[32];
	zorva_sem_t *signal;
	zorva_mutex_t *lock;
};

static_assert(sizeof(void *) != 4 || sizeof(struct event_record) == 52);

static inline struct event_record *record_of(zorva_event_t *event)
{
	return (struct event_record *)event;
}

/* An event whose making is not looked at. */
static inline zorva_event_t *make(struct kunit *test, const char *name)
{
	zorva_event_t *event = zorva_event_create(MSG_OWNER, name);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, event);
	zt_forget_reports();
	return event;
}

static inline void drop(struct kunit *test, zorva_event_t *event)
{
	KUNIT_EXPECT_EQ(test, zorva_event_destroy(MSG_OWNER, event),
			ZORVA_RC_OK);
}

/* A set and a wait, by whichever thread runs it. */
struct set {
	zorva_event_t *event;
	u32 bits[2];
	u32 result;
};

#define SET(to, first, second)                                                 \
	{                                                                      \
		.event = to, .bits = { first, second }, .result = ~1u,         \
	}

static inline void set_here(void *arg)
{
	struct set *set = arg;

	set->result = zorva_event_set(MSG_CALLER, set->event, set->bits);
}

struct wait {
	zorva_event_t *event;
	u32 bits[2];
	u32 timeout;
	u32 result;
	struct msg_pace pace;
};

#define WAIT(from, msecs)                                                      \
	{                                                                      \
		.event = from, .bits = { 0x55, 0xAA }, .timeout = msecs,       \
		.result = ~1u,                                                 \
	}

static inline void wait_here(void *arg)
{
	struct wait *wait = arg;

	msg_start_pace(&wait->pace);
	wait->result = zorva_event_wait(MSG_CALLER, wait->event, wait->bits,
					wait->timeout);
	msg_end_pace(&wait->pace);
}

static inline u32 put(zorva_event_t *event, u32 first, u32 second)
{
	const u32 bits[2] = { first, second };

	return zorva_event_set(MSG_CALLER, event, bits);
}

/* Expects a signal and these bits. */
static inline void expect_bits(struct kunit *test, zorva_event_t *event,
			       u32 first, u32 second)
{
	u32 bits[2] = { ~first, ~second };

	KUNIT_EXPECT_EQ(test, ZORVA_RC_OK,
			zorva_event_wait(MSG_CALLER, event, bits,
					 ZORVA_NO_WAIT));
	KUNIT_EXPECT_EQ(test, bits[0], first);
	KUNIT_EXPECT_EQ(test, bits[1], second);
}

/* Expects that there is no signal. */
static inline void expect_nothing(struct kunit *test, zorva_event_t *event)
{
	u32 bits[2] = { 0x55, 0xAA };

	KUNIT_EXPECT_EQ(test, ZORVA_RC_FAIL,
			zorva_event_wait(MSG_CALLER, event, bits,
					 ZORVA_NO_WAIT));
	KUNIT_EXPECT_EQ(test, bits[0], 0u);
	KUNIT_EXPECT_EQ(test, bits[1], 0u);
}

/*
 * A history's entries end in lines of the module, which are its own business:
 * each becomes an L where there is one that is not 0.
 */
static inline const char *without_lines(struct kunit *test, const char *text)
{
	char *copy = kunit_kzalloc(test, strlen(text) + 1, GFP_KERNEL);
	char *out = copy;

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, copy);
	while (*text) {
		if (strncmp(text, ".cpp, ", 6) != 0 || text[6] < '1' ||
		    text[6] > '9') {
			*out++ = *text++;
			continue;
		}
		memcpy(out, ".cpp, L", 7);
		out += 7;
		text += 6;
		while (isdigit(*text))
			text++;
	}
	return copy;
}

#endif
