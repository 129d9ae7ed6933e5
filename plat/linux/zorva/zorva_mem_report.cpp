// SPDX-License-Identifier: GPL-2.0
/*
 * The reports of tracked memory, and the filter of the detailed one.
 *
 * _mallocMemLck keeps interrupts off, so what a report shows is copied under
 * it, in one pass over the list, and printed afterwards. When there is no
 * memory for the copy of the blocks, they are printed under the lock. Where
 * another task may come in between, the lock guards the filter as well.
 */
#include "zorva_mem.h"
#include "zorva_clock.h"
#include "zorva_guard.h"
#include "zorva_snapshot.h"
#include "zorva_text.h"

constinit char _targetComp[16] = {};

namespace
{

/* What the report shows of a block. */
struct block_view {
	block_header *block; /* only its address is of use */
	u32 compId;
	u32 size;
	u32 line;
	u32 allocTime;
	u32 file[sizeof(block_header::file) / sizeof(u32)];
	bool torn; /* only written when it is */
	u32 end;   /* of a torn block: the value shown */
};

/* All that a report shows, as it was at one moment. */
struct memory_view {
	u32 now; /* seconds since boot */
	zorva_mem_usage_t usage[ZORVA_COMPONENTS];
	snapshot blocks; /* null when there is no memory for them */
	bool filtered;
	bool shown[ZORVA_COMPONENTS]; /* whatever they use */
};

/*
 * The value shown of a torn block is meant to be read at four times the
 * guard's distance: beyond the block, and perhaps beyond all memory.
 */
[[gnu::noinline, gnu::cold]] void mark_torn(block_view &view)
{
	view.end = zk_peek(user_area(view.block) + rounded(view.size) * 4);
	view.torn = true;
}

/* What tells a whole block from a torn one, and how its size is rounded. */
struct block_marks {
	u32 alive = start_alive;
	u32 guard = guard_magic;
	u32 rounding = ~3u;
};

/*
 * Copies what is shown of a block of that size; the lock is held. The view has
 * been cleared before, when there was time for it.
 */
[[gnu::always_inline]] inline void view_block(block_view &view,
					      block_header *block, u32 size,
					      const block_marks &marks = {})
{
	const auto *const file = reinterpret_cast<const u32 *>(block->file);

	view.block = block;
	view.compId = block->compId;
	view.size = size;
	view.line = block->line;
	view.allocTime = block->allocTime;
	view.file[0] = file[0];
	view.file[1] = file[1];
	view.file[2] = file[2];
	view.file[3] = file[3];
	if (likely(block->startMagic == marks.alive)) {
		const char *const guard =
			user_area(block) + ((size + 3) & marks.rounding);

		if (likely(*reinterpret_cast<const u32 *>(guard) ==
			   marks.guard))
			return;
	}
	mark_torn(view);
}

[[gnu::cold]] void print_block(struct seq_file *seq, const block_view &view)
{
	const char *const file = reinterpret_cast<const char *>(view.file);

	if (!view.torn)
		zorva_proc_printf(seq,
				  "  [%010llu] %px - %u bytes (%.16s, %d)\n",
				  static_cast<u64>(view.allocTime),
				  user_area(view.block), view.size, file,
				  view.line);
	else
		zorva_proc_printf(seq,
				  "<memory corruption 0x%px invalid end 0x%08x (expected 0x%08x) (%.16s, %u)>\n",
				  view.block, view.end, guard_magic, file,
				  view.line);
}

/* Prints those of a component's blocks that were copied. */
[[gnu::cold]] void print_copied(struct seq_file *seq, const memory_view &view,
				u32 compId)
{
	const auto *const end = static_cast<block_view *>(view.blocks.end);

	for (const auto *block = static_cast<block_view *>(view.blocks.views);
	     block != end; ++block)
		if (block->compId == compId) {
			print_block(seq, *block);
			zk_cond_resched();
		}
}

/* Prints a component's blocks as they are; the lock is held. */
[[gnu::cold]] void print_listed(struct seq_file *seq, u32 compId)
{
	for (block_header *block = _pZorvaMallocMemList; block;
	     block = block->next) {
		block_view view = {};

		if (block->compId != compId || !block->inUse)
			continue;
		view_block(view, block, block->size);
		print_block(seq, view);
	}
}

/* Reads the filter once: it may be written while the report is made. */
[[gnu::cold]] void read_filter(memory_view &view)
{
	char name[sizeof(_targetComp)];

	{
		const interleave_guard lock(_mallocMemLck);

		memcpy(name, _targetComp, sizeof(name));
	}
	view.filtered = name[0];
	for (u32 i = 0; i < ZORVA_COMPONENTS; ++i)
		view.shown[i] = !view.filtered ||
				strcmp(name, _componentName[i]) == 0;
}

[[gnu::cold]] void print_view(struct seq_file *seq, const memory_view &view)
{
	zorva_proc_printf(seq, "\n");
	zorva_proc_printf(seq, "----------------\n");
	zorva_proc_printf(seq, "Current Time : %u\n", view.now);
	zorva_proc_printf(seq, "----------------\n\n");
	for (u32 i = 0; i < ZORVA_COMPONENTS; ++i) {
		const zorva_mem_usage_t &usage = view.usage[i];

		if (!view.shown[i] || !usage.currUsage)
			continue;
		zorva_proc_printf(seq, "Component   : %s\n", _componentName[i]);
		zorva_proc_printf(seq, "Curr Usage  : %u\n", usage.currUsage);
		zorva_proc_printf(seq, "Max Usage   : %u\n", usage.maxUsage);
		zorva_proc_printf(seq, "Alloc Count : %u\n", usage.allocCount);
		zorva_proc_printf(seq, "Free Count  : %u\n", usage.freeCount);
		zorva_proc_printf(seq, "----------------\n");
		if (view.blocks.views)
			print_copied(seq, view, i);
		else
			print_listed(seq, i);
		zorva_proc_printf(seq, "\n");
	}
}

/* The lock is held. */
void view_usage(memory_view &view)
{
	view.now = uptime_secs();
	memcpy(view.usage, _zorvaMallocMemUsage, sizeof(view.usage));
}

/* How many blocks are listed at most; the lock is held. */
u32 count_blocks()
{
	u32 count = 0;

	for (const zorva_mem_usage_t &usage : _zorvaMallocMemUsage)
		count += usage.allocCount - usage.freeCount;
	return count;
}

u32 count_under_lock(void *)
{
	const irq_spin_guard lock(_mallocMemLck);

	return count_blocks();
}

/*
 * Copies all blocks in use, and returns the end of the copy; null when more
 * are listed than there is room for, whatever the accounts have said: the list
 * may have been overwritten. The lock is held, so this has to be short: that
 * the marks are not known to be constant keeps them in registers, and what is
 * read of a block before the tests fills the slots behind their branches.
 */
[[gnu::noinline]] block_view *copy_blocks(block_view *next, u32 room)
{
	block_marks marks;

	__asm__(""
		: "+r"(marks.alive), "+r"(marks.guard), "+r"(marks.rounding));
	for (block_header *block = _pZorvaMallocMemList; block;
	     block = block->next) {
		const u32 in_use = block->inUse;
		const u32 size = block->size;

		if (unlikely(!room--))
			return nullptr;
		if (unlikely(!in_use))
			continue;
		view_block(*next, block, size, marks);
		++next;
	}
	return next;
}

/*
 * The same for those of the components that are shown. Of others nothing is
 * read but the header: a guard lies where a size says, which may have been
 * overwritten.
 */
[[gnu::cold]] block_view *copy_shown(block_view *next, u32 room,
				     const memory_view &view)
{
	for (block_header *block = _pZorvaMallocMemList; block;
	     block = block->next) {
		if (!room--)
			return nullptr;
		if (!block->inUse || block->compId >= ZORVA_COMPONENTS ||
		    !view.shown[block->compId])
			continue;
		view_block(*next, block, block->size);
		++next;
	}
	return next;
}

/* Copies all; null when more blocks may be listed than there is room for. */
void *copy_all(void *context, void *views, u32 room)
{
	auto &view = *static_cast<memory_view *>(context);
	auto *const first = static_cast<block_view *>(views);

	memset(first, 0, room * sizeof(*first));

	const irq_spin_guard lock(_mallocMemLck);

	if (count_blocks() > room)
		return nullptr;

	block_view *const end = view.filtered ? copy_shown(first, room, view)
					      : copy_blocks(first, room);

	if (end)
		view_usage(view);
	return end;
}

constexpr snapshot_maker blocks = { sizeof(block_view), count_under_lock,
				    copy_all };

} // namespace

[[gnu::cold]] int zorva_mem_dump(struct seq_file *seq)
{
	memory_view view;

	{
		const irq_spin_guard lock(_mallocMemLck);

		view_usage(view);
	}
	zorva_proc_printf(seq,
			  "           Curr        Max         Alloc       Free             \n");
	zorva_proc_printf(seq,
			  "Component  Usage       Usage       Count       Count       Delta\n");
	zorva_proc_printf(seq,
			  "===================================================================\n");
	for (u32 i = 0; i < ZORVA_COMPONENTS; ++i) {
		const zorva_mem_usage_t &usage = view.usage[i];

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

[[gnu::cold]] int zorva_mem_dump_detail(struct seq_file *seq)
{
	memory_view view;

	read_filter(view);
	if (make_snapshot(view.blocks, blocks, &view)) {
		print_view(seq, view);
		kvfree(view.blocks.views);
	} else {
		const irq_spin_guard lock(_mallocMemLck);

		view.blocks.views = nullptr;
		view_usage(view);
		print_view(seq, view);
	}
	return 0;
}

[[gnu::cold]] void zorva_mem_write_detail(const char *text)
{
	char name[33] = {};
	char *end = name;

	zorva_strlcpy(name, text, sizeof(name));
	for (const char *c = name; *c; ++c)
		if (!zk_iscntrl(*c))
			*end++ = *c;
	*end = '\0';

	const interleave_guard lock(_mallocMemLck);

	if (strcmp(name, "all") == 0)
		memset(_targetComp, 0, sizeof(_targetComp));
	else
		zorva_strlcpy(_targetComp, name, sizeof(_targetComp));
}
