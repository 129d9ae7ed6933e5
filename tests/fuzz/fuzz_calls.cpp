// SPDX-License-Identifier: GPL-2.0
/*
 * Sequences of all exported calls, with arguments that callers should not
 * give: by a task of user space and three threads, with interrupts off, in
 * interrupts, and from the callbacks of timers; with allocations that fail.
 *
 * What the headers forbid because nothing notices it is left out, at the place
 * where it would be done.
 */
#include "calls.h"

#include "zorva_timer.h"

namespace calls
{

world *all;

/* The sanitizer watches what lies behind each. */
const char *pick_text(u8 choice)
{
	static const std::string longest(300, 'x');
	static const char *const texts[] = {
		"caller.c",
		"",
		"a",
		"exactly15chars.c",
		"fourteen_char.",
		"%s%n%d%p",
		"a name of more than thirty-one characters.c",
		"\x01\x7f\x80\xff\n\t",
		"\0hidden",
		"'quoted'\n",
		longest.c_str(),
		nullptr,
		reinterpret_cast<const char *>(1),
		reinterpret_cast<const char *>(-1),
	};

	return texts[choice % std::size(texts)];
}

/* Mostly good, at any alignment. */
const char *pick_file(u8 choice)
{
	return choice < 200 ? &"caller.c"[choice % 4] : pick_text(choice);
}

u32 pick_component(u8 choice)
{
	static constexpr u32 wrong[] = { 0, ZORVA_COMPONENTS, 0xffffffff,
					 0x80000001 };

	if (choice < 224)
		return 1 + choice % (ZORVA_COMPONENTS - 1);
	return wrong[choice % std::size(wrong)];
}

u32 pick_timeout(const actor &self, u8 choice)
{
	static constexpr u32 timeouts[] = {
		ZORVA_NO_WAIT, ZORVA_WAIT_FOREVER, 1,	       10,	  11,
		1000,	       0x7fffffff,	   0x80000000, 0xfffffffe
	};
	const u32 timeout = timeouts[choice % std::size(timeouts)];

	return self.is_main && timeout == ZORVA_WAIT_FOREVER ? 100 : timeout;
}

bool is_wrong(u32 compId)
{
	return compId == 0 || compId >= ZORVA_COMPONENTS;
}

size_t refusals()
{
	return std::count(life::reports().begin(), life::reports().end(),
			  "invalid parameter");
}

bool is_in_use(const void *object)
{
	if (!object)
		return false;
	if (all->main.inside == object)
		return true;
	for (const auto &worker : all->workers)
		if (worker && worker->inside == object)
			return true;
	return false;
}

bool is_made(u32 waitId)
{
	return std::count(all->waits.begin(), all->waits.end(), waitId);
}

namespace
{

/* What happens around the module. */
void change_world(actor &self, input &in)
{
	const u32 what = in.below(4);
	const u32 number = in.word();

	switch (what) {
	case 0:
		fake::fail_allocation(1 + number % 6);
		all->had_failures = true;
		return;
	case 1:
		self.sleeps = true;
		fake::sleep_for(number % 10000 * 1000000ll);
		self.sleeps = false;
		return;
	case 2:
		fake::fail_timed_wait(number % 2 ? -1 : 0);
		return;
	default:
		fake::set_resolution(number % 2 ? 1 : 10000000);
		return;
	}
}

} // namespace

void call_in_task(actor &self, u32 what, input &in)
{
	switch (what) {
	case 0:
		return call_mutex(self, in);
	case 1:
		return call_sem(self, in);
	case 2:
		return call_queue(self, in);
	case 3:
		return call_event(self, in);
	case 4:
		return call_wait(self, in);
	case 5:
		return call_sleep(self, in);
	case 6:
		return call_netevent(in);
	case 7:
		return call_report(in);
	case 8:
		return call_text(in);
	case 9:
		return call_thread(self, in);
	default:
		return change_world(self, in);
	}
}

/* One call, or a few that belong together, by a task. */
void perform(actor &self, input step)
{
	const u32 what = step.below(kinds_anywhere + kinds_in_task);
	const u32 where = step.below(16);

	all->running = &self;
	if (self.is_doomed)
		give_all(self);
	if (what >= kinds_anywhere) {
		call_in_task(self, what - kinds_anywhere, step);
	} else if (where == 1) {
		const fake::hard_interrupt context;

		call_anywhere(what, step);
	} else if (where == 2) {
		const fake::soft_interrupt context;

		call_anywhere(what, step);
	} else if (where == 3) {
		const fake::interrupts_off context;

		call_anywhere(what, step);
	} else {
		call_anywhere(what, step);
	}
	all->running = nullptr;
}

namespace
{

constexpr size_t most_steps = 300;

size_t workers_alive()
{
	return std::count_if(std::begin(all->workers), std::end(all->workers),
			     [](const auto &worker) {
				     return worker != nullptr;
			     });
}

void stop_timers()
{
	for (u32 id = 1; id <= timers_max; ++id) {
		if (_pZorvaTimerList)
			zorva_timer_stop(1, &id);
		if (_pZorvaHrtTimerList)
			zorva_hrt_timer_stop(1, &id);
	}
}

void destroy_all()
{
	for (void *&block : all->blocks)
		zorva_free_cleanup(&block);
	for (u32 i = 0; i < objects_max; ++i) {
		if (all->mutexes[i])
			zorva_mutex_destroy(1, all->mutexes[i]);
		if (all->sems[i])
			zorva_sem_destroy(1, all->sems[i]);
		if (all->queues[i])
			zorva_msg_queue_delete(1, all->queues[i]);
		if (all->events[i])
			zorva_event_destroy(1, all->events[i]);
		if (all->notifiers[i])
			zorva_netevent_ntfy_unregister(1, all->notifiers[i]);
	}
}

} // namespace

} // namespace calls

void fuzz_calls(const u8 *bytes, size_t size)
{
	using namespace calls;

	life::begin();

	const auto the_world = std::make_unique<world>();
	input in(bytes, std::min(size, most_steps * step_size));

	all = the_world.get();
	all->main.is_main = true;
	all->main.pid = zk_current_pid();
	while (!in.empty()) {
		input step = in.part(step_size);
		const u32 who = step.below(8);
		actor *const worker = who && who <= workers_max
					      ? all->workers[who - 1].get()
					      : nullptr;

		if (worker) {
			worker->steps.push_back(step);
			up(&worker->more);
			fake::run_others();
		} else {
			perform(all->main, step);
		}
		forget_ended();
		life::check();
		EXPECT_EQ(life::threads(), workers_alive());
	}
	all->is_ending = true;
	fake::fail_allocation(0);
	fake::fail_timed_wait(0);
	all->file.reset();
	stop_timers();
	give_all(all->main);
	end_workers();
	destroy_all();
	life::end(all->had_failures ? life::leftovers::allowed
				    : life::leftovers::forbidden);
	all = nullptr;
}
