// SPDX-License-Identifier: GPL-2.0
/*
 * Tracked memory against a model: blocks that are torn at either end, freed
 * twice, or no blocks at all, and the reports of what is left.
 *
 * The links and the size in a header stay whole: nothing notices when they do
 * not, and whoever follows them is lost.
 */
#include "input.h"
#include "life.h"

#include "zorva_mem.h"

#include <memory>

#include <string.h>

namespace
{

constexpr u32 blocks_max = 8;
constexpr size_t most_steps = 200;
constexpr u32 caller_line = 7;
constexpr u32 shown_word = 0x12345678;

struct model_block {
	char *user;
	u32 size;
	u32 compId;
	bool is_freed;
	bool has_account; /* its owner is one, as the header has it */
};

struct model_usage {
	u32 now;
	u32 most;
	u32 allocated;
	u32 freed;
};

struct model {
	std::vector<model_block> blocks;
	model_usage usage[ZORVA_COMPONENTS];
};

block_header *header(const model_block &block)
{
	return reinterpret_cast<block_header *>(block.user) - 1;
}

/* What a free says of a block; empty when it says nothing. */
std::string complaint(const model_block &block)
{
	const block_header *const seen = header(block);

	if (seen->magic != 0xCAFEBABE)
		return "Memory header corrupt! Invalid magic.";
	if (!seen->inUse)
		return fake::
			format("Double free detected at f.c:3, originally allocated at %s:%d",
			       seen->file, seen->line);
	if (seen->startMagic != start_alive)
		return fake::
			format("Free invalid ptr: 0x%px start=0x%x (%s, f.c:3)",
			       block.user, seen->startMagic, _componentName[1]);
	if (*guard_of(header(block)) != guard_magic)
		return fake::
			format("Memory corruption: guard overwritten (%s, f.c:3)",
			       _componentName[1]);
	return "";
}

std::string complaint_of_cleanup(const model_block &block)
{
	const block_header *const seen = header(block);

	if (seen->inUse != 1 || seen->startMagic != start_alive)
		return fake::
			format("Double free or invalid memory detected: ptr=%px",
			       block.user);
	if (*guard_of(header(block)) != guard_magic)
		return fake::
			format("Memory overflow detected before free: ptr=%px",
			       block.user);
	return "";
}

void note_freed(model &known, model_block &block)
{
	block.is_freed = true;
	fake::allow_access_to_freed(header(block), sizeof(block_header) +
							   rounded(block.size) +
							   sizeof(u32));

	const u32 compId = header(block)->compId;

	EXPECT_EQ(header(block)->inUse, 0u);
	EXPECT_EQ(header(block)->startMagic, 0xDEADBEEFu);
	if (compId >= ZORVA_COMPONENTS)
		return;
	if (known.usage[compId].now >= block.size)
		known.usage[compId].now -= block.size;
	++known.usage[compId].freed;
}

void allocate(model &known, input &in)
{
	const u32 compId = 1 + in.below(ZORVA_COMPONENTS - 1);
	const u32 size = 1 + in.below(80);
	const bool fails = in.byte() < 16;

	if (known.blocks.size() >= blocks_max)
		return;
	fake::fail_allocation(fails);

	auto *const user = static_cast<char *>(
		zorva_malloc_track(compId, size, "caller.c", caller_line));

	fake::fail_allocation(0);
	EXPECT_EQ(user == nullptr, fails);
	if (!user)
		return;
	for (u32 i = 0; i < rounded(size); ++i)
		EXPECT_EQ(user[i], 0);
	known.blocks.push_back({ user, size, compId, false, true });

	model_usage &usage = known.usage[compId];

	usage.now += size;
	usage.most = std::max(usage.most, usage.now);
	++usage.allocated;
}

void free_one(model &known, model_block &block)
{
	const std::string said = complaint(block);
	const bool is_kept = !said.empty() &&
			     said.find("guard overwritten") == said.npos;
	const size_t reports = life::reports().size();
	const size_t logged = fake::log_size();

	zorva_free_track(1, block.user, "f.c", 3);
	ASSERT_EQ(life::reports().size(), reports + !said.empty());
	if (!said.empty()) {
		EXPECT_EQ(life::reports().back(), said.substr(0, 256));
	}
	/* Each complaint comes with one stack. */
	EXPECT_EQ(fake::log_size(), logged + !said.empty());
	if (!is_kept)
		note_freed(known, block);
}

void clean_up(model &known, model_block &block)
{
	const std::string said = complaint_of_cleanup(block);
	const size_t reports = life::reports().size();
	void *pointer = block.user;

	zorva_free_cleanup(&pointer);
	ASSERT_EQ(life::reports().size(), reports + !said.empty());
	if (!said.empty()) {
		EXPECT_EQ(life::reports().back(), said);
		EXPECT_EQ(pointer, block.user);
		return;
	}
	EXPECT_EQ(pointer, nullptr);
	note_freed(known, block);
}

/* Overwrites some of a header, of the block's bytes, or of its guard. */
void tear(model_block &block, input &in)
{
	block_header *const seen = header(block);
	const u32 what = in.below(9);
	const u32 value = in.word();

	switch (what) {
	case 0:
		seen->startMagic = value;
		return;
	case 1:
		seen->magic = value;
		return;
	case 2:
		seen->compId = value % (2 * ZORVA_COMPONENTS);
		return;
	case 3:
		seen->line = value;
		return;
	case 4:
		seen->allocTime = value;
		return;
	case 5:
		seen->inUse = value % 3;
		return;
	case 6:
		memset(seen->file, 1 + value % 127, sizeof(seen->file) - 1);
		return;
	case 7:
		memset(block.user + block.size, value,
		       rounded(block.size) + sizeof(u32) - block.size);
		return;
	default:
		memset(block.user, value, block.size);
		return;
	}
}

/* A pointer that zorva_malloc() never gave. */
void free_nothing(input &in)
{
	u32 words[64] = {};
	const size_t reports = life::reports().size();

	for (u32 i = 0; i < 20; ++i)
		words[i] = in.byte();
	zorva_free_track(1, &words[32], "f.c", 3);
	EXPECT_EQ(life::reports().size(), reports + 1);
	zorva_free_track(0, &words[32], "f.c", 3);
	zorva_free_track(ZORVA_COMPONENTS, &words[32], "f.c", 3);
	zorva_free_track(1, nullptr, "f.c", 3);
	zorva_free_cleanup(nullptr);
	EXPECT_EQ(life::reports().size(), reports + 1);
}

/* One line of the detailed report. */
std::string line_of(const model_block &block)
{
	block_header *const seen = header(block);

	if (seen->startMagic == start_alive && *guard_of(seen) == guard_magic)
		return fake::format("  [%010llu] %px - %u bytes (%.16s, %d)\n",
				    static_cast<u64>(seen->allocTime),
				    block.user, block.size, seen->file,
				    seen->line);

	/* The word that is shown is anybody's: it gets a value. */
	fake::set_word(block.user + rounded(block.size) * 4, shown_word);
	return fake::
		format("<memory corruption 0x%px invalid end 0x%08x (expected 0x%08x) (%.16s, %u)>\n",
		       seen, shown_word, guard_magic, seen->file, seen->line);
}

void check_reports(const model &known)
{
	std::string brief =
		"           Curr        Max         Alloc       Free             \n"
		"Component  Usage       Usage       Count       Count       Delta\n"
		"===================================================================\n";
	std::string detail =
		fake::format("\n----------------\n"
			     "Current Time : %u\n"
			     "----------------\n\n",
			     static_cast<u32>(fake::now() / 1000000000));

	for (u32 i = 0; i < ZORVA_COMPONENTS; ++i) {
		const model_usage &usage = known.usage[i];

		if (!usage.now)
			continue;
		brief += fake::format("%-11s%-12u%-12u%-12u%-12u+%-7u\n",
				      _componentName[i], usage.now, usage.most,
				      usage.allocated, usage.freed,
				      usage.allocated - usage.freed);
		detail += fake::format("Component   : %s\n"
				       "Curr Usage  : %u\n"
				       "Max Usage   : %u\n"
				       "Alloc Count : %u\n"
				       "Free Count  : %u\n"
				       "----------------\n",
				       _componentName[i], usage.now, usage.most,
				       usage.allocated, usage.freed);
		for (auto block = known.blocks.rbegin();
		     block != known.blocks.rend(); ++block)
			if (!block->is_freed && header(*block)->inUse &&
			    header(*block)->compId == i)
				detail += line_of(*block);
		detail += "\n";
	}
	EXPECT_EQ(fake::read_report("zorva/zorva.mem"), brief);
	EXPECT_EQ(fake::read_report("zorva/zorva.mem.detail"), detail);
}

void check_accounts(const model &known)
{
	for (u32 i = 0; i < ZORVA_COMPONENTS; ++i) {
		EXPECT_EQ(_zorvaMallocMemUsage[i].currUsage,
			  known.usage[i].now);
		EXPECT_EQ(_zorvaMallocMemUsage[i].maxUsage,
			  known.usage[i].most);
		EXPECT_EQ(_zorvaMallocMemUsage[i].allocCount,
			  known.usage[i].allocated);
		EXPECT_EQ(_zorvaMallocMemUsage[i].freeCount,
			  known.usage[i].freed);
	}
}

/* Mends what was torn, so that all can be freed. */
void mend(model_block &block)
{
	block_header *const seen = header(block);

	seen->startMagic = start_alive;
	seen->magic = 0xCAFEBABE;
	seen->compId = block.compId;
	seen->inUse = 1;
	*guard_of(seen) = guard_magic;
}

} // namespace

void fuzz_memory(const u8 *bytes, size_t size)
{
	life::begin();

	const auto known = std::make_unique<model>();
	input in(bytes, size);

	for (size_t steps = 0; !in.empty() && steps < most_steps; ++steps) {
		const u32 what = in.below(8);
		const u32 which = in.below(blocks_max);

		if (what == 0) {
			allocate(*known, in);
		} else if (what == 1) {
			free_nothing(in);
		} else if (what == 2) {
			const bool fails = in.byte() % 2;

			fake::before_kvmalloc([fails] {
				fake::fail_allocation(fails);
			});
			check_reports(*known);
			fake::before_kvmalloc(nullptr);
		} else if (what == 3) {
			fake::advance(in.byte() * 100000000ll);
		} else if (which >= known->blocks.size()) {
			allocate(*known, in);
		} else if (what == 4) {
			free_one(*known, known->blocks[which]);
		} else if (what == 5) {
			clean_up(*known, known->blocks[which]);
		} else if (what == 6 && known->blocks[which].is_freed) {
			known->blocks.erase(known->blocks.begin() + which);
		} else if (!known->blocks[which].is_freed) {
			tear(known->blocks[which], in);
		}
		check_accounts(*known);
	}
	check_reports(*known);
	for (model_block &block : known->blocks)
		if (!block.is_freed) {
			mend(block);
			zorva_free(1, block.user);
		}
	/* A block that went to another's account leaves both in disorder. */
	memset(_zorvaMallocMemUsage, 0, sizeof(_zorvaMallocMemUsage));
	life::end(life::leftovers::forbidden);
}
