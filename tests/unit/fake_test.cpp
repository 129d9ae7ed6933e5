// SPDX-License-Identifier: GPL-2.0
/* The fake kernel itself: that its checks bite, and that it does as told. */
#include "kernel_test.h"

#include <gtest/gtest-spi.h>
#include <string.h>

namespace
{

constexpr s64 sec = 1000000000;

class FakeKernel : public KernelTest {};
class FakeFormat : public KernelTest {};
class FakeSequenceFile : public KernelTest {};

} // namespace

TEST_F(FakeKernel, ForbidsASleepingAllocationInAtomicContext)
{
	void *block = nullptr;

	{
		const fake::interrupts_off off;
		EXPECT_NONFATAL_FAILURE(block = __kmalloc(8, GFP_KERNEL),
					"kmalloc(GFP_KERNEL) with interrupts "
					"off");
		kfree(block);
	}
	{
		const fake::soft_interrupt interrupt;
		EXPECT_NONFATAL_FAILURE(block = __kmalloc(8, GFP_KERNEL),
					"in interrupt context");
		kfree(block);
	}
	const unsigned long flags = zk_spin_lock_irqsave(&_mallocMemLck);
	EXPECT_NONFATAL_FAILURE(block = __kmalloc(8, GFP_KERNEL),
				"under a spin lock");
	kfree(block);
	block = __kmalloc(8, GFP_ATOMIC);
	kfree(block);
	zk_spin_unlock_irqrestore(&_mallocMemLck, flags);
}

TEST_F(FakeKernel, ForbidsUnknownAllocationFlags)
{
	void *block = nullptr;

	EXPECT_NONFATAL_FAILURE(block = __kmalloc(8, 0), "flags 0x0");
	kfree(block);
}

TEST_F(FakeKernel, ForbidsToTakeALockTwice)
{
	const unsigned long first = zk_spin_lock_irqsave(&_mallocMemLck);

	unsigned long second = 0;
	EXPECT_NONFATAL_FAILURE(second = zk_spin_lock_irqsave(&_mallocMemLck),
				"taking a spin lock that is held");

	zk_spin_unlock_irqrestore(&_mallocMemLck, second);
	zk_spin_unlock_irqrestore(&_mallocMemLck, first);
}

TEST_F(FakeKernel, ForbidsToGiveALockThatIsNotHeldOrWithOtherFlags)
{
	EXPECT_NONFATAL_FAILURE(zk_spin_unlock_irqrestore(&_mallocMemLck, 0),
				"not the last taken");

	zk_spin_lock_irqsave(&_mallocMemLck);
	EXPECT_NONFATAL_FAILURE(zk_spin_unlock_irqrestore(&_mallocMemLck, 0),
				"with flags of another");
}

TEST_F(FakeKernel, ForbidsToFreeABlockTwiceOrWhatIsNone)
{
	char byte;
	void *const block = __kmalloc(8, GFP_KERNEL);

	kfree(block);
	EXPECT_NONFATAL_FAILURE(kfree(block), "kfree of a free block");
	EXPECT_NONFATAL_FAILURE(kfree(&byte), "kfree of what is no block");
	kfree(nullptr);
}

TEST_F(FakeKernel, WatchesFreedBlocksAndKeepsTheirContents)
{
	char *const block = static_cast<char *>(__kmalloc(16, GFP_KERNEL));

	memcpy(block, "0123456789abcdef", 16);
	kfree(block);

	EXPECT_DEATH(*static_cast<volatile char *>(block) = 1,
		     "use-after-poison");
	fake::allow_access_to_freed(block, 8);
	EXPECT_EQ(std::string(block, 8), "01234567");
	EXPECT_DEATH(*static_cast<volatile char *>(block + 8) = 1,
		     "use-after-poison");
}

TEST_F(FakeKernel, WatchesTheBytesBehindABlock)
{
	char *const block = static_cast<char *>(__kmalloc(13, GFP_KERNEL));

	EXPECT_DEATH(*static_cast<volatile char *>(block + 13) = 1,
		     "heap-buffer-overflow");

	kfree(block);
}

TEST_F(FakeKernel, FillsBlocksWithGarbageUnlessToldToClearThem)
{
	char *const dirty = static_cast<char *>(__kmalloc(4, GFP_KERNEL));
	char *const clean =
		static_cast<char *>(__kmalloc(4, GFP_KERNEL | __GFP_ZERO));

	EXPECT_EQ(std::string(dirty, 4), "\xa5\xa5\xa5\xa5");
	EXPECT_EQ(std::string(clean, 4), std::string(4, '\0'));

	kfree(dirty);
	kfree(clean);
}

TEST_F(FakeKernel, FailsTheAllocationsThatATestAsksFor)
{
	fake::fail_allocation(2);
	void *const first = __kmalloc(8, GFP_KERNEL);
	void *const second = __kmalloc(8, GFP_KERNEL);
	fake::fail_allocations_above(8);
	void *const third = __kmalloc(9, GFP_KERNEL);
	void *const fourth = __kmalloc(8, GFP_KERNEL);

	EXPECT_NE(first, nullptr);
	EXPECT_EQ(second, nullptr);
	EXPECT_EQ(third, nullptr);
	EXPECT_NE(fourth, nullptr);
	EXPECT_EQ(fake::live_blocks(), 2u);

	kfree(first);
	kfree(fourth);
}

TEST_F(FakeKernel, EndsNoTestThatLeavesSomethingBehind)
{
	void *const block = __kmalloc(8, GFP_KERNEL);
	EXPECT_NONFATAL_FAILURE(KernelTest::TearDown(), "blocks are allocated");
	kfree(block);

	printk("x\n");
	EXPECT_NONFATAL_FAILURE(KernelTest::TearDown(),
				"not expected in the log: x");

	zorva_debug_pr_fn_register(record_report);
	zorva_debug_print(1, "a.c", "f", 1, "text");
	EXPECT_NONFATAL_FAILURE(KernelTest::TearDown(),
				"not expected: 1 a.c f: text");
	reports();

	{
		const fake::hard_interrupt interrupt;
		const unsigned long flags =
			zk_spin_lock_irqsave(&_mallocMemLck);
		::testing::TestPartResultArray failures;
		{
			const ::testing::ScopedFakeTestPartResultReporter
				catcher(::testing::ScopedFakeTestPartResultReporter::
						INTERCEPT_ONLY_CURRENT_THREAD,
					&failures);
			KernelTest::TearDown();
		}
		EXPECT_EQ(failures.size(), 3);
		zk_spin_unlock_irqrestore(&_mallocMemLck, flags);
	}
}

TEST_F(FakeKernel, RecordsOnlyReportsThatAreAsTheyMustBe)
{
	EXPECT_NONFATAL_FAILURE(record_report(8, -1, 1, "a.c", "f", 1, "%s",
					      "text"),
				"compId");
	EXPECT_NONFATAL_FAILURE(record_report(9, 0, 1, "a.c", "f", 1, "%s",
					      "text"),
				"unit");
	EXPECT_NONFATAL_FAILURE(record_report(9, -1, 2, "a.c", "f", 1, "%s",
					      "text"),
				"level 2");
	EXPECT_NONFATAL_FAILURE(record_report(9, -1, 1, "b/a.c", "f", 1, "%s",
					      "text"),
				"b/a.c");
	EXPECT_NONFATAL_FAILURE(record_report(9, -1, 1, "a.c", "f", 0, "%s",
					      "text"),
				"line");
	EXPECT_NONFATAL_FAILURE(record_report(9, -1, 1, "a.c", "f", 1, "text",
					      "text"),
				"format");
	EXPECT_NONFATAL_FAILURE(record_report(9, -1, 1, "a.c", "f", 1, "%s",
					      "text\n"),
				"ends_with");
	EXPECT_EQ(reports().size(), 7u);
}

TEST_F(FakeKernel, RunsItsClocksOffOneMonotonicClock)
{
	s64 secs;
	u32 nsecs;

	fake::set_uptime(5 * sec + 123456789, 2 * sec);
	zk_ktime_get_ts64(&secs, &nsecs);

	EXPECT_EQ(ktime_get_with_offset(TK_OFFS_BOOT), 5123456789);
	EXPECT_EQ(ktime_get_coarse_with_offset(TK_OFFS_BOOT), 5120000000);
	EXPECT_EQ(secs, 3);
	EXPECT_EQ(nsecs, 123456789u);
	EXPECT_NONFATAL_FAILURE(ktime_get_with_offset(TK_OFFS_REAL),
				"a clock other than");
}

TEST_F(FakeKernel, ReadsWordsFromAnywhere)
{
	char *const block = static_cast<char *>(__kmalloc(8, GFP_KERNEL));
	const u32 word = 0x12345678;

	memcpy(block + 1, &word, sizeof(word));

	EXPECT_EQ(zk_peek(block + 1), word);
	EXPECT_EQ(zk_peek(nullptr), 0u);
	EXPECT_EQ(zk_peek(reinterpret_cast<void *>(-2)), 0u);
	zk_peek(block + 8);
	kfree(block);
	EXPECT_EQ(zk_peek(block + 1), word);
	fake::set_word(block, 7);
	EXPECT_EQ(zk_peek(block), 7u);
}

TEST_F(FakeKernel, ClearsWhatItCannotCopyFromUserSpace)
{
	char text[6] = "#####";

	fake::fail_user_copy_after(2);
	const unsigned long left = zk_copy_from_user(text, "abcd", 4);

	EXPECT_EQ(left, 2u);
	EXPECT_EQ(std::string(text, 5), std::string("ab\0\0#", 5));
}

TEST_F(FakeKernel, TellsControlCharactersAsTheKernelDoes)
{
	for (int c = 0; c < 256; ++c)
		EXPECT_EQ(zk_iscntrl(static_cast<char>(c)) != 0,
			  c < 32 || c == 127)
			<< c;
}

TEST_F(FakeFormat, KnowsTheKernelsPointers)
{
	EXPECT_EQ(fake::format("%px", reinterpret_cast<void *>(0xAbc)),
		  "00000abc");
	EXPECT_EQ(fake::format("%px", nullptr), "00000000");
	EXPECT_EQ(fake::format("%p", &_mallocMemLck), "(ptrval)");
}

TEST_F(FakeFormat, HasWordsForTextsThatCannotBeRead)
{
	const char *const none = nullptr;

	EXPECT_EQ(fake::format("%s|%10s|%-8s|", none, none, none),
		  "(null)|    (null)|(null)  |");
	EXPECT_EQ(fake::format("%s %s", reinterpret_cast<char *>(1),
			       reinterpret_cast<char *>(-12)),
		  "(efault) (efault)");
}

TEST_F(FakeFormat, PrintsNumbersAsTheHostDoes)
{
	EXPECT_EQ(fake::format("%d %u %x %08X %5d|%-5d|%+d %#x", -1,
			       4000000000u, 0xabcu, 0xabcu, 42, 42, 42, 42),
		  "-1 4000000000 abc 00000ABC    42|42   |+42 0x2a");
	EXPECT_EQ(fake::format("%ld %lu %lld %016llu %zu %c%%", -1l, 1ul,
			       -(1ll << 40), 77ull, sizeof(int), 'c'),
		  "-1 1 -1099511627776 0000000000000077 4 c%");
	EXPECT_EQ(fake::format("%.*s|%*d|%.3s", 2, "abc", 4, 7, "abcdef"),
		  "ab|   7|abc");
}

TEST_F(FakeFormat, ForbidsWhatTheKernelDoesNotHave)
{
	EXPECT_NONFATAL_FAILURE(fake::format("%f", 1.0), "the conversion %f");
	EXPECT_NONFATAL_FAILURE(fake::format("%"), "the conversion %");
}

TEST_F(FakeFormat, CutsAndTellsTheWholeLength)
{
	char text[4] = { '#', '#', '#', '#' };

	EXPECT_EQ(kernel_snprintf(text, 3, "%s", "abcd"), 4);
	EXPECT_EQ(std::string(text, 4), std::string("ab\0#", 4));
	EXPECT_EQ(kernel_snprintf(text, 0, "%s", "xyz"), 3);
	EXPECT_EQ(text[0], 'a');
}
