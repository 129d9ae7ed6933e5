// SPDX-License-Identifier: GPL-2.0
/*
 * The table of docs/contexts.md: each call in each context that it has a "no"
 * for. run.sh compares the names that this prints with that table.
 */
#include "rules.h"

static u32 bits[2];
static struct notifier_block *subscribed;

static void nothing(void *unused)
{
}

/* Calls that may sleep, each with its line in "line". */

static void take_mutex(void *unused)
{
	line = __LINE__ + 1;
	zorva_mutex_take(OWNER, mutex);
}

static void give_mutex(void *unused)
{
	line = __LINE__ + 1;
	zorva_mutex_give(OWNER, mutex);
}

static void take_sem(void *unused)
{
	line = __LINE__ + 1;
	zorva_sem_take(OWNER, sem, ZORVA_NO_WAIT);
}

static void give_sem(void *unused)
{
	line = __LINE__ + 1;
	zorva_sem_give(OWNER, sem);
}

static void set_event(void *unused)
{
	line = __LINE__ + 1;
	zorva_event_set(OWNER, event, bits);
}

static void wait_event(void *unused)
{
	line = __LINE__ + 1;
	zorva_event_wait(OWNER, event, bits, ZORVA_NO_WAIT);
}

static void send(void *unused)
{
	u32 message = 0;

	line = __LINE__ + 1;
	zorva_msg_queue_send(OWNER, queue, &message, 4, ZORVA_NO_WAIT);
}

static void receive(void *unused)
{
	u32 message;

	line = __LINE__ + 1;
	zorva_msg_queue_receive(OWNER, queue, &message, 4, ZORVA_NO_WAIT);
}

static void wait_module(void *unused)
{
	line = __LINE__ + 1;
	zorva_wait_event(OWNER, wait_id);
}

static void create_thread(void *unused)
{
	line = __LINE__ + 1;
	zorva_thread_create(OWNER, "thread", 0, 100, nothing, NULL);
}

static void destroy_thread(void *unused)
{
	line = __LINE__ + 1;
	zorva_thread_destroy(OWNER, 1);
}

static void create_mutex(void *unused)
{
	line = __LINE__ + 1;
	zorva_mutex_create(OWNER, "late");
}

static void create_sem(void *unused)
{
	line = __LINE__ + 1;
	zorva_sem_create(OWNER, "late", 1);
}

static void create_queue(void *unused)
{
	line = __LINE__ + 1;
	zorva_msg_queue_create(OWNER, "late", 1, 4);
}

static void create_event(void *unused)
{
	line = __LINE__ + 1;
	zorva_event_create(OWNER, "late");
}

static void destroy_mutex(void *unused)
{
	line = __LINE__ + 1;
	zorva_mutex_destroy(OWNER, mutex);
}

static void ask_mutex(void *unused)
{
	line = __LINE__ + 1;
	zorva_mutex_is_locked(OWNER, mutex);
}

static void destroy_sem(void *unused)
{
	line = __LINE__ + 1;
	zorva_sem_destroy(OWNER, sem);
}

static void destroy_event(void *unused)
{
	line = __LINE__ + 1;
	zorva_event_destroy(OWNER, event);
}

static void delete_queue(void *unused)
{
	line = __LINE__ + 1;
	zorva_msg_queue_delete(OWNER, queue);
}

static void ask_depth(void *unused)
{
	line = __LINE__ + 1;
	zorva_msg_queue_depth(OWNER, queue);
}

static void ask_max_depth(void *unused)
{
	line = __LINE__ + 1;
	zorva_msg_queue_max_depth(OWNER, queue);
}

static void wait_for_thread(void *unused)
{
	line = __LINE__ + 1;
	zorva_thread_wait(1);
}

static void exit_thread(void *unused)
{
	line = __LINE__ + 1;
	zorva_thread_exit(OWNER, 0);
}

static int notify(struct notifier_block *handle, unsigned long number,
		  void *data)
{
	return 0;
}

static void subscribe(void *unused)
{
	line = __LINE__ + 1;
	zorva_netevent_ntfy_register(OWNER, notify);
}

static void unsubscribe(void *unused)
{
	line = __LINE__ + 1;
	zorva_netevent_ntfy_unregister(OWNER, subscribed);
}

static void sleep_usecs(void *unused)
{
	line = __LINE__ + 1;
	zorva_time_usleep(10);
}

static void sleep_secs(void *unused)
{
	line = __LINE__ + 1;
	zorva_time_sleep(1);
}

static void host_sleep(void *unused)
{
	line = __LINE__ + 1;
	zorva_host_sleep(10);
}

static void host_settle(void *unused)
{
	line = __LINE__ + 1;
	zorva_host_settle();
}

static void host_report(void *unused)
{
	line = __LINE__ + 1;
	zorva_host_report("zorva.mem");
}

static void host_event(void *unused)
{
	line = __LINE__ + 1;
	zorva_host_network_event(1, NULL);
}

static void make_all(void)
{
	mutex = zorva_mutex_create(OWNER, "mutex");
	sem = zorva_sem_create(OWNER, "sem", 1);
	event = zorva_event_create(OWNER, "event");
	queue = zorva_msg_queue_create(OWNER, "queue", 2, 4);
	zorva_wait_module_create(OWNER, &wait_id);
	subscribed = zorva_netevent_ntfy_register(OWNER, notify);
}

static const struct {
	const char *name;
	void (*call)(void *unused);
	int allowed_in_interrupts;
} sleeping[] = {
	{ "zorva_mutex_create", create_mutex, 0 },
	{ "zorva_mutex_destroy", destroy_mutex, 0 },
	{ "zorva_mutex_take", take_mutex, 0 },
	{ "zorva_mutex_give", give_mutex, 0 },
	{ "zorva_mutex_is_locked", ask_mutex, 0 },
	{ "zorva_sem_create", create_sem, 0 },
	{ "zorva_sem_destroy", destroy_sem, 0 },
	{ "zorva_sem_take", take_sem, 0 },
	{ "zorva_sem_give", give_sem, 0 },
	{ "zorva_event_create", create_event, 0 },
	{ "zorva_event_destroy", destroy_event, 0 },
	{ "zorva_event_set", set_event, 0 },
	{ "zorva_event_wait", wait_event, 0 },
	{ "zorva_msg_queue_create", create_queue, 0 },
	{ "zorva_msg_queue_delete", delete_queue, 0 },
	{ "zorva_msg_queue_send", send, 0 },
	{ "zorva_msg_queue_receive", receive, 0 },
	{ "zorva_msg_queue_depth", ask_depth, 0 },
	{ "zorva_msg_queue_max_depth", ask_max_depth, 0 },
	{ "zorva_wait_event", wait_module, 0 },
	{ "zorva_thread_create", create_thread, 0 },
	{ "zorva_thread_destroy", destroy_thread, 0 },
	{ "zorva_thread_wait", wait_for_thread, 0 },
	{ "zorva_thread_exit", exit_thread, 0 },
	{ "zorva_netevent_ntfy_register", subscribe, 0 },
	{ "zorva_netevent_ntfy_unregister", unsubscribe, 0 },
	{ "zorva_time_usleep", sleep_usecs, 1 },
	{ "zorva_time_sleep", sleep_secs, 1 },
	{ "zorva_host_sleep", host_sleep, 0 },
	{ "zorva_host_settle", host_settle, 0 },
	{ "zorva_host_report", host_report, 0 },
	{ "zorva_host_network_event", host_event, 0 },
};

static void (*chosen)(void *unused);

static void in_hard_interrupt(void *unused)
{
	make_all();
	zorva_host_hard_interrupt(chosen, NULL);
}

static void in_soft_interrupt(void *unused)
{
	make_all();
	zorva_host_soft_interrupt(chosen, NULL);
}

static void with_interrupts_off(void *unused)
{
	make_all();
	zorva_host_without_interrupts(chosen, NULL);
}

static void expires(unsigned long unused)
{
	chosen(NULL);
}

static void in_a_timer(void *unused)
{
	make_all();
	zorva_timer_init(OWNER, &timer, expires, 0);
	zorva_timer_start(OWNER, &timer, 10);
	zorva_host_sleep(100000);
}

static void in_a_high_resolution_timer(void *unused)
{
	make_all();
	zorva_hrt_timer_init(OWNER, &timer, expires, 0);
	zorva_hrt_timer_start(OWNER, &timer, 10);
	zorva_host_sleep(100000);
}

static int notify_chosen(struct notifier_block *handle, unsigned long number,
			 void *data)
{
	chosen(NULL);
	return 0;
}

static void in_a_network_event(void *unused)
{
	make_all();
	zorva_netevent_ntfy_register(OWNER, notify_chosen);
	zorva_host_network_event(1, NULL);
}

int main(void)
{
	static const struct {
		const char *name;
		void (*test)(void *unused);
		const char *text;
		int is_interrupt;
	} contexts[] = {
		{ "hard", in_hard_interrupt, "in an interrupt", 1 },
		{ "soft", in_soft_interrupt, "in an interrupt", 1 },
		{ "atomic", with_interrupts_off, "with interrupts off", 0 },
		{ "tick timer", in_a_timer, "in an interrupt", 1 },
		{ "high-resolution timer", in_a_high_resolution_timer,
		  "in an interrupt", 1 },
		{ "network event", in_a_network_event, "in an interrupt", 1 },
	};
	char name[128];
	char text[128];
	size_t i;
	size_t j;

	zorva_host_on_failure(remember);
	for (i = 0; i < sizeof(sleeping) / sizeof(sleeping[0]); i++)
		for (j = 0; j < sizeof(contexts) / sizeof(contexts[0]); j++) {
			if (sleeping[i].allowed_in_interrupts &&
			    contexts[j].is_interrupt)
				continue;
			chosen = sleeping[i].call;
			snprintf(name, sizeof(name), "%s: %s", sleeping[i].name,
				 contexts[j].name);
			snprintf(text, sizeof(text),
				 "%s: may sleep, and is called %s",
				 sleeping[i].name, contexts[j].text);
			expect_told(name, contexts[j].test, text);
		}
	printf("%d wrong\n", wrong);
	return wrong != 0;
}
