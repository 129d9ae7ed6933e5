// SPDX-License-Identifier: GPL-2.0
/* The report files: open, read, write and release. */
#include "report_fixture.h"

#include <limits.h>

namespace
{

class LoadedTest : public TrackedMemoryTest {
protected:
	void SetUp() override
	{
		TrackedMemoryTest::SetUp();
		ASSERT_EQ(zorva_init(), 0);
	}

	/* What an open file has of its own. */
	static zorva_proc_priv_t *state_of(const fake::proc_file &file)
	{
		return static_cast<zorva_proc_priv_t *>(
			zk_seq_private(file.seq()));
	}

	static std::string filter()
	{
		return std::string(_targetComp, sizeof(_targetComp));
	}

	/*
	 * Makes the detailed report as long as it has to be: by blocks whose
	 * files have about 7 of the 14 characters that are kept.
	 */
	void fill_report(size_t length)
	{
		constexpr size_t line =
			sizeof("  [0000000000] 12345678 - 1 bytes (, 7)");
		const size_t count = length / (line + 7);
		const std::string digits = std::to_string(count);
		size_t missing = length - count * line -
				 sizeof("\n----------------\n"
					"Current Time : 0\n"
					"----------------\n\n"
					"Component   : PORT\n"
					"Curr Usage  : \n"
					"Max Usage   : \n"
					"Alloc Count : \n"
					"Free Count  : 0\n"
					"----------------\n") -
				 3 * digits.size();

		for (size_t left = count; left; --left) {
			const std::string name(missing / left, 'x');

			missing -= name.size();
			blocks.push_back(
				zorva_malloc_track(owner, 1, name.c_str(), 7));
		}
	}

	void TearDown() override
	{
		for (void *block : blocks)
			zorva_free_track(owner, block, "caller.c", 8);
		TrackedMemoryTest::TearDown();
	}

	std::vector<void *> blocks;
};

class ReportFile : public LoadedTest {};
class ReportOpen : public LoadedTest {};
class ReportRelease : public LoadedTest {};
class FilterWrite : public LoadedTest {};

} // namespace

/* Open. */

TEST_F(ReportOpen, OfAnyEntryGivesTheFileAStateOfItsOwn)
{
	for (const std::string &entry : report_entries) {
		fake::proc_file file("zorva/" + entry);

		ASSERT_EQ(file.error(), 0) << entry;
		EXPECT_EQ(state_of(file)->state, 1u);
		EXPECT_EQ(state_of(file)->reserved, 0u);
		EXPECT_EQ(state_of(file)->pBuf, nullptr);
		EXPECT_EQ(file.buffer_size(), 32768u) << entry;
	}
}

TEST_F(ReportOpen, TakesTwelveZeroedBytesFromTheKernelsHeap)
{
	fake::proc_file file("zorva/zorva.mem");

	ASSERT_EQ(fake::heap_calls().size(), 1u);
	const fake::heap_call call = fake::heap_calls()[0];
	EXPECT_EQ(call.size, 12u);
	EXPECT_EQ(call.flags, GFP_KERNEL | __GFP_ZERO);
	EXPECT_EQ(call.block, state_of(file));
	EXPECT_EQ(_pZorvaMallocMemList, nullptr);
}

TEST_F(ReportOpen, FailsWithoutMemoryForTheState)
{
	fake::fail_allocation(1);

	const fake::proc_file file("zorva/zorva.mem");

	EXPECT_EQ(file.error(), -12);
	EXPECT_EQ(fake::live_blocks(), 0u);
	EXPECT_EQ(all_reports(), "");
}

TEST_F(ReportOpen, FailsAndFreesItsStateWithoutMemoryForTheSequenceFile)
{
	/* Its buffer, its operations, itself. */
	for (unsigned int nth = 2; nth <= 4; ++nth) {
		fake::fail_allocation(nth);

		const fake::proc_file file("zorva/zorva.mem.detail");

		EXPECT_EQ(file.error(), -12) << nth;
		EXPECT_EQ(fake::live_blocks(), 0u) << nth;
		EXPECT_EQ(frees(), nth - 1);
	}
}

TEST_F(ReportOpen, ForWritingTakesRoot)
{
	using fake::access;
	using fake::user;

	fake::proc_file nobody("zorva/zorva.mem.detail", access::writing,
			       user::nobody);
	fake::proc_file reader("zorva/zorva.mem.detail", access::reading,
			       user::nobody);
	fake::proc_file root("zorva/zorva.mem.detail", access::writing,
			     user::root);

	EXPECT_EQ(nobody.error(), -13);
	EXPECT_EQ(reader.error(), 0);
	EXPECT_EQ(root.error(), 0);
}

/* Read. */

TEST_F(ReportFile, ShowsTheReportOfItsService)
{
	EXPECT_TRUE(fake::read_report("zorva/zorva.mem")
			    .starts_with("           Curr        Max "));
	EXPECT_TRUE(fake::read_report("zorva/zorva.mem.detail")
			    .starts_with("\n----------------\nCurrent Time :"));
}

TEST_F(ReportFile, ClearsItsStateAfterTheReport)
{
	for (const std::string &entry : report_entries) {
		fake::proc_file file("zorva/" + entry);

		file.read();

		EXPECT_EQ(state_of(file)->state, 0u) << entry;
	}
}

TEST_F(ReportFile, KeepsItsStateUntilTheReportIsMade)
{
	fake::proc_file file("zorva/zorva.mem.detail");
	u32 meanwhile = 0;

	fake::before_kvmalloc([&] {
		meanwhile = state_of(file)->state;
	});
	file.read();

	EXPECT_EQ(meanwhile, 1u);
	EXPECT_EQ(state_of(file)->state, 0u);
}

TEST_F(ReportFile, EndsAfterOneReport)
{
	fake::proc_file file("zorva/zorva.mem");

	EXPECT_NE(file.read(), "");
	EXPECT_EQ(file.read(), "");
}

TEST_F(ReportFile, ShowsAFreshReportAfterASeekToTheStart)
{
	fake::proc_file file("zorva/zorva.mem");
	const std::string first = file.read();
	char *const block = allocate(10);

	EXPECT_EQ(file.seek(0), 0);
	const std::string second = file.read();

	EXPECT_EQ(second,
		  first + "PORT       10          10          1           0           +1      \n");

	zorva_free_track(owner, block, "caller.c", 8);
}

TEST_F(ReportFile, ShowsTheSameTwiceWhenNothingHappens)
{
	fake::proc_file file("zorva/zorva.mem.detail");

	const std::string first = file.read();
	file.seek(0);

	EXPECT_EQ(file.read(), first);
}

TEST_F(ReportFile, CanBeReadInSmallParts)
{
	char *const block = allocate(10);
	const std::string whole = fake::read_report("zorva/zorva.mem");

	for (size_t chunk : { 1, 7, 68, 4096 }) {
		fake::proc_file file("zorva/zorva.mem");

		EXPECT_EQ(file.read_all(chunk), whole) << chunk;
	}

	zorva_free_track(owner, block, "caller.c", 8);
}

TEST_F(ReportFile, KeepsTheTextOfThePartsOfOneReading)
{
	fake::proc_file file("zorva/zorva.mem");
	const std::string before = fake::read_report("zorva/zorva.mem");

	std::string text = file.read(10);
	char *const block = allocate(10);
	text += file.read();

	EXPECT_EQ(text, before);

	zorva_free_track(owner, block, "caller.c", 8);
}

TEST_F(ReportFile, CanBeReadFromTheMiddle)
{
	fake::proc_file file("zorva/zorva.mem");
	const std::string whole = file.read();

	EXPECT_EQ(file.seek(100), 100);

	EXPECT_EQ(file.read(), whole.substr(100));
}

TEST_F(ReportFile, HasAReportOfItsOwnForEveryOpenFile)
{
	fake::proc_file first("zorva/zorva.mem");
	fake::proc_file second("zorva/zorva.mem");

	EXPECT_NE(state_of(first), state_of(second));
	EXPECT_EQ(first.read(), second.read());
	EXPECT_EQ(state_of(first)->state, 0u);
}

TEST_F(ReportFile, KeepsItsBufferForAReportThatJustFits)
{
	fill_report(32767);
	fake::proc_file file("zorva/zorva.mem.detail");
	const std::string text = file.read();

	EXPECT_EQ(text.size(), 32767u);
	EXPECT_EQ(file.buffer_size(), 32768u);
}

TEST_F(ReportFile, RunsAReportThatFillsItsBufferAgainInALargerOne)
{
	fill_report(32768);
	const size_t prints = fake::seq_prints().size();
	fake::proc_file file("zorva/zorva.mem.detail");

	const std::string text = file.read();

	EXPECT_EQ(text.size(), 32768u);
	EXPECT_EQ(file.buffer_size(), 65536u);
	EXPECT_EQ(fake::seq_prints().size() - prints, 2 * (11 + blocks.size()));
	EXPECT_EQ(state_of(file)->state, 0u);
	EXPECT_TRUE(text.ends_with("x, 7)\n\n"));
}

TEST_F(ReportFile, ShowsALongReportWhole)
{
	fill_report(100000);
	fake::proc_file file("zorva/zorva.mem.detail");

	const std::string text = file.read_all(5000);

	const std::string blocks_shown =
		text.substr(text.find("  [0000000000]"));
	std::string expected;
	for (size_t i = blocks.size(); i--;)
		expected += fake::format("  [0000000000] %px - 1 bytes "
					 "(%s, 7)\n",
					 blocks[i], header(blocks[i])->file);
	EXPECT_EQ(text.size(), 100000u);
	EXPECT_EQ(file.buffer_size(), 131072u);
	EXPECT_EQ(blocks_shown, expected + "\n");
}

TEST_F(ReportFile, CannotBeReadWithoutMemoryForALargerBuffer)
{
	fill_report(40000);
	fake::proc_file file("zorva/zorva.mem.detail");
	std::string text(50000, '\0');

	/* The first allocation is the report's own. */
	fake::fail_allocation(2);
	const ssize_t refused = file.read(text.data(), text.size());
	const ssize_t length = file.read(text.data(), text.size());

	EXPECT_EQ(refused, -12);
	EXPECT_EQ(length, 40000);
}

/* Release. */

TEST_F(ReportRelease, FreesAllThatTheFileHad)
{
	for (const std::string &entry : report_entries) {
		fake::proc_file file("zorva/" + entry);
		zorva_proc_priv_t *const state = state_of(file);
		file.read();

		EXPECT_EQ(file.close(), 0);

		EXPECT_EQ(fake::live_blocks(), 0u) << entry;
		EXPECT_EQ(fake::heap_calls().back().what,
			  fake::heap_call::freed);
		EXPECT_EQ(fake::heap_calls().back().block, state);
	}
}

TEST_F(ReportRelease, FreesTheTrackedBlockOfTheFile)
{
	fake::proc_file file("zorva/zorva.mem");

	state_of(file)->pBuf = allocate(10);
	file.close();

	EXPECT_EQ(fake::live_blocks(), 0u);
	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 0, 10, 1, 1 }));
}

TEST_F(ReportRelease, FreesTheTrackedBlockInTheModulesOwnName)
{
	fake::proc_file file("zorva/zorva.mem");
	char *const block = allocate(10);

	guard(block) = 0;
	state_of(file)->pBuf = block;
	file.close();

	ASSERT_EQ(reports().size(), 1u);
	const std::string said = last_report();
	EXPECT_TRUE(said.starts_with(
		"1 zorva_mem.cpp zorva_free_track: Memory corruption: guard "
		"overwritten (ZORVA, zorva_lkm.cpp:"))
		<< said;
	EXPECT_GT(atoi(said.c_str() + said.rfind(':') + 1), 0);
	EXPECT_EQ(fake::log_text(), "<stack>\n");
}

/* Write. */

TEST_F(FilterWrite, TakesANameAndReturnsItsLength)
{
	fake::proc_file file("zorva/zorva.mem.detail", fake::access::writing);

	EXPECT_EQ(file.write("ZORVA\n", 6), 6);

	EXPECT_EQ(filter(), std::string("ZORVA") + std::string(11, '\0'));
}

TEST_F(FilterWrite, TakesAllAndReturnsItsLength)
{
	fake::proc_file file("zorva/zorva.mem.detail", fake::access::writing);

	file.write("ZORVA\n", 6);
	EXPECT_EQ(file.write("all\n", 4), 4);

	EXPECT_EQ(filter(), std::string(16, '\0'));
}

TEST_F(FilterWrite, CopiesNoMoreThanItIsGiven)
{
	fake::proc_file file("zorva/zorva.mem.detail", fake::access::writing);
	const char text[] = { 'P', 'O', 'R', 'T' };

	EXPECT_EQ(file.write(text, 4), 4);
	EXPECT_STREQ(_targetComp, "PORT");

	EXPECT_EQ(file.write(text, 2), 2);
	EXPECT_STREQ(_targetComp, "PO");
}

TEST_F(FilterWrite, OfNothingClearsTheFilter)
{
	fake::proc_file file("zorva/zorva.mem.detail", fake::access::writing);

	file.write("PORT", 4);
	EXPECT_EQ(file.write("", 0), 0);

	EXPECT_STREQ(_targetComp, "");
}

TEST_F(FilterWrite, OfANewlineClearsTheFilter)
{
	fake::proc_file file("zorva/zorva.mem.detail", fake::access::writing);

	file.write("PORT", 4);
	EXPECT_EQ(file.write("\n", 1), 1);

	EXPECT_STREQ(_targetComp, "");
}

TEST_F(FilterWrite, EndsTheNameAtAZeroButConsumesAll)
{
	fake::proc_file file("zorva/zorva.mem.detail", fake::access::writing);

	EXPECT_EQ(file.write("PO\0RT", 5), 5);

	EXPECT_STREQ(_targetComp, "PO");
}

TEST_F(FilterWrite, ConsumesALongTextAndKeepsItsStart)
{
	fake::proc_file file("zorva/zorva.mem.detail", fake::access::writing);
	const std::string text = "ABCDEFGHIJKLMNOPQRSTUVWXYZ abcdefghijkl" +
				 std::string(20000, 'x');

	EXPECT_EQ(file.write(text.data(), 33), 33);
	EXPECT_STREQ(_targetComp, "ABCDEFGHIJKLMNO");

	_targetComp[0] = '\0';
	EXPECT_EQ(file.write(text.data(), text.size()),
		  static_cast<ssize_t>(text.size()));
	EXPECT_STREQ(_targetComp, "ABCDEFGHIJKLMNO");
}

TEST_F(FilterWrite, TakesOneByteMoreThanTheTextFromTheHeapAndGivesItBack)
{
	fake::proc_file file("zorva/zorva.mem.detail", fake::access::writing);
	const size_t before = fake::heap_calls().size();

	file.write("PORT", 4);

	ASSERT_EQ(fake::heap_calls().size(), before + 2);
	const fake::heap_call taken = fake::heap_calls()[before];
	const fake::heap_call given = fake::heap_calls()[before + 1];
	EXPECT_EQ(taken.size, 5u);
	EXPECT_EQ(taken.flags, GFP_ATOMIC);
	EXPECT_EQ(given.what, fake::heap_call::freed);
	EXPECT_EQ(given.block, taken.block);
}

TEST_F(FilterWrite, RefusesAPointerThatCannotBeRead)
{
	fake::proc_file file("zorva/zorva.mem.detail", fake::access::writing);

	file.write("PORT", 4);
	const size_t before = fake::live_blocks();
	const ssize_t result = file.write(reinterpret_cast<char *>(8), 4);

	EXPECT_EQ(result, -14);
	EXPECT_STREQ(_targetComp, "PORT");
	EXPECT_EQ(fake::live_blocks(), before);
}

TEST_F(FilterWrite, RefusesATextThatCannotBeReadToItsEnd)
{
	fake::proc_file file("zorva/zorva.mem.detail", fake::access::writing);

	file.write("PORT", 4);
	const size_t before = fake::live_blocks();
	fake::fail_user_copy_after(4);
	const ssize_t result = file.write("ZORVA", 5);

	EXPECT_EQ(result, -14);
	EXPECT_STREQ(_targetComp, "PORT");
	EXPECT_EQ(fake::live_blocks(), before);
}

TEST_F(FilterWrite, RefusesTheLargestCountWithOneWarningOfTheKernel)
{
	fake::proc_file file("zorva/zorva.mem.detail", fake::access::writing);

	file.write("PORT", 4);
	const ssize_t first = file.write("x", SIZE_MAX);
	const ssize_t second = file.write("x", SIZE_MAX);

	EXPECT_EQ(first, -14);
	EXPECT_EQ(second, -14);
	EXPECT_EQ(fake::log_text(),
		  "WARNING: copy of more than INT_MAX bytes\n");
	EXPECT_STREQ(_targetComp, "PORT");
}

TEST_F(FilterWrite, RefusesACountThatTheHeapCannotHold)
{
	fake::proc_file file("zorva/zorva.mem.detail", fake::access::writing);

	file.write("PORT", 4);
	const ssize_t first = file.write("x", INT_MAX);
	const ssize_t second = file.write("x", 4 << 20);

	EXPECT_EQ(first, -12);
	EXPECT_EQ(second, -12);
	EXPECT_EQ(fake::log_text(), "WARNING: order beyond MAX_ORDER\n");
	EXPECT_STREQ(_targetComp, "PORT");
}

TEST_F(FilterWrite, IsRefusedWithoutMemory)
{
	fake::proc_file file("zorva/zorva.mem.detail", fake::access::writing);

	fake::fail_allocation(1);
	const ssize_t result = file.write("PORT", 4);

	EXPECT_EQ(result, -12);
	EXPECT_STREQ(_targetComp, "");
}

TEST_F(FilterWrite, NeitherReadsNorMovesThePosition)
{
	loff_t position = 3;

	const ssize_t result =
		zorva_mem_detail_write(nullptr, "PORT", 4, &position);

	EXPECT_EQ(result, 4);
	EXPECT_EQ(position, 3);
	EXPECT_STREQ(_targetComp, "PORT");
}

TEST_F(FilterWrite, IsForTheDetailedMemoryReportOnly)
{
	for (const std::string &entry : report_entries) {
		fake::proc_file file("zorva/" + entry, fake::access::writing);

		EXPECT_EQ(file.write("PORT", 4),
			  entry == "zorva.mem.detail" ? 4 : -5)
			<< entry;
	}
}
