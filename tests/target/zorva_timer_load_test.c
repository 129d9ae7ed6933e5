// SPDX-License-Identifier: GPL-2.0
/*
 * Timers in numbers: callbacks that set each other, reports read meanwhile,
 * timers made until there can be no more, and all of them running at once.
 *
 * This uses up all timers, so it is the last suite that can make any.
 */
#include <linux/module.h>
#include <linux/rcupdate.h>
#include <linux/string.h>

#include "zorva_timer_test.h"

#define OWNER 22u
#define POISON 0xA5A5A5A5u
#define LONG_MSECS 100000u
#define TICKS 1024u
#define HRTS 64u
#define RING 8u

/* The timers of this suite; a timer's data is its place here. */
struct loaded {
	u32 id;
	unsigned int expiries;
	unsigned int order;
	unsigned long jiffies;
};

static struct loaded ticks[TICKS];
static struct loaded hrts[HRTS];
static unsigned int tick_count, hrt_count;

/* What callbacks do beyond counting, and what came of it. */
static void (*tick_errand)(u32 place);
static void (*hrt_errand)(u32 place);
static u32 errand_results;
static unsigned int expiries;

static void run_errand(void (*errand)(u32 place), u32 place)
{
	if (errand)
		errand(place);
}

static void tick_expired(unsigned long data)
{
	struct loaded *timer = &ticks[data % TICKS];

	timer->expiries++;
	timer->order = expiries++;
	timer->jiffies = jiffies;
	run_errand(READ_ONCE(tick_errand), data % TICKS);
}

static void hrt_expired(unsigned long data)
{
	struct loaded *timer = &hrts[data % HRTS];

	timer->expiries++;
	timer->order = expiries++;
	timer->jiffies = jiffies;
	run_errand(READ_ONCE(hrt_errand), data % HRTS);
}

static u32 make_tick(void)
{
	const u32 place = tick_count;
	const u32 result = zorva_timer_init(OWNER, &ticks[place % TICKS].id,
					    tick_expired, place);

	tick_count += result == ZORVA_RC_OK;
	return result;
}

static u32 make_hrt(void)
{
	const u32 place = hrt_count;
	const u32 result = zorva_hrt_timer_init(OWNER, &hrts[place % HRTS].id,
						hrt_expired, place);

	hrt_count += result == ZORVA_RC_OK;
	return result;
}

static void need_rings(struct kunit *test)
{
	while (tick_count < RING) {
		KUNIT_ASSERT_EQ(test, make_tick(), ZORVA_RC_OK);
		zt_made(zt_tick.record_size + ZT_NODE_SIZE, 2);
	}
	while (hrt_count < RING) {
		KUNIT_ASSERT_EQ(test, make_hrt(), ZORVA_RC_OK);
		zt_made(zt_hrt.record_size + ZT_NODE_SIZE, 2);
	}
}

static u32 refresh_tick(u32 place, u32 msecs)
{
	return zorva_timer_refresh_track(OWNER, &ticks[place].id, msecs,
					 "load.c", place);
}

static u32 refresh_hrt(u32 place, u32 msecs)
{
	return zorva_hrt_timer_refresh_track(OWNER, &hrts[place].id, msecs,
					     "load.c", place);
}

static void forget_expiries(void)
{
	unsigned int i;

	for (i = 0; i < TICKS; i++)
		ticks[i].expiries = 0;
	for (i = 0; i < HRTS; i++)
		hrts[i].expiries = 0;
	expiries = 0;
	errand_results = 0;
}

/* Also those that are under way on other processors. */
static void end_errands(void)
{
	WRITE_ONCE(tick_errand, NULL);
	WRITE_ONCE(hrt_errand, NULL);
	synchronize_rcu();
}

/* Errands end first: then nothing starts a timer that was stopped. */
static void stop_all(struct kunit *test)
{
	unsigned int i;

	end_errands();
	for (i = 0; i < tick_count; i++)
		KUNIT_EXPECT_EQ(test, zorva_timer_stop(OWNER, &ticks[i].id),
				ZORVA_RC_OK);
	for (i = 0; i < hrt_count; i++)
		KUNIT_EXPECT_EQ(test, zorva_hrt_timer_stop(OWNER, &hrts[i].id),
				ZORVA_RC_OK);
}

static void expect_silence(struct kunit *test)
{
	const unsigned int before = expiries;

	msleep(60);
	KUNIT_EXPECT_EQ(test, expiries, before);
}

/*
 * Every line is whole: a timer runs, with all that its last start has left, or
 * it is idle, with nothing of it.
 */
static u32 torn_rows(const char *report)
{
	const char *const name = _componentName[OWNER];
	const char *line = report, *end;
	u32 id, data, period, running, place, torn = 0;
	char file[8];

	for (; *line; line = end + 1) {
		end = strchrnul(line, '\n');
		if (strncmp(line, name, strlen(name)) != 0)
			continue;
		if (sscanf(line, "%*s %u %u %u %u %7[load.c], %u", &id, &data,
			   &period, &running, file, &place) == 6)
			torn += !period || running != 1 || place != data ||
				strcmp(file, "load.c") != 0;
		else
			torn += period || running ||
				strncmp(end - 2, "--", 2) != 0;
	}
	return torn;
}

#define READS 40

static void expect_whole_reports(struct kunit *test, const char *name,
				 unsigned int msecs)
{
	const unsigned long end = jiffies + msecs_to_jiffies(msecs);
	unsigned int reads;

	for (reads = 0; time_before(jiffies, end) || reads < 5; reads++) {
		if (reads < READS)
			KUNIT_EXPECT_EQ(test, torn_rows(zt_file(test, name)),
					0u);
		else
			msleep(10);
	}
}

/* All of the ring stays running for ever, and each is put off by another. */
static void set_next_ticks(u32 place)
{
	errand_results |= refresh_tick(place, 20);
	errand_results |= refresh_tick((place + 1) % RING, 10);
}

static void tick_callbacks_refresh_each_other(struct kunit *test)
{
	unsigned int i;

	need_rings(test);
	forget_expiries();
	tick_errand = set_next_ticks;
	for (i = 0; i < RING; i++)
		KUNIT_EXPECT_EQ(test, refresh_tick(i, 10 + i), ZORVA_RC_OK);

	expect_whole_reports(test, "zorva.timer", 500);

	KUNIT_EXPECT_GT(test, expiries, 2 * RING);
	stop_all(test);
	KUNIT_EXPECT_EQ(test, errand_results, ZORVA_RC_OK);
	expect_silence(test);
	ZT_EXPECT_NO_REPORTS(test);
}

/*
 * None refreshes itself after it has started itself. The tick timers are put
 * off for so long that they never expire: a hard interrupt must not come in
 * between an expiry of theirs that is under way.
 */
static void set_next_hrts_and_ticks(u32 place)
{
	errand_results |= zorva_hrt_timer_start_track(OWNER, &hrts[place].id, 3,
						      "load.c", place);
	errand_results |= refresh_hrt((place + 1) % RING, 2);
	errand_results |= refresh_tick((place + 2) % RING, LONG_MSECS);
}

static void hrt_callbacks_refresh_both_kinds(struct kunit *test)
{
	unsigned int i;

	need_rings(test);
	forget_expiries();
	hrt_errand = set_next_hrts_and_ticks;
	for (i = 0; i < RING; i++)
		KUNIT_EXPECT_EQ(test, refresh_hrt(i, 1 + i), ZORVA_RC_OK);

	expect_whole_reports(test, "zorva.hrt", 250);
	expect_whole_reports(test, "zorva.timer", 250);

	KUNIT_EXPECT_GT(test, expiries, 4 * RING);
	stop_all(test);
	KUNIT_EXPECT_EQ(test, errand_results, ZORVA_RC_OK);
	expect_silence(test);
	ZT_EXPECT_NO_REPORTS(test);
}

static void hrts_can_be_refreshed_while_they_expire(struct kunit *test)
{
	const unsigned long end = jiffies + msecs_to_jiffies(500);
	const unsigned long latest = jiffies + msecs_to_jiffies(10000);
	unsigned int starts = 0, turn, i;
	u32 results = ZORVA_RC_OK;

	need_rings(test);
	forget_expiries();
	/* A kernel that watches itself gets to fewer rests in that time. */
	for (turn = 0; time_before(jiffies, end) ||
		       (expiries <= 2 * RING && time_before(jiffies, latest));
	     turn++) {
		results |= refresh_hrt(turn % RING, 1 + turn / RING % 3);
		starts++;
		if (turn % 64 == 63)
			udelay(turn % 1500);
	}
	KUNIT_EXPECT_EQ(test, results, ZORVA_RC_OK);

	/* The last start of each is still good for one expiry. */
	msleep(60);
	for (i = 0; i < RING; i++)
		KUNIT_EXPECT_GT(test, hrts[i].expiries, 0u);
	KUNIT_EXPECT_GT(test, expiries, 2 * RING);
	KUNIT_EXPECT_LE(test, expiries, starts);
	expect_silence(test);
	ZT_EXPECT_NO_REPORTS(test);
}

static void ticks_can_be_refreshed_while_they_expire(struct kunit *test)
{
	const unsigned long end = jiffies + msecs_to_jiffies(400);
	unsigned int starts = 0, turn, i;
	u32 results = ZORVA_RC_OK;

	need_rings(test);
	forget_expiries();
	for (turn = 0; time_before(jiffies, end); turn++) {
		results |= refresh_tick(turn % RING, 1 + turn % 12);
		starts++;
		if (turn % 32 == 31)
			mdelay(turn % 25);
	}
	KUNIT_EXPECT_EQ(test, results, ZORVA_RC_OK);

	msleep(100);
	for (i = 0; i < RING; i++)
		KUNIT_EXPECT_GT(test, ticks[i].expiries, 0u);
	KUNIT_EXPECT_LE(test, expiries, starts);
	expect_silence(test);
	ZT_EXPECT_NO_REPORTS(test);
}

/*
 * An interrupt that sets all timers of both rings at once, each time with
 * another period: a report shows the same one for all of a ring.
 */
struct setter {
	struct hrtimer timer;
	u32 turns;
	u32 results;
	bool end;
};

static enum hrtimer_restart set_rings(struct hrtimer *timer)
{
	struct setter *setter = container_of(timer, struct setter, timer);
	u32 place;

	setter->turns++;
	for (place = 0; place < RING; place++) {
		setter->results |=
			refresh_tick(place, LONG_MSECS + setter->turns);
		setter->results |=
			refresh_hrt(place, LONG_MSECS + setter->turns);
	}
	if (setter->end)
		return HRTIMER_NORESTART;
	hrtimer_forward_now(timer, ns_to_ktime(100000));
	return HRTIMER_RESTART;
}

/* The period of all of this suite's rows, or 0 if there are several. */
static u32 period_of(const char *report)
{
	const char *const name = _componentName[OWNER];
	const char *line = report;
	u32 all = 0, period, rows = 0;

	for (; *line; line = strchrnul(line, '\n') + 1) {
		if (strncmp(line, name, strlen(name)) != 0)
			continue;
		if (sscanf(line, "%*s %*u %*u %u", &period) != 1)
			return 0;
		if (rows++ && period != all)
			return 0;
		all = period;
	}
	return rows == RING ? all : 0;
}

static void expect_one_moment(struct kunit *test, const char *name)
{
	u32 last = 0, moments = 0, reads;

	for (reads = 0; reads < 3 * READS && moments < READS; reads++) {
		const char *const report = zt_file(test, name);
		const u32 period = period_of(report);

		KUNIT_EXPECT_NE(test, period, 0u);
		KUNIT_EXPECT_GE(test, period, last);
		KUNIT_EXPECT_EQ(test, torn_rows(report), 0u);
		moments += period != last;
		last = period;
	}
	KUNIT_EXPECT_GT(test, moments, 10u);
}

static void a_report_shows_one_moment(struct kunit *test)
{
	struct setter setter = {};

	if (num_online_cpus() > 1) {
		ZT_SKIP(test,
			"an interrupt is no one moment for other processors");
		return;
	}
	need_rings(test);
	hrtimer_setup_on_stack(&setter.timer, set_rings, CLOCK_MONOTONIC,
			       HRTIMER_MODE_REL);
	set_rings(&setter.timer);
	hrtimer_start(&setter.timer, ns_to_ktime(100000), HRTIMER_MODE_REL);

	expect_one_moment(test, "zorva.timer");
	expect_one_moment(test, "zorva.hrt");

	setter.end = true;
	hrtimer_cancel(&setter.timer);
	destroy_hrtimer_on_stack(&setter.timer);
	KUNIT_EXPECT_EQ(test, setter.results, ZORVA_RC_OK);
	stop_all(test);
	ZT_EXPECT_NO_REPORTS(test);
}

/* An interrupt that makes one timer after the other, until it is refused. */
struct maker {
	struct hrtimer timer;
	u32 result;
};

static enum hrtimer_restart make_one(struct hrtimer *timer)
{
	struct maker *maker = container_of(timer, struct maker, timer);

	maker->result = make_tick();
	if (maker->result != ZORVA_RC_OK)
		return HRTIMER_NORESTART;
	hrtimer_forward_now(timer, ns_to_ktime(300000));
	return HRTIMER_RESTART;
}

static void timers_are_made_up_to_the_limit_under_a_reader(struct kunit *test)
{
	const char *reports[READS];
	struct maker maker = {};
	unsigned int reads = 0, i;
	const char *last;
	u32 id, before, seen = 0;

	need_rings(test);
	before = tick_count;
	hrtimer_setup_on_stack(&maker.timer, make_one, CLOCK_MONOTONIC,
			       HRTIMER_MODE_REL);
	hrtimer_start(&maker.timer, ns_to_ktime(300000), HRTIMER_MODE_REL);
	while (READ_ONCE(maker.result) == ZORVA_RC_OK) {
		if (reads < READS)
			reports[reads++] = zt_file(test, "zorva.timer");
		else
			msleep(10);
	}
	hrtimer_cancel(&maker.timer);
	destroy_hrtimer_on_stack(&maker.timer);
	zt_made((tick_count - before) * (zt_tick.record_size + ZT_NODE_SIZE),
		(tick_count - before) * 2);

	KUNIT_EXPECT_EQ(test, maker.result, 0xFFFFFFFFu);
	ZT_EXPECT_TIMER_ERROR(test, "zorva_timer_init_track",
			      "Maximum timer(=1024) has been reached");
	KUNIT_EXPECT_GE(test, tick_count, 1000u);

	/* Each report is the beginning of the last one, up to a whole line. */
	last = zt_file(test, "zorva.timer");
	KUNIT_EXPECT_EQ(test, zt_rows(last, &id), 1024u);
	KUNIT_EXPECT_EQ(test, id, 1024u + ZT_TICK_SKIPPED_IDS);
	KUNIT_EXPECT_GE(test, reads, 5u);
	for (i = 0; i < reads; i++) {
		const size_t length = strlen(reports[i]);

		KUNIT_EXPECT_EQ(test, strncmp(reports[i], last, length), 0);
		KUNIT_EXPECT_EQ(test, (int)reports[i][length - 1], '\n');
		KUNIT_EXPECT_GE(test, (u32)length, seen);
		seen = length;
	}
	KUNIT_EXPECT_GT(test, (unsigned int)strlen(reports[reads - 1]),
			(unsigned int)strlen(reports[0]));
}

static void expect_limit(struct kunit *test, const struct zt_timer_kind *kind)
{
	const char *const report = zt_file(test, kind->report);
	u32 id = POISON, last, i;

	KUNIT_ASSERT_EQ(test, zt_rows(report, &last),
			kind->limit - kind->empty_places);
	KUNIT_EXPECT_EQ(test, last,
			kind->limit - kind->empty_places + kind->skipped_ids);

	for (i = 0; i < 3; i++) {
		zt_forget_reports();
		KUNIT_EXPECT_EQ(test,
				kind->init(OWNER, &id, tick_expired, 0, "a.c",
					   1),
				0xFFFFFFFFu);
		ZT_EXPECT_TIMER_ERROR(test, kind->init_name,
				      "Maximum timer(=%u) has been reached",
				      kind->limit);
	}
	KUNIT_EXPECT_EQ(test, id, POISON);
	ZT_EXPECT_FILE(test, kind->report, "%s", report);
}

/* All of them idle, and the other kind below its limit. */
static void a_1025th_tick_timer_is_refused(struct kunit *test)
{
	expect_limit(test, &zt_tick);
}

static void the_limit_of_one_kind_is_not_that_of_the_other(struct kunit *test)
{
	const unsigned int before = hrt_count;

	KUNIT_EXPECT_EQ(test, make_hrt(), ZORVA_RC_OK);
	zt_made((hrt_count - before) * (zt_hrt.record_size + ZT_NODE_SIZE),
		(hrt_count - before) * 2);
	ZT_EXPECT_NO_REPORTS(test);
}

static void a_65th_high_resolution_timer_is_refused(struct kunit *test)
{
	const unsigned int before = hrt_count;
	u32 result;

	do {
		result = make_hrt();
	} while (result == ZORVA_RC_OK);
	zt_made((hrt_count - before) * (zt_hrt.record_size + ZT_NODE_SIZE),
		(hrt_count - before) * 2);

	KUNIT_EXPECT_EQ(test, result, 0xFFFFFFFFu);
	ZT_EXPECT_TIMER_ERROR(test, "zorva_hrt_timer_init_track",
			      "Maximum timer(=64) has been reached");
	expect_limit(test, &zt_hrt);
}

/* IDs that lie a whole limit apart still name different timers. */
static void expect_distant_ids(struct kunit *test,
			       const struct zt_timer_kind *kind)
{
	const u32 first = 1, last = kind->limit + 1;
	const char *const report = zt_file(test, kind->report);
	const char *running;

	KUNIT_EXPECT_EQ(test, kind->start(OWNER, &first, 111111, "first.c", 1),
			ZORVA_RC_OK);
	running = zt_file(test, kind->report);
	KUNIT_EXPECT_EQ(test, kind->start(OWNER, &last, 222222, "last.c", 2),
			ZORVA_RC_OK);
	KUNIT_EXPECT_EQ(test, kind->start(OWNER, &first, 1, "a.c", 1),
			0xFFFFFFFFu);
	KUNIT_EXPECT_EQ(test, kind->start(OWNER, &last, 1, "a.c", 1),
			0xFFFFFFFFu);
	KUNIT_EXPECT_TRUE(test,
			  strstr(running, "111111   1        first.c, 1\n"));
	KUNIT_EXPECT_TRUE(test, strstr(zt_file(test, kind->report),
				       "222222   1        last.c, 2\n"));

	KUNIT_EXPECT_EQ(test, kind->stop(OWNER, &last, "a.c", 1), ZORVA_RC_OK);
	ZT_EXPECT_FILE(test, kind->report, "%s", running);
	KUNIT_EXPECT_EQ(test, kind->stop(OWNER, &first, "a.c", 1), ZORVA_RC_OK);
	ZT_EXPECT_FILE(test, kind->report, "%s", report);
	ZT_EXPECT_NO_REPORTS(test);
}

static void ids_a_limit_apart_name_different_timers(struct kunit *test)
{
	expect_distant_ids(test, &zt_tick);
	expect_distant_ids(test, &zt_hrt);
}

/* The report of all timers while those of this suite run, from their own. */
static const char *with_all_ticks_running(struct kunit *test,
					  const char *report)
{
	const char *row = zt_idle_row(test, OWNER, ticks[0].id, 0);
	const char *from = strstr(report, row);
	const size_t size = strlen(report) + tick_count * 20;
	char *text = kunit_kzalloc(test, size, GFP_KERNEL);
	unsigned int i;
	size_t at;

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, text);
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, from);
	at = scnprintf(text, size, "%.*s", (int)(from - report), report);
	for (i = 0; i < tick_count; i++)
		at += scnprintf(text + at, size - at,
				"%-11s%-9u%-6u%-9u1        load.c, %u\n",
				_componentName[OWNER], ticks[i].id, i,
				LONG_MSECS + i, i);
	return text;
}

static void a_thousand_timers_are_shown_while_they_run(struct kunit *test)
{
	const char *const report = zt_file(test, "zorva.timer");
	u32 results = ZORVA_RC_OK;
	unsigned int i;

	KUNIT_ASSERT_GE(test, tick_count, 1000u);
	for (i = 0; i < tick_count; i++)
		results |= refresh_tick(i, LONG_MSECS + i);

	KUNIT_EXPECT_EQ(test, results, ZORVA_RC_OK);
	ZT_EXPECT_FILE(test, "zorva.timer", "%s",
		       with_all_ticks_running(test, report));
	stop_all(test);
	ZT_EXPECT_FILE(test, "zorva.timer", "%s", report);
}

static u32 msecs_of(u32 place)
{
	return 50 + place * 7 % 400;
}

static void a_thousand_timers_expire_once_and_never_early(struct kunit *test)
{
	static unsigned long started[TICKS];
	unsigned int early = 0, wrong = 0, i;
	u32 results = ZORVA_RC_OK;

	KUNIT_ASSERT_GE(test, tick_count, 1000u);
	forget_expiries();
	for (i = 0; i < tick_count; i++) {
		started[i] = jiffies;
		results |= zorva_timer_start_track(OWNER, &ticks[i].id,
						   msecs_of(i), "load.c", i);
	}
	KUNIT_EXPECT_EQ(test, results, ZORVA_RC_OK);
	ZT_WAIT_FOR(test, expiries == tick_count, 3000);
	expect_silence(test);

	for (i = 0; i < tick_count; i++) {
		wrong += ticks[i].expiries != 1;
		early += time_before(ticks[i].jiffies,
				     started[i] + msecs_of(i) / 10);
	}
	KUNIT_EXPECT_EQ(test, wrong, 0u);
	KUNIT_EXPECT_EQ(test, early, 0u);
	ZT_EXPECT_NO_REPORTS(test);
}

/*
 * Started with the longest period first, they expire in the other order. Two
 * that may have come to expire at the same time are free to choose.
 */
static void high_resolution_timers_expire_in_their_order(struct kunit *test)
{
	static u64 earliest[HRTS], latest[HRTS];
	u32 results = ZORVA_RC_OK;
	unsigned int pairs = 0, i, j;

	KUNIT_ASSERT_GE(test, hrt_count, 30u);
	forget_expiries();
	for (i = 0; i < hrt_count; i++) {
		const u32 msecs = 20 + 4 * (hrt_count - i);

		earliest[i] = ktime_get_ns() + msecs * 1000000ull;
		results |= zorva_hrt_timer_start_track(OWNER, &hrts[i].id,
						       msecs, "load.c", i);
		latest[i] = ktime_get_ns() + msecs * 1000000ull;
	}
	KUNIT_EXPECT_EQ(test, results, ZORVA_RC_OK);
	ZT_WAIT_FOR(test, expiries == hrt_count, 3000);

	for (i = 0; i < hrt_count; i++) {
		KUNIT_EXPECT_EQ(test, hrts[i].expiries, 1u);
		for (j = 0; j < hrt_count; j++) {
			if (latest[j] >= earliest[i])
				continue;
			pairs++;
			KUNIT_EXPECT_LT(test, hrts[j].order, hrts[i].order);
		}
	}
	KUNIT_EXPECT_GT(test, pairs, hrt_count);
	ZT_EXPECT_NO_REPORTS(test);
}

/* A test that broke off may have left them; no timer may start another. */
static void load_exit(struct kunit *test)
{
	end_errands();
	zt_timers_exit(test);
}

static struct kunit_case cases[] = {
	KUNIT_CASE(tick_callbacks_refresh_each_other),
	KUNIT_CASE(hrt_callbacks_refresh_both_kinds),
	KUNIT_CASE(hrts_can_be_refreshed_while_they_expire),
	KUNIT_CASE(ticks_can_be_refreshed_while_they_expire),
	KUNIT_CASE(a_report_shows_one_moment),
	KUNIT_CASE(timers_are_made_up_to_the_limit_under_a_reader),
	KUNIT_CASE(a_1025th_tick_timer_is_refused),
	KUNIT_CASE(the_limit_of_one_kind_is_not_that_of_the_other),
	KUNIT_CASE(a_65th_high_resolution_timer_is_refused),
	KUNIT_CASE(ids_a_limit_apart_name_different_timers),
	KUNIT_CASE(a_thousand_timers_are_shown_while_they_run),
	KUNIT_CASE(a_thousand_timers_expire_once_and_never_early),
	KUNIT_CASE(high_resolution_timers_expire_in_their_order),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_timer_load",
	.init = zt_timers_init,
	.exit = load_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Many timers of ZORVA at once");
