// SPDX-License-Identifier: GPL-2.0
/* The tracked allocator: allocating. */
#include "mem_fixture.h"

namespace
{

constexpr s64 sec = 1000000000;

class Allocation : public TrackedMemoryTest {};

std::string malloc_says(const std::string &text)
{
	return "1 zorva_mem.cpp zorva_malloc_track: " + text + "\n";
}

} // namespace

/* Arguments. */

TEST_F(Allocation, RefusesComponent0)
{
	void *const block = zorva_malloc_track(0, 10, "caller.c", 7);

	EXPECT_EQ(block, nullptr);
	EXPECT_EQ(all_reports(), malloc_says("invalid parameter"));
	EXPECT_TRUE(fake::heap_calls().empty());
	EXPECT_EQ(usage(0), zorva_mem_usage_t());
}

TEST_F(Allocation, RefusesComponentsFrom57On)
{
	for (u32 id : { 57u, 58u, 0x80000000u, 0xFFFFFFFFu })
		EXPECT_EQ(zorva_malloc_track(id, 10, "caller.c", 7), nullptr)
			<< id;

	EXPECT_EQ(all_reports(), malloc_says("invalid parameter") +
					 malloc_says("invalid parameter") +
					 malloc_says("invalid parameter") +
					 malloc_says("invalid parameter"));
	EXPECT_TRUE(fake::heap_calls().empty());
}

TEST_F(Allocation, RefusesSize0)
{
	void *const block = zorva_malloc_track(owner, 0, "caller.c", 7);

	EXPECT_EQ(block, nullptr);
	EXPECT_EQ(all_reports(), malloc_says("invalid parameter"));
	EXPECT_TRUE(fake::heap_calls().empty());
	EXPECT_EQ(usage(owner), zorva_mem_usage_t());
}

TEST_F(Allocation, ReportsEachWrongArgumentFromALineOfItsOwn)
{
	zorva_malloc_track(0, 10, "caller.c", 7);
	zorva_malloc_track(57, 10, "caller.c", 7);
	zorva_malloc_track(owner, 0, "caller.c", 7);

	ASSERT_EQ(reports().size(), 3u);
	EXPECT_LT(reports()[0].line, reports()[1].line);
	EXPECT_LT(reports()[1].line, reports()[2].line);
}

TEST_F(Allocation, ReportsAWrongComponentBeforeAWrongSize)
{
	zorva_malloc_track(0, 10, "caller.c", 7);
	zorva_malloc_track(0, 0, "caller.c", 7);
	zorva_malloc_track(57, 10, "caller.c", 7);
	zorva_malloc_track(57, 0, "caller.c", 7);

	ASSERT_EQ(reports().size(), 4u);
	EXPECT_EQ(reports()[0].line, reports()[1].line);
	EXPECT_EQ(reports()[2].line, reports()[3].line);
	EXPECT_NE(reports()[0].line, reports()[2].line);
}

TEST_F(Allocation, AcceptsTheFirstAndTheLastComponent)
{
	char *const first = allocate(10, 1);
	char *const last = allocate(10, 56);

	ASSERT_NE(first, nullptr);
	ASSERT_NE(last, nullptr);
	EXPECT_EQ(usage(1).currUsage, 10u);
	EXPECT_EQ(usage(56).currUsage, 10u);

	zorva_free_track(1, first, "caller.c", 8);
	zorva_free_track(56, last, "caller.c", 8);
}

/* The kernel's heap. */

TEST_F(Allocation, AsksTheHeapForTheRoundedSizeAnd56Bytes)
{
	const u32 sizes[][2] = {
		{ 1, 60 }, { 2, 60 }, { 3, 60 }, { 4, 60 },
		{ 5, 64 }, { 8, 64 }, { 9, 68 }, { 1000, 1056 }
	};

	for (const auto &[size, whole] : sizes) {
		char *const block = allocate(size);

		const fake::heap_call call = fake::heap_calls().back();
		EXPECT_EQ(call.size, whole) << size;
		EXPECT_EQ(call.block, block - header_size) << size;
		EXPECT_EQ(call.flags, GFP_ATOMIC | __GFP_ZERO) << size;

		zorva_free_track(owner, block, "caller.c", 8);
	}
}

TEST_F(Allocation, CallsTheHeapWithoutTheLock)
{
	char *const block = allocate(10);

	ASSERT_EQ(fake::heap_calls().size(), 1u);
	EXPECT_TRUE(fake::heap_calls()[0].at.may_sleep());

	zorva_free_track(owner, block, "caller.c", 8);
}

TEST_F(Allocation, ReportsAHeapWithoutMemoryAndDumpsTheStack)
{
	fake::fail_allocation(1);

	void *const block = zorva_malloc_track(owner, 10, "caller.c", 7);

	EXPECT_EQ(block, nullptr);
	EXPECT_EQ(all_reports(), malloc_says("Memory allocation failed: "
					     "10 bytes (caller.c:7)"));
	EXPECT_EQ(fake::log_text(), "<stack>\n");
	EXPECT_EQ(reports()[0].logged_before, 0u);
}

TEST_F(Allocation, CountsNothingForAHeapWithoutMemory)
{
	char *const block = allocate(4);
	const zorva_mem_usage_t before = usage(owner);

	fake::fail_allocation(1);
	zorva_malloc_track(owner, 10, "caller.c", 7);

	EXPECT_EQ(usage(owner), before);
	EXPECT_EQ(listed(), std::vector<void *>{ block });
	EXPECT_EQ(reports().size(), 1u);
	EXPECT_EQ(fake::log_text(), "<stack>\n");

	zorva_free_track(owner, block, "caller.c", 8);
}

TEST_F(Allocation, ReportsAHeapWithoutMemoryOutsideTheLock)
{
	fake::fail_allocation(1);

	zorva_malloc_track(owner, 10, "caller.c", 7);

	EXPECT_TRUE(reports().back().at.may_sleep());
	EXPECT_TRUE(fake::kernel_log().back().at.may_sleep());
}

TEST_F(Allocation, ReportsANullFileOfAFailedCall)
{
	fake::fail_allocation(1);

	zorva_malloc_track(owner, 10, nullptr, 0xFFFFFFFF);

	EXPECT_EQ(all_reports(), malloc_says("Memory allocation failed: "
					     "10 bytes ((null):-1)"));
	EXPECT_EQ(fake::log_text(), "<stack>\n");
}

TEST_F(Allocation, TreatsASizeThatWrapsAsAHeapWithoutMemory)
{
	/* Rounding wraps the first three, adding 56 the others. */
	for (u32 size : { 0xFFFFFFFFu, 0xFFFFFFFEu, 0xFFFFFFFDu, 0xFFFFFFFCu,
			  0xFFFFFFF8u, 0xFFFFFFC8u, 0xFFFFFFC5u }) {
		void *const block =
			zorva_malloc_track(owner, size, "caller.c", 7);

		EXPECT_EQ(block, nullptr) << size;
		EXPECT_EQ(last_report() + "\n",
			  malloc_says("Memory allocation failed: " +
				      std::to_string(size) +
				      " bytes (caller.c:7)"));
		EXPECT_EQ(fake::kernel_log().back().text, "<stack>\n");
	}

	EXPECT_EQ(reports().size(), 7u);
	EXPECT_EQ(fake::kernel_log().size(), 7u);
	EXPECT_TRUE(fake::heap_calls().empty());
	EXPECT_EQ(usage(owner), zorva_mem_usage_t());
}

TEST_F(Allocation, AsksTheHeapForTheLargestSizeThatDoesNotWrap)
{
	const u32 largest = 0xFFFFFFFF - 56 - 3;

	void *const block = zorva_malloc_track(owner, largest, "caller.c", 7);

	EXPECT_EQ(block, nullptr);
	ASSERT_EQ(fake::heap_calls().size(), 1u);
	EXPECT_EQ(fake::heap_calls()[0].size, 0xFFFFFFFC);
	EXPECT_EQ(all_reports(), malloc_says("Memory allocation failed: "
					     "4294967236 bytes (caller.c:7)"));
	EXPECT_EQ(fake::log_text(),
		  "WARNING: order beyond MAX_ORDER\n<stack>\n");
}

/* The block. */

TEST_F(Allocation, ReturnsZeroedBytesUpToTheRoundedSize)
{
	char *const block = allocate(9);

	EXPECT_EQ(std::string(block, 12), std::string(12, '\0'));

	zorva_free_track(owner, block, "caller.c", 8);
}

TEST_F(Allocation, FillsTheThirteenWordsOfTheHeader)
{
	fake::set_uptime(5 * sec);
	char *const older = allocate(4);
	fake::set_uptime(77 * sec);

	void *const block = zorva_malloc_track(owner, 10, "abcdefg.c", 42);

	u32 words[13];
	memcpy(words, static_cast<char *>(block) - header_size, header_size);
	EXPECT_EQ(words[0], 0xAAAAAAAAu);
	EXPECT_EQ(words[1], 10u);
	EXPECT_EQ(words[2], 0xCAFEBABEu);
	EXPECT_EQ(words[3], owner);
	EXPECT_EQ(words[4], 42u);
	EXPECT_EQ(words[5], 77u);
	EXPECT_EQ(words[6], 1u);
	EXPECT_STREQ(reinterpret_cast<char *>(&words[7]), "abcdefg.c");
	EXPECT_EQ(words[11], 0u);
	EXPECT_EQ(words[12], reinterpret_cast<uintptr_t>(header(older)));

	zorva_free_track(owner, block, "caller.c", 8);
	zorva_free_track(owner, older, "caller.c", 8);
}

TEST_F(Allocation, KeepsTheRequestedSizeNotTheRoundedOne)
{
	char *const block = allocate(1);

	EXPECT_EQ(header(block)->size, 1u);
	EXPECT_EQ(usage(owner).currUsage, 1u);

	zorva_free_track(owner, block, "caller.c", 8);
}

TEST_F(Allocation, KeepsFourteenCharactersOfTheCallersFile)
{
	const std::string name = "abcdefghijklmnopqrst";
	alignas(4) char text[32];

	/* A text at a word's address is copied in another way. */
	for (u32 offset = 0; offset < 4; ++offset) {
		for (u32 length = 0; length <= 20; ++length) {
			const std::string file = name.substr(0, length);
			memset(text, 'z', sizeof(text));
			strcpy(text + offset, file.c_str());
			void *const block =
				zorva_malloc_track(owner, 4, text + offset, 7);

			EXPECT_EQ(std::string(header(block)->file),
				  file.substr(0, 14))
				<< length << " characters at " << offset;
			EXPECT_EQ(header(block)->file[14], '\0');
			EXPECT_EQ(header(block)->file[15], '\0');
			EXPECT_EQ(header(block)->prev, nullptr);

			zorva_free_track(owner, block, "caller.c", 8);
		}
	}
}

TEST_F(Allocation, KeepsTheKernelsWordsForFilesThatCannotBeRead)
{
	void *const null = zorva_malloc_track(owner, 4, nullptr, 7);
	void *const page = zorva_malloc_track(owner, 4,
					      reinterpret_cast<const char *>(8),
					      7);

	EXPECT_STREQ(header(null)->file, "(null)");
	EXPECT_STREQ(header(page)->file, "(efault)");

	zorva_free_track(owner, null, "caller.c", 8);
	zorva_free_track(owner, page, "caller.c", 8);
}

TEST_F(Allocation, PutsTheGuardDirectlyBehindTheRoundedArea)
{
	for (u32 size = 1; size <= 9; ++size) {
		char *const block = allocate(size);

		u32 word;
		memcpy(&word, block + (size + 3) / 4 * 4, sizeof(word));
		EXPECT_EQ(word, 0xBBBBBBBBu) << size;

		zorva_free_track(owner, block, "caller.c", 8);
	}
}

TEST_F(Allocation, ListsTheNewestBlockFirst)
{
	char *const oldest = allocate(4);
	char *const middle = allocate(4, other);
	char *const newest = allocate(4);

	EXPECT_EQ(listed(), (std::vector<void *>{ newest, middle, oldest }));
	EXPECT_EQ(header(newest)->prev, nullptr);
	EXPECT_EQ(header(middle)->prev, header(newest));
	EXPECT_EQ(header(oldest)->prev, header(middle));
	EXPECT_EQ(header(oldest)->next, nullptr);

	zorva_free_track(owner, newest, "caller.c", 8);
	zorva_free_track(owner, middle, "caller.c", 8);
	zorva_free_track(owner, oldest, "caller.c", 8);
}

TEST_F(Allocation, CountsOnTheAccountOfItsOwner)
{
	char *const first = allocate(10);
	char *const second = allocate(3);

	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 13, 13, 2, 0 }));
	for (u32 id = 0; id < 57; ++id) {
		if (id == owner)
			continue;
		EXPECT_EQ(usage(id), zorva_mem_usage_t()) << id;
	}

	zorva_free_track(owner, first, "caller.c", 8);
	zorva_free_track(owner, second, "caller.c", 8);
}

TEST_F(Allocation, KeepsTheHighestUsage)
{
	char *const large = allocate(100);
	zorva_free_track(owner, large, "caller.c", 8);

	char *const small = allocate(10);
	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 10, 100, 2, 1 }));

	char *const more = allocate(91);
	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 101, 101, 3, 1 }));

	zorva_free_track(owner, small, "caller.c", 8);
	zorva_free_track(owner, more, "caller.c", 8);
}

TEST_F(Allocation, ReadsTheUptimeUnderTheLock)
{
	char *const block = allocate(4);

	ASSERT_EQ(fake::coarse_readings().size(), 1u);
	EXPECT_TRUE(fake::coarse_readings()[0].holds(&_mallocMemLck));

	zorva_free_track(owner, block, "caller.c", 8);
}

TEST_F(Allocation, WorksInAHardInterrupt)
{
	const fake::hard_interrupt interrupt;

	char *const block = allocate(10);
	EXPECT_TRUE(fake::current_context().interrupts_off);
	zorva_free_track(owner, block, "caller.c", 8);

	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 0, 10, 1, 1 }));
	EXPECT_TRUE(fake::current_context().interrupts_off);
}

TEST_F(Allocation, WorksInASoftInterrupt)
{
	const fake::soft_interrupt interrupt;

	void *block = allocate(10);
	zorva_free_cleanup(&block);

	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 0, 10, 1, 1 }));
}

TEST_F(Allocation, FillsListsAndCountsABlockUnderTheLock)
{
	char *const older = allocate(4);
	char *block = nullptr;

	const auto [found, left] = under_the_lock([&] {
		block = allocate(10);
	});

	EXPECT_EQ(found.block, std::string(68, '\0'));
	EXPECT_EQ(found.listed, std::vector<void *>{ older });
	EXPECT_EQ(found.usage, (zorva_mem_usage_t{ 4, 4, 1, 0 }));
	EXPECT_EQ(left.block, bytes(block));
	EXPECT_EQ(left.listed, (std::vector<void *>{ block, older }));
	EXPECT_EQ(left.usage, (zorva_mem_usage_t{ 14, 14, 2, 0 }));

	zorva_free_track(owner, block, "caller.c", 8);
	zorva_free_track(owner, older, "caller.c", 8);
}

TEST_F(Allocation, LeavesInterruptsOffThatWereOff)
{
	const fake::interrupts_off off;

	void *block = allocate(10);
	EXPECT_TRUE(fake::current_context().interrupts_off);
	zorva_free_cleanup(&block);
	EXPECT_TRUE(fake::current_context().interrupts_off);
}

TEST_F(Allocation, MayBeGivenThePlaceOfTheCallByTheCompiler)
{
	void *const block = zorva_malloc(owner, 4);
	const u32 line = __LINE__ - 1;

	EXPECT_STREQ(header(block)->file, "mem_test.cpp");
	EXPECT_EQ(header(block)->line, line);

	header(block)->inUse = 0;
	zorva_free(owner, block);
	const u32 free_line = __LINE__ - 1;
	EXPECT_EQ(all_reports(),
		  "1 zorva_mem.cpp zorva_free_track: " +
			  fake::format("Double free detected at "
				       "mem_test.cpp:%u, originally "
				       "allocated at mem_test.cpp:%u",
				       free_line, line) +
			  "\n");
	EXPECT_EQ(fake::log_text(), "<stack>\n");

	leave(block);
}

TEST_F(Allocation, TellsTheSizeOfItsHeaderAsItsOverhead)
{
	EXPECT_EQ(zorva_mem_overhead_get(), 52u);
	EXPECT_EQ(sizeof(zorva_mem_block_hdr_t), 52u);
}
