// SPDX-License-Identifier: GPL-2.0
/*
 * The processors: interrupts, spin locks, and who may sleep. There is one, as
 * on the target, unless a test wants several. One of them runs at a time, for
 * as long as it is not told to let the others run, or waits for one of them.
 */
#include "scheduler.h"

#include <algorithm>

#include <stdio.h>
#include <stdlib.h>

/*
 * The module's spin locks. A lock has no size on the target, and would share
 * its address with its neighbour: give each a place of its own.
 */
char malloc_mem_lock[16] asm("_mallocMemLck");
char lock_debug_lock[16] asm("_zorvaLockDbgLck");
char thread_lock[16] asm("_zorvaThreadLock");
char timer_lock[16] asm("_zorvaTimerLock");
char wait_list_lock[16] asm("_waitListLck");

bool fake_smp, fake_preemption;

namespace
{

constexpr unsigned long flags_on = 0x1401;
constexpr unsigned long flags_off = 0x1400;

struct held_lock {
	const spinlock_t *lock;
	unsigned long flags;
};

bool forsaken;
/* What a processor is in the middle of. */
struct processor {
	bool irqs_off;
	unsigned int hard_interrupts;
	unsigned int soft_interrupts;
	std::vector<held_lock> held;
};

processor here;
std::vector<const spinlock_t *> held_elsewhere;
size_t locks_taken;
size_t rests_taken;
std::function<void(const void *)> lock_hook;
std::function<void(const void *)> unlock_hook;

void print_and_abort(const std::string &what)
{
	fprintf(stderr, "%s\n", what.c_str());
	abort();
}

void (*failure_handler)(const std::string &what) = print_and_abort;

std::vector<void (*)()> &restart_actions()
{
	static std::vector<void (*)()> actions;

	return actions;
}

/* While it lives, this processor stands still, and another one runs. */
class standstill {
public:
	standstill() : was_(std::move(here))
	{
		here = {};
		for (const held_lock &each : was_.held)
			held_elsewhere.push_back(each.lock);
	}
	~standstill()
	{
		for (const held_lock &each : was_.held)
			held_elsewhere.erase(std::find(held_elsewhere.begin(),
						       held_elsewhere.end(),
						       each.lock));
		here = std::move(was_);
	}
	standstill(const standstill &) = delete;
	standstill &operator=(const standstill &) = delete;

private:
	processor was_;
};

bool is_held_elsewhere(const spinlock_t *lock)
{
	return std::find(held_elsewhere.begin(), held_elsewhere.end(), lock) !=
	       held_elsewhere.end();
}

/* More often nobody waits who is ever to go on. */
constexpr unsigned int spin_limit = 10000;

unsigned int spins;

void spin(const char *caller)
{
	const standstill still;

	if (++spins > spin_limit)
		fake::fatal(std::string("deadlock: ") + caller +
			    " waits for another processor for ever");
	fake::wait_for_other_processors(caller);
}

const fake::at_restart forget_locks([] {
	fake_smp = false;
	fake_preemption = false;
	spins = 0;
	rests_taken = 0;
	locks_taken = 0;
	lock_hook = nullptr;
	unlock_hook = nullptr;
});

} // namespace

namespace fake
{

at_restart::at_restart(void (*action)())
{
	restart_actions().push_back(action);
}

void restart()
{
	if (forsaken) {
		here = {};
	}
	for (void (*action)() : restart_actions())
		action();
	forsaken = false;
}

void forsake()
{
	forsaken = true;
}

bool is_forsaken()
{
	return forsaken;
}

bool current_context_may_sleep()
{
	return !here.irqs_off && !here.hard_interrupts &&
	       !here.soft_interrupts && here.held.empty();
}

void preempt_tasks()
{
	fake_preemption = true;
}

void use_several_processors()
{
	fake_smp = true;
}

void run_other_processors()
{
	const standstill still;

	preempt();
}

bool context::may_sleep() const
{
	return !interrupts_off && !in_interrupt && locks.empty();
}

bool context::holds(const void *lock) const
{
	return interrupts_off &&
	       std::find(locks.begin(), locks.end(), lock) != locks.end();
}

bool context::has_taken(const void *lock) const
{
	return std::find(taken.begin(), taken.end(), lock) != taken.end();
}

context current_context()
{
	context now = { here.irqs_off,
			here.hard_interrupts || here.soft_interrupts,
			{},
			taken_by_running() };

	for (const held_lock &each : here.held)
		now.locks.push_back(each.lock);
	return now;
}

size_t rests()
{
	return rests_taken;
}

size_t spin_locks_taken()
{
	return locks_taken;
}

void after_spin_lock(std::function<void(const void *lock)> hook)
{
	lock_hook = std::move(hook);
}

void before_spin_unlock(std::function<void(const void *lock)> hook)
{
	unlock_hook = std::move(hook);
}

hard_interrupt::hard_interrupt() : were_off_(here.irqs_off)
{
	here.irqs_off = true;
	++here.hard_interrupts;
}

hard_interrupt::~hard_interrupt()
{
	--here.hard_interrupts;
	here.irqs_off = were_off_;
}

soft_interrupt::soft_interrupt()
{
	++here.soft_interrupts;
}

soft_interrupt::~soft_interrupt()
{
	--here.soft_interrupts;
}

interrupts_off::interrupts_off() : were_off_(here.irqs_off)
{
	here.irqs_off = true;
}

interrupts_off::~interrupts_off()
{
	here.irqs_off = were_off_;
}

void on_failure(void (*handler)(const std::string &what))
{
	failure_handler = handler;
}

void fail(const std::string &what)
{
	failure_handler(what);
}

void complain(const std::string &what)
{
	fail("the kernel forbids: " + what);
}

void might_sleep(const char *caller)
{
	const context now = current_context();

	if (now.in_interrupt)
		complain(std::string(caller) + " in interrupt context");
	else if (!now.locks.empty())
		complain(std::string(caller) + " under a spin lock");
	else if (now.interrupts_off)
		complain(std::string(caller) + " with interrupts off");
}

} // namespace fake

unsigned long zk_local_irq_save(void)
{
	const unsigned long flags = here.irqs_off ? flags_off : flags_on;

	here.irqs_off = true;
	return flags;
}

void zk_local_irq_restore(unsigned long flags)
{
	if (!here.irqs_off)
		fake::complain("interrupts on while they are kept off");
	here.irqs_off = flags == flags_off;
}

unsigned long zk_spin_lock_irqsave(spinlock_t *lock)
{
	fake::may_switch(fake::switch_point::kernel_call);

	const unsigned long flags = here.irqs_off ? flags_off : flags_on;

	for (const held_lock &each : here.held)
		if (each.lock == lock)
			fake::complain("taking a spin lock that is held");
	while (is_held_elsewhere(lock))
		spin("spin_lock");
	here.irqs_off = true;
	++locks_taken;
	here.held.push_back({ lock, flags });
	if (lock_hook)
		lock_hook(lock);
	return flags;
}

void zk_spin_unlock_irqrestore(spinlock_t *lock, unsigned long flags)
{
	if (here.held.empty() || here.held.back().lock != lock) {
		fake::complain("giving a spin lock that is not the last taken");
		return;
	}
	if (!here.irqs_off)
		fake::complain("interrupts on under a spin lock");
	if (here.held.back().flags != flags)
		fake::complain("giving a spin lock with flags of another");
	if (unlock_hook)
		unlock_hook(lock);
	here.irqs_off = here.held.back().flags == flags_off;
	here.held.pop_back();
	fake::may_switch(fake::switch_point::kernel_call);
}

bool zk_may_wait(void)
{
	return !here.irqs_off && !zk_in_interrupt();
}

void zk_cond_resched(void)
{
	++rests_taken;
	fake::might_sleep("cond_resched");
}

void zk_cpu_relax(void)
{
	fake::record("cpu_relax");
	spin("cpu_relax");
}

bool zk_in_interrupt(void)
{
	return here.hard_interrupts || here.soft_interrupts;
}
