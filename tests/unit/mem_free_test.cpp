// SPDX-License-Identifier: GPL-2.0
/* The tracked allocator: freeing, and what it says of torn blocks. */
#include "mem_fixture.h"

namespace
{

constexpr s64 sec = 1000000000;
constexpr u32 alive = 0xAAAAAAAA;
constexpr u32 freed = 0xDEADBEEF;
constexpr u32 header_magic = 0xCAFEBABE;

class FreeTest : public TrackedMemoryTest {
protected:
	/* Proves that a free changes all that it does under the lock. */
	static void retires_under_the_lock(void (*free)(void *block))
	{
		char *const older = allocate(4);
		char *const block = allocate(10);
		const std::string before = bytes(block);

		const auto [found, left] = under_the_lock([&] {
			free(block);
		});

		EXPECT_EQ(found.block, before);
		EXPECT_EQ(found.listed, (std::vector<void *>{ block, older }));
		EXPECT_EQ(found.usage, (zorva_mem_usage_t{ 14, 14, 2, 0 }));
		fake::allow_access_to_freed(header(block), before.size());
		EXPECT_EQ(left.block, bytes(block));
		EXPECT_EQ(left.listed, std::vector<void *>{ older });
		EXPECT_EQ(left.usage, (zorva_mem_usage_t{ 4, 14, 2, 1 }));

		zorva_free_track(owner, older, "caller.c", 8);
	}
};

class Free : public FreeTest {};
class FreeCleanup : public FreeTest {};

std::string free_says(const std::string &text)
{
	return "1 zorva_mem.cpp zorva_free_track: " + text + "\n";
}

std::string cleanup_says(const std::string &text)
{
	return "1 zorva_mem.cpp zorva_free_cleanup: " + text + "\n";
}

} // namespace

/* Free: what it ignores. */

TEST_F(Free, IgnoresCallersThatAreNoComponent)
{
	char *const block = allocate(10);
	const std::string before = bytes(block);

	for (u32 id : { 0u, 57u, 58u, 0x80000000u, 0xFFFFFFFFu })
		zorva_free_track(id, block, "caller.c", 8);

	EXPECT_EQ(all_reports(), "");
	EXPECT_EQ(bytes(block), before);
	EXPECT_EQ(listed(), std::vector<void *>{ block });
	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 10, 10, 1, 0 }));
	EXPECT_EQ(frees(), 0u);

	zorva_free_track(owner, block, "caller.c", 8);
}

TEST_F(Free, IgnoresANullPointer)
{
	zorva_free_track(owner, nullptr, "caller.c", 8);
	zorva_free_track(0, nullptr, "caller.c", 8);

	EXPECT_EQ(all_reports(), "");
	EXPECT_EQ(frees(), 0u);
	EXPECT_EQ(usage(owner), zorva_mem_usage_t());
}

/* Free: whole blocks. */

TEST_F(Free, GivesTheBlockBackAndCountsIt)
{
	char *const block = allocate(10);

	zorva_free_track(owner, block, "caller.c", 8);

	EXPECT_EQ(all_reports(), "");
	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 0, 10, 1, 1 }));
	EXPECT_EQ(_pZorvaMallocMemList, nullptr);
	EXPECT_EQ(fake::heap_calls().back().block, block - header_size);
}

TEST_F(Free, CallsTheHeapWithoutTheLock)
{
	char *const block = allocate(10);

	zorva_free_track(owner, block, "caller.c", 8);

	ASSERT_EQ(fake::heap_calls().back().what, fake::heap_call::freed);
	EXPECT_TRUE(fake::heap_calls().back().at.may_sleep());
}

TEST_F(Free, MarksUnlinksAndCountsABlockUnderTheLock)
{
	retires_under_the_lock([](void *block) {
		zorva_free_track(owner, block, "caller.c", 8);
	});
}

TEST_F(Free, MarksTheBlockAndKeepsTheRestOfItsHeader)
{
	fake::set_uptime(77 * sec);
	char *const block = allocate(10);
	auto expected = *header(block);

	zorva_free_track(owner, block, "caller.c", 8);

	fake::allow_access_to_freed(header(block), header_size);
	expected.startMagic = freed;
	expected.inUse = 0;
	EXPECT_EQ(memcmp(header(block), &expected, header_size), 0);
	EXPECT_EQ(header(block)->magic, header_magic);
}

TEST_F(Free, TakesTheNewestBlockOffTheList)
{
	char *const oldest = allocate(4);
	char *const middle = allocate(4);
	char *const newest = allocate(4);

	zorva_free_track(owner, newest, "caller.c", 8);

	EXPECT_EQ(listed(), (std::vector<void *>{ middle, oldest }));
	EXPECT_EQ(header(middle)->prev, nullptr);

	zorva_free_track(owner, middle, "caller.c", 8);
	zorva_free_track(owner, oldest, "caller.c", 8);
}

TEST_F(Free, TakesABlockOffTheMiddleOfTheList)
{
	char *const oldest = allocate(4);
	char *const middle = allocate(4);
	char *const newest = allocate(4);

	zorva_free_track(owner, middle, "caller.c", 8);

	EXPECT_EQ(listed(), (std::vector<void *>{ newest, oldest }));
	EXPECT_EQ(header(oldest)->prev, header(newest));
	EXPECT_EQ(header(newest)->prev, nullptr);

	zorva_free_track(owner, newest, "caller.c", 8);
	zorva_free_track(owner, oldest, "caller.c", 8);
}

TEST_F(Free, TakesTheOldestBlockOffTheList)
{
	char *const oldest = allocate(4);
	char *const middle = allocate(4);
	char *const newest = allocate(4);

	zorva_free_track(owner, oldest, "caller.c", 8);

	EXPECT_EQ(listed(), (std::vector<void *>{ newest, middle }));
	EXPECT_EQ(header(middle)->next, nullptr);
	EXPECT_EQ(header(middle)->prev, header(newest));

	zorva_free_track(owner, newest, "caller.c", 8);
	zorva_free_track(owner, middle, "caller.c", 8);
}

TEST_F(Free, LeavesTheLinksOfTheBlockAsTheyWere)
{
	char *const oldest = allocate(4);
	char *const middle = allocate(4);
	char *const newest = allocate(4);

	zorva_free_track(owner, middle, "caller.c", 8);

	fake::allow_access_to_freed(header(middle), header_size);
	EXPECT_EQ(header(middle)->prev, header(newest));
	EXPECT_EQ(header(middle)->next, header(oldest));

	zorva_free_track(owner, newest, "caller.c", 8);
	zorva_free_track(owner, oldest, "caller.c", 8);
}

TEST_F(Free, DebitsTheOwnerNotTheCaller)
{
	char *const block = allocate(10);

	zorva_free_track(other, block, "caller.c", 8);

	EXPECT_EQ(all_reports(), "");
	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 0, 10, 1, 1 }));
	EXPECT_EQ(usage(other), zorva_mem_usage_t());
	EXPECT_EQ(_pZorvaMallocMemList, nullptr);
}

TEST_F(Free, AcceptsTheFirstAndTheLastComponentAsTheCaller)
{
	char *const first = allocate(10);
	char *const second = allocate(10);

	zorva_free_track(1, first, "caller.c", 8);
	zorva_free_track(56, second, "caller.c", 8);

	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 0, 20, 2, 2 }));
}

TEST_F(Free, NeverWrapsTheUsage)
{
	char *const block = allocate(10);

	usage(owner).currUsage = 9;
	zorva_free_track(owner, block, "caller.c", 8);

	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 9, 10, 1, 1 }));
	EXPECT_EQ(all_reports(), "");
}

TEST_F(Free, SubtractsTheRequestedSizeNotTheRoundedOne)
{
	char *const first = allocate(1);
	char *const second = allocate(5);

	zorva_free_track(owner, first, "caller.c", 8);

	EXPECT_EQ(usage(owner).currUsage, 5u);

	zorva_free_track(owner, second, "caller.c", 8);
}

TEST_F(Free, LeavesTheBytesBehindTheRequestedSizeToTheCaller)
{
	char *const block = allocate(1);

	memset(block, 'x', 4);
	zorva_free_track(ZORVA_COMPONENT_SELF, block, "caller.c", 8);

	EXPECT_EQ(all_reports(), "");
	EXPECT_EQ(usage(owner).freeCount, 1u);
}

TEST_F(Free, FreesABlockWithADamagedOwnerFromNobodysAccount)
{
	char *const block = allocate(10);
	const zorva_mem_usage_t before = usage(owner);

	header(block)->compId = 57;
	zorva_free_track(owner, block, "caller.c", 8);

	EXPECT_EQ(all_reports(), "");
	EXPECT_EQ(usage(owner), before);
	EXPECT_EQ(_pZorvaMallocMemList, nullptr);
	EXPECT_EQ(frees(), 1u);
}

TEST_F(Free, DebitsWhateverComponentTheBlockNames)
{
	for (u32 id : { 0u, other, 56u }) {
		char *const block = allocate(10);

		header(block)->compId = id;
		usage(id).currUsage = 15;
		zorva_free_track(owner, block, "caller.c", 8);

		EXPECT_EQ(usage(id), (zorva_mem_usage_t{ 5, 0, 0, 1 })) << id;
	}

	EXPECT_EQ(all_reports(), "");
	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 30, 30, 3, 0 }));
	EXPECT_EQ(frees(), 3u);
}

/* Free: torn blocks. */

TEST_F(Free, RefusesABlockWithADamagedHeader)
{
	char *const block = allocate(10);

	header(block)->magic = 0xCAFEBABF;
	const std::string before = bytes(block);
	zorva_free_track(owner, block, "caller.c", 8);

	EXPECT_EQ(all_reports(),
		  free_says("Memory header corrupt! Invalid magic."));
	EXPECT_EQ(fake::log_text(), "<stack>\n");
	EXPECT_EQ(bytes(block), before);
	EXPECT_EQ(listed(), std::vector<void *>{ block });
	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 10, 10, 1, 0 }));
	EXPECT_EQ(frees(), 0u);

	leave(block);
}

TEST_F(Free, ReportsBothPlacesOfADoubleFree)
{
	char *const block =
		static_cast<char *>(zorva_malloc_track(owner, 10, "a.c", 7));

	zorva_free_track(owner, block, "b.c", 8);
	fake::allow_access_to_freed(header(block), header_size);
	const auto before = *header(block);
	zorva_free_track(owner, block, "c.c", 9);

	EXPECT_EQ(all_reports(), free_says("Double free detected at c.c:9, "
					   "originally allocated at a.c:7"));
	EXPECT_EQ(fake::log_text(), "<stack>\n");
	EXPECT_EQ(memcmp(header(block), &before, header_size), 0);
	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 0, 10, 1, 1 }));
	EXPECT_EQ(frees(), 1u);
}

TEST_F(Free, LeavesTheListAloneOnADoubleFree)
{
	char *const oldest = allocate(4);
	char *const block = allocate(4);
	char *const newest = allocate(4);

	zorva_free_track(owner, block, "caller.c", 8);
	fake::allow_access_to_freed(header(block), header_size);
	zorva_free_track(owner, block, "caller.c", 9);

	EXPECT_EQ(listed(), (std::vector<void *>{ newest, oldest }));
	EXPECT_EQ(reports().size(), 1u);
	EXPECT_EQ(fake::log_text(), "<stack>\n");

	zorva_free_track(owner, newest, "caller.c", 8);
	zorva_free_track(owner, oldest, "caller.c", 8);
}

TEST_F(Free, PrintsLinesAsSignedAndNullFilesAsTheKernelDoes)
{
	void *const block = zorva_malloc_track(owner, 10, nullptr, 0xFFFFFFFF);

	header(block)->inUse = 0;
	zorva_free_track(owner, block, nullptr, 0xFFFFFFFE);

	EXPECT_EQ(all_reports(),
		  free_says("Double free detected at (null):-2, "
			    "originally allocated at (null):-1"));
	EXPECT_EQ(fake::log_text(), "<stack>\n");

	leave(block);
}

TEST_F(Free, RefusesALiveBlockWhoseUseWasCleared)
{
	char *const block = allocate(10);

	header(block)->inUse = 0;
	const std::string before = bytes(block);
	zorva_free_track(other, block, "caller.c", 8);

	EXPECT_EQ(all_reports(),
		  free_says("Double free detected at caller.c:8, "
			    "originally allocated at caller.c:7"));
	EXPECT_EQ(fake::log_text(), "<stack>\n");
	EXPECT_EQ(bytes(block), before);
	EXPECT_EQ(listed(), std::vector<void *>{ block });
	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 10, 10, 1, 0 }));
	EXPECT_EQ(frees(), 0u);

	leave(block);
}

TEST_F(Free, TakesAnyUseButZeroForALiveBlock)
{
	for (u32 use : { 2u, 0xFFFFFFFFu }) {
		char *const block = allocate(10);

		header(block)->inUse = use;
		zorva_free_track(owner, block, "caller.c", 8);

		EXPECT_EQ(all_reports(), "") << use;
	}

	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 0, 10, 2, 2 }));
}

TEST_F(Free, RefusesAPointerThatIsNoBlock)
{
	char *const block = allocate(10);

	header(block)->startMagic = 0xabc;
	const std::string before = bytes(block);
	zorva_free_track(other, block, "caller.c", 8);

	EXPECT_EQ(all_reports(),
		  free_says(fake::format("Free invalid ptr: 0x%px start=0xabc "
					 "(VLAN, caller.c:8)",
					 block)));
	EXPECT_EQ(fake::log_text(), "<stack>\n");
	EXPECT_EQ(bytes(block), before);
	EXPECT_EQ(listed(), std::vector<void *>{ block });
	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 10, 10, 1, 0 }));
	EXPECT_EQ(frees(), 0u);

	leave(block);
}

TEST_F(Free, FreesABlockWithATornGuardAndSaysSo)
{
	char *const block = allocate(10);

	block[12] = 1;
	zorva_free_track(owner, block, "caller.c", 8);

	EXPECT_EQ(all_reports(),
		  free_says("Memory corruption: guard overwritten "
			    "(PORT, caller.c:8)"));
	EXPECT_EQ(fake::log_text(), "<stack>\n");
	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 0, 10, 1, 1 }));
	EXPECT_EQ(_pZorvaMallocMemList, nullptr);
	EXPECT_EQ(fake::heap_calls().back().block, block - header_size);
}

TEST_F(Free, NamesTheCallerNotTheOwnerOfATornBlock)
{
	char *const block = allocate(1);

	block[4] = 1;
	zorva_free_track(56, block, nullptr, 0xFFFFFFFF);

	EXPECT_EQ(all_reports(),
		  free_says("Memory corruption: guard overwritten "
			    "(DIAG, (null):-1)"));
	EXPECT_EQ(fake::log_text(), "<stack>\n");
}

TEST_F(Free, NoticesEveryByteOfTheGuard)
{
	for (u32 byte = 0; byte < 4; ++byte) {
		char *const block = allocate(4);

		block[4 + byte] ^= 1;
		zorva_free_track(owner, block, "caller.c", 8);

		EXPECT_EQ(reports().size(), byte + 1);
	}

	EXPECT_EQ(fake::kernel_log().size(), 4u);
}

TEST_F(Free, ReportsTheHeaderFirstOfAllDamages)
{
	char *const block = allocate(10);

	header(block)->magic = 0;
	header(block)->inUse = 0;
	header(block)->startMagic = 0;
	guard(block) = 0;
	zorva_free_track(owner, block, "caller.c", 8);

	EXPECT_EQ(all_reports(),
		  free_says("Memory header corrupt! Invalid magic."));
	EXPECT_EQ(fake::log_text(), "<stack>\n");

	leave(block);
}

TEST_F(Free, ReportsADoubleFreeBeforeAWrongStart)
{
	char *const block = allocate(10);

	header(block)->inUse = 0;
	header(block)->startMagic = 0;
	guard(block) = 0;
	zorva_free_track(owner, block, "caller.c", 8);

	EXPECT_EQ(all_reports(),
		  free_says("Double free detected at caller.c:8, "
			    "originally allocated at caller.c:7"));
	EXPECT_EQ(fake::log_text(), "<stack>\n");

	leave(block);
}

TEST_F(Free, ReportsAWrongStartBeforeATornGuard)
{
	char *const block = allocate(10);

	header(block)->startMagic = 0;
	guard(block) = 0;
	zorva_free_track(owner, block, "caller.c", 8);

	EXPECT_EQ(all_reports(),
		  free_says(fake::format("Free invalid ptr: 0x%px start=0x0 "
					 "(PORT, caller.c:8)",
					 block)));
	EXPECT_EQ(fake::log_text(), "<stack>\n");

	leave(block);
}

TEST_F(Free, LooksForDamageReportsItAndDumpsTheStackUnderTheLock)
{
	char *const blocks[] = { allocate(4), allocate(4), allocate(4),
				 allocate(4) };
	u32 *const words[] = { &header(blocks[0])->magic,
			       &header(blocks[1])->inUse,
			       &header(blocks[2])->startMagic,
			       &guard(blocks[3]) };
	u32 locked = 0;

	fake::after_spin_lock([&](const void *) {
		*words[locked++] = 0;
	});
	for (char *block : blocks)
		zorva_free_track(owner, block, "caller.c", 8);

	ASSERT_EQ(reports().size(), 4u);
	ASSERT_EQ(fake::kernel_log().size(), 4u);
	for (u32 i = 0; i < 4; ++i) {
		EXPECT_TRUE(reports()[i].at.holds(&_mallocMemLck)) << i;
		EXPECT_EQ(fake::kernel_log()[i].text, "<stack>\n") << i;
		EXPECT_TRUE(fake::kernel_log()[i].at.holds(&_mallocMemLck))
			<< i;
		EXPECT_EQ(reports()[i].logged_before, i);
	}

	for (u32 i = 0; i < 3; ++i)
		leave(blocks[i]);
}

TEST_F(Free, GivesTheLockBackWithInterruptsAsTheyWere)
{
	char *const block = allocate(10);

	header(block)->magic = 0;
	{
		const fake::interrupts_off off;

		zorva_free_track(owner, block, "caller.c", 8);
		EXPECT_TRUE(fake::current_context().interrupts_off);
		EXPECT_TRUE(fake::current_context().locks.empty());
	}
	zorva_free_track(owner, block, "caller.c", 8);
	EXPECT_TRUE(fake::current_context().may_sleep());

	EXPECT_EQ(reports().size(), 2u);
	EXPECT_EQ(fake::kernel_log().size(), 2u);

	leave(block);
}

/* Cleanup. */

TEST_F(FreeCleanup, IgnoresANullPointerAndANullBlock)
{
	void *block = nullptr;

	zorva_free_cleanup(nullptr);
	zorva_free_cleanup(&block);

	EXPECT_EQ(all_reports(), "");
	EXPECT_EQ(block, nullptr);
	EXPECT_EQ(frees(), 0u);
}

TEST_F(FreeCleanup, GivesTheBlockBackAndForgetsIt)
{
	char *const address = allocate(10);
	void *block = address;

	zorva_free_cleanup(&block);

	EXPECT_EQ(all_reports(), "");
	EXPECT_EQ(block, nullptr);
	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 0, 10, 1, 1 }));
	EXPECT_EQ(_pZorvaMallocMemList, nullptr);
	EXPECT_EQ(fake::heap_calls().back().block, address - header_size);
	EXPECT_TRUE(fake::heap_calls().back().at.may_sleep());
}

TEST_F(FreeCleanup, FreesABlockWithADamagedOwnerFromNobodysAccount)
{
	void *block = allocate(10);
	const zorva_mem_usage_t before = usage(owner);

	header(block)->compId = 57;
	zorva_free_cleanup(&block);

	EXPECT_EQ(all_reports(), "");
	EXPECT_EQ(block, nullptr);
	EXPECT_EQ(usage(owner), before);
	EXPECT_EQ(_pZorvaMallocMemList, nullptr);
	EXPECT_EQ(frees(), 1u);
}

TEST_F(FreeCleanup, MarksUnlinksAndCountsABlockUnderTheLock)
{
	retires_under_the_lock([](void *block) {
		zorva_free_cleanup(&block);
	});
}

TEST_F(FreeCleanup, MarksTheBlockAndKeepsItsLinks)
{
	char *const oldest = allocate(4);
	char *const middle = allocate(4);
	char *const newest = allocate(4);
	void *block = middle;

	zorva_free_cleanup(&block);

	fake::allow_access_to_freed(header(middle), header_size);
	EXPECT_EQ(header(middle)->startMagic, freed);
	EXPECT_EQ(header(middle)->inUse, 0u);
	EXPECT_EQ(header(middle)->magic, header_magic);
	EXPECT_EQ(header(middle)->prev, header(newest));
	EXPECT_EQ(header(middle)->next, header(oldest));
	EXPECT_EQ(listed(), (std::vector<void *>{ newest, oldest }));

	zorva_free_track(owner, newest, "caller.c", 8);
	zorva_free_track(owner, oldest, "caller.c", 8);
}

TEST_F(FreeCleanup, NeverWrapsTheUsage)
{
	void *block = allocate(10);

	usage(owner).currUsage = 3;
	zorva_free_cleanup(&block);

	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 3, 10, 1, 1 }));
}

TEST_F(FreeCleanup, DoesNotLookAtTheMagicOfTheHeader)
{
	void *block = allocate(10);

	header(block)->magic = 0;
	zorva_free_cleanup(&block);

	EXPECT_EQ(all_reports(), "");
	EXPECT_EQ(block, nullptr);
	EXPECT_EQ(usage(owner).freeCount, 1u);
}

TEST_F(FreeCleanup, RefusesAnyUseButOne)
{
	for (u32 use : { 0u, 2u, 0xFFFFFFFFu }) {
		void *block = allocate(10);
		void *const address = block;

		header(block)->inUse = use;
		const std::string before = bytes(block);
		zorva_free_cleanup(&block);

		EXPECT_EQ(last_report() + "\n",
			  cleanup_says(fake::format("Double free or invalid "
						    "memory detected: ptr=%px",
						    address)));
		EXPECT_EQ(block, address);
		EXPECT_EQ(bytes(block), before);
		leave(block);
	}

	EXPECT_EQ(reports().size(), 3u);
	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 30, 30, 3, 0 }));
	EXPECT_EQ(listed().size(), 3u);
	EXPECT_EQ(frees(), 0u);
	EXPECT_EQ(fake::log_text(), "");
}

TEST_F(FreeCleanup, RefusesAWrongStart)
{
	void *block = allocate(10);
	void *const address = block;

	header(block)->startMagic = alive + 1;
	const std::string before = bytes(block);
	zorva_free_cleanup(&block);

	EXPECT_EQ(all_reports(),
		  cleanup_says(fake::format("Double free or invalid memory "
					    "detected: ptr=%px",
					    address)));
	EXPECT_EQ(block, address);
	EXPECT_EQ(bytes(block), before);
	EXPECT_EQ(listed(), std::vector<void *>{ address });
	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 10, 10, 1, 0 }));
	EXPECT_EQ(frees(), 0u);

	leave(block);
}

TEST_F(FreeCleanup, RefusesABlockThatWasFreed)
{
	void *block = allocate(10);
	void *copy = block;

	zorva_free_cleanup(&block);
	fake::allow_access_to_freed(header(copy), header_size);
	void *const address = copy;
	zorva_free_cleanup(&copy);

	EXPECT_EQ(all_reports(),
		  cleanup_says(fake::format("Double free or invalid memory "
					    "detected: ptr=%px",
					    address)));
	EXPECT_EQ(copy, address);
	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 0, 10, 1, 1 }));
	EXPECT_EQ(frees(), 1u);
}

TEST_F(FreeCleanup, KeepsABlockWithATornGuard)
{
	char *const address = allocate(10);
	void *block = address;

	address[12] = 1;
	const std::string before = bytes(block);
	zorva_free_cleanup(&block);

	EXPECT_EQ(all_reports(),
		  cleanup_says(fake::format("Memory overflow detected before "
					    "free: ptr=%px",
					    address)));
	EXPECT_EQ(block, address);
	EXPECT_EQ(bytes(block), before);
	EXPECT_EQ(listed(), std::vector<void *>{ address });
	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 10, 10, 1, 0 }));
	EXPECT_EQ(frees(), 0u);

	leave(block);
}

TEST_F(FreeCleanup, ReportsADoubleFreeBeforeATornGuard)
{
	void *block = allocate(10);

	header(block)->inUse = 0;
	guard(block) = 0;
	zorva_free_cleanup(&block);

	EXPECT_EQ(all_reports(),
		  cleanup_says(fake::format("Double free or invalid memory "
					    "detected: ptr=%px",
					    block)));
	leave(block);
}

TEST_F(FreeCleanup, LooksForDamageAndReportsItUnderTheLockWithoutAStack)
{
	void *blocks[] = { allocate(10), allocate(10), allocate(10) };
	u32 *const words[] = { &header(blocks[0])->inUse,
			       &header(blocks[1])->startMagic,
			       &guard(blocks[2]) };
	u32 locked = 0;

	fake::after_spin_lock([&](const void *) {
		*words[locked++] = 0;
	});
	for (void *&block : blocks)
		zorva_free_cleanup(&block);

	ASSERT_EQ(reports().size(), 3u);
	for (const report &each : reports())
		EXPECT_TRUE(each.at.holds(&_mallocMemLck));
	EXPECT_EQ(fake::log_text(), "");

	for (void *block : blocks)
		leave(block);
}
