// SPDX-License-Identifier: GPL-2.0
/*
 * The processor's trap flag stops a thread after each instruction, with a
 * signal. What the module calls is not stepped through: its return address is
 * replaced by that of a piece of code that sets the flag again.
 */
#include "interleave.h"
#include "kernel_test.h"

#include <gtest/gtest.h>

#include <limits.h>
#include <string.h>

#include <signal.h>
#include <sys/mman.h>
#include <ucontext.h>

/* Around the module's text; made when the build is configured. */
extern "C" void module_text_begin();
extern "C" void module_text_end();

namespace
{

constexpr uintptr_t trap_flag = 0x100;

/*
 * The module as it is has fewer places. Built to count what runs of it, it has
 * thousands in one call, and to step to each of them would take minutes.
 */
constexpr unsigned int most_rounds = 400;

/* A round for the count of the places: nobody comes in. */
constexpr unsigned int nowhere = UINT_MAX;

unsigned int wanted;
unsigned int counted;
bool called;
interleave::others let_in;
const void *held;
uintptr_t return_address;

bool is_in_module(uintptr_t address)
{
	return address >= reinterpret_cast<uintptr_t>(module_text_begin) &&
	       address < reinterpret_cast<uintptr_t>(module_text_end);
}

/* push return_address; pushf; set the flag there; popf; ret */
uintptr_t make_way_back()
{
	unsigned char code[] = { 0xff, 0x35, 0, 0,    0,    0,	  0x9c, 0x81,
				 0x0c, 0x24, 0, 0x01, 0x00, 0x00, 0x9d, 0xc3 };
	const uintptr_t place = reinterpret_cast<uintptr_t>(&return_address);
	void *const page = mmap(nullptr, sizeof(code),
				PROT_READ | PROT_WRITE | PROT_EXEC,
				MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);

	memcpy(code + 2, &place, sizeof(place));
	memcpy(page, code, sizeof(code));
	return reinterpret_cast<uintptr_t>(page);
}

/*
 * What position-independent code finds its own address by, the one that it
 * returns to: mov (%esp), register; ret.
 */
bool asks_for_its_address(uintptr_t at)
{
	const auto *const code = reinterpret_cast<const unsigned char *>(at);

	return code[0] == 0x8b && (code[1] & 0xc7) == 0x04 && code[2] == 0x24 &&
	       code[3] == 0xc3;
}

/*
 * Tells whether an instruction may read or write what others see: it names a
 * place in memory by a register that does not point to the stack. Between two
 * of these it is all the same when the others come.
 */
bool touches_memory(uintptr_t at)
{
	static const unsigned char opcodes[] = { 0x01, 0x03, 0x09, 0x21, 0x29,
						 0x2b, 0x31, 0x39, 0x3b, 0x80,
						 0x81, 0x83, 0x85, 0x87, 0x88,
						 0x89, 0x8a, 0x8b, 0xc6, 0xc7,
						 0xf6, 0xf7, 0xff };
	constexpr unsigned char esp = 4, ebp = 5;
	const auto *code = reinterpret_cast<const unsigned char *>(at);

	if (*code == 0xf0)
		return true;
	if (*code == 0x66)
		++code;
	if (!memchr(opcodes, *code, sizeof(opcodes)))
		return false;

	const unsigned char mode = code[1] >> 6;
	const unsigned char base = code[1] & 7;

	if (mode == 3)
		return false;
	if (base == esp)
		return (code[2] & 7) != esp;
	return base != ebp || mode == 0;
}

void step(int, siginfo_t *, void *argument)
{
	auto &registers =
		static_cast<ucontext_t *>(argument)->uc_mcontext.gregs;
	const uintptr_t at = registers[REG_EIP];

	if (!is_in_module(at)) {
		auto *const stack =
			reinterpret_cast<uintptr_t *>(registers[REG_ESP]);
		static const uintptr_t way_back = make_way_back();

		if (!is_in_module(*stack) || asks_for_its_address(at))
			return;
		return_address = *stack;
		*stack = way_back;
		registers[REG_EFL] &= ~trap_flag;
		return;
	}
	if (!touches_memory(at))
		return;
	const fake::context now = fake::current_context();

	if (let_in == interleave::others::tasks && !now.may_sleep())
		return;
	if (held && !now.has_taken(held))
		return;
	if (counted++ != wanted)
		return;
	registers[REG_EFL] &= ~trap_flag;
	called = true;
	if (let_in == interleave::others::tasks)
		fake::preempt();
	else
		fake::run_other_processors();
}

} // namespace

void interleave::arm(unsigned int number, others who)
{
	struct sigaction on_trap = {};

	on_trap.sa_sigaction = step;
	on_trap.sa_flags = SA_SIGINFO | SA_NODEFER;
	sigaction(SIGTRAP, &on_trap, nullptr);
	wanted = number;
	counted = 0;
	let_in = who;
}

void interleave::only_while_held(const void *lock)
{
	held = lock;
}

unsigned int
interrupt_anywhere(interleave::others who,
		   const std::function<void(const interrupted_call &)> &round)
{
	unsigned int number = 0;
	unsigned int stride;

	needs_arrival_order();
	if (who == interleave::others::tasks)
		fake::preempt_tasks();
	else
		fake::use_several_processors();
	round(interrupted_call(nowhere, who));
	stride = counted / most_rounds + 1;
	do {
		called = false;
		round(interrupted_call(number, who));
		number += stride;
	} while (called && !::testing::Test::HasFailure());
	return number / stride - 1;
}
