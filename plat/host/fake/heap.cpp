// SPDX-License-Identifier: GPL-2.0
/*
 * The heap, on top of the host's, whose sanitizer watches the bytes around a
 * block. A freed block is never given back, so that it keeps its contents and
 * its address; it is out of bounds until a test says otherwise.
 */
#include "scheduler.h"

#include <limits.h>
#include <map>
#include <stdlib.h>
#include <string.h>

extern "C" {
[[gnu::weak]] void __asan_poison_memory_region(const volatile void *address,
					       size_t size);
[[gnu::weak]] void __asan_unpoison_memory_region(const volatile void *address,
						 size_t size);
}

namespace
{

constexpr gfp_t direct_reclaim = 0x400;
constexpr size_t largest_block = 4 << 20;
constexpr unsigned char garbage = 0xa5;

/* The sanitizer may be there, or not. */
void forbid_access(const void *address, size_t size)
{
	if (__asan_poison_memory_region)
		__asan_poison_memory_region(address, size);
}

void allow_access(const void *address, size_t size)
{
	if (__asan_unpoison_memory_region)
		__asan_unpoison_memory_region(address, size);
}

/* What an allocation of no bytes gets. */
void *const zero_size_block = reinterpret_cast<void *>(16);

struct block {
	size_t size;
	bool may_be_pages; /* from kvmalloc: not for kfree */
	bool freed;
	bool left;
	fake::firmware_call made_by;
	fake::firmware_call freed_by;
};

std::map<const void *, block> blocks;
std::vector<fake::heap_call> made;
unsigned int until_failure;
size_t failure_above = SIZE_MAX;
std::function<void()> kvmalloc_hook;

/* Only now are freed blocks given back. */
const fake::at_restart free_all([] {
	for (const auto &[address, each] : blocks) {
		if (!each.freed && !fake::is_forsaken())
			fake::complain(
				fake::format("a block of %zu bytes is left",
					     each.size));
		allow_access(address, each.size);
		free(const_cast<void *>(address));
	}
	blocks.clear();
	made.clear();
	until_failure = 0;
	failure_above = SIZE_MAX;
	kvmalloc_hook = nullptr;
});

/* A block of the slab allocator or of pages in a row has a largest size. */
bool is_too_large(size_t size)
{
	static bool warned;

	if (size > largest_block)
		fake::warn_once(warned, "order beyond MAX_ORDER\n");
	return size > largest_block;
}

bool fails(size_t size)
{
	if (until_failure && --until_failure == 0)
		return true;
	return size > failure_above;
}

void *allocate(size_t size, gfp_t flags, bool may_be_pages = false)
{
	const gfp_t kind = flags & ~__GFP_ZERO;

	if (kind != GFP_ATOMIC && kind != GFP_KERNEL)
		fake::complain(fake::format("kmalloc with flags 0x%x", flags));
	if (flags & direct_reclaim)
		fake::might_sleep("kmalloc(GFP_KERNEL)");
	if ((!may_be_pages && is_too_large(size)) || fails(size))
		return nullptr;
	if (!size)
		return zero_size_block;

	void *const memory = malloc(size);

	memset(memory, flags & __GFP_ZERO ? 0 : garbage, size);
	blocks[memory] = { size,  may_be_pages,		false,
			   false, fake::current_call(), {} };
	return memory;
}

void release(const void *memory, bool knows_pages = false)
{
	if (!memory || memory == zero_size_block)
		return;

	const auto found = blocks.find(memory);

	if (found == blocks.end()) {
		fake::complain("kfree of what is no block");
	} else if (found->second.freed) {
		fake::complain("kfree of a free block");
	} else {
		if (found->second.may_be_pages && !knows_pages)
			fake::complain("kfree of what kvmalloc gave");
		found->second.freed = true;
		found->second.freed_by = fake::current_call();
		forbid_access(memory, found->second.size);
	}
}

} // namespace

namespace fake
{

const std::vector<heap_call> &heap_calls()
{
	return made;
}

size_t live_blocks()
{
	size_t live = 0;

	for (const auto &[address, each] : blocks)
		live += !each.freed && !each.left;
	return live;
}

void leave_allocated(const void *memory)
{
	const auto found = blocks.find(memory);

	if (found == blocks.end() || found->second.freed)
		complain("leaving a block that is not allocated");
	else
		found->second.left = true;
}

void fail_allocation(unsigned int nth)
{
	until_failure = nth;
}

void fail_allocations_above(size_t size)
{
	failure_above = size;
}

void before_kvmalloc(std::function<void()> hook)
{
	kvmalloc_hook = std::move(hook);
}

void allow_access_to_freed(const void *address, size_t size)
{
	const auto *const first = static_cast<const char *>(address);

	for (const auto &[start, each] : blocks) {
		const auto *const memory = static_cast<const char *>(start);

		if (each.freed && first >= memory &&
		    first + size <= memory + each.size) {
			allow_access(address, size);
			return;
		}
	}
	complain("access to freed memory that is none");
}

std::vector<firmware_call> calls_that_left_blocks()
{
	std::vector<firmware_call> found;

	for (const auto &[address, each] : blocks)
		if (!each.freed && !each.left)
			found.push_back(each.made_by);
	return found;
}

bool was_freed(const void *address, firmware_call *made, firmware_call *freed)
{
	auto above = blocks.upper_bound(address);

	if (above == blocks.begin())
		return false;

	const auto &[start, each] = *--above;

	if (!each.freed || static_cast<const char *>(address) >=
				   static_cast<const char *>(start) + each.size)
		return false;
	*made = each.made_by;
	*freed = each.freed_by;
	return true;
}

void *kernel_alloc(size_t size)
{
	return allocate(size, GFP_KERNEL | __GFP_ZERO);
}

void kernel_free(void *memory)
{
	release(memory);
}

} // namespace fake

void *__kmalloc(size_t size, gfp_t flags)
{
	void *const memory = allocate(size, flags);

	made.push_back({ memory ? fake::heap_call::allocated
				: fake::heap_call::refused,
			 size, flags, memory, fake::current_context() });
	return memory;
}

void kfree(const void *memory)
{
	made.push_back({ fake::heap_call::freed, 0, 0, memory,
			 fake::current_context() });
	release(memory);
}

void *zk_kvmalloc(size_t size)
{
	if (kvmalloc_hook)
		kvmalloc_hook();

	void *const memory = allocate(size, GFP_KERNEL, true);

	made.push_back({ memory ? fake::heap_call::kvallocated
				: fake::heap_call::kvrefused,
			 size, GFP_KERNEL, memory, fake::current_context() });
	return memory;
}

void kvfree(const void *memory)
{
	fake::might_sleep("kvfree");
	made.push_back({ fake::heap_call::kvfreed, 0, 0, memory,
			 fake::current_context() });
	release(memory, true);
}
