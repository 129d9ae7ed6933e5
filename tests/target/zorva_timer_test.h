/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What the suites of timers share: both kinds of timers as one description
 * each, their records as they lie in memory, their reports, and a fixture.
 *
 * Timers stay for as long as zorva is loaded, and their number is limited, so
 * the suites have one order: tick timers, high-resolution timers, and then
 * both under load, which uses up all that is left. At most ZT_TICK_BUDGET and
 * ZT_HRT_BUDGET are made before that.
 */
#ifndef ZORVA_TIMER_TEST_H
#define ZORVA_TIMER_TEST_H

#include <linux/delay.h>
#include <linux/hrtimer.h>
#include <linux/jiffies.h>
#include <linux/timer.h>

#include "zorva_account.h"

#define ZT_TICK_BUDGET 24u
#define ZT_HRT_BUDGET 32u

/*
 * What the suites of both kinds leave for the limits to show: places without
 * a timer, which only high-resolution timers have, and IDs that were skipped.
 */
#define ZT_TICK_EMPTY_PLACES 0u
#define ZT_HRT_EMPTY_PLACES 2u
#define ZT_TICK_SKIPPED_IDS 1u
#define ZT_HRT_SKIPPED_IDS 3u

#define ZT_TIMER_HEAD                                                          \
	"Component  Timer    Data  Msec     Running  StartBy  \n"              \
	"============================================================\n"

/* What both kinds of records end with. */
struct zt_started {
	u32 data;
	u32 period;
	u32 running;
	u32 line;
	char file[17];
};

struct zt_tick_record {
	u32 comp;
	u32 id;
	struct timer_list timer;
	void (*callback)(unsigned long data);
	struct zt_started started;
};

struct zt_hrt_record {
	u32 comp;
	u32 id;
	void (*callback)(unsigned long data);
	struct hrtimer timer;
	struct zt_started started;
};

/* A kernel that watches itself has larger timers. */
static_assert(sizeof(struct timer_list) != 20 ||
	      sizeof(struct zt_tick_record) == 68);
static_assert(sizeof(struct hrtimer) != 48 ||
	      sizeof(struct zt_hrt_record) == 104);

/* A list of timers, and one of its nodes. */
struct zt_timer_list {
	u32 magic;
	u32 count;
	u32 comp;
	void *first;
	void *last;
};
#define ZT_LIST_SIZE ((u32)sizeof(struct zt_timer_list))
#define ZT_NODE_SIZE ((u32)(2 * sizeof(void *)))
#define ZT_LIST_MAGIC 0xDEADBEEFu
static_assert(sizeof(void *) != 4 || ZT_LIST_SIZE == 20);

struct zt_timer_kind {
	const char *report;
	u32 limit;
	u32 empty_places;
	u32 skipped_ids;
	u32 record_size;
	size_t started_at;
	u32 (*init)(u32 comp, u32 *id, void (*callback)(unsigned long data),
		    u32 data, const char *file, u32 line);
	u32 (*start)(u32 comp, const u32 *id, u32 msecs, const char *file,
		     u32 line);
	u32 (*stop)(u32 comp, const u32 *id, const char *file, u32 line);
	u32 (*refresh)(u32 comp, const u32 *id, u32 msecs, const char *file,
		       u32 line);
	const char *init_name;
	const char *start_name;
	const char *stop_name;
	const char *refresh_name;
	const char *stop_failed;
	const char *start_failed;
	u64 (*expiry)(const void *record); /* in the kernel timer's own unit */
};

static inline u64 zt_tick_expiry(const void *record)
{
	return ((const struct zt_tick_record *)record)->timer.expires;
}

static inline u64 zt_hrt_expiry(const void *record)
{
	return hrtimer_get_expires(
		&((const struct zt_hrt_record *)record)->timer);
}

static const struct zt_timer_kind zt_tick = {
	.report = "zorva.timer",
	.limit = 1024,
	.empty_places = ZT_TICK_EMPTY_PLACES,
	.skipped_ids = ZT_TICK_SKIPPED_IDS,
	.record_size = sizeof(struct zt_tick_record),
	.started_at = offsetof(struct zt_tick_record, started),
	.init = zorva_timer_init_track,
	.start = zorva_timer_start_track,
	.stop = zorva_timer_stop_track,
	.refresh = zorva_timer_refresh_track,
	.init_name = "zorva_timer_init_track",
	.start_name = "zorva_timer_start_track",
	.stop_name = "zorva_timer_stop_track",
	.refresh_name = "zorva_timer_refresh_track",
	.stop_failed = "Stop timer failed.",
	.start_failed = "Start timer failed.",
	.expiry = zt_tick_expiry,
};

static const struct zt_timer_kind zt_hrt = {
	.report = "zorva.hrt",
	.limit = 64,
	.empty_places = ZT_HRT_EMPTY_PLACES,
	.skipped_ids = ZT_HRT_SKIPPED_IDS,
	.record_size = sizeof(struct zt_hrt_record),
	.started_at = offsetof(struct zt_hrt_record, started),
	.init = zorva_hrt_timer_init_track,
	.start = zorva_hrt_timer_start_track,
	.stop = zorva_hrt_timer_stop_track,
	.refresh = zorva_hrt_timer_refresh_track,
	.init_name = "zorva_hrt_timer_init_track",
	.start_name = "zorva_hrt_timer_start_track",
	.stop_name = "zorva_hrt_timer_stop_track",
	.refresh_name = "zorva_hrt_timer_refresh_track",
	.stop_failed = "Stop HRT timer failed.",
	.start_failed = "Start HRT timer failed.",
	.expiry = zt_hrt_expiry,
};

/* Compares all reports with this one of the timers' own. */
#define ZT_EXPECT_TIMER_ERROR(test, func, ...)                                 \
	ZT_EXPECT_REPORTS(test, ZT_ERROR("zorva_timer.cpp", "%s", "%s"), func, \
			  zt_text(test, __VA_ARGS__))

static inline struct zt_started *zt_started_of(const struct zt_timer_kind *kind,
					       void *record)
{
	return record + kind->started_at;
}

/* The line of a timer in its report: not running, or started by this call. */
static inline const char *zt_idle_row(struct kunit *test, u32 comp, u32 id,
				      u32 data)
{
	return zt_text(test, "%-11s%-9u%-6u%-9u%-9u--\n", _componentName[comp],
		       id, data, 0u, 0u);
}

static inline const char *zt_running_row(struct kunit *test, u32 comp, u32 id,
					 u32 data, u32 msecs, const char *file,
					 u32 line)
{
	return zt_text(test, "%-11s%-9u%-6u%-9u%-9u%s, %u\n",
		       _componentName[comp], id, data, msecs, 1u, file, line);
}

/* How many timers a report shows, and the ID of the last. */
static inline u32 zt_rows(const char *report, u32 *last_id)
{
	const char *line = report;
	u32 rows = 0;

	*last_id = 0;
	for (; *line; line = strchrnul(line, '\n') + 1)
		if (sscanf(line, "%*s %u", last_id) == 1)
			rows++;
	return rows;
}

/* Waits up to a time for what another context does. */
#define ZT_WAIT_FOR(test, condition, msecs)                                    \
	do {                                                                   \
		const unsigned long end_ =                                     \
			jiffies + msecs_to_jiffies(msecs) + 1;                 \
                                                                               \
		while (!(condition) && time_before(jiffies, end_))             \
			msleep(10);                                            \
		KUNIT_ASSERT_TRUE_MSG(test, condition, "not within %u ms: %s", \
				      (unsigned int)(msecs), #condition);      \
	} while (0)

/*
 * The fixture: after each test all timers are idle, and this module's account
 * has grown by exactly what the test says that it has made for good.
 */
static struct zt_account zt_timers_before;
static struct zt_account zt_made_for_good;

static inline void zt_made(u32 bytes, u32 blocks)
{
	zt_made_for_good.bytes += bytes;
	zt_made_for_good.blocks += blocks;
}

static inline int zt_timers_init(struct kunit *test)
{
	const int error = zt_init(test);

	if (error)
		return error;
	zt_timers_before = zt_account_of(test, ZORVA_COMPONENT_SELF);
	memset(&zt_made_for_good, 0, sizeof(zt_made_for_good));
	return 0;
}

static inline void zt_expect_all_idle(struct kunit *test,
				      const struct zt_timer_kind *kind)
{
	const char *const report = zt_file(test, kind->report);
	const char *line = report, *end;
	u32 id, still_running = 0;

	for (; *line; line = end + 1) {
		end = strchrnul(line, '\n');
		if (sscanf(line, "%*s %u", &id) != 1 ||
		    strncmp(end - 2, "--", 2) == 0)
			continue;
		still_running++;
		kind->stop(ZORVA_COMPONENT_SELF, &id, "fixture.c", 1);
	}
	KUNIT_EXPECT_EQ_MSG(test, still_running, 0u, "running in %s",
			    kind->report);
}

static inline void zt_timers_exit(struct kunit *test)
{
	zt_end_failing();
	zt_expect_all_idle(test, &zt_tick);
	zt_expect_all_idle(test, &zt_hrt);
	ZT_EXPECT_GROWTH(test, ZORVA_COMPONENT_SELF, zt_timers_before,
			 zt_made_for_good.bytes, zt_made_for_good.blocks);
	zt_keep_blocks(test);
	zt_exit(test);
}

#endif
