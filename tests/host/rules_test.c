// SPDX-License-Identifier: GPL-2.0
/*
 * The rules of docs/contexts.md beside its table, as far as a caller can break
 * them: each test breaks one and has to be told so, at the line that did it.
 */
#include "rules.h"

#include <sys/wait.h>
#include <unistd.h>

#define HERE "rules_test.c"

static u32 bits[2];
static u32 message;
static struct notifier_block *subscribed;
static void *block;

static void nothing_expires(unsigned long unused)
{
}

static int notify(struct notifier_block *handle, unsigned long number,
		  void *data)
{
	return 0;
}

/* Objects: what makes them, what destroys them, and each use of them. */

static void make_mutex(void)
{
	mutex = zorva_mutex_create(OWNER, "mutex");
}

static void take_mutex(void)
{
	line = __LINE__ + 1;
	zorva_mutex_take(OWNER, mutex);
}

static void give_mutex(void)
{
	line = __LINE__ + 1;
	zorva_mutex_give(OWNER, mutex);
}

static void ask_mutex(void)
{
	line = __LINE__ + 1;
	zorva_mutex_is_locked(OWNER, mutex);
}

static void destroy_mutex(void)
{
	line = __LINE__ + 1;
	zorva_mutex_destroy(OWNER, mutex);
}

static void make_sem(void)
{
	sem = zorva_sem_create(OWNER, "sem", 0);
}

static void take_sem(void)
{
	line = __LINE__ + 1;
	zorva_sem_take(OWNER, sem, ZORVA_WAIT_FOREVER);
}

static void give_sem(void)
{
	line = __LINE__ + 1;
	zorva_sem_give(OWNER, sem);
}

static void destroy_sem(void)
{
	line = __LINE__ + 1;
	zorva_sem_destroy(OWNER, sem);
}

static void make_event(void)
{
	event = zorva_event_create(OWNER, "event");
}

static void set_event(void)
{
	line = __LINE__ + 1;
	zorva_event_set(OWNER, event, bits);
}

static void wait_event(void)
{
	line = __LINE__ + 1;
	zorva_event_wait(OWNER, event, bits, ZORVA_WAIT_FOREVER);
}

static void destroy_event(void)
{
	line = __LINE__ + 1;
	zorva_event_destroy(OWNER, event);
}

static void make_queue(void)
{
	queue = zorva_msg_queue_create(OWNER, "queue", 1, 4);
}

static void send(void)
{
	line = __LINE__ + 1;
	zorva_msg_queue_send(OWNER, queue, &message, 4, ZORVA_WAIT_FOREVER);
}

static void receive(void)
{
	line = __LINE__ + 1;
	zorva_msg_queue_receive(OWNER, queue, &message, 4, ZORVA_WAIT_FOREVER);
}

static void ask_depth(void)
{
	line = __LINE__ + 1;
	zorva_msg_queue_depth(OWNER, queue);
}

static void ask_max_depth(void)
{
	line = __LINE__ + 1;
	zorva_msg_queue_max_depth(OWNER, queue);
}

static void delete_queue(void)
{
	line = __LINE__ + 1;
	zorva_msg_queue_delete(OWNER, queue);
}

static void make_wait_module(void)
{
	zorva_wait_module_create(OWNER, &wait_id);
}

static void wait_for_it(void)
{
	line = __LINE__ + 1;
	zorva_wait_event(OWNER, wait_id);
}

static void destroy_wait_module(void)
{
	line = __LINE__ + 1;
	zorva_wait_module_destroy(OWNER, wait_id);
}

static void subscribe(void)
{
	line = __LINE__ + 1;
	subscribed = zorva_netevent_ntfy_register(OWNER, notify);
}

static void unsubscribe(void)
{
	line = __LINE__ + 1;
	zorva_netevent_ntfy_unregister(OWNER, subscribed);
}

static void make_block(void)
{
	line = __LINE__ + 1;
	block = zorva_malloc(OWNER, 4);
}

static void free_block(void)
{
	line = __LINE__ + 1;
	zorva_free(OWNER, block);
}

/* What was destroyed is used. */

static const struct use {
	const char *name;
	void (*make)(void);
	void (*destroy)(void);
	void (*use)(void);
	const char *part;
} uses[] = {
	{ "take of a destroyed mutex", make_mutex, destroy_mutex, take_mutex,
	  "is called on what zorva_mutex_destroy at " HERE },
	{ "give of a destroyed mutex", make_mutex, destroy_mutex, give_mutex,
	  "is called on what zorva_mutex_destroy at " HERE },
	{ "look at a destroyed mutex", make_mutex, destroy_mutex, ask_mutex,
	  "is called on what zorva_mutex_destroy at " HERE },
	{ "a mutex is destroyed twice", make_mutex, destroy_mutex,
	  destroy_mutex, "made by zorva_mutex_create at " HERE },
	{ "take of a destroyed semaphore", make_sem, destroy_sem, take_sem,
	  "is called on what zorva_sem_destroy at " HERE },
	{ "give of a destroyed semaphore", make_sem, destroy_sem, give_sem,
	  "is called on what zorva_sem_destroy at " HERE },
	{ "a semaphore is destroyed twice", make_sem, destroy_sem, destroy_sem,
	  "made by zorva_sem_create at " HERE },
	{ "set of a destroyed event", make_event, destroy_event, set_event,
	  "is called on what zorva_event_destroy at " HERE },
	{ "wait for a destroyed event", make_event, destroy_event, wait_event,
	  "is called on what zorva_event_destroy at " HERE },
	{ "an event is destroyed twice", make_event, destroy_event,
	  destroy_event, "made by zorva_event_create at " HERE },
	{ "send to a deleted queue", make_queue, delete_queue, send,
	  "is called on what zorva_msg_queue_delete at " HERE },
	{ "receive from a deleted queue", make_queue, delete_queue, receive,
	  "is called on what zorva_msg_queue_delete at " HERE },
	{ "depth of a deleted queue", make_queue, delete_queue, ask_depth,
	  "is called on what zorva_msg_queue_delete at " HERE },
	{ "max depth of a deleted queue", make_queue, delete_queue,
	  ask_max_depth, "is called on what zorva_msg_queue_delete at " HERE },
	{ "a queue is deleted twice", make_queue, delete_queue, delete_queue,
	  "made by zorva_msg_queue_create at " HERE },
	{ "a subscription is withdrawn twice", subscribe, unsubscribe,
	  unsubscribe, "what zorva_netevent_ntfy_unregister at " HERE },
	{ "a block is freed twice", make_block, free_block, free_block,
	  "is called on what zorva_free at " HERE },
};
static const struct use *chosen;

static void use_of_destroyed(void *unused)
{
	chosen->make();
	chosen->destroy();
	chosen->use();
}

/* What is in use is destroyed. */

static void use_chosen(void *unused)
{
	chosen->use();
}

static void destruction_in_use(void *unused)
{
	chosen->make();
	if (chosen->make == make_mutex)
		zorva_mutex_take(OWNER, mutex);
	zorva_thread_create(OWNER, "user", 0, 100, use_chosen, NULL);
	zorva_host_settle();
	chosen->destroy();
}

static const struct use destructions[] = {
	{ "a mutex is destroyed that is waited for", make_mutex, destroy_mutex,
	  take_mutex, "still uses in zorva_mutex_take at " HERE },
	{ "a semaphore is destroyed that is waited for", make_sem, destroy_sem,
	  take_sem, "still uses in zorva_sem_take at " HERE },
	{ "an event is destroyed that is waited for", make_event, destroy_event,
	  wait_event, "still uses in zorva_event_wait at " HERE },
	{ "a queue is deleted that is waited for", make_queue, delete_queue,
	  receive, "still uses in zorva_msg_queue_receive at " HERE },
	{ "a wait module is destroyed that is waited for", make_wait_module,
	  destroy_wait_module, wait_for_it,
	  "destroys what thread 'user' (101) still uses in "
	  "zorva_wait_event at " HERE },
};

/* What is left at the end of a life. */

static void leave_a_mutex(void *unused)
{
	line = __LINE__ + 1;
	zorva_mutex_create(OWNER, "left");
}

static void leave_a_sem(void *unused)
{
	line = __LINE__ + 1;
	zorva_sem_create(OWNER, "left", 1);
}

static void leave_an_event(void *unused)
{
	line = __LINE__ + 1;
	zorva_event_create(OWNER, "left");
}

static void leave_a_queue(void *unused)
{
	line = __LINE__ + 1;
	zorva_msg_queue_create(OWNER, "left", 2, 4);
}

static void leave_a_wait_module(void *unused)
{
	line = __LINE__ + 1;
	zorva_wait_module_create(OWNER, &wait_id);
}

static void leave_a_block(void *unused)
{
	make_block();
}

static void leave_a_subscription(void *unused)
{
	subscribe();
}

static void waiter(void *unused)
{
	zorva_wait_event(OWNER, wait_id);
}

static void leave_a_thread(void *unused)
{
	make_wait_module();
	line = __LINE__ + 1;
	zorva_thread_create(OWNER, "waiter", 0, 100, waiter, NULL);
	zorva_host_settle();
}

/* Told to end, but a wait module's waiter discards signals. */
static void leave_a_thread_that_was_told(void *unused)
{
	u32 thread;

	make_wait_module();
	line = __LINE__ + 1;
	thread = zorva_thread_create(OWNER, "waiter", 0, 100, waiter, NULL);
	zorva_host_settle();
	zorva_thread_destroy(OWNER, thread);
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

/* The stop came before the last start, by the callback. */
static void starts_itself(unsigned long unused)
{
	line = __LINE__ + 1;
	zorva_timer_start(OWNER, &timer, 10);
}

static void leave_a_timer_that_starts_itself(void *unused)
{
	zorva_timer_init(OWNER, &timer, starts_itself, 0);
	zorva_timer_start(OWNER, &timer, 10);
	zorva_host_sleep(100000);
}

static const struct {
	const char *name;
	void (*test)(void *unused);
	const char *part;
} left[] = {
	{ "a mutex is left", leave_a_mutex,
	  "left: what was made by zorva_mutex_create at " HERE },
	{ "a semaphore is left", leave_a_sem, "zorva_sem_create at " HERE },
	{ "an event is left", leave_an_event, "zorva_event_create at " HERE },
	{ "a queue is left", leave_a_queue, "zorva_msg_queue_create at " HERE },
	{ "a wait module is left", leave_a_wait_module,
	  "zorva_wait_module_create at " HERE },
	{ "a block is left", leave_a_block, "zorva_malloc at " HERE },
	{ "a subscription is left", leave_a_subscription,
	  "zorva_netevent_ntfy_register at " HERE },
	{ "a thread is left", leave_a_thread,
	  "left: thread 'waiter' (101), made by zorva_thread_create" },
	{ "a thread is left that was told to end", leave_a_thread_that_was_told,
	  "left: thread 'waiter' (101), made by zorva_thread_create" },
	{ "a timer runs on", leave_a_running_timer,
	  "its callback would run in code that is gone" },
	{ "a high-resolution timer runs on", leave_a_running_hrt,
	  "its callback would run in code that is gone" },
	{ "a timer that starts itself runs on",
	  leave_a_timer_that_starts_itself,
	  "its callback would run in code that is gone" },
};

/* Mutexes and threads. */

static void keeper(void *unused)
{
	take_mutex();
}

static void end_with_a_mutex(void *unused)
{
	mutex = zorva_mutex_create(OWNER, "kept");
	zorva_thread_create(OWNER, "keeper", 0, 100, keeper, NULL);
	zorva_host_settle();
}

static void exits_with_a_mutex(void *unused)
{
	take_mutex();
	zorva_thread_exit(OWNER, 0);
}

static void exit_with_a_mutex(void *unused)
{
	mutex = zorva_mutex_create(OWNER, "kept");
	zorva_thread_create(OWNER, "keeper", 0, 100, exits_with_a_mutex, NULL);
	zorva_host_settle();
}

static void sleeps_with_a_mutex(void *unused)
{
	take_mutex();
	zorva_time_sleep(1);
	give_mutex();
}

/* A thread that is told to end ends inside the call that sleeps. */
static void told_to_end_with_a_mutex(void *unused)
{
	u32 thread;

	mutex = zorva_mutex_create(OWNER, "kept");
	thread = zorva_thread_create(OWNER, "keeper", 0, 100,
				     sleeps_with_a_mutex, NULL);
	zorva_host_settle();
	zorva_thread_destroy(OWNER, thread);
	zorva_host_settle();
}

static void exit_of_no_thread(void *unused)
{
	line = __LINE__ + 1;
	zorva_thread_exit(OWNER, 0);
}

/* The first thread of a life has this PID. */
static void waits_for_itself(void *unused)
{
	line = __LINE__ + 1;
	zorva_thread_wait(101);
}

static void wait_for_itself(void *unused)
{
	zorva_thread_create(OWNER, "self", 0, 100, waits_for_itself, NULL);
	zorva_host_settle();
}

static void wait_for_one_that_stays(void *unused)
{
	u32 thread;

	make_wait_module();
	thread = zorva_thread_create(OWNER, "waiter", 0, 100, waiter, NULL);
	line = __LINE__ + 1;
	zorva_thread_wait(thread);
}

static void stranger(void *unused)
{
	give_mutex();
}

static void give_by_another(void *unused)
{
	make_mutex();
	zorva_mutex_take(OWNER, mutex);
	zorva_thread_create(OWNER, "stranger", 0, 100, stranger, NULL);
	zorva_host_settle();
	zorva_mutex_give(OWNER, mutex);
	zorva_mutex_destroy(OWNER, mutex);
}

static void give_of_a_free_one(void *unused)
{
	make_mutex();
	give_mutex();
	zorva_mutex_destroy(OWNER, mutex);
}

/* Damage of blocks. */

static void write_behind_a_block(void *unused)
{
	char *bytes;

	make_block();
	bytes = block;
	bytes[4] = 1;
	free_block();
}

static void write_before_a_block(void *unused)
{
	u32 *words;

	make_block();
	words = block;
	words[-1] ^= 1;
	words[-(s32)(zorva_mem_overhead_get() / 4)] = 0;
	free_block();
}

static void free_twice(void *unused)
{
	make_block();
	zorva_free(OWNER, block);
	free_block();
}

static void free_of_no_block(void *unused)
{
	static char bytes[256];

	block = bytes + 128;
	free_block();
}

/* Timers whose callbacks wait for themselves. */

static void stops_itself(unsigned long unused)
{
	zorva_hrt_timer_start(OWNER, &timer, 10);
	line = __LINE__ + 1;
	zorva_hrt_timer_stop(OWNER, &timer);
}

static void refreshes_itself(unsigned long unused)
{
	zorva_hrt_timer_start(OWNER, &timer, 10);
	line = __LINE__ + 1;
	zorva_hrt_timer_refresh(OWNER, &timer, 10);
}

static void (*expiry)(unsigned long unused);

static void expires_once(void *unused)
{
	zorva_hrt_timer_init(OWNER, &timer, expiry, 0);
	zorva_hrt_timer_start(OWNER, &timer, 10);
	zorva_host_sleep(100000);
}

/* The debug-print function. */

static void print_by_malloc(void)
{
	line = __LINE__ + 1;
	zorva_malloc(OWNER, 4);
}

static void print_by_printf(void)
{
	line = __LINE__ + 1;
	zorva_proc_printf(NULL, "text\n");
}

static void print_by_timer(void)
{
	line = __LINE__ + 1;
	zorva_timer_start(OWNER, &timer, 10);
}

static void print_by_hrt(void)
{
	line = __LINE__ + 1;
	zorva_hrt_timer_stop(OWNER, &timer);
}

static void print_by_wake_up(void)
{
	line = __LINE__ + 1;
	zorva_wake_up(OWNER, wait_id);
}

static void print_by_sleep(void)
{
	line = __LINE__ + 1;
	zorva_time_usleep(10);
}

static void print_by_reporting(void)
{
	line = __LINE__ + 1;
	zorva_uptime_get(NULL);
}

static void print_well(void)
{
	char text[8];
	u32 msecs;

	zorva_uptime_get(&msecs);
	zorva_time_usecs_ret();
	zorva_strlcpy(text, "text", sizeof(text));
}

static void (*print)(void);

static void print_fn(u32 component, s32 unit, u32 level, const char *file,
		     const char *func, s32 at, const char *format, ...)
{
	print();
}

static void report_something(void *unused)
{
	zorva_debug_pr_fn_register(print_fn);
	make_mutex();
	zorva_mutex_destroy(OWNER, mutex);
}

static const struct {
	const char *name;
	void (*print)(void);
	const char *part;
} prints[] = {
	{ "the debug print allocates", print_by_malloc,
	  "zorva_malloc: is called by the debug-print function" },
	{ "the debug print frees", free_block,
	  "zorva_free: is called by the debug-print function" },
	{ "the debug print prints into the log", print_by_printf,
	  "zorva_proc_printf: is called by the debug-print function" },
	{ "the debug print starts a timer", print_by_timer,
	  "zorva_timer_start: is called by the debug-print function" },
	{ "the debug print stops a timer", print_by_hrt,
	  "zorva_hrt_timer_stop: is called by the debug-print function" },
	{ "the debug print wakes", print_by_wake_up,
	  "zorva_wake_up: is called by the debug-print function" },
	{ "the debug print waits", wait_for_it,
	  "zorva_wait_event: is called by the debug-print function" },
	{ "the debug print takes a mutex", take_mutex,
	  "zorva_mutex_take: is called by the debug-print function" },
	{ "the debug print sends", send,
	  "zorva_msg_queue_send: is called by the debug-print function" },
	{ "the debug print sleeps", print_by_sleep,
	  "zorva_time_usleep: is called by the debug-print function" },
	{ "the debug print calls back", print_by_reporting,
	  "that reports without end" },
};

/* Interrupts. */

static void nothing_happens(void *unused)
{
}

static void interrupts(void *unused)
{
	line = __LINE__ + 1;
	zorva_host_hard_interrupt(nothing_happens, NULL);
}

static void soft_interrupts(void *unused)
{
	line = __LINE__ + 1;
	zorva_host_soft_interrupt(nothing_happens, NULL);
}

static void interrupt_while_off(void *unused)
{
	zorva_host_without_interrupts(interrupts, NULL);
}

static void soft_interrupt_while_off(void *unused)
{
	zorva_host_without_interrupts(soft_interrupts, NULL);
}

static void soft_interrupt_in_a_hard_one(void *unused)
{
	zorva_host_hard_interrupt(soft_interrupts, NULL);
}

/* Outside of a life nothing can go on: in a process of its own. */

static int judgement;

static void judge(const char *text, const char *file, u32 at)
{
	const char yes = 'y';

	if (at == line && !strcmp(file, HERE) &&
	    strstr(text, "is called before zorva_host_begin() or after its "
			 "end") &&
	    write(judgement, &yes, 1) != 1)
		perror("write");
}

static void expect_end(const char *name, void (*call)(void))
{
	int status = 0;
	int ends[2];
	char said = 'n';
	pid_t child;

	fflush(stdout);
	if (pipe(ends))
		exit(2);
	child = fork();
	if (!child) {
		judgement = ends[1];
		zorva_host_on_failure(judge);
		call();
		_exit(0);
	}
	close(ends[1]);
	if (read(ends[0], &said, 1) < 0)
		perror("read");
	close(ends[0]);
	waitpid(child, &status, 0);
	expect(name, said == 'y' && WIFSIGNALED(status));
}

static void sleep_outside(void)
{
	line = __LINE__ + 1;
	zorva_host_sleep(10);
}

/* What is allowed is not complained of. */

static void expires_well(unsigned long unused)
{
	u32 now;

	zorva_free(OWNER, zorva_malloc(OWNER, 8));
	zorva_uptime_get(&now);
	zorva_wake_up(OWNER, wait_id);
	zorva_time_usleep(10);
}

static void ends_well(void *unused)
{
	zorva_mutex_take(OWNER, mutex);
	zorva_mutex_give(OWNER, mutex);
}

static void all_is_well(void *unused)
{
	u32 thread;

	make_mutex();
	make_sem();
	make_event();
	make_queue();
	make_wait_module();
	take_mutex();
	ask_mutex();
	give_mutex();
	give_sem();
	take_sem();
	set_event();
	wait_event();
	send();
	receive();
	zorva_timer_init(OWNER, &timer, expires_well, 0);
	zorva_timer_start(OWNER, &timer, 10);
	wait_for_it();
	thread = zorva_thread_create(OWNER, "well", 0, 100, ends_well, NULL);
	zorva_thread_wait(thread);
	ZORVA_HOST_CHECK(zorva_host_thread_has_ended(thread));
	destroy_mutex();
	destroy_sem();
	destroy_event();
	delete_queue();
	destroy_wait_module();
	zorva_proc_printf(NULL, "%u of %s", 3u, "all");
	ZORVA_HOST_CHECK(strstr(zorva_host_log(), "3 of all"));
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

static void expect_pass(const char *name, void (*test)(void *))
{
	const u32 result = zorva_host_run(test, NULL);

	expect(name, !result && !told[0]);
}

#define COUNT(table) (sizeof(table) / sizeof((table)[0]))

int main(void)
{
	size_t i;

	zorva_host_on_failure(remember);
	for (i = 0; i < COUNT(uses); i++) {
		chosen = &uses[i];
		expect_told(chosen->name, use_of_destroyed, chosen->part);
	}
	for (i = 0; i < COUNT(destructions); i++) {
		chosen = &destructions[i];
		expect_told(chosen->name, destruction_in_use, chosen->part);
	}
	for (i = 0; i < COUNT(left); i++)
		expect_told(left[i].name, left[i].test, left[i].part);

	expect_told("a thread ends with a mutex", end_with_a_mutex,
		    "thread 'keeper' (101) has ended and holds mutex 'kept', "
		    "taken at " HERE);
	expect_told("a thread exits with a mutex", exit_with_a_mutex,
		    "thread 'keeper' (101) has ended in zorva_thread_exit "
		    "at " HERE);
	expect_told("a thread is told to end and has a mutex",
		    told_to_end_with_a_mutex,
		    "thread 'keeper' (101) has ended in zorva_time_sleep "
		    "at " HERE);
	expect_told("exit of no thread", exit_of_no_thread,
		    "zorva_thread_exit: is for threads that "
		    "zorva_thread_create() has made");
	expect_told("a thread waits for itself", wait_for_itself,
		    "a thread waits until it has ended itself");
	expect_told("a wait for a thread that stays", wait_for_one_that_stays,
		    "thread 'waiter' (101) waits in zorva_wait_event at " HERE);
	expect_told("a mutex is given by another", give_by_another,
		    "zorva_mutex_give: gives mutex 'mutex', which thread "
		    "'main' (100) holds, taken at " HERE);
	expect_told("a mutex is given that nobody holds", give_of_a_free_one,
		    "zorva_mutex_give: gives mutex 'mutex', which nobody "
		    "holds");
	expect_told("a write behind a block", write_behind_a_block,
		    "zorva_free: Memory corruption: guard overwritten");
	expect_told("a write before a block", write_before_a_block,
		    "zorva_free: ");
	expect_told("a free of no block", free_of_no_block,
		    "zorva_free: Memory header corrupt!");
	expiry = stops_itself;
	expect_told("a callback stops itself", expires_once,
		    "a timer's callback waits for itself");
	expiry = refreshes_itself;
	expect_told("a callback refreshes itself", expires_once,
		    "a timer's callback waits for itself");
	for (i = 0; i < COUNT(prints); i++) {
		print = prints[i].print;
		expect_told(prints[i].name, report_something, prints[i].part);
	}
	expect_told("an interrupt while they are off", interrupt_while_off,
		    "zorva_host_hard_interrupt: comes while interrupts are "
		    "off");
	expect_told("a soft interrupt while they are off",
		    soft_interrupt_while_off,
		    "zorva_host_soft_interrupt: comes with interrupts off");
	expect_told("a soft interrupt in a hard one",
		    soft_interrupt_in_a_hard_one,
		    "zorva_host_soft_interrupt: comes in an interrupt");
	expect_told("a check", check_something, "is not true: 1 + 1 == 3");

	print = print_well;
	expect_pass("a debug print that may", report_something);
	expect_pass("what is allowed", all_is_well);
	zorva_host_allow(ZORVA_HOST_STRANGERS_GIVE);
	expect_pass("a give by another that is allowed", give_by_another);
	expect_pass("a give of a free mutex that is allowed",
		    give_of_a_free_one);
	zorva_host_allow(ZORVA_HOST_DAMAGE);
	expect_pass("a write behind a block that is allowed",
		    write_behind_a_block);
	expect_pass("a second free that is allowed", free_twice);
	zorva_host_allow(0);
	expect_told("what is allowed no longer", give_by_another, "gives");
	expect_end("an allocation outside of a life", make_block);
	expect_end("a sleep outside of a life", sleep_outside);
	printf("%d wrong\n", wrong);
	return wrong != 0;
}
