// SPDX-License-Identifier: GPL-2.0
/*
 * The services of the module under many orders of threads, also with a switch
 * between any two of its calls into the kernel: what has to hold in all.
 */
#include "check.h"

#include <time.h>

#define OWNER ZORVA_COMP_SYS
#define ROUNDS 3u

static zorva_mutex_t *mutex;
static zorva_sem_t *sem;
static zorva_event_t *event;
static zorva_msg_queue_t *queue;
static u32 wait;
static zorva_atomic_t ended;
static u32 count;
static u32 inside;

static void start(const char *name, void (*entry)(void *argument),
		  void *argument)
{
	ZORVA_HOST_CHECK(
		zorva_thread_create(OWNER, name, 0, 100, entry, argument));
}

static void await(s32 threads)
{
	while (zorva_atomic_read(&ended) < threads)
		zorva_host_sleep(10000);
	zorva_host_settle();
}

static void begin(void)
{
	zorva_atomic_set(&ended, 0);
	count = 0;
	inside = 0;
}

/* Mutexes: one at a time, and who holds it is known to hold it. */

static void counts(void *unused)
{
	u32 i;
	u32 now;

	for (i = 0; i < ROUNDS; i++) {
		zorva_mutex_take(OWNER, mutex);
		ZORVA_HOST_CHECK(!inside++);
		now = count;
		zorva_time_usecs_ret();
		zorva_uptime_get(&now);
		now = count;
		count = now + 1;
		ZORVA_HOST_CHECK(!--inside);
		zorva_mutex_give(OWNER, mutex);
	}
	zorva_atomic_inc(&ended);
}

static void mutexes(void *unused)
{
	begin();
	mutex = zorva_mutex_create(OWNER, "count");
	start("a", counts, NULL);
	start("b", counts, NULL);
	counts(NULL);
	await(3);
	ZORVA_HOST_CHECK(count == 3 * ROUNDS);
	ZORVA_HOST_CHECK(zorva_mutex_destroy(OWNER, mutex) == ZORVA_RC_OK);
}

/* Mutexes: a stranger's give, where that is allowed, lets nobody in. */

static void gives(void *unused)
{
	u32 i;

	for (i = 0; i < 2 * ROUNDS; i++)
		zorva_mutex_give(OWNER, mutex);
	zorva_atomic_inc(&ended);
}

static void strangers(void *unused)
{
	begin();
	mutex = zorva_mutex_create(OWNER, "count");
	start("stranger", gives, NULL);
	start("a", counts, NULL);
	counts(NULL);
	await(3);
	ZORVA_HOST_CHECK(count == 2 * ROUNDS);
	zorva_mutex_destroy(OWNER, mutex);
}

/* Semaphores: as many get in as there are units. */

static void enters(void *unused)
{
	u32 i;

	for (i = 0; i < ROUNDS; i++) {
		ZORVA_HOST_CHECK(
			zorva_sem_take(OWNER, sem, ZORVA_WAIT_FOREVER) ==
			ZORVA_RC_OK);
		ZORVA_HOST_CHECK(++inside <= 2);
		zorva_time_usecs_ret();
		inside--;
		ZORVA_HOST_CHECK(zorva_sem_give(OWNER, sem) == ZORVA_RC_OK);
	}
	zorva_atomic_inc(&ended);
}

static void semaphores(void *unused)
{
	begin();
	sem = zorva_sem_create(OWNER, "two", 2);
	start("a", enters, NULL);
	start("b", enters, NULL);
	enters(NULL);
	await(3);
	ZORVA_HOST_CHECK(zorva_sem_take(OWNER, sem, ZORVA_NO_WAIT) ==
			 ZORVA_RC_OK);
	ZORVA_HOST_CHECK(zorva_sem_take(OWNER, sem, 20) == ZORVA_RC_OK);
	ZORVA_HOST_CHECK(zorva_sem_take(OWNER, sem, 20) == ZORVA_RC_TIMEOUT);
	zorva_sem_destroy(OWNER, sem);
}

/* Queues: nothing is lost, and each sender's messages keep their order. */

static void sends(void *argument)
{
	const u32 sender = *(const u32 *)argument;
	u32 message;
	u32 i;

	for (i = 1; i <= ROUNDS; i++) {
		message = sender << 16 | i;
		ZORVA_HOST_CHECK(zorva_msg_queue_send(OWNER, queue, &message, 4,
						      ZORVA_WAIT_FOREVER) ==
				 ZORVA_RC_OK);
	}
	zorva_atomic_inc(&ended);
}

static void queues(void *unused)
{
	static const u32 senders[2] = { 0, 1 };
	u32 last[2] = { 0, 0 };
	u32 message;
	u32 i;

	begin();
	queue = zorva_msg_queue_create(OWNER, "queue", 2, 4);
	start("a", sends, (void *)&senders[0]);
	start("b", sends, (void *)&senders[1]);
	for (i = 0; i < 2 * ROUNDS; i++) {
		ZORVA_HOST_CHECK(zorva_msg_queue_receive(OWNER, queue, &message,
							 4,
							 ZORVA_WAIT_FOREVER) ==
				 ZORVA_RC_OK);
		ZORVA_HOST_CHECK((message & 0xffff) == ++last[message >> 16]);
	}
	await(2);
	ZORVA_HOST_CHECK(zorva_msg_queue_depth(OWNER, queue) == 0);
	ZORVA_HOST_CHECK(zorva_msg_queue_delete(OWNER, queue) == ZORVA_RC_OK);
}

/* Events: every bit arrives. */

static void sets(void *argument)
{
	const u32 first = *(const u32 *)argument;
	u32 bits[2] = { 0, 0 };
	u32 i;

	for (i = 0; i < ROUNDS; i++) {
		bits[first / 16] = 1u << (first + i);
		ZORVA_HOST_CHECK(zorva_event_set(OWNER, event, bits) ==
				 ZORVA_RC_OK);
	}
	zorva_atomic_inc(&ended);
}

static void events(void *unused)
{
	static const u32 first[2] = { 0, 16 };
	const u32 all = (1u << ROUNDS) - 1;
	u32 seen[2] = { 0, 0 };
	u32 bits[2];

	begin();
	event = zorva_event_create(OWNER, "event");
	start("a", sets, (void *)&first[0]);
	start("b", sets, (void *)&first[1]);
	while (seen[0] != all || seen[1] != all << 16) {
		ZORVA_HOST_CHECK(zorva_event_wait(OWNER, event, bits,
						  ZORVA_WAIT_FOREVER) ==
				 ZORVA_RC_OK);
		seen[0] |= bits[0];
		seen[1] |= bits[1];
	}
	await(2);
	ZORVA_HOST_CHECK(zorva_event_destroy(OWNER, event) == ZORVA_RC_OK);
}

/* Wait modules: a wake-up is not lost, whenever it comes. */

static void wakes(void *unused)
{
	ZORVA_HOST_CHECK(zorva_wake_up(OWNER, wait) == ZORVA_RC_OK);
	zorva_atomic_inc(&ended);
}

static void waits(void *unused)
{
	ZORVA_HOST_CHECK(zorva_wait_event(OWNER, wait) == ZORVA_RC_OK);
	zorva_atomic_inc(&ended);
}

static void wait_modules(void *unused)
{
	u32 i;

	zorva_wait_module_create(OWNER, &wait);
	for (i = 0; i < 2; i++) {
		begin();
		start("waiter", waits, NULL);
		start("waker", wakes, NULL);
		await(2);
	}
	zorva_wait_module_destroy(OWNER, wait);
}

/* Threads: made and told to end in any order, nothing stays. */

static void naps(void *unused)
{
	u32 i;

	for (i = 0; i < 50; i++)
		zorva_time_usleep(20000);
}

static void returns_at_once(void *unused)
{
	zorva_atomic_inc(&ended);
}

static void makes_threads(void *unused)
{
	start("short", returns_at_once, NULL);
	start("short", returns_at_once, NULL);
	zorva_atomic_inc(&ended);
}

static void threads(void *unused)
{
	u32 pid;

	begin();
	pid = zorva_thread_create(OWNER, "sleeper", 0, 100, naps, NULL);
	start("maker", makes_threads, NULL);
	start("short", returns_at_once, NULL);
	ZORVA_HOST_CHECK(zorva_thread_destroy(OWNER, pid) == ZORVA_RC_OK);
	ZORVA_HOST_CHECK(zorva_host_report("zorva.thread"));
	await(4);
	while (!zorva_host_thread_has_ended(pid))
		zorva_host_sleep(10000);
	ZORVA_HOST_CHECK(!strstr(zorva_host_report("zorva.thread"), "PID"));
}

/* Timers: stopped by one thread while another starts them. */

static u32 timer;

static void expires(unsigned long unused)
{
	count++;
}

static void starts(void *unused)
{
	u32 i;

	for (i = 0; i < ROUNDS; i++)
		zorva_timer_start(OWNER, &timer, 10);
	zorva_atomic_inc(&ended);
}

static void stops(void *unused)
{
	u32 i;

	for (i = 0; i < ROUNDS; i++)
		zorva_timer_stop(OWNER, &timer);
	zorva_atomic_inc(&ended);
}

static void timers(void *unused)
{
	begin();
	zorva_timer_init(OWNER, &timer, expires, 0);
	start("starter", starts, NULL);
	start("stopper", stops, NULL);
	await(2);
	zorva_host_sleep(50000);
	ZORVA_HOST_CHECK(count <= 1);
	zorva_timer_stop(OWNER, &timer);
}

/* The registries and the reports, while objects come and go. */

static void makes_objects(void *unused)
{
	zorva_mutex_t *own = zorva_mutex_create(OWNER, "own");
	zorva_sem_t *mine = zorva_sem_create(OWNER, "mine", 1);

	zorva_mutex_take(OWNER, own);
	zorva_sem_take(OWNER, mine, 100);
	zorva_sem_give(OWNER, mine);
	zorva_mutex_give(OWNER, own);
	zorva_sem_destroy(OWNER, mine);
	zorva_mutex_destroy(OWNER, own);
	zorva_atomic_inc(&ended);
}

static void reports(void *unused)
{
	static const char *const names[] = {
		"zorva.mutex",	    "zorva.mutex.detail", "zorva.sem",
		"zorva.sem.detail", "zorva.mem",	  "zorva.mem.detail",
		"zorva.thread",	    "zorva.timer",	  "zorva.msgq",
	};
	u32 i;

	begin();
	start("a", makes_objects, NULL);
	start("b", makes_objects, NULL);
	for (i = 0; i < sizeof(names) / sizeof(names[0]); i++)
		ZORVA_HOST_CHECK(zorva_host_report(names[i]));
	await(2);
}

/* A deadlock of two mutexes in opposite order. */

static zorva_mutex_t *other;

static void takes_both(void *reversed)
{
	zorva_mutex_t *first = reversed ? other : mutex;
	zorva_mutex_t *second = reversed ? mutex : other;

	zorva_mutex_take(OWNER, first);
	zorva_mutex_take(OWNER, second);
	zorva_mutex_give(OWNER, second);
	zorva_mutex_give(OWNER, first);
	zorva_atomic_inc(&ended);
}

static void deadlock(void *unused)
{
	begin();
	mutex = zorva_mutex_create(OWNER, "first");
	other = zorva_mutex_create(OWNER, "second");
	start("forth", takes_both, NULL);
	start("back", takes_both, &ended);
	await(2);
	zorva_mutex_destroy(OWNER, mutex);
	zorva_mutex_destroy(OWNER, other);
}

static double seconds(void)
{
	struct timespec now;

	clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
	return now.tv_sec + now.tv_nsec * 1e-9;
}

/* Returns how many orders there were in a second of the processor's. */
static double explore(const char *name, void (*test)(void *), u32 orders,
		      u32 places)
{
	const double before = seconds();
	const u32 result = zorva_host_explore(test, NULL, orders, places);
	const double speed = orders / (seconds() - before);
	char text[128];

	snprintf(text, sizeof(text), "%s, %s: %.0f orders a second", name,
		 places ? "kernel calls" : "calls", speed);
	expect(text, !result && !told[0]);
	return speed;
}

int main(int argc, char **argv)
{
	const u32 orders = argc > 1 ? atoi(argv[1]) : 1000;
	static const struct {
		const char *name;
		void (*test)(void *unused);
	} tests[] = {
		{ "mutexes", mutexes },	      { "strangers", strangers },
		{ "semaphores", semaphores }, { "queues", queues },
		{ "events", events },	      { "wait modules", wait_modules },
		{ "threads", threads },	      { "timers", timers },
		{ "reports", reports },
	};
	double before;
	double speed;
	u32 found;
	u64 seed;
	size_t i;

	zorva_host_on_failure(remember);
	zorva_host_allow(ZORVA_HOST_STRANGERS_GIVE);
	for (i = 0; i < sizeof(tests) / sizeof(tests[0]); i++) {
		explore(tests[i].name, tests[i].test, orders, ZORVA_HOST_CALLS);
		explore(tests[i].name, tests[i].test, orders,
			ZORVA_HOST_KERNEL_CALLS);
	}
	zorva_host_allow(0);

	speed = explore("small test", mutexes, 1000, ZORVA_HOST_CALLS);
	expect("1,000 orders of a small test take at most a second",
	       speed >= 1000);

	before = seconds();
	found = zorva_host_explore(deadlock, NULL, 1000, ZORVA_HOST_CALLS);
	seed = zorva_host_failed_seed();
	expect("a deadlock is found within 1,000 orders and 1 s",
	       found && seconds() - before < 1 &&
		       strstr(told,
			      "holds mutex 'first', taken at orders_test.c:") &&
		       strstr(told,
			      "waits in zorva_mutex_take at orders_test.c:"));
	found = zorva_host_repeat(deadlock, NULL, seed, ZORVA_HOST_CALLS);
	expect("its seed finds it again",
	       found && strstr(told, "for mutex 'second'"));
	printf("%d wrong\n", wrong);
	return wrong != 0;
}
