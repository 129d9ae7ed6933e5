// SPDX-License-Identifier: GPL-2.0
#include "print.h"
#include "units.h"

#include <gtest/gtest.h>

namespace zorva
{
namespace
{

TEST(Escaped, LeavesWhatIsSafe)
{
	EXPECT_EQ(escaped("fdb-learn (17), µs"), "fdb-learn (17), µs");
}

TEST(Escaped, ShowsWhatWouldMoveTheCursorOrHide)
{
	EXPECT_EQ(escaped("a\033[2Jb"), "a\\x1b[2Jb");
	EXPECT_EQ(escaped("a\nb\tc\x7f"), "a\\x0ab\\x09c\\x7f");
	EXPECT_EQ(escaped(std::string("\0", 1)), "\\x00");
	EXPECT_EQ(escaped("\xc2\x9b"), "\\u{9b}");
	EXPECT_EQ(escaped("\u202egnp"), "\\u{202e}gnp");
	EXPECT_EQ(escaped("a\\b"), "a\\\\b");
}

TEST(Escaped, ShowsBytesThatAreNoUtf8)
{
	EXPECT_EQ(escaped("\xff"), "\\xff");
	EXPECT_EQ(escaped("\xc0\xaf"), "\\xc0\\xaf");
	EXPECT_EQ(escaped("\xed\xa0\x80"), "\\xed\\xa0\\x80");
	EXPECT_EQ(escaped("\xe2\x82"), "\\xe2\\x82");
}

TEST(Escaped, CutsAtTheLimitAndSaysSo)
{
	EXPECT_EQ(escaped("abcdef", 6), "abcdef");
	EXPECT_EQ(escaped("abcdefg", 6), "abcdef...");
	EXPECT_EQ(escaped(std::string(1 << 20, 'x')).size(), 83u);
}

TEST(DotQuoted, LetsNoQuoteEndTheText)
{
	EXPECT_EQ(dot_quoted("a\"]; x"), "\"a\\\"]; x\"");
	EXPECT_EQ(dot_quoted("\\"), "\"\\\\\\\\\"");
}

TEST(JsonText, IsAlwaysValidUtf8)
{
	EXPECT_EQ(json_text("a\xff\n"), "a\\xff\n");
	EXPECT_EQ(json_text("µ"), "µ");
}

TEST(SizeText, HasUnitsPeopleRead)
{
	look.exact_bytes = false;
	EXPECT_EQ(size_text(0), "0 B");
	EXPECT_EQ(size_text(1023), "1023 B");
	EXPECT_EQ(size_text(1024), "1.0 KiB");
	EXPECT_EQ(size_text(1536), "1.5 KiB");
	EXPECT_EQ(size_text(1048575), "1.0 MiB");
	EXPECT_EQ(size_text(UINT64_MAX), "16.0 EiB");
	EXPECT_EQ(growth_text(-2048), "-2.0 KiB");
}

TEST(SizeText, IsExactWhenAskedFor)
{
	look.exact_bytes = true;
	EXPECT_EQ(size_text(1536), "1536");
	look.exact_bytes = false;
}

TEST(DurationText, HasTwoUnitsAtMost)
{
	EXPECT_EQ(duration_text(0), "0 s");
	EXPECT_EQ(duration_text(59), "59 s");
	EXPECT_EQ(duration_text(61), "1 min 1 s");
	EXPECT_EQ(duration_text(3600), "1 h");
	EXPECT_EQ(duration_text(3720), "1 h 2 min");
	EXPECT_EQ(duration_text(90000), "1 d 1 h");
}

TEST(TableText, AlignsItsColumns)
{
	const table of = { { { "NAME" }, { "N", true }, { "" } },
			   { { "µ", "1", "x" }, { "long", "12" } } };

	look.colours = false;
	EXPECT_EQ(table_text(of), "NAME   N\n"
				  "µ      1  x\n"
				  "long  12\n");
}

TEST(SecondsOf, TakesUnitsAndNothingElse)
{
	uint64_t seconds = 0;

	EXPECT_TRUE(seconds_of("90", seconds));
	EXPECT_EQ(seconds, 90u);
	EXPECT_TRUE(seconds_of("10m", seconds));
	EXPECT_EQ(seconds, 600u);
	EXPECT_TRUE(seconds_of("2d", seconds));
	EXPECT_EQ(seconds, 172800u);
	for (const char *wrong :
	     { "", "m", "-1", "10x", "10mm", "1 m", "99999999999999999999",
	       "999999999999999999d" })
		EXPECT_FALSE(seconds_of(wrong, seconds)) << wrong;
}

} // namespace
} // namespace zorva
