// SPDX-License-Identifier: GPL-2.0
/* Text output and the bounded copies. */
#include "kernel_test.h"
#include "zorva_text.h"
#include "zorva_lkm.h"
#include "zorva_mem.h"

#include <string.h>
#include <sys/mman.h>

namespace
{

constexpr u32 self = ZORVA_COMPONENT_SELF;

class ProcPrintf : public ModuleTest {};
class BoundedCopy : public KernelTest {};
class BoundedAppend : public KernelTest {};
class CopyText : public KernelTest {};
class CopyFile : public KernelTest {};
class NameObject : public KernelTest {};

/* Four bytes that a copy must not go beyond, and no zero among them. */
struct small_buffer {
	char text[4] = { '#', '#', '#', '#' };

	std::string bytes() const
	{
		return std::string(text, sizeof(text));
	}
};

} // namespace

TEST_F(ProcPrintf, PrintsIntoAReportFile)
{
	zorva_init();
	fake::proc_file file("zorva/zorva.mem");
	const size_t before = fake::heap_calls().size();

	zorva_proc_printf(file.seq(), "%s=%d\n", "x", 5);

	ASSERT_EQ(fake::seq_prints().size(), 1u);
	EXPECT_EQ(fake::seq_prints()[0].text, "x=5\n");
	EXPECT_EQ(fake::heap_calls().size(), before);
	EXPECT_EQ(fake::log_text(), "");
}

TEST_F(ProcPrintf, WithoutAFileContinuesTheKernelsLog)
{
	zorva_proc_printf(nullptr, "x=%d\n", 5);

	EXPECT_EQ(fake::log_text(), "\001cx=5\n");
	ASSERT_EQ(fake::kernel_log().size(), 1u);
}

TEST_F(ProcPrintf, HandsAllArgumentsToTheLog)
{
	zorva_proc_printf(nullptr, "%s %u %llu %px|", "text", 7u, 8ull,
			  reinterpret_cast<void *>(0xabc));

	EXPECT_EQ(fake::log_text(), "\001ctext 7 8 00000abc|");
}

TEST_F(ProcPrintf, DoesNotReadAPercentSignOfTheArgumentsAgain)
{
	zorva_proc_printf(nullptr, "%s%%\n", "100%d%n");

	EXPECT_EQ(fake::log_text(), "\001c100%d%n%\n");
}

TEST_F(ProcPrintf, PrintsAnEmptyFormatAsTheBarePrefix)
{
	zorva_proc_printf(nullptr, "%s", "");

	EXPECT_EQ(fake::log_text(), "\001c");
}

TEST_F(ProcPrintf, TakesItsBufferFromTheModulesOwnAccountAndGivesItBack)
{
	zorva_proc_printf(nullptr, "x=%d\n", 5);

	EXPECT_EQ(_zorvaMallocMemUsage[self].currUsage, 0u);
	EXPECT_EQ(_zorvaMallocMemUsage[self].maxUsage, 5u + 33u);
	EXPECT_EQ(_zorvaMallocMemUsage[self].allocCount, 1u);
	EXPECT_EQ(_zorvaMallocMemUsage[self].freeCount, 1u);
	EXPECT_EQ(fake::log_text(), "\001cx=5\n");
}

TEST_F(ProcPrintf, KeepsABufferThatIsOverflowed)
{
	fake::before_spin_unlock([](const void *) {
		if (_pZorvaMallocMemList)
			*guard_of(_pZorvaMallocMemList) = 0;
	});

	zorva_proc_printf(nullptr, "x\n");

	EXPECT_EQ(all_reports(),
		  fake::format("1 zorva_mem.cpp zorva_free_cleanup: Memory "
			       "overflow detected before free: ptr=%px\n",
			       _pZorvaMallocMemList + 1));
	EXPECT_EQ(fake::log_text(), "\001cx\n");
	fake::leave_allocated(_pZorvaMallocMemList);
}

TEST_F(ProcPrintf, PrintsNothingWithoutMemory)
{
	fake::fail_allocation(1);

	zorva_proc_printf(nullptr, "x=%d\n", 5);

	EXPECT_EQ(fake::log_text(), "<stack>\n");
	ASSERT_EQ(reports().size(), 1u);
	EXPECT_TRUE(last_report().starts_with(
		"1 zorva_mem.cpp zorva_malloc_track: Memory allocation failed: "
		"38 bytes (zorva_lib.cpp:"))
		<< last_report();
	EXPECT_EQ(_zorvaMallocMemUsage[self].freeCount, 0u);
}

TEST_F(ProcPrintf, MayBeCalledWithInterruptsOff)
{
	const fake::interrupts_off off;

	zorva_proc_printf(nullptr, "x\n");

	EXPECT_EQ(fake::log_text(), "\001cx\n");
	EXPECT_TRUE(fake::current_context().interrupts_off);
}

TEST_F(BoundedCopy, CutsTheTextAndReturnsItsWholeLength)
{
	small_buffer dst;

	const u32 length = zorva_strlcpy(dst.text, "abcdef", 4);

	EXPECT_EQ(length, 6u);
	EXPECT_EQ(dst.bytes(), std::string("abc\0", 4));
}

TEST_F(BoundedCopy, LeavesABufferOfNoBytesAlone)
{
	small_buffer dst;

	const u32 length = zorva_strlcpy(dst.text, "abcdef", 0);

	EXPECT_EQ(length, 6u);
	EXPECT_EQ(dst.bytes(), "####");
}

TEST_F(BoundedCopy, NeedsNoBufferForASizeOfZero)
{
	EXPECT_EQ(zorva_strlcpy(nullptr, "abc", 0), 3u);
}

TEST_F(BoundedCopy, PutsOnlyTheEndIntoOneByte)
{
	small_buffer dst;

	const u32 length = zorva_strlcpy(dst.text, "abcdef", 1);

	EXPECT_EQ(length, 6u);
	EXPECT_EQ(dst.bytes(), std::string("\0###", 4));
}

TEST_F(BoundedCopy, CopiesATextThatJustFits)
{
	small_buffer dst;

	const u32 length = zorva_strlcpy(dst.text, "abc", 4);

	EXPECT_EQ(length, 3u);
	EXPECT_EQ(dst.bytes(), std::string("abc\0", 4));
}

TEST_F(BoundedCopy, CutsATextThatIsOneTooLong)
{
	small_buffer dst;

	const u32 length = zorva_strlcpy(dst.text, "abcd", 4);

	EXPECT_EQ(length, 4u);
	EXPECT_EQ(dst.bytes(), std::string("abc\0", 4));
}

TEST_F(BoundedCopy, WritesNothingBehindTheEndOfAShortText)
{
	small_buffer dst;

	const u32 length = zorva_strlcpy(dst.text, "a", 4);

	EXPECT_EQ(length, 1u);
	EXPECT_EQ(dst.bytes(), std::string("a\0##", 4));
}

TEST_F(BoundedCopy, CopiesAnEmptyText)
{
	small_buffer dst;

	const u32 length = zorva_strlcpy(dst.text, "", 4);

	EXPECT_EQ(length, 0u);
	EXPECT_EQ(dst.bytes(), std::string("\0###", 4));
}

TEST_F(BoundedAppend, CutsTheSecondTextAndReturnsTheWholeLength)
{
	char dst[4] = "ab";

	const u32 length = strlcat(dst, "cd", 4);

	EXPECT_EQ(length, 4u);
	EXPECT_STREQ(dst, "abc");
}

TEST_F(BoundedAppend, AppendsATextThatJustFits)
{
	char dst[5] = "ab";

	const u32 length = strlcat(dst, "cd", 5);

	EXPECT_EQ(length, 4u);
	EXPECT_STREQ(dst, "abcd");
}

TEST_F(BoundedAppend, WritesNothingIntoABufferWithoutAnEnd)
{
	small_buffer dst;

	const u32 length = strlcat(dst.text, "cde", 4);

	EXPECT_EQ(length, 4u + 3u);
	EXPECT_EQ(dst.bytes(), "####");
}

TEST_F(BoundedAppend, WritesNothingIntoABufferOfNoBytes)
{
	small_buffer dst;

	const u32 length = strlcat(dst.text, "cde", 0);

	EXPECT_EQ(length, 3u);
	EXPECT_EQ(dst.bytes(), "####");
}

TEST_F(BoundedAppend, HasNoRoomBehindATextThatFillsTheBuffer)
{
	char dst[4] = "abc";

	const u32 length = strlcat(dst, "de", 4);

	EXPECT_EQ(length, 5u);
	EXPECT_STREQ(dst, "abc");
}

TEST_F(BoundedAppend, AppendsToAnEmptyText)
{
	small_buffer dst;

	dst.text[0] = '\0';
	const u32 length = strlcat(dst.text, "a", 4);

	EXPECT_EQ(length, 1u);
	EXPECT_EQ(dst.bytes(), std::string("a\0##", 4));
}

TEST_F(BoundedAppend, AppendsAnEmptyText)
{
	char dst[4] = "ab";

	const u32 length = strlcat(dst, "", 4);

	EXPECT_EQ(length, 2u);
	EXPECT_STREQ(dst, "ab");
}

/* The promise of copy_text: what the kernel's snprintf would have written. */
TEST_F(CopyText, WritesWhatTheKernelsSnprintfWrites)
{
	for (const char *text : { "", "a", "ab", "abc", "abcd", "abcde" }) {
		for (u32 size = 1; size <= 6; ++size) {
			char copied[8], printed[8];

			memset(copied, '#', sizeof(copied));
			memset(printed, '#', sizeof(printed));
			copy_text(copied, text, size);
			kernel_snprintf(printed, size, "%s", text);

			EXPECT_EQ(std::string(copied, 8),
				  std::string(printed, 8))
				<< text << ", " << size;
		}
	}
}

TEST_F(CopyText, HasTheKernelsWordForANullText)
{
	char text[16];

	copy_text(text, nullptr, sizeof(text));

	EXPECT_STREQ(text, "(null)");
}

TEST_F(CopyText, CutsTheKernelsWordToo)
{
	char text[5];

	copy_text(text, nullptr, sizeof(text));

	EXPECT_STREQ(text, "(nul");
}

TEST_F(CopyText, HasTheKernelsWordForTheFirstPageAndForErrors)
{
	for (uintptr_t address : { 1ul, 0xffful, -1ul, -0xffful }) {
		char text[16];

		copy_text(text, reinterpret_cast<const char *>(address),
			  sizeof(text));

		EXPECT_STREQ(text, "(efault)") << address;
	}
}

TEST_F(CopyFile, KeepsFifteenCharactersAndTheEnd)
{
	const std::string name = "abcdefghijklmnopqrst";
	alignas(4) char text[32];
	struct {
		alignas(4) char file[16];
		char behind[4];
	} kept;

	/* A text at a word's address is copied in another way. */
	for (u32 offset = 0; offset < 4; ++offset) {
		for (u32 length = 0; length <= 20; ++length) {
			memset(text, 'z', sizeof(text));
			memset(&kept, '#', sizeof(kept));
			strcpy(text + offset, name.substr(0, length).c_str());
			copy_file(kept.file, text + offset);

			EXPECT_EQ(std::string(kept.file),
				  name.substr(0, length).substr(0, 15))
				<< length << " characters at " << offset;
			EXPECT_EQ(std::string(kept.behind, 4), "####");
		}
	}
}

TEST_F(CopyFile, DoesNotReadBeyondThePageOfTheText)
{
	const size_t page = 4096;
	void *const pages = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE,
				 MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
	alignas(4) char kept[16];

	ASSERT_NE(pages, MAP_FAILED);
	char *const end = static_cast<char *>(pages) + page;
	ASSERT_EQ(mprotect(end, page, PROT_NONE), 0);
	/* Ends of the text in each byte of the last word of the page. */
	for (u32 rest = 0; rest < 4; ++rest) {
		for (u32 length = 0; length < 20; ++length) {
			const std::string text(length, 'x');
			char *const start = end - rest - length - 1;

			memset(end - 32, 'z', 32);
			strcpy(start, text.c_str());
			copy_file(kept, start);

			EXPECT_STREQ(kept, text.substr(0, 15).c_str());
		}
	}
}

TEST_F(CopyFile, KeepsBytesOfEveryValue)
{
	for (int byte = 1; byte < 256; ++byte) {
		const std::string name(15, static_cast<char>(byte));
		alignas(4) char text[16];
		alignas(4) char kept[16];

		strcpy(text, name.c_str());
		copy_file(kept, text);

		EXPECT_EQ(std::string(kept), name) << byte;
	}
}

TEST_F(CopyFile, HasTheKernelsWordsForTextsThatCannotBeRead)
{
	alignas(4) char kept[16];

	copy_file(kept, nullptr);
	EXPECT_STREQ(kept, "(null)");

	copy_file(kept, reinterpret_cast<const char *>(8));
	EXPECT_STREQ(kept, "(efault)");

	copy_file(kept, reinterpret_cast<const char *>(-4));
	EXPECT_STREQ(kept, "(efault)");
}

TEST_F(NameObject, KeepsThirtyOneCharactersOfAGivenName)
{
	const std::string given = "0123456789012345678901234567890123456789";

	for (u32 length : { 0u, 5u, 31u, 32u, 40u }) {
		char name[33];

		memset(name, '#', sizeof(name));
		name_object(reinterpret_cast<char(&)[32]>(name),
			    given.substr(0, length).c_str(), 9, 42);

		EXPECT_EQ(std::string(name),
			  given.substr(0, length).substr(0, 31));
		EXPECT_EQ(name[32], '#');
	}
}

TEST_F(NameObject, MakesANameOfTheOwnerAndTheCallersLine)
{
	char name[32];

	name_object(name, nullptr, 9, 42);
	EXPECT_STREQ(name, "ZORVA-42");

	name_object(name, nullptr, 11, 0xFFFFFFFF);
	EXPECT_STREQ(name, "PORT-4294967295");
}
