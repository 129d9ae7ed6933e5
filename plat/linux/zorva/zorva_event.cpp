// SPDX-License-Identifier: GPL-2.0
/*
 * Event flags: a set of pending bits under a tracked mutex, and a tracked
 * semaphore that is given once for each set.
 *
 * A wait takes the semaphore before the mutex; a set gives the mutex before
 * the semaphore. The semaphore counts the sets, the bits merge them, so that
 * waits after the one that took the bits find an empty set.
 */
#include "zorva_event.h"
#include "zorva_debug.h"
#include "zorva/mem.h"

[[gnu::cold]] zorva_event_t *zorva_event_create(u32 compId, const char *name)
{
	ZORVA_CHECK(compId != 0, nullptr);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, nullptr);

	auto *const event = static_cast<zorva_event *>(
		zorva_malloc(compId, sizeof(zorva_event)));

	if (!event) {
		ZORVA_ERROR("allocate memory failed. (%u bytes)",
			    static_cast<u32>(sizeof(zorva_event)));
		return nullptr;
	}
	event->signal = zorva_sem_create(compId, name, 0);
	if (!event->signal) {
		ZORVA_ERROR("create semaphore failed.");
		zorva_free(compId, event);
		return nullptr;
	}
	event->lock = zorva_mutex_create(compId, name);
	if (!event->lock) {
		ZORVA_ERROR("create mutex failed.");
		zorva_sem_destroy(compId, event->signal);
		zorva_free(compId, event);
		return nullptr;
	}
	copy_text(event->name, name ? name : _componentName[compId],
		  sizeof(event->name));
	event->component = compId;
	ZORVA_INFO("Event '%s' has been created", event->name);
	return event;
}

[[gnu::cold]] u32 zorva_event_destroy(u32 compId, zorva_event_t *event)
{
	ZORVA_CHECK(compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(event, ZORVA_RC_NULL_ARG);
	ZORVA_CHECK(event->component != 0, ZORVA_RC_FAIL);

	if (zorva_sem_destroy(compId, event->signal)) {
		ZORVA_ERROR("destroy semaphore failed.");
		return ZORVA_RC_FAIL;
	}
	if (zorva_mutex_destroy(compId, event->lock)) {
		ZORVA_ERROR("destroy mutex failed.");
		return ZORVA_RC_FAIL;
	}
	ZORVA_INFO("Event '%s' has been destroyed", event->name);
	zorva_free(compId, event);
	return ZORVA_RC_OK;
}

namespace
{

/* Adds bits to the pending set and signals. */
u32 post(u32 compId, zorva_event *event, const u32 bits[2])
{
	u32 error = zorva_mutex_take(compId, event->lock);

	if (error)
		return error;
	event->pending[0] |= bits[0];
	event->pending[1] |= bits[1];
	error = zorva_mutex_give(compId, event->lock);
	if (error)
		return error;
	return zorva_sem_give(compId, event->signal);
}

/* Moves the pending set to the waiter. */
u32 collect(u32 compId, zorva_event *event, u32 bits[2])
{
	const u32 error = zorva_mutex_take(compId, event->lock);

	if (error)
		return error;
	bits[0] = event->pending[0];
	bits[1] = event->pending[1];
	event->pending[0] = 0;
	event->pending[1] = 0;
	return zorva_mutex_give(compId, event->lock);
}

} // namespace

/* Whether the event is completely made is meant not to be tested here. */
u32 zorva_event_set(u32 compId, zorva_event_t *event, const u32 bits[2])
{
	ZORVA_CHECK(compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(event, ZORVA_RC_NULL_ARG);
	ZORVA_CHECK(bits, ZORVA_RC_NULL_ARG);

	const u32 error = post(compId, event, bits);

	if (unlikely(error))
		ZORVA_ERROR("error 0x%x", error);
	return error;
}

u32 zorva_event_wait(u32 compId, zorva_event_t *event, u32 bits[2], u32 timeout)
{
	ZORVA_CHECK(compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(event, ZORVA_RC_NULL_ARG);
	ZORVA_CHECK(event->component != 0, ZORVA_RC_FAIL);

	bits[0] = 0;
	bits[1] = 0;

	/* Finding no signal is not worth a report. */
	u32 error = zorva_sem_take(compId, event->signal, timeout);

	if (error)
		return error;
	error = collect(compId, event, bits);
	if (unlikely(error))
		ZORVA_ERROR("error 0x%x", error);
	return error;
}
