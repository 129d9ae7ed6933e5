// SPDX-License-Identifier: GPL-2.0
/*
 * Wait modules: numbered wait queues, each with a count of who waits or of the
 * wake-ups that nobody waited for.
 *
 * _waitListLck guards the list; it is taken with interrupts off, since wake-ups
 * come from any context. Memory is allocated under it. It guards no use of a
 * wait module: whoever destroys one must know that nobody waits. Where others
 * may come in between, it is held for the whole of a wake-up, so that whom that
 * wakes may destroy the wait module. A count is changed by single atomic
 * operations, and needs no lock.
 */
#include "zorva_wait.h"
#include "zorva_debug.h"
#include "zorva_guard.h"
#include "zorva/mem.h"

constinit wait_module *_zorvaWaitHead = nullptr;

namespace
{

constexpr u32 state_made = 1;

constinit lock_class_key queue_key = {};

/*
 * The order of a count's changes among other accesses: what was written before
 * a wake-up is seen after the wait. On a uniprocessor it is so by itself.
 */
inline int order()
{
	return zk_is_smp() ? __ATOMIC_SEQ_CST : __ATOMIC_RELAXED;
}

s32 count_of(const wait_module *module)
{
	return __atomic_load_n(&module->count, order());
}

/*
 * Adds one who waits, unless somebody does already. Looked at and raised in
 * one step: of two who did it in two, both would count, and one wake-up would
 * be too few.
 */
void count_waiter(wait_module *module)
{
	s32 count = count_of(module);

	while (count < 1 &&
	       !__atomic_compare_exchange_n(&module->count, &count, count + 1,
					    true, order(), __ATOMIC_RELAXED))
		;
}

/*
 * What is written before a wake-up that this forgets has to be seen by what
 * the caller reads next.
 */
void forget_wake_ups(wait_module *module)
{
	write_once(module->count, 0);
	if (zk_is_smp())
		__atomic_thread_fence(__ATOMIC_SEQ_CST);
}

/* The lock is held. */
wait_module *find(u32 waitId)
{
	wait_module *module = _zorvaWaitHead;

	while (module && module->waitId != waitId)
		module = module->next;
	return module && module->state == state_made ? module : nullptr;
}

/*
 * Takes a wait module out of the list; the lock is held. Meant to leave the new
 * first one's link to the removed record as it is.
 */
void unlink(wait_module *module)
{
	if (!module->previous) {
		_zorvaWaitHead = module->next;
	} else if (module->next) {
		module->previous->next = module->next;
		module->next->previous = module->previous;
	} else {
		module->previous->next = nullptr;
	}
}

/*
 * Sleeps until the count has dropped; no signal ends that. One that comes with
 * the wake-up stays pending.
 */
void sleep_on(wait_module *module)
{
	while (count_of(module) >= 1) {
		wait_queue_entry entry;

		init_wait_entry(&entry, 0);
		for (;;) {
			const long interrupted =
				prepare_to_wait_event(&module->queue, &entry,
						      TASK_INTERRUPTIBLE);

			if (count_of(module) < 1) {
				finish_wait(&module->queue, &entry);
				return;
			}
			if (interrupted)
				break;
			schedule();
		}
		/* A signal has kept the entry out of the queue. */
		flush_signals(zk_current());
	}
}

} // namespace

wait_module *_zorva_wait_module_find(u32 waitId)
{
	const irq_spin_guard lock(_waitListLck);

	return find(waitId);
}

[[gnu::cold]] u32 zorva_wait_module_create_track(u32 compId, u32 *waitId,
						 const char *file, u32)
{
	ZORVA_CHECK(compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(waitId, ZORVA_RC_NULL_ARG);
	ZORVA_CHECK(file, ZORVA_RC_NULL_ARG);

	const irq_spin_guard lock(_waitListLck);
	wait_module *last = _zorvaWaitHead;

	while (last && last->next)
		last = last->next;

	auto *const module = static_cast<wait_module *>(
		zorva_malloc(ZORVA_COMPONENT_SELF, sizeof(wait_module)));

	if (!module) {
		ZORVA_ERROR("allocate memory failed.(%u bytes)",
			    static_cast<u32>(sizeof(wait_module)));
		return ZORVA_RC_FAIL;
	}
	module->component = compId;
	module->waitId = last ? last->waitId + 1 : 0;
	module->previous = last;
	if (last)
		last->next = module;
	else
		_zorvaWaitHead = module;
	__init_waitqueue_head(&module->queue, "&p->queue", &queue_key);
	module->state = state_made;
	*waitId = module->waitId;
	return ZORVA_RC_OK;
}

[[gnu::cold]] u32 zorva_wait_module_destroy_track(u32 compId, u32 waitId,
						  const char *file, u32)
{
	ZORVA_CHECK(compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(file, ZORVA_RC_NULL_ARG);

	wait_module *module;

	{
		const irq_spin_guard lock(_waitListLck);

		module = find(waitId);
		if (!module)
			return ZORVA_RC_FAIL;
		unlink(module);
	}
	zorva_free(ZORVA_COMPONENT_SELF, module);
	return ZORVA_RC_OK;
}

u32 zorva_wait_event_track(u32 compId, u32 waitId, const char *file, u32)
{
	ZORVA_CHECK(compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(file, ZORVA_RC_NULL_ARG);

	wait_module *const module = _zorva_wait_module_find(waitId);

	if (!module)
		return ZORVA_RC_FAIL;

	/* Remembered wake-ups, however many, are used up by this one wait. */
	count_waiter(module);
	sleep_on(module);
	forget_wake_ups(module);
	return ZORVA_RC_OK;
}

namespace
{

u32 wake(wait_module *module)
{
	if (!module)
		return ZORVA_RC_FAIL;
	if (__atomic_sub_fetch(&module->count, 1, order()) < 0)
		return ZORVA_RC_OK;
	__wake_up(&module->queue, TASK_INTERRUPTIBLE, 1, nullptr);
	return ZORVA_RC_OK;
}

} // namespace

u32 zorva_wake_up_track(u32 compId, u32 waitId, const char *file, u32)
{
	ZORVA_CHECK(compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(file, ZORVA_RC_NULL_ARG);

	if (zk_interleaves()) {
		const irq_spin_guard lock(_waitListLck);

		return wake(find(waitId));
	}
	return wake(_zorva_wait_module_find(waitId));
}

int zorva_wait_module_dump(struct seq_file *)
{
	return 0;
}
