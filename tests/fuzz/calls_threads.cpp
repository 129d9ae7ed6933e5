// SPDX-License-Identifier: GPL-2.0
/* Threads: the workers, who make calls of their own, and how they end. */
#include "calls.h"

namespace calls
{

namespace
{

constexpr u32 releases_max = 100;
constexpr s64 ages = 100000000000000000; /* longer than any wait */

/* A worker: does its steps as they come. */
void run_worker(void *argument)
{
	auto &self = *static_cast<actor *>(argument);

	while (!self.is_over) {
		down(&self.more);
		if (self.steps.empty())
			continue;

		const input step = self.steps.front();

		self.steps.pop_front();
		perform(self, step);
	}
	give_all(self);
}

/* A thread that is told to end keeps what it holds: so it holds nothing. */
bool may_be_ended(u32 pid)
{
	for (const auto &worker : all->workers)
		if (worker && worker->pid == pid)
			return !worker->held;
	return true;
}

} // namespace

void give_all(actor &self)
{
	for (u32 slot = 0; slot < objects_max; ++slot)
		if (self.held & 1u << slot)
			zorva_mutex_give(1, all->mutexes[slot]);
	self.held = 0;
}

void forget_ended()
{
	for (auto &worker : all->workers)
		if (worker && fake::has_ended(worker->pid))
			worker.reset();
}

void call_thread(actor &self, input &in)
{
	static constexpr s32 priorities[] = {
		0, 30, 128, 255, -1, 256, -0x7fffffff - 1
	};
	const u32 what = in.below(5);
	const u32 compId = pick_component(in.byte());
	auto &worker = all->workers[in.below(workers_max)];
	const u8 choice = in.byte();
	const char *const file = pick_file(in.byte());
	const s32 priority = in.one_of(priorities);

	switch (what) {
	case 0: {
		if (!self.is_main || worker)
			return;

		const bool is_good = !is_wrong(compId) && file &&
				     priority <= 255;
		auto fresh = std::make_unique<actor>();

		zk_sema_init(&fresh->more, 0);
		fake::refuse_scheduler(choice < 16 ? -1 : 0);
		fake::refuse_threads(choice >= 240);
		all->had_failures |= choice >= 240;
		fresh->pid =
			zorva_thread_create_track(compId, pick_text(choice),
						  choice, priority, run_worker,
						  fresh.get(), file, 1);
		fake::refuse_threads(0);
		if (!is_good || !all->had_failures) {
			EXPECT_EQ(fresh->pid != 0, is_good);
		}
		if (fresh->pid)
			worker = std::move(fresh);
		return;
	}
	case 1:
		EXPECT_EQ(zorva_thread_create_track(compId, nullptr, 0, 0,
						    nullptr, nullptr, file, 1),
			  0u);
		return;
	case 2: {
		const u32 pid = worker && choice < 240 ? worker->pid
						       : choice - 240;

		if (!may_be_ended(pid))
			return;
		if (!expect_one_of({ component(compId),
				     { pid != 0, ZORVA_RC_BAD_VALUE },
				     not_null(file) },
				   { ZORVA_RC_OK, ZORVA_RC_NOT_FOUND },
				   zorva_thread_destroy_track, compId, pid,
				   file, 1) &&
		    worker && worker->pid == pid)
			worker->is_doomed = true;
		return;
	}
	case 3:
		give_all(self);
		expect_one_of({ component(compId), not_null(file) },
			      { ZORVA_RC_NOT_FOUND }, zorva_thread_exit_track,
			      compId, choice, file, 1);
		return;
	default:
		/* A signal to the main task, which has none of its own. */
		fake::send_signal(fake::main_pid,
				  choice % 2 ? SIGKILL : SIGTERM);
		return;
	}
}

namespace
{

/* Gets a worker out of the call that it is blocked in. */
void release(const actor &worker)
{
	u32 bits[2] = {};
	u8 message[largest_message];

	if (worker.sleeps)
		fake::advance(ages);
	for (u32 i = 0; i < objects_max; ++i) {
		if (worker.inside == all->sems[i] && all->sems[i])
			zorva_sem_give(1, all->sems[i]);
		if (worker.inside == all->events[i] && all->events[i])
			zorva_event_set(1, all->events[i], bits);
		if (worker.inside == all->queues[i] && all->queues[i]) {
			zorva_msg_queue_send(1, all->queues[i], message, 0,
					     ZORVA_NO_WAIT);
			fake::run_others();
			zorva_msg_queue_receive(1, all->queues[i], message, 0,
						ZORVA_NO_WAIT);
		}
	}
	for (u32 id : all->waits)
		if (worker.inside == as_object(id))
			zorva_wake_up(1, id);
}

} // namespace

/* It may take some releases each. */
void end_workers()
{
	for (auto &worker : all->workers)
		if (worker) {
			worker->is_over = true;
			worker->steps.clear();
			up(&worker->more);
		}
	for (u32 round = 0; round < releases_max; ++round) {
		fake::run_others();
		forget_ended();
		for (auto &worker : all->workers)
			if (worker && worker->inside)
				release(*worker);
			else if (worker && worker->sleeps)
				release(*worker);
	}
	for (auto &worker : all->workers)
		EXPECT_EQ(worker, nullptr) << fake::tasks_left();
}

} // namespace calls
