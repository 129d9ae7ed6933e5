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
#include "zorva_guard.h"
#include "zorva_lib.h"
#include "zorva_util.h"

constinit zorva_mem_block_hdr_t *_pZorvaMallocMemList = nullptr;
constinit zorva_mem_usage_t _zorvaMallocMemUsage[ZORVA_COMPONENTS] = {};
constinit char _targetComp[16] = {};

namespace
{

using block_header = zorva_mem_block_hdr_t;

static_assert(sizeof(void *) != 4 || sizeof(block_header) == 52,
	      "the size of the header is part of the interface");

constexpr u32 start_alive = 0xAAAAAAAA;
constexpr u32 start_freed = 0xDEADBEEF;
constexpr u32 header_magic = 0xCAFEBABE;
constexpr u32 guard_magic = 0xBBBBBBBB;
constexpr u32 overhead = sizeof(block_header) + sizeof(guard_magic);
constexpr u32 largest_size = ~0u - overhead - 3;

/* The caller's file is cut to 14 characters, though there is room for 15. */
constexpr u32 last_of_file = 14;

constexpr u32 rounded(u32 size)
{
	return (size + 3) & ~3u;
}

char *user_area(block_header *block)
{
	return reinterpret_cast<char *>(block + 1);
}

block_header *header_of(void *user)
{
	return static_cast<block_header *>(user) - 1;
}

u32 *guard_of(block_header *block)
{
	return reinterpret_cast<u32 *>(user_area(block) + rounded(block->size));
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
void retire(block_header *block)
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
	copy_file(block->file, file);
	block->file[last_of_file] = '\0';
	block->allocTime = uptime_secs();
	link(block);
	*guard_of(block) = guard_magic;

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

		if (unlikely(block->magic != header_magic)) {
			ZORVA_ERROR("Memory header corrupt! Invalid magic.");
			dump_stack();
			return;
		}
		if (unlikely(!block->inUse)) {
			ZORVA_ERROR("Double free detected at %s:%d, originally allocated at %s:%d",
				    file, line, block->file, block->line);
			dump_stack();
			return;
		}
		if (unlikely(block->startMagic != start_alive)) {
			ZORVA_ERROR("Free invalid ptr: 0x%px start=0x%x (%s, %s:%d)",
				    ptr, block->startMagic,
				    _componentName[compId], file, line);
			dump_stack();
			return;
		}
		if (unlikely(*guard_of(block) != guard_magic)) {
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

		if (unlikely(block->inUse != 1 ||
			     block->startMagic != start_alive)) {
			ZORVA_ERROR("Double free or invalid memory detected: ptr=%px",
				    *pptr);
			return;
		}
		/* Unlike the other free, this one keeps a torn block. */
		if (unlikely(*guard_of(block) != guard_magic)) {
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

int zorva_mem_dump(struct seq_file *seq)
{
	const irq_spin_guard lock(_mallocMemLck);

	zorva_proc_printf(seq,
			  "           Curr        Max         Alloc       Free             \n");
	zorva_proc_printf(seq,
			  "Component  Usage       Usage       Count       Count       Delta\n");
	zorva_proc_printf(seq,
			  "===================================================================\n");
	for (u32 i = 0; i < ZORVA_COMPONENTS; ++i) {
		const zorva_mem_usage_t &usage = _zorvaMallocMemUsage[i];

		if (!usage.currUsage)
			continue;
		zorva_proc_printf(seq, "%-11s%-12u%-12u%-12u%-12u+%-7u\n",
				  _componentName[i], usage.currUsage,
				  usage.maxUsage, usage.allocCount,
				  usage.freeCount,
				  usage.allocCount - usage.freeCount);
	}
	return 0;
}

namespace
{

bool is_shown(u32 compId)
{
	if (_targetComp[0] && strcmp(_targetComp, _componentName[compId]) != 0)
		return false;
	return _zorvaMallocMemUsage[compId].currUsage != 0;
}

void print_block(struct seq_file *seq, block_header *block)
{
	char *const user = user_area(block);

	if (block->startMagic == start_alive &&
	    *guard_of(block) == guard_magic) {
		zorva_proc_printf(seq, "  [%010llu] %px - %u bytes (%s, %d)\n",
				  static_cast<u64>(block->allocTime), user,
				  block->size, block->file, block->line);
		return;
	}
	/*
	 * The value shown is meant to be read at four times the guard's
	 * distance, beyond the block.
	 */
	zorva_proc_printf(seq,
			  "<memory corruption 0x%px invalid end 0x%08x (expected 0x%08x) (%s, %u)>\n",
			  block, zk_peek(user + rounded(block->size) * 4),
			  guard_magic, block->file, block->line);
}

} // namespace

int zorva_mem_dump_detail(struct seq_file *seq)
{
	const irq_spin_guard lock(_mallocMemLck);

	zorva_proc_printf(seq, "\n");
	zorva_proc_printf(seq, "----------------\n");
	zorva_proc_printf(seq, "Current Time : %u\n", uptime_secs());
	zorva_proc_printf(seq, "----------------\n\n");
	for (u32 i = 0; i < ZORVA_COMPONENTS; ++i) {
		const zorva_mem_usage_t &usage = _zorvaMallocMemUsage[i];

		if (!is_shown(i))
			continue;
		zorva_proc_printf(seq, "Component   : %s\n", _componentName[i]);
		zorva_proc_printf(seq, "Curr Usage  : %u\n", usage.currUsage);
		zorva_proc_printf(seq, "Max Usage   : %u\n", usage.maxUsage);
		zorva_proc_printf(seq, "Alloc Count : %u\n", usage.allocCount);
		zorva_proc_printf(seq, "Free Count  : %u\n", usage.freeCount);
		zorva_proc_printf(seq, "----------------\n");
		for (block_header *block = _pZorvaMallocMemList; block;
		     block = block->next)
			if (block->compId == i && block->inUse)
				print_block(seq, block);
		zorva_proc_printf(seq, "\n");
	}
	return 0;
}

void zorva_mem_write_detail(const char *text)
{
	char name[33] = {};
	char *end = name;

	zorva_strlcpy(name, text, sizeof(name));
	for (const char *c = name; *c; ++c)
		if (!zk_iscntrl(*c))
			*end++ = *c;
	*end = '\0';

	if (strcmp(name, "all") == 0)
		memset(_targetComp, 0, sizeof(_targetComp));
	else
		zorva_strlcpy(_targetComp, name, sizeof(_targetComp));
}
