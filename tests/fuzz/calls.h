/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What the calls of a sequence have in common: who makes them, on what, and
 * what must come of them.
 */
#ifndef FUZZ_CALLS_H
#define FUZZ_CALLS_H

#include "input.h"
#include "life.h"

#include "zorva/zorva.h"

#include <deque>
#include <memory>

namespace calls
{

/* The bytes of a call. */
inline constexpr size_t step_size = 12;

inline constexpr u32 workers_max = 3;
inline constexpr u32 blocks_max = 6;
inline constexpr u32 objects_max = 3;
inline constexpr u32 timers_max = 4;
inline constexpr u32 waits_max = 6;

inline constexpr u32 largest_message = 300;

/* Who makes a call: the main task, or one of the workers. */
struct actor {
	u32 pid;
	bool is_main;
	bool is_doomed;	    /* was told to end */
	u32 held;	    /* the mutexes, one bit each */
	const void *inside; /* the object of the call that is under way */
	bool sleeps;
	std::unique_ptr<u8[]> message; /* that it sends, or receives into */
	std::deque<input> steps;
	semaphore more;
	bool is_over;
};

struct world {
	actor main;
	std::unique_ptr<actor> workers[workers_max];
	actor *running; /* whose call is under way, outside interrupts */

	void *blocks[blocks_max];
	zorva_mutex_t *mutexes[objects_max];
	zorva_sem_t *sems[objects_max];
	zorva_msg_queue_t *queues[objects_max];
	zorva_event_t *events[objects_max];
	struct notifier_block *notifiers[objects_max];
	std::vector<u32> waits;
	zorva_atomic_t counters[2];
	std::unique_ptr<fake::proc_file> file;

	/* What a callback does, by the data that its timer was made with. */
	u8 plans[2 * timers_max];
	u32 expiries;
	bool is_ending;
	bool had_failures; /* which explain what else would be an error */
};

/* The life that is being lived. */
extern world *all;

/* Arguments, good ones and others, by a byte. */
const char *pick_text(u8 choice);
const char *pick_file(u8 choice);
u32 pick_component(u8 choice);
/* The main task must come back, and has no means against endless waits. */
u32 pick_timeout(const actor &self, u8 choice);

bool is_wrong(u32 compId);

/* How often an argument was reported as wrong in this life. */
size_t refusals();

/* One test of an argument: the result when it fails. */
struct argument {
	bool is_good;
	u32 result;
};

/*
 * Makes a call and proves that the first wrong argument decides: with one
 * report and that result; and that without one the result is one of those
 * that remain.
 */
template <class... Parameters, class... Given>
u32 expect_one_of(std::initializer_list<argument> arguments,
		  std::initializer_list<u32> remaining,
		  u32 (*call)(Parameters...), Given... given)
{
	for (const argument &each : arguments) {
		if (each.is_good)
			continue;

		const size_t before = refusals();
		const u32 result = call(given...);

		EXPECT_EQ(result, each.result);
		EXPECT_EQ(refusals(), before + 1);
		return result;
	}

	const u32 result = call(given...);

	EXPECT_NE(std::find(remaining.begin(), remaining.end(), result),
		  remaining.end())
		<< fake::format("unexpected result 0x%x", result);
	return result;
}

inline argument component(u32 compId)
{
	return { !is_wrong(compId), ZORVA_RC_BAD_COMPONENT };
}

inline argument not_null(const void *pointer)
{
	return { pointer != nullptr, ZORVA_RC_NULL_ARG };
}

/* Makes an object; none is made, with one report, of a wrong argument. */
template <class Object, class... Parameters, class... Given>
Object *expect_object(bool is_good, Object *(*call)(Parameters...),
		      Given... given)
{
	const size_t before = refusals();
	Object *const object = call(given...);

	/* What failed half-way destroys things that were never made. */
	if (!is_good || !all->had_failures) {
		EXPECT_EQ(refusals(), before + !is_good);
		EXPECT_EQ(object != nullptr, is_good);
	}
	return object;
}

/* True while a task is inside a call on an object. */
bool is_in_use(const void *object);
/* True while there is a wait module with that ID. */
bool is_made(u32 waitId);

/* While a call on an object is under way. A thread may end inside. */
class inside {
public:
	explicit inside(const void *object)
	{
		all->running->inside = object;
		self_ = all->running;
	}
	~inside()
	{
		self_->inside = nullptr;
	}

private:
	actor *self_;
};

/* Gives the mutexes that a task holds. */
void give_all(actor &self);

/* The calls, by a number: those for any context, and those for tasks. */
inline constexpr u32 kinds_anywhere = 8;
inline constexpr u32 kinds_in_task = 11;
void call_anywhere(u32 what, input &in);
void call_in_task(actor &self, u32 what, input &in);

/* Each of them, by the bytes of a step. */
void call_mutex(actor &self, input &in);
void call_sem(actor &self, input &in);
void call_queue(actor &self, input &in);
void call_event(actor &self, input &in);
void call_wait(actor &self, input &in);
void call_sleep(actor &self, input &in);
void call_netevent(input &in);
void call_report(input &in);
void call_text(input &in);
void call_thread(actor &self, input &in);

/* A step of a task, in whatever context it says. */
void perform(actor &self, input step);

/* Ends all workers, whatever they wait for. */
void end_workers();
void forget_ended();

/* The ID of a wait module tells who is inside; none lies at address 0. */
inline const void *as_object(u32 waitId)
{
	return reinterpret_cast<const void *>(waitId + 1);
}

} // namespace calls

#endif
