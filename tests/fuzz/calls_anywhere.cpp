// SPDX-License-Identifier: GPL-2.0
/* Calls for any context: memory, counters, readings, timers, wake-ups. */
#include "calls.h"

#include "zorva_timer.h"
#include "zorva/time.h"

#include <string.h>

namespace calls
{

namespace
{

constexpr u32 largest_block = 70000;

/* Callbacks start timers again, but not for ever. */
constexpr u32 expiries_max = 60;

/* Memory: in any context. */

void do_malloc(input &in)
{
	static constexpr u32 sizes[] = { 1,
					 3,
					 4,
					 64,
					 0,
					 0xffffffff,
					 0xffffffc4,
					 0xfffffffc,
					 0x400000,
					 0x3fffc8,
					 largest_block };
	const u32 compId = pick_component(in.byte());
	const u32 slot = in.below(blocks_max);
	const u8 choice = in.byte();
	const u32 size = choice < 200 ? choice : in.one_of(sizes);
	const char *const file = pick_file(in.byte());
	const bool is_good = !is_wrong(compId) && size;

	if (all->blocks[slot])
		return;

	const size_t before = refusals();
	auto *const block = static_cast<char *>(
		zorva_malloc_track(compId, size, file, in.byte()));

	EXPECT_EQ(refusals(), before + !is_good);
	if (!is_good || (!all->had_failures && size <= largest_block)) {
		EXPECT_EQ(block != nullptr, is_good);
	}
	if (!block)
		return;
	for (u32 i = 0; i < size; i += 1 + size / 64)
		EXPECT_EQ(block[i], 0);
	memset(block, in.byte(), size);
	all->blocks[slot] = block;
}

void do_free(input &in)
{
	const u32 compId = pick_component(in.byte());
	void *&block = all->blocks[in.below(blocks_max)];
	const size_t before = life::reports().size();

	zorva_free_track(compId, block, pick_file(in.byte()), 1);
	if (!is_wrong(compId))
		block = nullptr;
	EXPECT_EQ(life::reports().size(), before);
}

void do_cleanup(input &in)
{
	void *&block = all->blocks[in.below(blocks_max)];

	zorva_free_cleanup(in.byte() < 32 ? nullptr : &block);
	if (block)
		zorva_free_cleanup(&block);
	EXPECT_EQ(block, nullptr);
}

/* Counters: in any context. */

void do_atomic(input &in)
{
	const u32 what = in.below(6);
	zorva_atomic_t *const counter =
		in.byte() < 32 ? nullptr : &all->counters[in.below(2)];
	const s32 amount = in.word();
	const s32 old = counter ? counter->counter : 0;
	const auto sum = [=](u32 change) -> s32 {
		return counter ? static_cast<s32>(old + change)
			       : static_cast<s32>(ZORVA_RC_NULL_ARG);
	};

	switch (what) {
	case 0:
		EXPECT_EQ(zorva_atomic_inc(counter),
			  counter ? ZORVA_RC_OK : ZORVA_RC_NULL_ARG);
		break;
	case 1:
		EXPECT_EQ(zorva_atomic_add_return(amount, counter),
			  sum(amount));
		break;
	case 2:
		EXPECT_EQ(zorva_atomic_set(counter, amount),
			  counter ? ZORVA_RC_OK : ZORVA_RC_NULL_ARG);
		break;
	case 3:
		EXPECT_EQ(zorva_atomic_dec_return(counter), sum(-1));
		break;
	case 4:
		EXPECT_EQ(zorva_atomic_sub_return(amount, counter),
			  sum(-static_cast<u32>(amount)));
		break;
	default:
		EXPECT_EQ(zorva_atomic_read(counter), sum(0));
		break;
	}
}

/* Readings: in any context. */

void do_reading(input &in)
{
	const u32 secs = fake::now() / 1000000000;
	const bool is_null = in.byte() < 64;
	const u32 result = is_null ? ZORVA_RC_NULL_ARG : ZORVA_RC_OK;
	u32 value = 0;
	u32 *const where = is_null ? nullptr : &value;

	EXPECT_EQ(zorva_uptime_get(where), result);
	EXPECT_EQ(value, is_null ? 0 : secs * 1000);
	EXPECT_EQ(zorva_uptime_secs_get(where), result);
	EXPECT_EQ(value, is_null ? 0 : secs);
	EXPECT_EQ(zorva_uptime_ticks_get(&value), ZORVA_RC_OK);
	EXPECT_EQ(value, static_cast<u32>(fake::now() / 10000000));
	EXPECT_EQ(zorva_time_secs_ret(), secs);
	EXPECT_EQ(zorva_time_msecs_ret(),
		  static_cast<u32>(fake::now() / 1000000));
	EXPECT_EQ(zorva_time_usecs_ret(), static_cast<u32>(fake::now() / 1000));
	EXPECT_EQ(zorva_mem_overhead_get(), 52u);
	EXPECT_EQ(zorva_md5_hash(where, in.word(), nullptr), ZORVA_RC_FAIL);
}

/* Timers: in any context. A callback is told its plan by its data. */

void on_expiry(unsigned long data);

struct tick_calls {
	using record = tick_timer;
	static constexpr u32 first_plan = 0;
	static constexpr auto init = zorva_timer_init_track;
	static constexpr auto start = zorva_timer_start_track;
	static constexpr auto stop = zorva_timer_stop_track;
	static constexpr auto refresh = zorva_timer_refresh_track;

	static sys_sll_t *list()
	{
		return _pZorvaTimerList;
	}
};

struct hrt_calls {
	using record = hrt_timer;
	static constexpr u32 first_plan = timers_max;
	static constexpr auto init = zorva_hrt_timer_init_track;
	static constexpr auto start = zorva_hrt_timer_start_track;
	static constexpr auto stop = zorva_hrt_timer_stop_track;
	static constexpr auto refresh = zorva_hrt_timer_refresh_track;

	static sys_sll_t *list()
	{
		return _pZorvaHrtTimerList;
	}
};

/* A running timer of the kind with that ID. */
template <class Kind>
bool is_running(u32 id)
{
	for (sys_sll_node_t *node = sys_sll_node_get_first(Kind::list()); node;
	     node = sys_sll_node_get_next(Kind::list(), node)) {
		const auto *const timer =
			static_cast<typename Kind::record *>(node->pData);

		if (timer && timer->timerId == id)
			return timer->running;
	}
	return false;
}

template <class Kind>
void do_timer(input &in)
{
	static constexpr u32 msecs[] = { 0,    1,	 10,	    11,
					 5000, 42949673, 0xffffffff };
	const u32 compId = pick_component(in.byte());
	const u8 choice = in.byte();
	u32 id = choice < 250 ? choice % (timers_max + 2) : 0xffffffff;
	u32 *const where = in.byte() < 16 ? nullptr : &id;
	const u32 after = in.one_of(msecs);
	const char *const file = pick_file(in.byte());
	const u32 what = in.below(5);
	const u8 plan = in.byte();

	/* Of a kind's first timer comes the list; without one, all fail. */
	const u32 absent = Kind::list() ? ZORVA_RC_NOT_FOUND : ZORVA_RC_FAIL;
	const u32 count = Kind::list() ? Kind::list()->count : 0;

	switch (what) {
	case 0:
		if (count >= timers_max)
			return;
		all->plans[Kind::first_plan + count] = plan;
		expect_one_of({ component(compId), not_null(where),
				not_null(file) },
			      { ZORVA_RC_OK, all->had_failures ? ZORVA_RC_FAIL
							       : ZORVA_RC_OK },
			      Kind::init, compId, where, on_expiry,
			      Kind::first_plan + count, file, 1);
		break;
	case 1:
		EXPECT_NE(Kind::init(compId, where, nullptr, 0, file, 1),
			  ZORVA_RC_OK);
		break;
	case 2:
		expect_one_of({ component(compId),
				not_null(where),
				{ after != 0, ZORVA_RC_BAD_VALUE },
				not_null(file) },
			      { ZORVA_RC_OK, ZORVA_RC_FAIL, absent },
			      Kind::start, compId, where, after, file, 1);
		break;
	case 3:
		expect_one_of({ component(compId), not_null(where),
				not_null(file) },
			      { ZORVA_RC_OK, absent }, Kind::stop, compId,
			      where, file, 1);
		if (where && file && !is_wrong(compId)) {
			EXPECT_FALSE(is_running<Kind>(id));
		}
		break;
	default:
		expect_one_of({ component(compId),
				not_null(where),
				{ after != 0, ZORVA_RC_BAD_VALUE },
				not_null(file) },
			      { ZORVA_RC_OK, absent }, Kind::refresh, compId,
			      where, after, file, 1);
		break;
	}
}

void do_wake(input &in)
{
	const u32 compId = pick_component(in.byte());
	const u8 choice = in.byte();
	const u32 id = choice < 240 ? choice % waits_max : 0xffffff00 + choice;
	const char *const file = pick_file(in.byte());

	expect_one_of({ component(compId), not_null(file) },
		      { is_made(id) ? ZORVA_RC_OK : ZORVA_RC_FAIL },
		      zorva_wake_up_track, compId, id, file, 1);
}

} // namespace

void call_anywhere(u32 what, input &in)
{
	switch (what) {
	case 0:
		return do_malloc(in);
	case 1:
		return do_free(in);
	case 2:
		return do_cleanup(in);
	case 3:
		return do_atomic(in);
	case 4:
		return do_reading(in);
	case 5:
		return do_timer<tick_calls>(in);
	case 6:
		return do_timer<hrt_calls>(in);
	default:
		return do_wake(in);
	}
}

namespace
{

/*
 * The callback of all timers. Its plan is a step of its own; but one of a
 * high-resolution timer does not stop or refresh such timers: it might be the
 * one it has just started.
 */
void on_expiry(unsigned long data)
{
	actor *const interrupted = all->running;
	const u8 plan = all->plans[data];
	const u8 bytes[step_size] = { plan,
				      static_cast<u8>(plan / 2),
				      static_cast<u8>(plan ^ 0x55),
				      100,
				      static_cast<u8>(plan / 8),
				      static_cast<u8>(plan / 16),
				      plan,
				      1,
				      2,
				      3,
				      4,
				      5 };
	input in(bytes, sizeof(bytes));

	if (all->is_ending || ++all->expiries > expiries_max)
		return;
	all->running = nullptr;
	if (plan % 4 == 0) {
		const bool is_hrt = data >= timers_max;
		const u32 id = 1 + plan / 4 % timers_max;

		if (is_hrt)
			zorva_hrt_timer_start_track(1, &id, 1 + plan, "cb.c",
						    1);
		else
			zorva_timer_refresh_track(1, &id, 1 + plan, "cb.c", 1);
	} else if (data < timers_max) {
		call_anywhere(plan % 8, in);
	} else {
		call_anywhere(plan % 8 == 6 ? 7 : plan % 8, in);
	}
	all->running = interrupted;
}

} // namespace

} // namespace calls
