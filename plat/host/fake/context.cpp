// SPDX-License-Identifier: GPL-2.0
/*
 * The processor: interrupts, spin locks, and who may sleep. There is one, as
 * on the target.
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

namespace
{

constexpr unsigned long flags_on = 0x1401;
constexpr unsigned long flags_off = 0x1400;

struct held_lock {
	const spinlock_t *lock;
	unsigned long flags;
};

bool forsaken;
bool irqs_off;
unsigned int hard_interrupts;
unsigned int soft_interrupts;
std::vector<held_lock> held;
size_t locks_taken;
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

const fake::at_restart forget_locks([] {
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
		irqs_off = false;
		hard_interrupts = 0;
		soft_interrupts = 0;
		held.clear();
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
	return !irqs_off && !hard_interrupts && !soft_interrupts &&
	       held.empty();
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
	context now = { irqs_off,
			hard_interrupts || soft_interrupts,
			{},
			taken_by_running() };

	for (const held_lock &each : held)
		now.locks.push_back(each.lock);
	return now;
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

hard_interrupt::hard_interrupt() : were_off_(irqs_off)
{
	irqs_off = true;
	++hard_interrupts;
}

hard_interrupt::~hard_interrupt()
{
	--hard_interrupts;
	irqs_off = were_off_;
}

soft_interrupt::soft_interrupt()
{
	++soft_interrupts;
}

soft_interrupt::~soft_interrupt()
{
	--soft_interrupts;
}

interrupts_off::interrupts_off() : were_off_(irqs_off)
{
	irqs_off = true;
}

interrupts_off::~interrupts_off()
{
	irqs_off = were_off_;
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
	const unsigned long flags = irqs_off ? flags_off : flags_on;

	irqs_off = true;
	return flags;
}

void zk_local_irq_restore(unsigned long flags)
{
	if (!irqs_off)
		fake::complain("interrupts on while they are kept off");
	irqs_off = flags == flags_off;
}

unsigned long zk_spin_lock_irqsave(spinlock_t *lock)
{
	fake::may_switch(fake::switch_point::kernel_call);

	const unsigned long flags = irqs_off ? flags_off : flags_on;

	for (const held_lock &each : held)
		if (each.lock == lock)
			fake::complain("taking a spin lock that is held");
	irqs_off = true;
	++locks_taken;
	held.push_back({ lock, flags });
	if (lock_hook)
		lock_hook(lock);
	return flags;
}

void zk_spin_unlock_irqrestore(spinlock_t *lock, unsigned long flags)
{
	if (held.empty() || held.back().lock != lock) {
		fake::complain("giving a spin lock that is not the last taken");
		return;
	}
	if (!irqs_off)
		fake::complain("interrupts on under a spin lock");
	if (held.back().flags != flags)
		fake::complain("giving a spin lock with flags of another");
	if (unlock_hook)
		unlock_hook(lock);
	irqs_off = held.back().flags == flags_off;
	held.pop_back();
	fake::may_switch(fake::switch_point::kernel_call);
}

unsigned long zk_lock_memory(void)
{
	return zk_spin_lock_irqsave(&_mallocMemLck);
}

void zk_unlock_memory(unsigned long flags)
{
	zk_spin_unlock_irqrestore(&_mallocMemLck, flags);
}

unsigned long zk_lock_timers(void)
{
	return zk_spin_lock_irqsave(&_zorvaTimerLock);
}

void zk_unlock_timers(unsigned long flags)
{
	zk_spin_unlock_irqrestore(&_zorvaTimerLock, flags);
}

bool zk_in_interrupt(void)
{
	return hard_interrupts || soft_interrupts;
}
