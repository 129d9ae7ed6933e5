// SPDX-License-Identifier: GPL-2.0
/*
 * Switching between stacks: what a call preserves is saved on the one and taken
 * from the other. Written out for the processors that developers have; others
 * use the C library's, which asks the kernel each time.
 *
 * The address sanitizer, where the process has it, is told of each switch.
 */
#include "fiber.h"

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <vector>

extern "C" {
[[gnu::weak]] void
__sanitizer_start_switch_fiber(void **shadow, const void *bottom, size_t size);
[[gnu::weak]] void __sanitizer_finish_switch_fiber(void *shadow,
						   const void **bottom,
						   size_t *size);
[[gnu::weak]] void __asan_unpoison_memory_region(const volatile void *address,
						 size_t size);

/* Saves where the caller is, and goes on where another was saved. */
void zorva_host_switch(void **save, void *load);
}

#if defined(__x86_64__)
asm(R"(
	.text
	.p2align 4
	.globl	zorva_host_switch
	.hidden	zorva_host_switch
	.type	zorva_host_switch, @function
zorva_host_switch:
	pushq	%rbp
	pushq	%rbx
	pushq	%r12
	pushq	%r13
	pushq	%r14
	pushq	%r15
	movq	%rsp, (%rdi)
	movq	%rsi, %rsp
	popq	%r15
	popq	%r14
	popq	%r13
	popq	%r12
	popq	%rbx
	popq	%rbp
	ret
	.size	zorva_host_switch, . - zorva_host_switch
)");
#define SAVED_REGISTERS 6
#elif defined(__i386__)
asm(R"(
	.text
	.p2align 4
	.globl	zorva_host_switch
	.hidden	zorva_host_switch
	.type	zorva_host_switch, @function
zorva_host_switch:
	movl	4(%esp), %eax
	movl	8(%esp), %edx
	pushl	%ebp
	pushl	%ebx
	pushl	%esi
	pushl	%edi
	movl	%esp, (%eax)
	movl	%edx, %esp
	popl	%edi
	popl	%esi
	popl	%ebx
	popl	%ebp
	ret
	.size	zorva_host_switch, . - zorva_host_switch
)");
#define SAVED_REGISTERS 4
#else
#include <ucontext.h>

void zorva_host_switch(void **save, void *load)
{
	ucontext_t here;

	*save = &here;
	swapcontext(&here, static_cast<ucontext_t *>(load));
}
#endif

namespace
{

constexpr size_t stack_size = 256 << 10;
constexpr size_t guard_size = 4096;

std::vector<char *> free_stacks;

/* The one that is about to begin, and the one that was left for another. */
fake::fiber *arriving;
fake::fiber *left;

/* Below a stack lies a page that nobody may touch. */
char *get_stack()
{
	if (!free_stacks.empty()) {
		char *const stack = free_stacks.back();

		free_stacks.pop_back();
		/* Frames that were never left have marked their bytes. */
		if (__asan_unpoison_memory_region)
			__asan_unpoison_memory_region(stack, stack_size);
		return stack;
	}

	void *const memory =
		mmap(nullptr, guard_size + stack_size, PROT_READ | PROT_WRITE,
		     MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);

	if (memory == MAP_FAILED) {
		fprintf(stderr, "zorva: no memory for a thread's stack\n");
		abort();
	}
	mprotect(memory, guard_size, PROT_NONE);
	return static_cast<char *>(memory) + guard_size;
}

} // namespace

namespace fake
{

fiber::fiber(void (*run)(void *argument), void *argument)
	: run_(run), argument_(argument), stack_(get_stack()), bottom_(stack_),
	  size_(stack_size)
{
#ifdef SAVED_REGISTERS
	/* As if begin() had been called, by nobody, and then switched away. */
	auto **const top = reinterpret_cast<void **>(stack_ + stack_size);

	top[-1] = nullptr;
	top[-2] = reinterpret_cast<void *>(begin);
	for (int i = 0; i < SAVED_REGISTERS; ++i)
		top[-3 - i] = nullptr;
	sp_ = top - 2 - SAVED_REGISTERS;
#else
	auto *const context = reinterpret_cast<ucontext_t *>(stack_);

	getcontext(context);
	context->uc_stack.ss_sp = stack_ + sizeof(*context);
	context->uc_stack.ss_size = stack_size - sizeof(*context);
	context->uc_link = nullptr;
	makecontext(context, begin, 0);
	sp_ = context;
#endif
}

fiber::~fiber()
{
	if (stack_)
		free_stacks.push_back(stack_);
}

/* Of the one that was left, the sanitizer tells where its stack is. */
void fiber::arrive()
{
	if (__sanitizer_finish_switch_fiber)
		__sanitizer_finish_switch_fiber(shadow_, &left->bottom_,
						&left->size_);
}

void fiber::begin()
{
	fiber *const self = arriving;

	self->arrive();
	self->run_(self->argument_);
	abort();
}

void fiber::switch_to(fiber &next)
{
	left = this;
	arriving = &next;
	if (__sanitizer_start_switch_fiber)
		__sanitizer_start_switch_fiber(&shadow_, next.bottom_,
					       next.size_);
	zorva_host_switch(&sp_, next.sp_);
	arrive();
}

void fiber::end_for(fiber &next)
{
	left = this;
	arriving = &next;
	if (__sanitizer_start_switch_fiber)
		__sanitizer_start_switch_fiber(nullptr, next.bottom_,
					       next.size_);
	zorva_host_switch(&sp_, next.sp_);
	abort();
}

} // namespace fake
