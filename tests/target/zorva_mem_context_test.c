// SPDX-License-Identifier: GPL-2.0
/* Tracked blocks in every context that may allocate, and in two at once. */
#include <linux/hrtimer.h>
#include <linux/jiffies.h>
#include <linux/module.h>
#include <linux/string.h>

#include "zorva_test.h"

enum {
	ANY_CONTEXT = ZT_CONTEXT_COMPONENT,
	FAULTY,
	CHURNED,
};

/* What a call did there is looked at when the thread runs again. */
struct visit {
	const struct zt_call_context *context;
	void *block;
	bool right_context;
	bool right_context_after;
	bool zeroed;
};

static void allocate_here(void *arg)
{
	struct visit *visit = arg;

	visit->right_context = visit->context->is_current();
	visit->block = zorva_malloc_track(ANY_CONTEXT, 33, "visit.c", 1);
	visit->zeroed = visit->block && !memchr_inv(visit->block, 0, 36);
	visit->right_context_after = visit->context->is_current();
}

static void free_here(void *arg)
{
	struct visit *visit = arg;

	visit->right_context = visit->context->is_current();
	zorva_free_track(ANY_CONTEXT, visit->block, "visit.c", 2);
	visit->right_context_after = visit->context->is_current();
}

static void clean_up_here(void *arg)
{
	struct visit *visit = arg;

	visit->right_context = visit->context->is_current();
	zorva_free_cleanup(&visit->block);
	visit->right_context_after = visit->context->is_current();
}

static void go(struct kunit *test, struct visit *visit,
	       void (*errand)(void *arg))
{
	visit->context->run(errand, visit);

	KUNIT_EXPECT_TRUE_MSG(test, visit->right_context, "%s",
			      visit->context->name);
	KUNIT_EXPECT_TRUE_MSG(test, visit->right_context_after, "after: %s",
			      visit->context->name);
}

static void a_block_may_come_and_go_in_any_context(struct kunit *test)
{
	const struct zt_call_context *context, *other;
	unsigned int count = 0;

	ZT_FOR_EACH_CONTEXT(context)
		ZT_FOR_EACH_CONTEXT(other) {
			struct visit visit = { .context = context };

			go(test, &visit, allocate_here);
			KUNIT_ASSERT_NOT_ERR_OR_NULL(test, visit.block);
			KUNIT_EXPECT_TRUE(test, visit.zeroed);
			ZT_EXPECT_USAGE(test, ANY_CONTEXT, 33u, 33u, count + 1u,
					count + 0u);

			visit.context = other;
			go(test, &visit, count % 2 ? free_here : clean_up_here);
			ZT_EXPECT_NO_USAGE(test, ANY_CONTEXT);
			count++;
		}
	KUNIT_EXPECT_EQ(test, count, zt_context_count * zt_context_count);
	ZT_EXPECT_NO_REPORTS(test);
}

static void fail_here(void *arg)
{
	struct visit *visit = arg;
	char *torn;

	visit->right_context = visit->context->is_current();
	zorva_malloc_track(0, 1, "visit.c", 1);
	torn = zorva_malloc_track(FAULTY, 1, "visit.c", 2);
	if (torn) {
		torn[4] = 1;
		zorva_free_track(FAULTY, torn, "visit.c", 3);
	}
	visit->right_context_after = visit->context->is_current();
}

static void faults_are_reported_from_any_context(struct kunit *test)
{
	const struct zt_call_context *context;

	ZT_FOR_EACH_CONTEXT(context) {
		struct visit visit = { .context = context };

		zt_forget_reports();
		zt_mark_log();
		go(test, &visit, fail_here);

		ZT_EXPECT_REPORTS(test,
				  ZT_ERROR("zorva_mem.cpp",
					   "zorva_malloc_track",
					   "invalid parameter")
					  ZT_ERROR("zorva_mem.cpp",
						   "zorva_free_track",
						   "Memory corruption: guard overwritten (%s, visit.c:3)"),
				  _componentName[FAULTY]);
		/* Only the second is made under the lock. */
		KUNIT_EXPECT_EQ(test, zt_report(test, 0)->irqs_off,
				context->irqs_off);
		KUNIT_EXPECT_TRUE(test, zt_report(test, 1)->irqs_off);
		KUNIT_EXPECT_EQ_MSG(test, zt_stack_dumps(), 1u, "%s",
				    context->name);
	}
}

/*
 * An interrupt that comes every 100 microseconds takes and gives blocks while
 * a thread does the same for the same component: whichever instruction it
 * hits, the list and the account come out right. An account is never reset, so
 * neither are these.
 */
#define BLOCKS 16u

struct churn {
	void *block[BLOCKS];
	unsigned int rounds;
	u32 allocs;
	u32 frees;
};

static struct churn of_thread, of_interrupt;
static struct hrtimer interrupt;

static void churn(struct churn *churn)
{
	void **block = &churn->block[churn->rounds++ % BLOCKS];

	if (*block) {
		if (churn->rounds % 3)
			zorva_free_track(CHURNED, *block, "churn.c", 2);
		else
			zorva_free_cleanup(block);
		*block = NULL;
		churn->frees++;
	} else {
		*block = zorva_malloc_track(CHURNED, churn->rounds % 60 + 1,
					    "churn.c", 1);
		churn->allocs += !!*block;
	}
}

static enum hrtimer_restart interrupt_comes(struct hrtimer *timer)
{
	churn(&of_interrupt);
	hrtimer_forward_now(timer, ns_to_ktime(100000));
	return HRTIMER_RESTART;
}

static void start_interrupt(void)
{
	hrtimer_setup(&interrupt, interrupt_comes, CLOCK_MONOTONIC,
		      HRTIMER_MODE_REL);
	hrtimer_start(&interrupt, ns_to_ktime(100000), HRTIMER_MODE_REL);
}

static void add_live(const struct churn *churn, u32 *used, u32 *alive)
{
	int i;

	for (i = 0; i < BLOCKS; i++)
		if (churn->block[i]) {
			*used += zt_block_of(churn->block[i])->size;
			(*alive)++;
		}
}

static void free_live(struct churn *churn)
{
	int i;

	for (i = 0; i < BLOCKS; i++) {
		churn->frees += !!churn->block[i];
		zorva_free_cleanup(&churn->block[i]);
	}
}

/* The live blocks and their owner's account agree; then they are freed. */
static void settle(struct kunit *test)
{
	u32 used = 0, alive = 0, curr, max, allocs, frees;

	add_live(&of_thread, &used, &alive);
	add_live(&of_interrupt, &used, &alive);
	if (alive) {
		KUNIT_ASSERT_EQ(test,
				sscanf(zt_mem_row(test, CHURNED),
				       "%*s %u %u %u %u", &curr, &max, &allocs,
				       &frees),
				4);
		KUNIT_EXPECT_EQ(test, curr, used);
		KUNIT_EXPECT_GE(test, max, used);
		KUNIT_EXPECT_EQ(test, allocs,
				of_thread.allocs + of_interrupt.allocs);
		KUNIT_EXPECT_EQ(test, frees,
				of_thread.frees + of_interrupt.frees);
		KUNIT_EXPECT_EQ(test, allocs - frees, alive);
	}
	free_live(&of_thread);
	free_live(&of_interrupt);
	ZT_EXPECT_NO_USAGE(test, CHURNED);
}

static void blocks_come_and_go_in_two_contexts_at_once(struct kunit *test)
{
	const unsigned long end = jiffies + msecs_to_jiffies(1500);

	start_interrupt();
	while (time_before(jiffies, end))
		churn(&of_thread);
	hrtimer_cancel(&interrupt);

	KUNIT_EXPECT_GT(test, of_thread.rounds, 1000u);
	KUNIT_EXPECT_GT(test, of_interrupt.rounds, 100u);
	settle(test);
	ZT_EXPECT_NO_REPORTS(test);
}

/*
 * The detailed report shows one moment: what it lists of a component adds up
 * to the counters above the list.
 */
static void expect_one_moment(struct kunit *test, const char *text)
{
	unsigned int components = 0;

	while ((text = strstr(text, "Component   : "))) {
		u32 curr, max, allocs, frees, size, used = 0, alive = 0;

		KUNIT_ASSERT_EQ(test,
				sscanf(text,
				       "Component   : %*s Curr Usage  : %u Max Usage   : %u Alloc Count : %u Free Count  : %u",
				       &curr, &max, &allocs, &frees),
				4);
		text = strstr(text, "----------------\n");
		KUNIT_ASSERT_NOT_ERR_OR_NULL(test, text);
		text = strchr(text, '\n') + 1;
		while (sscanf(text, "  [%*u] %*x - %u bytes", &size) == 1) {
			used += size;
			alive++;
			text = strchrnul(text, '\n') + 1;
		}
		KUNIT_EXPECT_EQ(test, used, curr);
		KUNIT_EXPECT_EQ(test, alive, allocs - frees);
		KUNIT_EXPECT_LE(test, curr, max);
		components++;
	}
	KUNIT_EXPECT_GE(test, components, 1u);
}

static void a_report_shows_one_moment(struct kunit *test)
{
	const unsigned int before = of_interrupt.rounds;
	int round;

	for (round = 0; round < BLOCKS; round++)
		churn(&of_thread);
	start_interrupt();
	do
		expect_one_moment(test, zt_file(test, "zorva.mem.detail"));
	while (of_interrupt.rounds - before < 1000);
	hrtimer_cancel(&interrupt);

	settle(test);
	ZT_EXPECT_NO_REPORTS(test);
}

static struct kunit_case cases[] = {
	KUNIT_CASE(a_block_may_come_and_go_in_any_context),
	KUNIT_CASE(faults_are_reported_from_any_context),
	KUNIT_CASE(blocks_come_and_go_in_two_contexts_at_once),
	KUNIT_CASE(a_report_shows_one_moment),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_mem_context",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Tracked blocks of ZORVA in every context");
