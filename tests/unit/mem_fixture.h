/* SPDX-License-Identifier: GPL-2.0 */
/* Tracked blocks as the tests of the allocator and of its reports see them. */
#ifndef MEM_FIXTURE_H
#define MEM_FIXTURE_H

#include "kernel_test.h"
#include "zorva_mem.h"

#include <string.h>

class TrackedMemoryTest : public ModuleTest {
protected:
	static constexpr u32 owner = ZORVA_COMP_PORT;
	static constexpr u32 other = ZORVA_COMP_VLAN;
	static constexpr u32 header_size = 52;

	/* A block of the owner's, from caller.c:7. */
	static char *allocate(u32 size, u32 compId = owner)
	{
		return static_cast<char *>(
			zorva_malloc_track(compId, size, "caller.c", 7));
	}

	static zorva_mem_block_hdr_t *header(void *block)
	{
		return static_cast<zorva_mem_block_hdr_t *>(block) - 1;
	}

	/* The word behind the rounded user area. */
	static u32 &guard(void *block)
	{
		const u32 rounded = (header(block)->size + 3) / 4 * 4;

		return *reinterpret_cast<u32 *>(static_cast<char *>(block) +
						rounded);
	}

	static zorva_mem_usage_t &usage(u32 compId)
	{
		return _zorvaMallocMemUsage[compId];
	}

	/* Accepts that the block is not freed when the test ends. */
	static void leave(void *block)
	{
		fake::leave_allocated(header(block));
	}

	/* The newest block first, by its user area. */
	static std::vector<void *> listed()
	{
		std::vector<void *> blocks;

		for (auto *block = _pZorvaMallocMemList; block;
		     block = block->next)
			blocks.push_back(block + 1);
		return blocks;
	}

	/* The bytes of a live block from header to guard. */
	static std::string bytes(void *block)
	{
		const char *const end =
			reinterpret_cast<char *>(&guard(block) + 1);
		const char *const start =
			reinterpret_cast<char *>(header(block));

		return std::string(start, end);
	}

	/* What the lock guards: the newest block, the list, an account. */
	struct guarded {
		std::string block; /* from header to guard */
		std::vector<void *> listed;
		zorva_mem_usage_t usage;
	};

	/* The same as a call finds it under the lock, and as it leaves it. */
	static std::pair<guarded, guarded>
	under_the_lock(const std::function<void()> &call)
	{
		const auto look = [](guarded &now) {
			const fake::heap_call &newest =
				fake::heap_calls().back();
			const auto *const start =
				static_cast<const char *>(newest.block);

			now = { { start, newest.size },
				listed(),
				usage(owner) };
		};
		guarded found, left;

		fake::after_spin_lock([&](const void *) {
			look(found);
		});
		fake::before_spin_unlock([&](const void *) {
			look(left);
		});
		call();
		fake::after_spin_lock(nullptr);
		fake::before_spin_unlock(nullptr);
		return { found, left };
	}

	static size_t frees()
	{
		size_t count = 0;

		for (const fake::heap_call &call : fake::heap_calls())
			count += call.what == fake::heap_call::freed;
		return count;
	}
};

inline bool operator==(const zorva_mem_usage_t &a, const zorva_mem_usage_t &b)
{
	return a.currUsage == b.currUsage && a.maxUsage == b.maxUsage &&
	       a.allocCount == b.allocCount && a.freeCount == b.freeCount;
}

inline std::ostream &operator<<(std::ostream &out, const zorva_mem_usage_t &u)
{
	return out << "{curr " << u.currUsage << ", max " << u.maxUsage
		   << ", allocs " << u.allocCount << ", frees " << u.freeCount
		   << "}";
}

#endif
