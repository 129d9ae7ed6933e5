// SPDX-License-Identifier: GPL-2.0
/*
 * Every call that allocates, with its first allocation failing, then its
 * second, and so on until it no longer fails: how many it takes, and that
 * neither accounts nor registries show a failure afterwards. The suites of the
 * services look at the texts and at each block.
 *
 * Those of the timers, which keep what they made, do the same with the first
 * timer of each kind; the programs do it with loading, opening and writing.
 */
#include <linux/delay.h>
#include <linux/module.h>
#include <linux/notifier.h>
#include <linux/string.h>

#include "zorva_account.h"
#include "zorva_test.h"

#define COMP 54u

/* What a call has made, and of which type only its service knows. */
static void *made;
static u32 made_id;
static bool thread_ran;

struct service {
	const char *func;      /* who reports a failure last */
	const char *complaint; /* how this report begins */
	bool (*make)(void);
	void (*drop)(void);
	unsigned int allocations;
	u32 charged; /* the component whose account it is */
	/* From this allocation on, a failure leaves a mutex. */
	unsigned int mutex_stays;
};

static bool make_block(void)
{
	made = zorva_malloc(COMP, 100);
	return made;
}

static void drop_block(void)
{
	zorva_free(COMP, made);
}

static bool make_mutex(void)
{
	made = zorva_mutex_create(COMP, "sweep");
	return made;
}

static void drop_mutex(void)
{
	zorva_mutex_take(COMP, made);
	zorva_mutex_give(COMP, made);
	zorva_mutex_destroy(COMP, made);
}

static bool make_sem(void)
{
	made = zorva_sem_create(COMP, "sweep", 1);
	return made;
}

static void drop_sem(void)
{
	zorva_sem_take(COMP, made, ZORVA_WAIT_FOREVER);
	zorva_sem_destroy(COMP, made);
}

static bool make_queue(void)
{
	made = zorva_msg_queue_create(COMP, "sweep", 3, 5);
	return made;
}

static void drop_queue(void)
{
	char text[5] = "text";

	zorva_msg_queue_send(COMP, made, text, sizeof(text), ZORVA_NO_WAIT);
	zorva_msg_queue_receive(COMP, made, text, sizeof(text), ZORVA_NO_WAIT);
	zorva_msg_queue_delete(COMP, made);
}

static bool make_event(void)
{
	made = zorva_event_create(COMP, "sweep");
	return made;
}

static void drop_event(void)
{
	zorva_event_destroy(COMP, made);
}

static void note_run(void *arg)
{
	WRITE_ONCE(thread_ran, true);
}

static bool make_thread(void)
{
	WRITE_ONCE(thread_ran, false);
	return zorva_thread_create(COMP, "sweep", 0, 128, note_run, NULL);
}

/* It ends by itself. */
static void drop_thread(void)
{
	msleep(50);
}

static bool make_wait_module(void)
{
	return zorva_wait_module_create(COMP, &made_id) == ZORVA_RC_OK;
}

static void drop_wait_module(void)
{
	zorva_wake_up(COMP, made_id);
	zorva_wait_event(COMP, made_id);
	zorva_wait_module_destroy(COMP, made_id);
}

static int ignore(struct notifier_block *handle, unsigned long event,
		  void *data)
{
	return NOTIFY_DONE;
}

static bool make_subscription(void)
{
	made = zorva_netevent_ntfy_register(COMP, ignore);
	return made;
}

static void drop_subscription(void)
{
	zorva_netevent_ntfy_unregister(COMP, made);
}

/* The report files of the registries, without what depends on the time. */
static const char *registries(struct kunit *test)
{
	static const char *const names[] = { "zorva.mutex.detail",
					     "zorva.sem.detail", "zorva.msgq",
					     "zorva.thread" };
	const char *all = "";
	unsigned int i;

	for (i = 0; i < ARRAY_SIZE(names); i++) {
		const char *text = zt_file(test, names[i]);
		const char *body = strstr(text, "----------------\n\n");

		all = zt_text(test, "%s%s", all, body ? body : text);
	}
	return all;
}

/* What a queue leaves is a mutex that nobody has a handle of. */
static void drop_left_mutex(struct kunit *test)
{
	zorva_mutex_destroy(COMP, (zorva_mutex_t *)(zt_newest_block(test) + 1));
}

static void expect_failure(struct kunit *test, const struct service *service,
			   struct zt_account account)
{
	const struct zt_report *last = NULL;
	unsigned int i, complaints = 0;

	/* One failed allocation is reported once, with one stack. */
	KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 1u);
	KUNIT_ASSERT_GT(test, zt_report_count(), 0u);
	for (i = 0; i < zt_report_count(); i++) {
		const struct zt_report *report = zt_report(test, i);

		if (strstr(report->text, "Memory allocation failed: "))
			complaints++;
		if (strcmp(report->func, service->func) == 0)
			last = report;
	}
	KUNIT_EXPECT_EQ(test, complaints, 1u);
	KUNIT_ASSERT_TRUE(test, last);
	KUNIT_EXPECT_EQ(test, last->level, ZORVA_LEVEL_ERROR);
	KUNIT_EXPECT_TRUE_MSG(test,
			      strstarts(last->text, service->complaint) ||
				      strstarts(last->text, "create "),
			      "reported: %s", last->text);
	ZT_EXPECT_GROWTH(test, service->charged, account, 0, 0);
}

static void sweep(struct kunit *test, const struct service *service)
{
	const struct zt_account account = zt_account_of(test, service->charged);
	const char *const before = registries(test);
	unsigned int n, others = 0;

	for (n = 1; n <= service->allocations + 1; n++) {
		const bool mutex_stays = service->mutex_stays &&
					 n >= service->mutex_stays;
		bool done, failed;

		zt_forget_reports();
		zt_mark_log();
		zt_fail_allocation(n);
		done = service->make();
		failed = zt_end_failing();

		/* One of the heap's own: let it have that, and once more. */
		if (done && failed && zt_heap_allocates_to_free() &&
		    others++ < 8) {
			service->drop();
			if (n > service->allocations)
				break;
			KUNIT_ASSERT_TRUE(test, service->make());
			service->drop();
			n--;
			continue;
		}
		KUNIT_EXPECT_EQ_MSG(test, failed, n <= service->allocations,
				    "with allocation %u failing", n);
		KUNIT_EXPECT_EQ_MSG(test, done, !failed,
				    "with allocation %u failing", n);
		if (done) {
			service->drop();
			break;
		}
		if (mutex_stays)
			drop_left_mutex(test);
		expect_failure(test, service, account);
		ZT_EXPECT_TEXT(test, registries(test), "%s", before);

		/* The next call works. */
		KUNIT_ASSERT_TRUE(test, service->make());
		service->drop();
	}
	ZT_EXPECT_GROWTH(test, service->charged, account, 0, 0);
	ZT_EXPECT_TEXT(test, registries(test), "%s", before);
}

#define NO_MEMORY "Memory allocation failed: "
#define NO_RECORD "allocate memory failed."

static void a_block_takes_one_allocation(struct kunit *test)
{
	const struct service service = {
		"zorva_malloc_track", NO_MEMORY, make_block, drop_block, 1, COMP
	};

	sweep(test, &service);
}

static void a_mutex_takes_one_allocation(struct kunit *test)
{
	const struct service service = {
		"zorva_malloc_track", NO_MEMORY, make_mutex, drop_mutex, 1, COMP
	};

	sweep(test, &service);
}

static void a_semaphore_takes_one_allocation(struct kunit *test)
{
	const struct service service = {
		"zorva_malloc_track", NO_MEMORY, make_sem, drop_sem, 1, COMP
	};

	sweep(test, &service);
}

static void a_queue_takes_five_allocations(struct kunit *test)
{
	const struct service service = { "zorva_msg_queue_create_track",
					 NO_RECORD,
					 make_queue,
					 drop_queue,
					 5,
					 COMP,
					 4 };

	sweep(test, &service);
}

static void an_event_takes_three_allocations(struct kunit *test)
{
	const struct service service = {
		"zorva_event_create", NO_RECORD, make_event, drop_event, 3, COMP
	};

	sweep(test, &service);
}

static void a_thread_takes_one_allocation(struct kunit *test)
{
	const struct service service = { "zorva_thread_create_track",
					 NO_RECORD,
					 make_thread,
					 drop_thread,
					 1,
					 COMP };

	sweep(test, &service);
	KUNIT_EXPECT_TRUE(test, thread_ran);
}

static void a_wait_module_takes_one_allocation(struct kunit *test)
{
	const struct service service = { "zorva_wait_module_create_track",
					 NO_RECORD,
					 make_wait_module,
					 drop_wait_module,
					 1,
					 ZORVA_COMPONENT_SELF };

	sweep(test, &service);
}

static void a_subscription_takes_one_allocation(struct kunit *test)
{
	const struct service service = { "zorva_netevent_ntfy_register",
					 NO_RECORD,
					 make_subscription,
					 drop_subscription,
					 1,
					 COMP };

	sweep(test, &service);
}

/* A text is lost without memory, the next one is not. */
static void a_text_for_the_log_takes_one_allocation(struct kunit *test)
{
	const struct zt_account account =
		zt_account_of(test, ZORVA_COMPONENT_SELF);

	zt_fail_allocation(1);
	zorva_proc_printf(NULL, "lost text\n");
	KUNIT_EXPECT_TRUE(test, zt_end_failing());
	KUNIT_EXPECT_FALSE(test, strstr(zt_log(test), "lost text"));

	zt_fail_allocation(2);
	zorva_proc_printf(NULL, "next text\n");
	KUNIT_EXPECT_TRUE(test,
			  !zt_end_failing() || zt_heap_allocates_to_free());
	KUNIT_EXPECT_TRUE(test, strstr(zt_log(test), "next text"));
	ZT_EXPECT_GROWTH(test, ZORVA_COMPONENT_SELF, account, 0, 0);
}

static struct kunit_case cases[] = {
	KUNIT_CASE(a_block_takes_one_allocation),
	KUNIT_CASE(a_mutex_takes_one_allocation),
	KUNIT_CASE(a_semaphore_takes_one_allocation),
	KUNIT_CASE(a_queue_takes_five_allocations),
	KUNIT_CASE(an_event_takes_three_allocations),
	KUNIT_CASE(a_thread_takes_one_allocation),
	KUNIT_CASE(a_wait_module_takes_one_allocation),
	KUNIT_CASE(a_subscription_takes_one_allocation),
	KUNIT_CASE(a_text_for_the_log_takes_one_allocation),
	{},
};

static struct kunit_suite suite = {
	.name = "zorva_sweep",
	.init = zt_init,
	.exit = zt_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Every failing allocation of ZORVA");
