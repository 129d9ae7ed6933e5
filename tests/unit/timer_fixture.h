/* SPDX-License-Identifier: GPL-2.0 */
/* Both kinds of timers, for tests of what they have in common. */
#ifndef TIMER_FIXTURE_H
#define TIMER_FIXTURE_H

#include "service_fixture.h"
#include "zorva_timer.h"

/* The calls of a test's timers: their data, and the context they came in. */
struct expiry {
	unsigned long data;
	s64 when;
	fake::context at;
};

inline std::vector<expiry> expiries;
inline std::function<void(unsigned long)> on_expiry;

inline void note_expiry(unsigned long data)
{
	expiries.push_back({ data, fake::now(), fake::current_context() });
	if (on_expiry)
		on_expiry(data);
}

struct tick {
	using record = tick_timer;

	static constexpr bool keeps_empty_node = false;
	static constexpr u32 limit = 1024;
	static constexpr u32 record_size = 68;
	static constexpr bool in_hard_interrupt = false;
	static constexpr const char *family = "zorva_timer_";
	static constexpr const char *entry = "zorva.timer";
	static constexpr const char *kind_in_text = "timer";
	static constexpr const char *disarm = "del_timer";

	static constexpr auto init = zorva_timer_init_track;
	static constexpr auto start = zorva_timer_start_track;
	static constexpr auto stop = zorva_timer_stop_track;
	static constexpr auto refresh = zorva_timer_refresh_track;
	static constexpr auto dump = zorva_timer_dump;

	static sys_sll_t *&list()
	{
		return _pZorvaTimerList;
	}
	static u32 &index()
	{
		return _timerIndex;
	}
};

struct hrt {
	using record = hrt_timer;

	static constexpr bool keeps_empty_node = true;
	static constexpr u32 limit = 64;
	static constexpr u32 record_size = 104;
	static constexpr bool in_hard_interrupt = true;
	static constexpr const char *family = "zorva_hrt_timer_";
	static constexpr const char *entry = "zorva.hrt";
	static constexpr const char *kind_in_text = "HRT timer";
	static constexpr const char *disarm = "hrtimer_cancel";

	static constexpr auto init = zorva_hrt_timer_init_track;
	static constexpr auto start = zorva_hrt_timer_start_track;
	static constexpr auto stop = zorva_hrt_timer_stop_track;
	static constexpr auto refresh = zorva_hrt_timer_refresh_track;
	static constexpr auto dump = zorva_hrt_timer_dump;

	static sys_sll_t *&list()
	{
		return _pZorvaHrtTimerList;
	}
	static u32 &index()
	{
		return _hrtTimerIndex;
	}
};

inline constexpr char timer_report_header[] =
	"Component  Timer    Data  Msec     Running  StartBy  \n"
	"============================================================\n";

/* Timers are never deleted: what they have stays when a test ends. */
template <class Kind>
class TimerTest : public ServiceTest {
protected:
	using record = typename Kind::record;

	/* The ID of a new timer of the owner's, or 0. */
	static u32 make(u32 data = 5)
	{
		u32 id = 0;

		silently([&] {
			return Kind::init(owner, &id, note_expiry, data,
					  "caller.c", 7);
		});
		return id;
	}

	static u32 start(u32 id, u32 msecs, const char *file = "caller.c",
			 u32 line = 10)
	{
		return silently([&] {
			return Kind::start(owner, &id, msecs, file, line);
		});
	}

	static u32 stop(u32 id)
	{
		return silently([&] {
			return Kind::stop(owner, &id, "caller.c", 20);
		});
	}

	static u32 refresh(u32 id, u32 msecs)
	{
		return silently([&] {
			return Kind::refresh(owner, &id, msecs, "caller.c", 30);
		});
	}

	/* What the nodes of the list carry, in their order. */
	static std::vector<record *> listed()
	{
		std::vector<record *> found;

		if (Kind::list())
			for (auto *node = Kind::list()->pFirst; node;
			     node = node->pNext)
				found.push_back(
					static_cast<record *>(node->pData));
		return found;
	}

	static record *newest()
	{
		return listed().back();
	}

	/* "period running line file" of a timer. */
	static std::string state(const record *timer)
	{
		return fake::format("%u %u %u %s", timer->period,
				    timer->running, timer->startLine,
				    timer->startFile);
	}

	static std::string func(const char *operation)
	{
		return std::string(Kind::family) + operation + "_track";
	}

	/* A report of level 1 from one of the kind's functions. */
	static std::string said(const char *operation, const std::string &text)
	{
		return "1 zorva_timer.cpp " + func(operation) + ": " + text +
		       "\n";
	}

	void TearDown() override
	{
		for (const auto *block = _pZorvaMallocMemList; block;
		     block = block->next)
			leave(block + 1);
		ServiceTest::TearDown();
	}
};

#endif
