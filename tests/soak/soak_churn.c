// SPDX-License-Identifier: GPL-2.0
/*
 * Locks, queues, events and subscriptions that are made, used once and
 * destroyed, with one of the allocations failing now and then; and readers of
 * all report files.
 */
#include <linux/mm.h>
#include <linux/notifier.h>
#include <linux/string.h>
#include <net/netevent.h>

#include "soak.h"

#define CHURNERS 2
#define NOTIFIERS 4
/* What stays makes the reports longer, for as long as the soak takes. */
#define MOST_LEFT 200u
/* No number of the kernel's own: its subscribers leave it alone. */
#define EVENT_NUMBER 1000u

static u32 mutex_size;
static u32 mutexes_left[CHURNERS];
static atomic_t made;

static bool use_mutex(u32 comp, unsigned int n)
{
	zorva_mutex_t *mutex;
	u32 rc;

	soak_begin_failing(n);
	mutex = zorva_mutex_create(comp, NULL);
	if (soak_end_failing(n) || !mutex)
		return mutex;
	rc = zorva_mutex_take(comp, mutex);
	SOAK_CHECK(!rc && zorva_mutex_is_locked(comp, mutex) == 1,
		   "a new mutex is not taken");
	rc = zorva_mutex_give(comp, mutex);
	SOAK_CHECK(!rc && zorva_mutex_is_locked(comp, mutex) == 0,
		   "a new mutex is not given");
	SOAK_CHECK(!zorva_mutex_destroy(comp, mutex), "a mutex stays");
	return true;
}

static bool use_sem(u32 comp, unsigned int n)
{
	zorva_sem_t *sem;

	soak_begin_failing(n);
	sem = zorva_sem_create(comp, NULL, 1);
	if (soak_end_failing(n) || !sem)
		return sem;
	SOAK_CHECK(!zorva_sem_take(comp, sem, ZORVA_WAIT_FOREVER),
		   "a new semaphore has no unit");
	SOAK_CHECK(zorva_sem_take(comp, sem, ZORVA_NO_WAIT) == ZORVA_RC_FAIL,
		   "a new semaphore has two units");
	SOAK_CHECK(!zorva_sem_give(comp, sem), "a unit cannot be given");
	SOAK_CHECK(!zorva_sem_destroy(comp, sem), "a semaphore stays");
	return true;
}

static bool use_event(u32 comp, unsigned int n)
{
	const u32 set[2] = { 1, 2 };
	zorva_event_t *event;
	u32 bits[2] = {};

	soak_begin_failing(n);
	event = zorva_event_create(comp, NULL);
	if (soak_end_failing(n) || !event)
		return event;
	SOAK_CHECK(!zorva_event_set(comp, event, set) &&
			   !zorva_event_wait(comp, event, bits, 100) &&
			   bits[0] == 1 && bits[1] == 2,
		   "a new event does not work");
	SOAK_CHECK(!zorva_event_destroy(comp, event), "an event stays");
	return true;
}

static bool use_queue(u32 comp, unsigned int n)
{
	u32 *const left = &mutexes_left[comp - SOAK_CHURN_COMP];
	zorva_msg_queue_t *queue;
	u32 message = 5, got = 0;

	/* Without one of its semaphores, the queue's mutex stays. */
	if (n > 3 && *left == MOST_LEFT)
		n = 3;
	soak_begin_failing(n);
	queue = zorva_msg_queue_create(comp, NULL, 2, sizeof(message));
	if (soak_end_failing(n)) {
		if (n > 3) {
			++*left;
			atomic_inc(&soak_expected.invalid_parameter);
		}
		return queue;
	}
	if (!queue)
		return false;
	SOAK_CHECK(!zorva_msg_queue_send(comp, queue, &message, sizeof(message),
					 100) &&
			   !zorva_msg_queue_receive(comp, queue, &got,
						    sizeof(got), 100) &&
			   got == message,
		   "a new queue does not work");
	SOAK_CHECK(!zorva_msg_queue_delete(comp, queue), "a queue stays");
	return true;
}

void soak_churn_step(struct soak_actor *actor)
{
	static bool (*const uses[])(u32 comp,
				    unsigned int n) = { use_mutex, use_sem,
							use_event, use_queue };
	static const unsigned int allocations[] = { 1, 1, 3, 5 };
	const u32 *const decide = actor->decide;
	const unsigned int kind = decide[0] % ARRAY_SIZE(uses);
	const unsigned int n =
		soak_decide_failure(decide[1], 20, allocations[kind]);

	SOAK_CHECK(uses[kind](SOAK_CHURN_COMP + actor->index, n) == !n,
		   "kind %u: allocation %u fails, and the create does %s", kind,
		   n, n ? "not" : "all the same");
	atomic_inc(&made);
}

static struct notifier_block *subscriptions[NOTIFIERS];
static u32 notified, notifications;

static int notify(struct notifier_block *handle, unsigned long number,
		  void *data)
{
	if (number == EVENT_NUMBER && data == subscriptions)
		notified++;
	return NOTIFY_DONE;
}

void soak_netevent_step(struct soak_actor *actor)
{
	const u32 *const decide = actor->decide;
	const unsigned int n = soak_decide_failure(decide[1], 100, 1);
	struct notifier_block **const place =
		&subscriptions[decide[0] % NOTIFIERS];
	u32 expected = 0;
	unsigned int i;

	if (*place) {
		const u32 rc =
			zorva_netevent_ntfy_unregister(SOAK_NETEVENT_COMP,
						       *place);

		SOAK_CHECK(!rc, "a subscription stays: 0x%x", rc);
		*place = NULL;
	} else {
		bool failed;

		soak_begin_failing(n);
		*place = zorva_netevent_ntfy_register(SOAK_NETEVENT_COMP,
						      notify);
		failed = soak_end_failing(n);
		SOAK_CHECK(failed == !*place, "no subscription");
	}
	for (i = 0; i < NOTIFIERS; i++)
		expected += subscriptions[i] != NULL;
	notified = 0;
	call_netevent_notifiers(EVENT_NUMBER, subscriptions);
	SOAK_CHECK(notified == expected, "%u subscribers were called of %u",
		   notified, expected);
	notifications += notified;
}

static u32 reads;

void soak_reader_step(struct soak_actor *actor)
{
	static const struct {
		const char *name;
		const char *text;
	} reports[] = {
		{ "zorva.mutex", "Number of Mutex: " },
		{ "zorva.mutex.detail", "Total number of Mutex: " },
		{ "zorva.sem", "Number of Semaphore: " },
		{ "zorva.sem.detail", "Total number of Semaphore: " },
		{ "zorva.mem", "Component  Usage" },
		{ "zorva.mem.detail", "Current Time : " },
		{ "zorva.thread", "Name      : soak-" },
		{ "zorva.timer", "Component  Timer" },
		{ "zorva.hrt", "Component  Timer" },
		{ "zorva.msgq", "Queue Name   : soak\n" },
	};
	const u32 *const decide = actor->decide;
	const unsigned int which = decide[0] % ARRAY_SIZE(reports);
	char *report;

	if (decide[1] % 16 == 0)
		soak_write_filter(decide[2] % 2 ? _componentName[SOAK_MEM_COMP]
						: "all");
	report = soak_read_report(reports[which].name);
	SOAK_CHECK(!report || strstr(report, reports[which].text),
		   "%s is not complete", reports[which].name);
	kvfree(report);
	reads++;
}

int soak_churn_set_up(void)
{
	zorva_mutex_t *const mutex =
		zorva_mutex_create(SOAK_CHURN_COMP, "soak-size");

	mutex_size = soak_account_of(SOAK_CHURN_COMP).bytes;
	if (!mutex || zorva_mutex_destroy(SOAK_CHURN_COMP, mutex))
		return -ENOMEM;
	return mutex_size ? 0 : -EINVAL;
}

void soak_churn_take_down(void)
{
	int mutexes = 0;
	unsigned int i;

	for (i = 0; i < NOTIFIERS; i++)
		if (subscriptions[i])
			zorva_netevent_ntfy_unregister(SOAK_NETEVENT_COMP,
						       subscriptions[i]);
	for (i = 0; i < CHURNERS; i++) {
		const u32 comp = SOAK_CHURN_COMP + i;
		const struct soak_account account = soak_account_of(comp);

		SOAK_CHECK(account.blocks == mutexes_left[i] &&
				   account.bytes ==
					   mutexes_left[i] * mutex_size,
			   "%s owns %u bytes in %u blocks, not %u mutexes",
			   _componentName[comp], account.bytes, account.blocks,
			   mutexes_left[i]);
		mutexes += mutexes_left[i];
	}
	SOAK_CHECK(soak_number_in_report("zorva.mutex.detail",
					 "Total number of Mutex: ") == mutexes,
		   "%d mutexes are listed, not %d",
		   soak_number_in_report("zorva.mutex.detail",
					 "Total number of Mutex: "),
		   mutexes);
	SOAK_CHECK(soak_number_in_report("zorva.sem.detail",
					 "Total number of Semaphore: ") == 0,
		   "semaphores are still listed");
	pr_info("soak: churn: %u objects, %u notifications, %u reports read\n",
		atomic_read(&made), notifications, reads);
}
