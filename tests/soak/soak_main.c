// SPDX-License-Identifier: GPL-2.0
/*
 * The actors, their decisions, and the order in which all of it begins and
 * ends. Loading the module is the soak; its parameter "violations" is read
 * afterwards. It never goes away: the module's reports come here.
 */
#include <linux/cpumask.h>
#include <linux/delay.h>
#include <linux/jhash.h>
#include <linux/mm.h>
#include <linux/module.h>
#include <linux/string.h>

#include "soak.h"

#define DIGEST_STEPS 50u
#define STEPS_ON_ONE 32u

static unsigned int seed = 1;
module_param(seed, uint, 0444);
MODULE_PARM_DESC(seed, "decides what every actor does");

static unsigned int seconds = 60;
module_param(seconds, uint, 0444);
MODULE_PARM_DESC(seconds, "how long it takes");

/* One to begin with, until all of it has been looked at. */
static atomic_t violations = ATOMIC_INIT(1);

static int get_violations(char *buffer, const struct kernel_param *param)
{
	return sprintf(buffer, "%d\n", atomic_read(&violations));
}

static const struct kernel_param_ops violations_ops = {
	.get = get_violations,
};
module_param_cb(violations, &violations_ops, NULL, 0444);
MODULE_PARM_DESC(violations, "what went wrong");

enum soak_phase soak_phase = SOAK_RUNNING;

void soak_violation(const char *format, ...)
{
	struct va_format text = { .fmt = format };
	va_list args;

	/* The first ones tell; the rest is only counted. */
	if (atomic_inc_return(&violations) > 41)
		return;
	va_start(args, format);
	text.va = &args;
	pr_err("soak: VIOLATION: %pV\n", &text);
	va_end(args);
}

#define ACTOR(name_, index_, priority_, ends_in_)                              \
	{                                                                      \
		.name = "soak-" #name_, .step = soak_##name_##_step,           \
		.index = (index_), .priority = (priority_),                    \
		.ends_in = (ends_in_),                                         \
	}

/* 30 stands for real time: those spend their time waiting. */
static struct soak_actor actors[] = {
	ACTOR(mem, 0, 140, SOAK_DRAINING),
	ACTOR(mem, 1, 150, SOAK_DRAINING),
	ACTOR(mem, 2, 128, SOAK_DRAINING),
	ACTOR(mem, 3, 160, SOAK_DRAINING),
	ACTOR(mutex, 0, 128, SOAK_DRAINING),
	ACTOR(mutex, 1, 140, SOAK_DRAINING),
	ACTOR(mutex, 2, 160, SOAK_DRAINING),
	ACTOR(mutex, 3, 128, SOAK_DRAINING),
	ACTOR(sem_give, 0, 128, SOAK_DRAINING),
	ACTOR(sem_give, 1, 150, SOAK_DRAINING),
	ACTOR(sem_take, 0, 30, SOAK_ENDING),
	ACTOR(sem_take, 1, 128, SOAK_ENDING),
	ACTOR(event_set, 0, 128, SOAK_DRAINING),
	ACTOR(event_set, 1, 140, SOAK_DRAINING),
	ACTOR(event_set, 2, 150, SOAK_DRAINING),
	ACTOR(event_wait, 0, 128, SOAK_ENDING),
	ACTOR(send, 0, 128, SOAK_DRAINING),
	ACTOR(send, 1, 140, SOAK_DRAINING),
	ACTOR(send, 2, 150, SOAK_DRAINING),
	ACTOR(receive, 0, 30, SOAK_ENDING),
	ACTOR(receive, 1, 128, SOAK_ENDING),
	ACTOR(receive, 2, 140, SOAK_ENDING),
	ACTOR(timer, 0, 128, SOAK_DRAINING),
	ACTOR(timer, 1, 150, SOAK_DRAINING),
	ACTOR(thread, 0, 128, SOAK_DRAINING),
	ACTOR(thread, 1, 140, SOAK_DRAINING),
	ACTOR(waker, 0, 128, SOAK_DRAINING),
	ACTOR(waiter, 0, 128, SOAK_ENDING),
	ACTOR(waiter, 1, 140, SOAK_ENDING),
	ACTOR(waiter, 2, 30, SOAK_ENDING),
	ACTOR(churn, 0, 128, SOAK_DRAINING),
	ACTOR(churn, 1, 150, SOAK_DRAINING),
	ACTOR(netevent, 0, 150, SOAK_DRAINING),
	ACTOR(reader, 0, 150, SOAK_DRAINING),
};

static void decide(struct soak_actor *actor)
{
	const u32 who = jhash(actor->name, strlen(actor->name), actor->index);
	unsigned int i;

	for (i = 0; i < ARRAY_SIZE(actor->decide); i++)
		actor->decide[i] = jhash_3words(who, actor->steps, i, seed);
	if (actor->steps < DIGEST_STEPS)
		actor->decisions = jhash(actor->decide, sizeof(actor->decide),
					 actor->decisions);
}

/*
 * With several processors, every actor moves to another one now and then, so
 * that each meets each of the others on its own and on another.
 */
static struct cpumask processors_used;

static void move_on(const struct soak_actor *actor)
{
	const unsigned int number =
		actor->steps / STEPS_ON_ONE + (unsigned int)(actor - actors);
	unsigned int cpu, i;

	if (actor->steps % STEPS_ON_ONE == 0 && num_online_cpus() > 1) {
		cpu = cpumask_first(cpu_online_mask);
		for (i = number % num_online_cpus(); i > 0; i--)
			cpu = cpumask_next(cpu, cpu_online_mask);
		SOAK_CHECK(!set_cpus_allowed_ptr(current, cpumask_of(cpu)),
			   "%s cannot move to processor %u", actor->name, cpu);
	}
	cpumask_set_cpu(raw_smp_processor_id(), &processors_used);
}

/* A breath between two steps, by a number of its own. */
static void pause_after(const struct soak_actor *actor)
{
	const u32 pause = jhash_2words(actor->decide[0], actor->steps, seed);

	if (pause % 4 == 0)
		zorva_time_usleep(10000 + pause / 4 % 40000);
	else if (pause % 4 == 1)
		zorva_time_usleep(1 + pause / 4 % 500);
	else
		cond_resched();
}

static void run(void *argument)
{
	struct soak_actor *const actor = argument;

	while (READ_ONCE(soak_phase) < actor->ends_in) {
		move_on(actor);
		decide(actor);
		actor->step(actor);
		pause_after(actor);
		actor->steps++;
	}
	WRITE_ONCE(actor->ended, true);
}

static void start_actors(void)
{
	unsigned int i;

	for (i = 0; i < ARRAY_SIZE(actors); i++) {
		struct soak_actor *const actor = &actors[i];

		if (!zorva_thread_create(SOAK_ACTOR_COMP, actor->name, 8192,
					 actor->priority, run, actor)) {
			soak_violation("%s cannot be started", actor->name);
			actor->ended = true;
			continue;
		}
		atomic_inc(&soak_expected.threads_created);
	}
}

static void end_phase(enum soak_phase phase)
{
	unsigned int i;

	WRITE_ONCE(soak_phase, phase);
	for (i = 0; i < ARRAY_SIZE(actors); i++)
		if (actors[i].ends_in <= phase)
			SOAK_WAIT(READ_ONCE(actors[i].ended),
				  "%s %u does not end", actors[i].name,
				  actors[i].index);
}

static bool all_ended(void)
{
	unsigned int i;

	for (i = 0; i < ARRAY_SIZE(actors); i++)
		if (!READ_ONCE(actors[i].ended))
			return false;
	return true;
}

static int set_up(void)
{
	return soak_mem_set_up() ?: soak_locks_set_up() ?:
	       soak_queue_set_up() ?: soak_timer_set_up() ?:
	       soak_thread_set_up() ?: soak_churn_set_up();
}

/* What the actors leave has to be gone; what stays is documented. */
static void take_down(void)
{
	soak_thread_take_down();
	soak_timer_take_down();
	soak_queue_take_down();
	soak_locks_take_down();
	soak_mem_take_down();
	soak_churn_take_down();
}

static bool is_empty(const char *name)
{
	char *const report = soak_read_report(name);
	const bool empty = report && !*report;

	kvfree(report);
	return empty;
}

static void check_nothing_is_left(void)
{
	static const char *const empty[] = { "zorva.thread", "zorva.msgq" };
	static const char *const stopped[] = { "zorva.timer", "zorva.hrt" };
	char *report;
	unsigned int i;
	u32 comp;

	for (i = 0; i < ARRAY_SIZE(empty); i++)
		SOAK_WAIT(is_empty(empty[i]), "%s is not empty", empty[i]);
	for (i = 0; i < ARRAY_SIZE(stopped); i++) {
		report = soak_read_report(stopped[i]);
		SOAK_CHECK(report && !strstr(report, "soak_timer"),
			   "%s shows a timer that runs", stopped[i]);
		kvfree(report);
	}
	for (comp = SOAK_MEM_COMP; comp <= SOAK_LAST_COMP; comp++) {
		struct soak_account account;
		void *probe;

		/* These hold what is documented to stay; already checked. */
		if (comp == SOAK_CHURN_COMP || comp == SOAK_CHURN_COMP + 1)
			continue;
		probe = zorva_malloc(comp, 1);
		account = soak_account_of(comp);
		SOAK_CHECK(probe && account.bytes == 1 && account.blocks == 1,
			   "%s owns %u bytes in %u blocks, not 1 in 1",
			   _componentName[comp], account.bytes, account.blocks);
		zorva_free(comp, probe);
	}
}

static void print_steps(void)
{
	u32 steps = 0, digest = 0;
	unsigned int i;

	for (i = 0; i < ARRAY_SIZE(actors); i++) {
		steps += actors[i].steps;
		digest = jhash_2words(digest, actors[i].decisions, i);
		SOAK_CHECK(actors[i].steps >= DIGEST_STEPS,
			   "%s %u made %u steps only", actors[i].name,
			   actors[i].index, actors[i].steps);
	}
	pr_info("soak: %u steps by %zu actors, %d failed allocations\n", steps,
		ARRAY_SIZE(actors), atomic_read(&soak_expected.no_memory));
	SOAK_CHECK(cpumask_weight(&processors_used) == num_online_cpus(),
		   "%u processors of %u were used",
		   cpumask_weight(&processors_used), num_online_cpus());
	pr_info("soak: on %u processors\n", num_online_cpus());
	pr_info("soak: seed %u: decisions 0x%08x\n", seed, digest);
}

static int __init soak_init(void)
{
	unsigned long end;

	soak_register_reports();
	pr_info("soak: seed %u, %u seconds\n", seed, seconds);
	if (set_up()) {
		soak_violation("cannot be set up");
		return 0;
	}
	start_actors();
	end = jiffies + seconds * HZ;
	while (time_before(jiffies, end))
		msleep(500);
	end_phase(SOAK_DRAINING);
	soak_release_waiters();
	end_phase(SOAK_ENDING);
	/* That has been said; what they use must stay. */
	if (!all_ended())
		return 0;
	take_down();
	check_nothing_is_left();
	soak_check_reports();
	print_steps();
	atomic_dec(&violations);
	pr_info("soak: %d violations\n", atomic_read(&violations));
	return 0;
}

module_init(soak_init);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Soak of ZORVA");
