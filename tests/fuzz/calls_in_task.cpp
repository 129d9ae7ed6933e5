// SPDX-License-Identifier: GPL-2.0
/* Calls for tasks: locks, queues, events, wait modules. */
#include "calls.h"

#include "zorva_sem.h"

namespace calls
{

void call_mutex(actor &self, input &in)
{
	const u32 what = in.below(5);
	const u32 compId = pick_component(in.byte());
	const u32 slot = in.below(objects_max);
	const char *const name = pick_text(in.byte());
	const char *const file = pick_file(in.byte());
	const u32 bit = 1u << slot;
	zorva_mutex_t *&mutex = all->mutexes[slot];
	const inside call(mutex);

	switch (what) {
	case 0:
		if (mutex)
			return;
		mutex = expect_object(!is_wrong(compId) && file,
				      zorva_mutex_create_track, compId, name,
				      file, 1);
		return;
	case 1:
		/* Nobody may wait for it; who holds it does not any more. */
		self.inside = nullptr;
		if (is_in_use(mutex))
			return;
		if (!expect_one_of({ component(compId), not_null(mutex),
				     not_null(file) },
				   { ZORVA_RC_OK }, zorva_mutex_destroy_track,
				   compId, mutex, file, 1)) {
			mutex = nullptr;
			all->main.held &= ~bit;
			for (const auto &worker : all->workers)
				if (worker)
					worker->held &= ~bit;
		}
		return;
	case 2:
		/*
		 * In one order, so that nobody waits for one who waits; and
		 * the main task does not wait.
		 */
		if (self.held >> slot > 1)
			return;
		if (self.is_main && mutex && mutex->takeCount.counter &&
		    !(self.held & bit))
			return;
		if (!expect_one_of({ component(compId), not_null(mutex),
				     not_null(file) },
				   { ZORVA_RC_OK }, zorva_mutex_take_track,
				   compId, mutex, file, 1)) {
			EXPECT_EQ(static_cast<u32>(mutex->lockerPid.counter),
				  self.pid);
			self.held |= bit;
		}
		return;
	case 3:
		if (!expect_one_of({ component(compId), not_null(mutex),
				     not_null(file) },
				   { ZORVA_RC_OK }, zorva_mutex_give_track,
				   compId, mutex, file, 1))
			self.held &= ~bit;
		return;
	default:
		expect_one_of({ component(compId), not_null(mutex) },
			      { 0, self.held & bit ? 1u : 0u },
			      zorva_mutex_is_locked_track, compId, mutex);
		return;
	}
}

void call_sem(actor &self, input &in)
{
	static constexpr u32 counts[] = { 0, 1, 2, 0xffff };
	const u32 what = in.below(4);
	const u32 compId = pick_component(in.byte());
	const u32 slot = in.below(objects_max);
	const char *const name = pick_text(in.byte());
	const char *const file = pick_file(in.byte());
	const u32 timeout = pick_timeout(self, in.byte());
	const u32 count = in.one_of(counts);
	zorva_sem_t *&sem = all->sems[slot];
	const inside call(sem);

	switch (what) {
	case 0:
		if (sem)
			return;
		sem = expect_object(!is_wrong(compId) && file,
				    zorva_sem_create_track, compId, name, count,
				    file, 1);
		return;
	case 1:
		self.inside = nullptr;
		if (is_in_use(sem))
			return;
		if (!expect_one_of({ component(compId), not_null(sem) },
				   { ZORVA_RC_OK }, zorva_sem_destroy_track,
				   compId, sem, file, 1))
			sem = nullptr;
		return;
	case 2:
		expect_one_of({ component(compId), not_null(sem),
				not_null(file) },
			      { ZORVA_RC_OK, ZORVA_RC_TIMEOUT, ZORVA_RC_FAIL,
				self.is_main ? ZORVA_RC_NOT_FOUND
					     : ZORVA_RC_OK },
			      zorva_sem_take_track, compId, sem, timeout, file,
			      1);
		return;
	default:
		expect_one_of({ component(compId), not_null(sem),
				not_null(file) },
			      { ZORVA_RC_OK }, zorva_sem_give_track, compId,
			      sem, file, 1);
		return;
	}
}

void call_queue(actor &self, input &in)
{
	static constexpr u32 sizes[] = { 1, 2, 3, 4, 64, 0, 7 };
	static constexpr u32 lengths[] = { 0, 1, 3, largest_message };
	const u32 what = in.below(6);
	const u32 compId = pick_component(in.byte());
	const u32 slot = in.below(objects_max);
	const u8 text = in.byte();
	const char *const file = pick_file(in.byte());
	const u32 timeout = pick_timeout(self, in.byte());
	const u32 depth = in.one_of(sizes);
	const u32 size = in.one_of(sizes);
	const u32 length = in.one_of(lengths);
	zorva_msg_queue_t *&queue = all->queues[slot];
	const inside call(queue);

	switch (what) {
	case 0:
		if (queue)
			return;
		queue = expect_object(!is_wrong(compId) && depth && size,
				      zorva_msg_queue_create_track, compId,
				      pick_text(text), depth, size, file, 1);
		return;
	case 1:
		self.inside = nullptr;
		if (is_in_use(queue))
			return;
		if (!expect_one_of({ component(compId), not_null(queue) },
				   { ZORVA_RC_OK },
				   zorva_msg_queue_delete_track, compId, queue))
			queue = nullptr;
		return;
	case 2:
		/* Just as long as it says: the sanitizer watches its end. */
		self.message.reset(text < 16 ? nullptr : new u8[length]());
		expect_one_of({ component(compId), not_null(queue),
				not_null(self.message.get()), not_null(file) },
			      { ZORVA_RC_OK, ZORVA_RC_TIMEOUT, ZORVA_RC_FAIL,
				self.is_main ? ZORVA_RC_NOT_FOUND
					     : ZORVA_RC_OK },
			      zorva_msg_queue_send_track, compId, queue,
			      self.message.get(), length, timeout, file, 1);
		return;
	case 3:
		self.message.reset(text < 16 ? nullptr : new u8[length]());
		expect_one_of({ component(compId), not_null(queue),
				not_null(self.message.get()), not_null(file) },
			      { ZORVA_RC_OK, ZORVA_RC_TIMEOUT, ZORVA_RC_FAIL,
				self.is_main ? ZORVA_RC_NOT_FOUND
					     : ZORVA_RC_OK },
			      zorva_msg_queue_receive_track, compId, queue,
			      self.message.get(), length, timeout, file, 1);
		return;
	case 4:
		if (!queue || is_wrong(compId))
			EXPECT_EQ(zorva_msg_queue_depth(compId, queue), -1);
		else
			zorva_msg_queue_depth(compId, queue);
		return;
	default:
		if (!queue || is_wrong(compId))
			EXPECT_EQ(zorva_msg_queue_max_depth(compId, queue), -1);
		else
			EXPECT_GE(zorva_msg_queue_max_depth(compId, queue), 0);
		return;
	}
}

void call_event(actor &self, input &in)
{
	const u32 what = in.below(4);
	const u32 compId = pick_component(in.byte());
	const u32 slot = in.below(objects_max);
	const u8 text = in.byte();
	const u32 timeout = pick_timeout(self, in.byte());
	u32 bits[2] = { in.word(), 0 };
	zorva_event_t *&event = all->events[slot];
	const inside call(event);

	switch (what) {
	case 0:
		if (event)
			return;
		event = expect_object(!is_wrong(compId), zorva_event_create,
				      compId, pick_text(text));
		return;
	case 1:
		self.inside = nullptr;
		if (is_in_use(event))
			return;
		if (!expect_one_of({ component(compId), not_null(event) },
				   { ZORVA_RC_OK }, zorva_event_destroy, compId,
				   event))
			event = nullptr;
		return;
	case 2: {
		const u32 *const given = text < 32 ? nullptr : bits;

		expect_one_of({ component(compId), not_null(event),
				not_null(given) },
			      { ZORVA_RC_OK }, zorva_event_set, compId, event,
			      given);
		return;
	}
	default:
		expect_one_of({ component(compId), not_null(event) },
			      { ZORVA_RC_OK, ZORVA_RC_TIMEOUT, ZORVA_RC_FAIL,
				self.is_main ? ZORVA_RC_NOT_FOUND
					     : ZORVA_RC_OK },
			      zorva_event_wait, compId, event, bits, timeout);
		return;
	}
}

void call_wait(actor &self, input &in)
{
	const u32 what = in.below(3);
	const u32 compId = pick_component(in.byte());
	const u8 choice = in.byte();
	u32 id = choice < 240 ? choice % waits_max : 0xffffff00 + choice;
	const char *const file = pick_file(in.byte());
	u32 *const where = in.byte() < 16 ? nullptr : &id;

	switch (what) {
	case 0:
		if (all->waits.size() >= waits_max)
			return;
		if (!expect_one_of({ component(compId), not_null(where),
				     not_null(file) },
				   { ZORVA_RC_OK, all->had_failures
							  ? ZORVA_RC_FAIL
							  : ZORVA_RC_OK },
				   zorva_wait_module_create_track, compId,
				   where, file, 1))
			all->waits.push_back(id);
		return;
	case 1:
		if (is_in_use(as_object(id)))
			return;
		/* Not the oldest while there are others. */
		if (all->waits.size() > 1 && id == all->waits.front())
			return;
		if (!expect_one_of({ component(compId), not_null(file) },
				   { is_made(id) ? ZORVA_RC_OK
						 : ZORVA_RC_FAIL },
				   zorva_wait_module_destroy_track, compId, id,
				   file, 1))
			std::erase(all->waits, id);
		return;
	default: {
		/* There is no time limit. */
		if (self.is_main)
			return;

		const inside call(as_object(id));

		expect_one_of({ component(compId), not_null(file) },
			      { is_made(id) ? ZORVA_RC_OK : ZORVA_RC_FAIL },
			      zorva_wait_event_track, compId, id, file, 1);
		return;
	}
	}
}

} // namespace calls
