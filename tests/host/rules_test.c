// SPDX-License-Identifier: GPL-2.0
/*
 * Every rule of docs/contexts.md that a caller can break: each test breaks one
 * and has to be told so, at the line that did it.
 */
#include "check.h"

#define OWNER ZORVA_COMP_PORT
#define HERE "rules_test.c"

static unsigned int line;
static zorva_mutex_t *mutex;
static zorva_sem_t *sem;
static zorva_event_t *event;
static zorva_msg_queue_t *queue;
static u32 wait;
static u32 timer;
static u32 bits[2];

static void nothing(void *unused)
{
}

static void nothing_expires(unsigned long unused)
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
	zorva_wait_event(OWNER, wait);
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

static void make_all(void)
{
	mutex = zorva_mutex_create(OWNER, "mutex");
	sem = zorva_sem_create(OWNER, "sem", 1);
	event = zorva_event_create(OWNER, "event");
	queue = zorva_msg_queue_create(OWNER, "queue", 2, 4);
	zorva_wait_module_create(OWNER, &wait);
}

static const struct {
	const char *name;
	void (*call)(void *unused);
	int allowed_in_interrupts;
} sleeping[] = {
	{ "zorva_mutex_take", take_mutex, 0 },
	{ "zorva_mutex_give", give_mutex, 0 },
	{ "zorva_mutex_create", create_mutex, 0 },
	{ "zorva_sem_take", take_sem, 0 },
	{ "zorva_sem_give", give_sem, 0 },
	{ "zorva_sem_create", create_sem, 0 },
	{ "zorva_event_set", set_event, 0 },
	{ "zorva_event_wait", wait_event, 0 },
	{ "zorva_event_create", create_event, 0 },
	{ "zorva_msg_queue_send", send, 0 },
	{ "zorva_msg_queue_receive", receive, 0 },
	{ "zorva_msg_queue_create", create_queue, 0 },
	{ "zorva_wait_event", wait_module, 0 },
	{ "zorva_thread_create", create_thread, 0 },
	{ "zorva_thread_destroy", destroy_thread, 0 },
	{ "zorva_netevent_ntfy_register", subscribe, 0 },
	{ "zorva_time_usleep", sleep_usecs, 1 },
	{ "zorva_time_sleep", sleep_secs, 1 },
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

static void expect_told(const char *name, void (*test)(void *),
			const char *part)
{
	char place[64];
	u32 result;

	line = 0;
	result = zorva_host_run(test, NULL);
	snprintf(place, sizeof(place), "[" HERE ":%u]", line);
	expect(name, result && strstr(told, place) && strstr(told, part));
}

static void sleepers(void)
{
	static const struct {
		const char *name;
		void (*test)(void *unused);
		const char *text;
		int is_interrupt;
	} contexts[] = {
		{ "hard interrupt", in_hard_interrupt, "in an interrupt", 1 },
		{ "soft interrupt", in_soft_interrupt, "in an interrupt", 1 },
		{ "interrupts off", with_interrupts_off, "with interrupts off",
		  0 },
		{ "tick timer", in_a_timer, "in an interrupt", 1 },
		{ "high-resolution timer", in_a_high_resolution_timer,
		  "in an interrupt", 1 },
	};
	char name[128];
	char text[128];
	size_t i;
	size_t j;

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
}

/* Objects that are gone. */

static void use_destroyed_mutex(void *unused)
{
	mutex = zorva_mutex_create(OWNER, "mutex");
	zorva_mutex_destroy(OWNER, mutex);
	take_mutex(NULL);
}

static void use_destroyed_sem(void *unused)
{
	sem = zorva_sem_create(OWNER, "sem", 1);
	zorva_sem_destroy(OWNER, sem);
	give_sem(NULL);
}

static void use_destroyed_event(void *unused)
{
	event = zorva_event_create(OWNER, "event");
	zorva_event_destroy(OWNER, event);
	set_event(NULL);
}

static void use_deleted_queue(void *unused)
{
	queue = zorva_msg_queue_create(OWNER, "queue", 1, 4);
	zorva_msg_queue_delete(OWNER, queue);
	receive(NULL);
}

static void destroy_twice(void *unused)
{
	mutex = zorva_mutex_create(OWNER, "mutex");
	zorva_mutex_destroy(OWNER, mutex);
	line = __LINE__ + 1;
	zorva_mutex_destroy(OWNER, mutex);
}

static void waiter(void *unused)
{
	zorva_wait_event(OWNER, wait);
}

static void destroy_awaited(void *unused)
{
	zorva_wait_module_create(OWNER, &wait);
	zorva_thread_create(OWNER, "waiter", 0, 100, waiter, NULL);
	zorva_host_settle();
	line = __LINE__ + 1;
	zorva_wait_module_destroy(OWNER, wait);
}

/* What is left behind. */

static void keeper(void *unused)
{
	take_mutex(NULL);
}

static void end_with_a_mutex(void *unused)
{
	mutex = zorva_mutex_create(OWNER, "kept");
	zorva_thread_create(OWNER, "keeper", 0, 100, keeper, NULL);
	zorva_host_settle();
}

static void leave_a_mutex(void *unused)
{
	line = __LINE__ + 1;
	zorva_mutex_create(OWNER, "left");
}

static void leave_a_block(void *unused)
{
	line = __LINE__ + 1;
	zorva_malloc(OWNER, 10);
}

static void leave_a_queue(void *unused)
{
	line = __LINE__ + 1;
	zorva_msg_queue_create(OWNER, "left", 2, 4);
}

static void leave_a_thread(void *unused)
{
	zorva_wait_module_create(OWNER, &wait);
	line = __LINE__ + 1;
	zorva_thread_create(OWNER, "waiter", 0, 100, waiter, NULL);
	zorva_host_settle();
}

static void leave_a_running_timer(void *unused)
{
	zorva_timer_init(OWNER, &timer, nothing_expires, 0);
	line = __LINE__ + 1;
	zorva_timer_start(OWNER, &timer, 1000);
}

static void leave_a_running_hrt(void *unused)
{
	zorva_hrt_timer_init(OWNER, &timer, nothing_expires, 0);
	line = __LINE__ + 1;
	zorva_hrt_timer_start(OWNER, &timer, 1000);
}

static void leave_a_subscription(void *unused)
{
	subscribe(NULL);
}

/* A high-resolution timer's callback that waits for itself. */

static void starts_and_stops_itself(unsigned long unused)
{
	zorva_hrt_timer_start(OWNER, &timer, 10);
	line = __LINE__ + 1;
	zorva_hrt_timer_stop(OWNER, &timer);
}

static void stop_from_its_own_callback(void *unused)
{
	zorva_hrt_timer_init(OWNER, &timer, starts_and_stops_itself, 0);
	zorva_hrt_timer_start(OWNER, &timer, 10);
	zorva_host_sleep(100000);
}

/* The debug-print function. */

static void print_by_allocating(u32 component, s32 unit, u32 level,
				const char *file, const char *func, s32 at,
				const char *format, ...)
{
	line = __LINE__ + 1;
	zorva_free(OWNER, zorva_malloc(OWNER, 4));
}

static void print_by_reporting(u32 component, s32 unit, u32 level,
			       const char *file, const char *func, s32 at,
			       const char *format, ...)
{
	line = __LINE__ + 1;
	zorva_uptime_get(NULL);
}

static void print_by_taking(u32 component, s32 unit, u32 level,
			    const char *file, const char *func, s32 at,
			    const char *format, ...)
{
	take_mutex(NULL);
}

static void print_well(u32 component, s32 unit, u32 level, const char *file,
		       const char *func, s32 at, const char *format, ...)
{
	u32 msecs;

	zorva_uptime_get(&msecs);
}

static sys_dbg_pr_fn_t print;

static void report_something(void *unused)
{
	zorva_debug_pr_fn_register(print);
	mutex = zorva_mutex_create(OWNER, "mutex");
	zorva_mutex_destroy(OWNER, mutex);
}

static void expect_pass(const char *name, void (*test)(void *))
{
	const u32 result = zorva_host_run(test, NULL);

	expect(name, !result && !told[0]);
}

static void expect_print(const char *name, sys_dbg_pr_fn_t fn, const char *part)
{
	print = fn;
	expect_told(name, report_something, part);
}

/* What is allowed is not complained of. */

static void expires_well(unsigned long unused)
{
	u32 now;

	zorva_free(OWNER, zorva_malloc(OWNER, 8));
	zorva_uptime_get(&now);
	zorva_wake_up(OWNER, wait);
	zorva_time_usleep(10);
}

static void all_is_well(void *unused)
{
	make_all();
	take_mutex(NULL);
	give_mutex(NULL);
	take_sem(NULL);
	give_sem(NULL);
	send(NULL);
	receive(NULL);
	zorva_timer_init(OWNER, &timer, expires_well, 0);
	zorva_timer_start(OWNER, &timer, 10);
	wait_module(NULL);
	zorva_mutex_destroy(OWNER, mutex);
	zorva_sem_destroy(OWNER, sem);
	zorva_event_destroy(OWNER, event);
	zorva_msg_queue_delete(OWNER, queue);
	zorva_wait_module_destroy(OWNER, wait);
	ZORVA_HOST_CHECK(zorva_host_now() >= 10000);
	ZORVA_HOST_CHECK(strstr(zorva_host_report("zorva.timer"), "PORT"));
	ZORVA_HOST_CHECK(!zorva_host_report("zorva.nothing"));
	ZORVA_HOST_CHECK(strstr(zorva_host_reports(), "has been created"));
}

static void check_something(void *unused)
{
	line = __LINE__ + 1;
	ZORVA_HOST_CHECK(1 + 1 == 3);
}

int main(void)
{
	zorva_host_on_failure(remember);
	sleepers();
	expect_told("a destroyed mutex", use_destroyed_mutex,
		    "zorva_mutex_destroy at " HERE);
	expect_told("a destroyed semaphore", use_destroyed_sem,
		    "made by zorva_sem_create at " HERE);
	expect_told("a destroyed event", use_destroyed_event,
		    "zorva_event_destroy at ");
	expect_told("a deleted queue", use_deleted_queue,
		    "zorva_msg_queue_delete at ");
	expect_told("destroyed twice", destroy_twice, "has freed");
	expect_told("destroyed while awaited", destroy_awaited,
		    "destroys what thread 'waiter' (101) still uses in "
		    "zorva_wait_event at " HERE);
	expect_told("a thread ends with a mutex", end_with_a_mutex,
		    "thread 'keeper' (101) has ended and holds mutex 'kept', "
		    "taken at " HERE);
	expect_told("a mutex is left", leave_a_mutex,
		    "left: what was made by zorva_mutex_create at " HERE);
	expect_told("a block is left", leave_a_block, "zorva_malloc at " HERE);
	expect_told("a queue is left", leave_a_queue,
		    "zorva_msg_queue_create at " HERE);
	expect_told("a thread is left", leave_a_thread,
		    "left: thread 'waiter' (101), made by zorva_thread_create");
	expect_told("a timer runs on", leave_a_running_timer,
		    "its callback would run in code that is gone");
	expect_told("a high-resolution timer runs on", leave_a_running_hrt,
		    "its callback would run in code that is gone");
	expect_told("a subscription is left", leave_a_subscription,
		    "zorva_netevent_ntfy_register at " HERE);
	expect_told("a callback waits for itself", stop_from_its_own_callback,
		    "a timer's callback waits for itself");
	expect_print("the debug print allocates", print_by_allocating,
		     "zorva_malloc: is called by the debug-print function");
	expect_print("the debug print takes a mutex", print_by_taking,
		     "zorva_mutex_take: is called by the debug-print function");
	expect_print("the debug print reports", print_by_reporting,
		     "that reports without end");
	expect_told("a check", check_something, "is not true: 1 + 1 == 3");
	print = print_well;
	expect_pass("a debug print that may", report_something);
	expect_pass("what is allowed", all_is_well);
	printf("%d wrong\n", wrong);
	return wrong != 0;
}
