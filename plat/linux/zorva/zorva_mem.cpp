// SPDX-License-Identifier: GPL-2.0
/*
 * The tracked allocator: a list of all live blocks, newest first, an account
 * for each component, and the checks that tell a torn block from a whole one.
 *
 * _mallocMemLck guards the list, every block's header and the accounts. It is
 * taken with interrupts off, since blocks come and go in interrupt context
 * too. The kernel's heap is called outside it; reports of damage are made
 * inside it, while nobody else can change what they describe.
 */
#include "zorva_mem.h"
#include "zorva_clock.h"
#include "zorva_debug.h"
#include "zorva_guard.h"
#include "zorva_text.h"

constinit zorva_mem_block_hdr_t *_pZorvaMallocMemList = nullptr;
constinit zorva_mem_usage_t _zorvaMallocMemUsage[ZORVA_COMPONENTS] = {};

namespace
{

constexpr u32 start_freed = 0xDEADBEEF;
constexpr u32 header_magic = 0xCAFEBABE;
constexpr u32 overhead = sizeof(block_header) + sizeof(guard_magic);
constexpr u32 largest_size = ~0u - overhead - 3;

/* The caller's file is cut to 14 characters, though there is room for 15. */
constexpr u32 longest_file = 14;

block_header *header_of(void *user)
{
	return static_cast<block_header *>(user) - 1;
}

void link(block_header *block)
{
	if (_pZorvaMallocMemList)
		_pZorvaMallocMemList->prev = block;
	block->next = _pZorvaMallocMemList;
	_pZorvaMallocMemList = block;
}

/*
 * Takes a block out of the list and off its owner's account. Its own links
 * stay as they were. A damaged owner has no account to take it off.
 */
[[gnu::always_inline]] inline void retire(block_header *block)
{
	if (_pZorvaMallocMemList == block)
		_pZorvaMallocMemList = block->next;
	if (block->next)
		block->next->prev = block->prev;
	if (block->prev)
		block->prev->next = block->next;

	block->inUse = 0;
	block->startMagic = start_freed;

	if (unlikely(block->compId >= ZORVA_COMPONENTS))
		return;

	zorva_mem_usage_t &usage = _zorvaMallocMemUsage[block->compId];

	if (usage.currUsage >= block->size)
		usage.currUsage -= block->size;
	++usage.freeCount;
}

} // namespace

void *zorva_malloc_track(u32 compId, u32 size, const char *file, u32 line)
{
	ZORVA_CHECK(compId != 0, nullptr);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, nullptr);
	ZORVA_CHECK(size != 0, nullptr);

	void *memory = nullptr;

	if (likely(size <= largest_size))
		memory = __kmalloc(rounded(size) + overhead,
				   GFP_ATOMIC | __GFP_ZERO);
	if (unlikely(!memory)) {
		ZORVA_ERROR("Memory allocation failed: %u bytes (%s:%d)", size,
			    file, line);
		dump_stack();
		return nullptr;
	}

	block_header *const block = static_cast<block_header *>(memory);
	zorva_mem_usage_t &usage = _zorvaMallocMemUsage[compId];
	const irq_spin_guard lock(_mallocMemLck);

	block->size = size;
	block->compId = compId;
	block->line = line;
	block->startMagic = start_alive;
	block->magic = header_magic;
	block->inUse = 1;
	copy_file<longest_file>(block->file, file);
	block->allocTime = uptime_secs();
	link(block);
	*reinterpret_cast<u32 *>(user_area(block) + rounded(size)) =
		guard_magic;

	usage.currUsage += size;
	++usage.allocCount;
	if (usage.maxUsage < usage.currUsage)
		usage.maxUsage = usage.currUsage;
	return user_area(block);
}

void zorva_free_track(u32 compId, void *ptr, const char *file, u32 line)
{
	if (!valid_owner(compId))
		return;
	if (!ptr)
		return;

	block_header *const block = header_of(ptr);

	{
		const irq_spin_guard lock(_mallocMemLck);

		if (unlikely(read_freed(block->magic) != header_magic)) {
			ZORVA_ERROR("Memory header corrupt! Invalid magic.");
			dump_stack();
			return;
		}
		if (unlikely(!read_freed(block->inUse))) {
			ZORVA_ERROR("Double free detected at %s:%d, originally allocated at %s:%d",
				    file, line, block->file, block->line);
			dump_stack();
			return;
		}
		if (unlikely(read_freed(block->startMagic) != start_alive)) {
			ZORVA_ERROR("Free invalid ptr: 0x%px start=0x%x (%s, %s:%d)",
				    ptr, block->startMagic,
				    _componentName[compId], file, line);
			dump_stack();
			return;
		}
		if (unlikely(read_freed(*guard_of(block)) != guard_magic)) {
			ZORVA_ERROR("Memory corruption: guard overwritten (%s, %s:%d)",
				    _componentName[compId], file, line);
			dump_stack();
		}
		retire(block);
	}
	kfree(block);
}

void zorva_free_cleanup(void **pptr)
{
	if (!pptr)
		return;
	if (!*pptr)
		return;

	block_header *const block = header_of(*pptr);

	{
		const irq_spin_guard lock(_mallocMemLck);

		if (unlikely(read_freed(block->inUse) != 1 ||
			     read_freed(block->startMagic) != start_alive)) {
			ZORVA_ERROR("Double free or invalid memory detected: ptr=%px",
				    *pptr);
			return;
		}
		/* Unlike the other free, this one keeps a torn block. */
		if (unlikely(read_freed(*guard_of(block)) != guard_magic)) {
			ZORVA_ERROR("Memory overflow detected before free: ptr=%px",
				    *pptr);
			return;
		}
		retire(block);
	}
	kfree(block);
	*pptr = nullptr;
}

u32 zorva_mem_overhead_get(void)
{
	return sizeof(block_header);
}
