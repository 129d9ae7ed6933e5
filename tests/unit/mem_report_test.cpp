// SPDX-License-Identifier: GPL-2.0
/* The reports of tracked memory, and the filter of the detailed one. */
#include "mem_fixture.h"
#include "zorva_lkm.h"

namespace
{

constexpr s64 sec = 1000000000;

constexpr char usage_head[] =
	"           Curr        Max         Alloc       Free             \n"
	"Component  Usage       Usage       Count       Count       Delta\n"
	"===================================================================\n";

class MemReportTest : public TrackedMemoryTest {
protected:
	void SetUp() override
	{
		TrackedMemoryTest::SetUp();
		zorva_init();
	}

	static std::string detail_head(const std::string &time)
	{
		return "\n----------------\nCurrent Time : " + time +
		       "\n----------------\n\n";
	}

	/* What the detailed report says of a component before its blocks. */
	static std::string component(const char *name, const char *counters[4])
	{
		return fake::format("Component   : %s\n"
				    "Curr Usage  : %s\n"
				    "Max Usage   : %s\n"
				    "Alloc Count : %s\n"
				    "Free Count  : %s\n"
				    "----------------\n",
				    name, counters[0], counters[1], counters[2],
				    counters[3]);
	}

	static std::string filter()
	{
		return std::string(_targetComp, sizeof(_targetComp));
	}
};

class UsageReport : public MemReportTest {};
class DetailedReport : public MemReportTest {};

/* Allocates between the moment that a report counts and that it copies. */
class CrowdedReport : public MemReportTest {
protected:
	void arrive(u32 count)
	{
		for (u32 i = 0; i < count; ++i)
			blocks.push_back(allocate(1));
	}

	void TearDown() override
	{
		for (void *block : blocks)
			zorva_free_track(owner, block, "caller.c", 8);
		MemReportTest::TearDown();
	}

	/* How many blocks the report shows. */
	size_t blocks_shown()
	{
		const std::string text =
			fake::read_report("zorva/zorva.mem.detail");
		size_t count = 0;

		for (size_t at = text.find("  ["); at != std::string::npos;
		     at = text.find("  [", at + 1))
			++count;
		return count;
	}

	size_t copies(fake::heap_call::kind what)
	{
		size_t count = 0;

		for (const fake::heap_call &call : fake::heap_calls())
			count += call.what == what;
		return count;
	}

	std::vector<void *> blocks;
};

/* With one block of the module itself and one of another component. */
class ReportFilter : public MemReportTest {
protected:
	void SetUp() override
	{
		MemReportTest::SetUp();
		own = allocate(4, ZORVA_COMPONENT_SELF);
		foreign = allocate(4, owner);
	}

	void TearDown() override
	{
		zorva_free_track(owner, own, "caller.c", 8);
		zorva_free_track(owner, foreign, "caller.c", 8);
		MemReportTest::TearDown();
	}

	/* The components that the detailed report shows, each with a comma. */
	static std::string shown()
	{
		const std::string mark = "Component   : ";
		const std::string text =
			fake::read_report("zorva/zorva.mem.detail");
		std::string names;

		for (size_t at = text.find(mark); at != std::string::npos;
		     at = text.find(mark, at + 1)) {
			const size_t from = at + mark.size();

			names += text.substr(from,
					     text.find('\n', from) - from) +
				 ",";
		}
		return names;
	}

	char *own;
	char *foreign;
};

} // namespace

/* The usage table. */

TEST_F(UsageReport, HasOnlyItsHeadWithoutLiveBlocks)
{
	EXPECT_EQ(fake::read_report("zorva/zorva.mem"), usage_head);
}

TEST_F(UsageReport, ShowsTheCountersOfAComponent)
{
	void *blocks[5];

	for (void *&block : blocks)
		block = allocate(50);
	for (int i = 0; i < 3; ++i)
		zorva_free_track(owner, blocks[i], "caller.c", 8);

	EXPECT_EQ(fake::read_report("zorva/zorva.mem"),
		  std::string(usage_head) +
			  "PORT       100         250         5           3           +2      \n");

	zorva_free_track(owner, blocks[3], "caller.c", 8);
	zorva_free_track(owner, blocks[4], "caller.c", 8);
}

TEST_F(UsageReport, LeavesAComponentOutThatHoldsNothingNow)
{
	char *const block = allocate(10);

	zorva_free_track(owner, block, "caller.c", 8);

	EXPECT_EQ(usage(owner).allocCount, 1u);
	EXPECT_EQ(fake::read_report("zorva/zorva.mem"), usage_head);
}

TEST_F(UsageReport, ListsAllRowsButTheLastInTheOrderOfTheIds)
{
	std::string expected = usage_head;

	for (u32 id = 0; id < 57; ++id) {
		usage(id) = { id + 1, id + 100, 7, 7 };
		expected += fake::format("%-11s%-12u%-12u7           "
					 "7           +0      \n",
					 _componentName[id], id + 1, id + 100);
	}

	EXPECT_EQ(fake::read_report("zorva/zorva.mem"), expected);
}

TEST_F(UsageReport, CountsTheLiveBlocksIn32Bits)
{
	usage(owner) = { 4294967295u, 4294967294u, 2, 3 };

	EXPECT_EQ(fake::read_report("zorva/zorva.mem"),
		  std::string(usage_head) +
			  "PORT       4294967295  4294967294  2           3           +4294967295\n");
}

TEST_F(UsageReport, CopiesUnderTheLockAndPrintsWithoutIt)
{
	char *const block = allocate(10);
	std::vector<const void *> taken;
	fake::after_spin_lock([&](const void *lock) {
		taken.push_back(lock);
	});

	fake::read_report("zorva/zorva.mem");

	fake::after_spin_lock(nullptr);
	EXPECT_EQ(taken, std::vector<const void *>{ &_mallocMemLck });
	ASSERT_EQ(fake::seq_prints().size(), 4u);
	for (const fake::seq_print &print : fake::seq_prints())
		EXPECT_TRUE(print.at.may_sleep()) << print.text;

	zorva_free_track(owner, block, "caller.c", 8);
}

TEST_F(UsageReport, ReturnsZeroAndChangesNothing)
{
	char *const block = allocate(10);
	const std::string before = bytes(block);
	fake::proc_file file("zorva/zorva.mem");

	EXPECT_EQ(zorva_mem_dump(file.seq()), 0);

	EXPECT_EQ(bytes(block), before);
	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 10, 10, 1, 0 }));
	EXPECT_EQ(listed(), std::vector<void *>{ block });

	zorva_free_track(owner, block, "caller.c", 8);
}

/* The detailed report. */

TEST_F(DetailedReport, HasOnlyTheTimeWithoutLiveBlocks)
{
	fake::set_uptime(123 * sec);

	EXPECT_EQ(fake::read_report("zorva/zorva.mem.detail"),
		  detail_head("123"));
}

TEST_F(DetailedReport, PrintsTheTimeAsUnsigned)
{
	fake::set_uptime(4294967295 * sec);

	EXPECT_EQ(fake::read_report("zorva/zorva.mem.detail"),
		  detail_head("4294967295"));
}

TEST_F(DetailedReport, PrintsTheCountersAsUnsigned)
{
	usage(owner) = { 4294967295u, 4294967294u, 4294967293u, 4294967292u };

	const char *counters[] = { "4294967295", "4294967294", "4294967293",
				   "4294967292" };
	EXPECT_EQ(fake::read_report("zorva/zorva.mem.detail"),
		  detail_head("0") + component("PORT", counters) + "\n");
}

TEST_F(DetailedReport, ShowsABlockWithItsTimePlaceAndSize)
{
	fake::set_uptime(77 * sec);
	char *const block = allocate(10);
	fake::set_uptime(123 * sec);

	const char *counters[] = { "10", "10", "1", "0" };
	EXPECT_EQ(fake::read_report("zorva/zorva.mem.detail"),
		  detail_head("123") + component("PORT", counters) +
			  fake::format("  [0000000077] %px - 10 bytes "
				       "(caller.c, 7)\n\n",
				       block));

	zorva_free_track(owner, block, "caller.c", 8);
}

TEST_F(DetailedReport, ShowsComponentsByIdAndTheirBlocksNewestFirst)
{
	char *const high = allocate(1, other);
	char *const oldest = allocate(2);
	char *const middle = allocate(3, other);
	char *const newest = allocate(4);
	char *const gone = allocate(5);

	zorva_free_track(owner, gone, "caller.c", 8);

	const char *port[] = { "6", "11", "3", "1" };
	const char *vlan[] = { "4", "4", "2", "0" };
	EXPECT_EQ(fake::read_report("zorva/zorva.mem.detail"),
		  detail_head("0") + component("PORT", port) +
			  fake::format("  [0000000000] %px - 4 bytes (caller.c, 7)\n"
				       "  [0000000000] %px - 2 bytes (caller.c, 7)\n\n",
				       newest, oldest) +
			  component("VLAN", vlan) +
			  fake::format("  [0000000000] %px - 3 bytes (caller.c, 7)\n"
				       "  [0000000000] %px - 1 bytes (caller.c, 7)\n\n",
				       middle, high));

	for (char *block : { high, oldest, middle, newest })
		zorva_free_track(owner, block, "caller.c", 8);
}

TEST_F(DetailedReport, PrintsTimesUnsignedAndLinesSignedOfAWholeBlock)
{
	fake::set_uptime(4294967295 * sec);
	void *const block = zorva_malloc_track(owner, 10, nullptr, 0xFFFFFFFF);

	const char *counters[] = { "10", "10", "1", "0" };
	EXPECT_EQ(fake::read_report("zorva/zorva.mem.detail"),
		  detail_head("4294967295") + component("PORT", counters) +
			  fake::format("  [4294967295] %px - 10 bytes "
				       "((null), -1)\n\n",
				       block));

	zorva_free_track(owner, block, "caller.c", 8);
}

TEST_F(DetailedReport, ShowsATornGuardAndTheWordAtFourTimesItsDistance)
{
	char *const block = allocate(10);

	guard(block) = 0x11111111;
	fake::set_word(block + 4 * 12, 0x0badf00d);

	const char *counters[] = { "10", "10", "1", "0" };
	EXPECT_EQ(fake::read_report("zorva/zorva.mem.detail"),
		  detail_head("0") + component("PORT", counters) +
			  fake::format("<memory corruption 0x%px invalid end "
				       "0x0badf00d (expected 0xbbbbbbbb) "
				       "(caller.c, 7)>\n\n",
				       header(block)));
	EXPECT_EQ(fake::words_read(),
		  (std::vector<const void *>{ block + 4 * 12 }));

	guard(block) = 0xBBBBBBBB;
	zorva_free_track(owner, block, "caller.c", 8);
}

TEST_F(DetailedReport, ShowsAWrongStartAndTheLineAsUnsigned)
{
	char *const block = static_cast<char *>(
		zorva_malloc_track(owner, 9, "caller.c", 0xFFFFFFFF));

	header(block)->startMagic = 0;
	fake::set_word(block + 4 * 12, 0xb);

	const char *counters[] = { "9", "9", "1", "0" };
	EXPECT_EQ(fake::read_report("zorva/zorva.mem.detail"),
		  detail_head("0") + component("PORT", counters) +
			  fake::format("<memory corruption 0x%px invalid end "
				       "0x0000000b (expected 0xbbbbbbbb) "
				       "(caller.c, 4294967295)>\n\n",
				       header(block)));

	leave(block);
}

TEST_F(DetailedReport, ReadsNoWordBeyondAWholeBlock)
{
	char *const block = allocate(10);

	fake::read_report("zorva/zorva.mem.detail");

	EXPECT_TRUE(fake::words_read().empty());

	zorva_free_track(owner, block, "caller.c", 8);
}

TEST_F(DetailedReport, DoesNotLookAtTheMagicOfTheHeader)
{
	char *const block = allocate(10);

	header(block)->magic = 0;

	const char *counters[] = { "10", "10", "1", "0" };
	EXPECT_EQ(fake::read_report("zorva/zorva.mem.detail"),
		  detail_head("0") + component("PORT", counters) +
			  fake::format("  [0000000000] %px - 10 bytes "
				       "(caller.c, 7)\n\n",
				       block));

	leave(block);
}

TEST_F(DetailedReport, LeavesABlockOutThatIsNotInUse)
{
	char *const block = allocate(10);

	header(block)->inUse = 0;

	const char *counters[] = { "10", "10", "1", "0" };
	EXPECT_EQ(fake::read_report("zorva/zorva.mem.detail"),
		  detail_head("0") + component("PORT", counters) + "\n");

	leave(block);
}

TEST_F(DetailedReport, ShowsABlockWithAnyUseButZero)
{
	char *const block = allocate(10);

	header(block)->inUse = 2;

	const char *counters[] = { "10", "10", "1", "0" };
	EXPECT_EQ(fake::read_report("zorva/zorva.mem.detail"),
		  detail_head("0") + component("PORT", counters) +
			  fake::format("  [0000000000] %px - 10 bytes "
				       "(caller.c, 7)\n\n",
				       block));

	header(block)->inUse = 1;
	zorva_free_track(owner, block, "caller.c", 8);
}

TEST_F(DetailedReport, LeavesAComponentOutThatHoldsNothingNow)
{
	char *const block = allocate(10);

	usage(owner).currUsage = 0;

	EXPECT_EQ(fake::read_report("zorva/zorva.mem.detail"),
		  detail_head("0"));

	zorva_free_track(owner, block, "caller.c", 8);
}

TEST_F(DetailedReport, ShowsTheFirstRowButNotTheLast)
{
	for (u32 id = 0; id < 57; ++id)
		usage(id) = { 1, 2, 4, 3 };

	const char *counters[] = { "1", "2", "4", "3" };
	std::string expected = detail_head("0");
	for (u32 id = 0; id < 57; ++id)
		expected += component(_componentName[id], counters) + "\n";
	EXPECT_EQ(fake::read_report("zorva/zorva.mem.detail"), expected);
}

TEST_F(DetailedReport, ShowsAllThatIsKeptOfTheFile)
{
	void *const block =
		zorva_malloc_track(owner, 10, "abcdefghijklmnop", 7);

	EXPECT_NE(fake::read_report("zorva/zorva.mem.detail")
			  .find(" - 10 bytes (abcdefghijklmn, 7)\n"),
		  std::string::npos);

	zorva_free_track(owner, block, "caller.c", 8);
}

TEST_F(DetailedReport, ShowsSixteenCharactersOfAFileWithoutEnd)
{
	char *const torn = allocate(9);
	char *const whole = allocate(10);

	for (void *block : { torn, whole })
		memcpy(header(block)->file, "0123456789abcdef", 16);
	guard(torn) = 1;
	fake::set_word(torn + 4 * 12, 0xb);

	const char *counters[] = { "19", "19", "2", "0" };
	EXPECT_EQ(fake::read_report("zorva/zorva.mem.detail"),
		  detail_head("0") + component("PORT", counters) +
			  fake::format("  [0000000000] %px - 10 bytes "
				       "(0123456789abcdef, 7)\n"
				       "<memory corruption 0x%px invalid end "
				       "0x0000000b (expected 0xbbbbbbbb) "
				       "(0123456789abcdef, 7)>\n\n",
				       whole, header(torn)));

	leave(torn);
	zorva_free_track(owner, whole, "caller.c", 8);
}

TEST_F(DetailedReport, CopiesUnderTheLockAndPrintsWithoutIt)
{
	char *const block = allocate(10);
	fake::set_uptime(7 * sec);
	const size_t readings = fake::coarse_readings().size();
	std::vector<const void *> taken;
	fake::after_spin_lock([&](const void *lock) {
		taken.push_back(lock);
	});

	fake::read_report("zorva/zorva.mem.detail");

	fake::after_spin_lock(nullptr);
	/* Once to count the blocks, and once to copy them. */
	EXPECT_EQ(taken, std::vector<const void *>(2, &_mallocMemLck));
	ASSERT_EQ(fake::coarse_readings().size(), readings + 1);
	EXPECT_TRUE(fake::coarse_readings().back().holds(&_mallocMemLck));
	EXPECT_EQ(fake::seq_prints().size(), 12u);
	for (const fake::seq_print &print : fake::seq_prints())
		EXPECT_TRUE(print.at.may_sleep()) << print.text;

	zorva_free_track(owner, block, "caller.c", 8);
}

TEST_F(DetailedReport, GivesWayAfterTheMemoryForItsCopyAndAfterEachBlock)
{
	char *const first = allocate(1);
	char *const second = allocate(1, other);
	const size_t before = fake::rests();

	fake::read_report("zorva/zorva.mem.detail");

	EXPECT_EQ(fake::rests(), before + 1 + 2);

	zorva_free_track(owner, first, "caller.c", 8);
	zorva_free_track(other, second, "caller.c", 8);
}

TEST_F(DetailedReport, ReadsNoGuardOfComponentsThatItDoesNotShow)
{
	char *const wild = allocate(10, other);
	char *const block = allocate(10);
	header(wild)->size = 0x40000000;
	zorva_mem_write_detail("PORT");

	const std::string copied = fake::read_report("zorva/zorva.mem.detail");
	fake::proc_file file("zorva/zorva.mem.detail");
	fake::fail_allocation(1);
	const std::string listed = file.read();

	const char *counters[] = { "10", "10", "1", "0" };
	EXPECT_EQ(copied, detail_head("0") + component("PORT", counters) +
				  fake::format("  [0000000000] %px - 10 bytes "
					       "(caller.c, 7)\n\n",
					       block));
	EXPECT_EQ(listed, copied);

	zorva_mem_write_detail("all");
	header(wild)->size = 10;
	zorva_free_track(other, wild, "caller.c", 8);
	zorva_free_track(owner, block, "caller.c", 8);
}

/* Its blocks are copied in another way when there is a filter. */
TEST_F(DetailedReport, ShowsTheSameOfAComponentWithAndWithoutAFilter)
{
	char *const whole = allocate(10);
	char *const torn = allocate(10);
	char *const begun = allocate(10);
	char *const idle = allocate(10);
	char *const nobodys = allocate(10);
	guard(torn) = 1;
	header(begun)->startMagic = 0;
	header(idle)->inUse = 0;
	header(nobodys)->compId = 57;
	const std::string all = fake::read_report("zorva/zorva.mem.detail");

	zorva_mem_write_detail("PORT");
	const std::string filtered =
		fake::read_report("zorva/zorva.mem.detail");

	EXPECT_EQ(filtered, all);
	for (char *block : { whole, torn, begun, idle, nobodys })
		EXPECT_EQ(filtered.find(fake::format(" %px - ", block)) !=
				  std::string::npos,
			  block == whole);
	for (char *block : { whole, torn, begun, idle, nobodys })
		EXPECT_EQ(filtered.find(fake::format("corruption 0x%px ",
						     header(block))) !=
				  std::string::npos,
			  block == torn || block == begun);

	zorva_mem_write_detail("all");
	zorva_free_track(owner, whole, "caller.c", 8);
	for (char *block : { torn, begun, idle, nobodys })
		leave(block);
}

TEST_F(DetailedReport, ShowsWhatTheFilterWasWhenItBegan)
{
	char *const block = allocate(10);
	char *const foreign = allocate(10, other);
	zorva_mem_write_detail("PORT");
	const std::string before = fake::read_report("zorva/zorva.mem.detail");
	fake::proc_file file("zorva/zorva.mem.detail");
	fake::before_kvmalloc([] {
		zorva_mem_write_detail("VLAN");
	});

	const std::string text = file.read();

	EXPECT_EQ(text, before);
	fake::before_kvmalloc(nullptr);
	zorva_mem_write_detail("all");
	zorva_free_track(owner, block, "caller.c", 8);
	zorva_free_track(other, foreign, "caller.c", 8);
}

TEST_F(DetailedReport, GivesBackTheMemoryOfItsCopy)
{
	char *const block = allocate(10);

	fake::read_report("zorva/zorva.mem.detail");

	const void *copy = nullptr;
	for (const fake::heap_call &call : fake::heap_calls())
		if (call.what == fake::heap_call::kvallocated)
			copy = call.block;
	EXPECT_NE(copy, nullptr);
	EXPECT_EQ(fake::live_blocks(), 1u);

	zorva_free_track(owner, block, "caller.c", 8);
}

TEST_F(DetailedReport, WithoutMemoryForACopyIsTheSamePrintedUnderTheLock)
{
	fake::set_uptime(77 * sec);
	char *const whole = allocate(10);
	char *const torn = allocate(10);
	char *const idle = allocate(10);
	char *const foreign = allocate(1, other);
	header(idle)->inUse = 0;
	guard(torn) = 1;
	fake::set_word(torn + 4 * 12, 5);
	const std::string copied = fake::read_report("zorva/zorva.mem.detail");
	const size_t prints = fake::seq_prints().size();
	fake::proc_file file("zorva/zorva.mem.detail");

	/* Another tick of the same second: the clock is read anew. */
	fake::set_uptime(77 * sec + 10000000);
	fake::fail_allocation(1);
	const std::string listed = file.read();

	EXPECT_EQ(listed, copied);
	EXPECT_EQ(fake::heap_calls().back().what, fake::heap_call::kvrefused);
	EXPECT_TRUE(fake::coarse_readings().back().holds(&_mallocMemLck));
	for (size_t i = prints; i < fake::seq_prints().size(); ++i)
		EXPECT_TRUE(fake::seq_prints()[i].at.holds(&_mallocMemLck));
	EXPECT_TRUE(fake::current_context().may_sleep());

	leave(torn);
	leave(idle);
	zorva_free_track(owner, whole, "caller.c", 8);
	zorva_free_track(owner, foreign, "caller.c", 8);
}

TEST_F(DetailedReport, WithoutMemoryForACopyShowsAWrongStart)
{
	char *const block = allocate(9);
	header(block)->startMagic = 0;
	fake::set_word(block + 4 * 12, 0xb);
	fake::proc_file file("zorva/zorva.mem.detail");

	fake::fail_allocation(1);
	const std::string listed = file.read();

	const char *counters[] = { "9", "9", "1", "0" };
	EXPECT_EQ(listed, detail_head("0") + component("PORT", counters) +
				  fake::format("<memory corruption 0x%px "
					       "invalid end 0x0000000b "
					       "(expected 0xbbbbbbbb) "
					       "(caller.c, 7)>\n\n",
					       header(block)));
	EXPECT_EQ(fake::heap_calls().back().what, fake::heap_call::kvrefused);

	leave(block);
}

TEST_F(CrowdedReport, HasRoomFor64BlocksThatCameMeanwhile)
{
	arrive(3);
	fake::before_kvmalloc([this] {
		arrive(64);
	});

	EXPECT_EQ(blocks_shown(), 67u);

	EXPECT_EQ(copies(fake::heap_call::kvallocated), 1u);
	EXPECT_EQ(copies(fake::heap_call::kvfreed), 1u);
}

TEST_F(CrowdedReport, TriesAgainWhenMoreBlocksCameMeanwhile)
{
	u32 more = 65;

	arrive(3);
	fake::before_kvmalloc([&] {
		arrive(more);
		more = 0;
	});

	EXPECT_EQ(blocks_shown(), 68u);

	EXPECT_EQ(copies(fake::heap_call::kvallocated), 2u);
	EXPECT_EQ(copies(fake::heap_call::kvfreed), 2u);
}

TEST_F(CrowdedReport, IsPrintedUnderTheLockAfterThreeTries)
{
	fake::before_kvmalloc([this] {
		arrive(65);
	});

	EXPECT_EQ(blocks_shown(), 3 * 65u);

	EXPECT_EQ(copies(fake::heap_call::kvallocated), 3u);
	EXPECT_EQ(copies(fake::heap_call::kvfreed), 3u);
	EXPECT_TRUE(fake::seq_prints().back().at.holds(&_mallocMemLck));
}

/* Accounts that were overwritten tell of no block at all. */
TEST_F(CrowdedReport, CopiesNoMoreBlocksThanItHasRoomFor)
{
	arrive(64);
	usage(owner).allocCount = 0;
	EXPECT_EQ(blocks_shown(), 64u);
	EXPECT_EQ(copies(fake::heap_call::kvallocated), 1u);
	EXPECT_TRUE(fake::seq_prints().back().at.may_sleep());

	arrive(1);
	usage(owner).allocCount = 0;
	EXPECT_EQ(blocks_shown(), 65u);
	EXPECT_EQ(copies(fake::heap_call::kvallocated), 1u + 3u);
	EXPECT_EQ(copies(fake::heap_call::kvfreed), 1u + 3u);
	EXPECT_TRUE(fake::seq_prints().back().at.holds(&_mallocMemLck));
}

TEST_F(CrowdedReport, EndsTheCopyOfAListThatLeadsBack)
{
	unsigned int tries = 0;
	s64 now = 0;

	arrive(3);
	zorva_mem_block_hdr_t *const oldest = header(blocks.front());
	zorva_mem_block_hdr_t *const newest = header(blocks.back());
	fake::before_kvmalloc([&] {
		fake::set_uptime(++now * sec);
		oldest->next = ++tries < 3 ? newest : nullptr;
		/* Neither does one without end of blocks not in use. */
		for (void *block : blocks)
			header(block)->inUse = tries != 2;
	});

	for (const char *filter : { "all", "PORT" }) {
		const size_t before = copies(fake::heap_call::kvallocated);
		const size_t read = fake::coarse_readings().size();

		tries = 0;
		zorva_mem_write_detail(filter);
		EXPECT_EQ(blocks_shown(), 3u) << filter;

		EXPECT_EQ(copies(fake::heap_call::kvallocated), before + 3u)
			<< filter;
		/* The time is that of the copy. */
		EXPECT_EQ(fake::coarse_readings().size(), read + 1) << filter;
		EXPECT_TRUE(fake::seq_prints().back().at.may_sleep());
	}
	zorva_mem_write_detail("all");
}

TEST_F(CrowdedReport, IsPrintedUnderTheLockWhenTheSizeOfACopyDoesNotFit)
{
	arrive(3);
	usage(other).allocCount = 0x10000000;

	EXPECT_EQ(blocks_shown(), 3u);

	EXPECT_EQ(copies(fake::heap_call::kvallocated), 0u);
	EXPECT_EQ(copies(fake::heap_call::kvrefused), 0u);
	EXPECT_TRUE(fake::seq_prints().back().at.holds(&_mallocMemLck));
}

/* The accounts are overwritten while the first copy is asked for. */
TEST_F(CrowdedReport, ForgetsACopyWhoseNextSizeDoesNotFit)
{
	arrive(3);
	fake::before_kvmalloc([&] {
		usage(other).allocCount = 0x10000000;
	});

	EXPECT_EQ(blocks_shown(), 3u);

	EXPECT_EQ(copies(fake::heap_call::kvallocated), 1u);
	EXPECT_EQ(copies(fake::heap_call::kvfreed), 1u);
	EXPECT_TRUE(fake::seq_prints().back().at.holds(&_mallocMemLck));
}

TEST_F(CrowdedReport, AsksForNoMemoryForBlocksThatAreFree)
{
	const auto asked = [this] {
		size_t size = 0;

		blocks_shown();
		for (const fake::heap_call &call : fake::heap_calls())
			if (call.what == fake::heap_call::kvallocated)
				size = call.size;
		return size;
	};
	const size_t before = asked();

	for (int i = 0; i < 100; ++i)
		zorva_free_track(owner, allocate(1), "caller.c", 8);

	EXPECT_GT(before, 0u);
	EXPECT_EQ(asked(), before);
}

TEST_F(CrowdedReport, DoesNotShowBlocksThatWentMeanwhile)
{
	arrive(3);
	fake::before_kvmalloc([this] {
		zorva_free_track(owner, blocks.back(), "caller.c", 8);
		blocks.pop_back();
	});

	EXPECT_EQ(blocks_shown(), 2u);
}

TEST_F(DetailedReport, ReturnsZeroAndChangesNothing)
{
	char *const block = allocate(10);
	fake::proc_file file("zorva/zorva.mem.detail");

	guard(block) = 0;
	fake::set_word(block + 4 * 12, 0);
	const std::string before = bytes(block);
	EXPECT_EQ(zorva_mem_dump_detail(file.seq()), 0);

	EXPECT_EQ(bytes(block), before);
	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 10, 10, 1, 0 }));
	EXPECT_EQ(listed(), std::vector<void *>{ block });

	leave(block);
}

/* The filter. */

TEST_F(ReportFilter, ShowsEveryComponentAtFirst)
{
	EXPECT_EQ(filter(), std::string(16, '\0'));
	EXPECT_EQ(shown(), "ZORVA,PORT,");
}

TEST_F(ReportFilter, ShowsTheComponentOfThatNameOnly)
{
	zorva_mem_write_detail("ZORVA\n");

	EXPECT_EQ(filter(), std::string("ZORVA") + std::string(11, '\0'));
	EXPECT_EQ(shown(), "ZORVA,");
}

TEST_F(ReportFilter, TellsUpperCaseFromLowerCase)
{
	zorva_mem_write_detail("zorva\n");

	EXPECT_EQ(shown(), "");
	EXPECT_EQ(fake::read_report("zorva/zorva.mem.detail"),
		  detail_head("0"));
}

TEST_F(ReportFilter, MatchesWholeNamesOnly)
{
	zorva_mem_write_detail("ZORV");
	EXPECT_EQ(shown(), "");

	zorva_mem_write_detail("ZORVAX");
	EXPECT_EQ(shown(), "");
}

TEST_F(ReportFilter, DoesNotNarrowTheUsageTable)
{
	zorva_mem_write_detail("ZORVA");

	EXPECT_NE(fake::read_report("zorva/zorva.mem").find("PORT"),
		  std::string::npos);
}

TEST_F(ReportFilter, ShowsAllAgainForAll)
{
	zorva_mem_write_detail("ABCDEFGHIJKLMNO");
	zorva_mem_write_detail("all\n");

	EXPECT_EQ(filter(), std::string(16, '\0'));
	EXPECT_EQ(shown(), "ZORVA,PORT,");
}

TEST_F(ReportFilter, TakesAllInCapitalsForAName)
{
	zorva_mem_write_detail("ALL");

	EXPECT_EQ(shown(), "");
}

TEST_F(ReportFilter, ShowsAllAgainForAnEmptyText)
{
	for (const char *text : { "", "\n", "\t\r\n" }) {
		zorva_mem_write_detail("ZORVA");
		zorva_mem_write_detail(text);

		EXPECT_EQ(_targetComp[0], '\0');
		EXPECT_EQ(shown(), "ZORVA,PORT,");
	}
}

TEST_F(ReportFilter, WritesNothingBehindTheEndOfAName)
{
	zorva_mem_write_detail("ABCDEFGH");
	zorva_mem_write_detail("XY");

	EXPECT_EQ(filter(), std::string("XY\0DEFGH\0\0\0\0\0\0\0\0", 16));
}

TEST_F(ReportFilter, KeepsSpaces)
{
	zorva_mem_write_detail(" ZORVA");
	EXPECT_STREQ(_targetComp, " ZORVA");
	EXPECT_EQ(shown(), "");

	zorva_mem_write_detail("ZORVA \n");
	EXPECT_STREQ(_targetComp, "ZORVA ");
	EXPECT_EQ(shown(), "");
}

TEST_F(ReportFilter, RemovesControlCharactersWhereverTheyAre)
{
	zorva_mem_write_detail("\tZO\x01R\x7fV\r\x1f"
			       "A\n\n");

	EXPECT_STREQ(_targetComp, "ZORVA");
	EXPECT_EQ(shown(), "ZORVA,");
}

TEST_F(ReportFilter, RemovesControlCharactersFromAll)
{
	zorva_mem_write_detail("ZORVA");
	zorva_mem_write_detail("a\nl\tl");

	EXPECT_EQ(filter(), std::string(16, '\0'));
}

TEST_F(ReportFilter, KeepsCharactersFrom128On)
{
	zorva_mem_write_detail("\x80"
			       "A\xff");

	EXPECT_STREQ(_targetComp, "\x80"
				  "A\xff");
}

TEST_F(ReportFilter, KeepsFifteenCharacters)
{
	zorva_mem_write_detail("ABCDEFGHIJKLMNO");
	EXPECT_EQ(filter(), std::string("ABCDEFGHIJKLMNO\0", 16));

	zorva_mem_write_detail("abcdefghijklmnop");
	EXPECT_EQ(filter(), std::string("abcdefghijklmno\0", 16));
	EXPECT_EQ(shown(), "");
}

TEST_F(ReportFilter, ReadsThirtyTwoCharactersControlCharactersIncluded)
{
	zorva_mem_write_detail((std::string(27, '\t') + "ZORVA").c_str());
	EXPECT_STREQ(_targetComp, "ZORVA");

	zorva_mem_write_detail((std::string(28, '\t') + "ZORVA").c_str());
	EXPECT_STREQ(_targetComp, "ZORV");

	zorva_mem_write_detail((std::string(32, '\t') + "ZORVA").c_str());
	EXPECT_STREQ(_targetComp, "");
}

TEST_F(ReportFilter, IsSetWithoutTheLock)
{
	const size_t before = fake::spin_locks_taken();

	zorva_mem_write_detail("ZORVA");

	EXPECT_EQ(fake::spin_locks_taken(), before);
}
