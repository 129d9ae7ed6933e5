// SPDX-License-Identifier: GPL-2.0
#include "symbols.h"

#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace zorva
{
namespace
{

constexpr char list[] = "zorva lines 1\n"
			"module fw_fdb 8\n"
			"file fw_fdb.c\n"
			"file fw_a_very_long_name.c\n"
			"function save 360\n"
			"0 0 262\n"
			"84 0 265\n"
			"124 0 271\n"
			"180 0 0\n"
			"function twice 16\n"
			"0 0 1\n"
			"function twice 16\n"
			"0 1 2\n";

bool any(std::string_view)
{
	return true;
}

code_lines read(std::string_view text)
{
	code_lines lines;

	read_lines("list", text, any, lines);
	return lines;
}

stack_frame frame(const char *symbol, uint64_t offset, uint64_t size)
{
	stack_frame one;

	one.symbol = symbol;
	one.offset = offset;
	one.size = size;
	one.module = "fw_fdb";
	return one;
}

std::string sites(const code_lines &lines, const stack_frame &of)
{
	std::string text;

	for (const site &one : call_sites(lines, of))
		text += fmt::format("{}:{} ", one.file, one.line);
	return text;
}

TEST(Lines, ComeFromTheAddressOfTheCallNotOfTheReturn)
{
	const code_lines lines = read(list);

	EXPECT_EQ(sites(lines, frame("save", 92, 360)), "fw_fdb.c:265 ");
	EXPECT_EQ(sites(lines, frame("save", 91, 360)), "fw_fdb.c:262 ");
	EXPECT_EQ(sites(lines, frame("save", 180, 360)), "fw_fdb.c:271 ");
}

TEST(Lines, AreNoneWhereThereIsNone)
{
	const code_lines lines = read(list);

	EXPECT_EQ(sites(lines, frame("save", 188, 360)), "");
	EXPECT_EQ(sites(lines, frame("save", 7, 360)), "");
	EXPECT_EQ(sites(lines, frame("load", 92, 360)), "");
}

TEST(Lines, OfAFunctionThatIsThereTwiceAreBoth)
{
	EXPECT_EQ(sites(read(list), frame("twice", 8, 16)),
		  "fw_fdb.c:1 fw_a_very_long_name.c:2 ");
}

TEST(Lines, OfAnotherBuildAreNotUsed)
{
	const code_lines lines = read(list);

	EXPECT_EQ(sites(lines, frame("save", 92, 364)), "");
	EXPECT_TRUE(is_other_build(lines, frame("save", 92, 364)));
	EXPECT_FALSE(is_other_build(lines, frame("save", 92, 360)));
}

TEST(Lines, TellWhatAFunctionCovers)
{
	const code_lines lines = read(list);

	EXPECT_TRUE(covers(lines, frame("save", 92, 360), { "fw_fdb.c", 271 }));
	EXPECT_FALSE(covers(lines, frame("save", 92, 360), { "fw_fdb.c", 1 }));
	EXPECT_FALSE(covers(lines, frame("save", 92, 360), { "other.c", 271 }));
}

TEST(Lines, KnowAFileByWhatAHistoryKeepsOfItsName)
{
	EXPECT_TRUE(same_file("fw_a_very_long_", "fw_a_very_long_name.c"));
	EXPECT_FALSE(same_file("fw_a_very", "fw_a_very_long_name.c"));
	EXPECT_TRUE(same_file("a.c", "a.c"));
}

TEST(Lines, AreReadAsTheyAreWritten)
{
	EXPECT_EQ(lines_text(read(list)), list);
}

TEST(Lines, AreReadOfWantedModulesOnly)
{
	code_lines lines;

	EXPECT_TRUE(read_lines(
		"list", std::string(list) + "module other 8\nwhatever\n",
		[](std::string_view name) {
			return name == "fw_fdb";
		},
		lines));
	ASSERT_EQ(lines.modules.size(), 1u);
}

TEST(Lines, ThatAreNoneAreNamed)
{
	for (const char *const text :
	     { "", "hello\n", "zorva lines 1\nx\n", "zorva lines 1\n0 0 0\n",
	       "zorva lines 1\nmodule m 0\n",
	       "zorva lines 1\nmodule m 8\n1 0 1\n",
	       "zorva lines 1\nmodule m 8\nfunction f 4\n0 0 1\n",
	       "zorva lines 1\nmodule m 8\nfile f\nfunction f 4\n4 0 1\n4 0 1\n",
	       "zorva lines 1\nmodule m 8\nfile f\nfunction f 99999999999999999999\n" }) {
		const code_lines lines = read(text);

		EXPECT_EQ(lines.problems.size(), 1u) << text;
	}
	EXPECT_EQ(read("zorva lines 1\nx\n").problems[0],
		  "list:2: is no list of lines");
}

/* Debug information, as this machine's own compiler makes it. */
class DebugInformation : public testing::Test {
protected:
	void SetUp() override
	{
		char name[] = "/tmp/zorva-lines.XXXXXX";

		ASSERT_TRUE(mkdtemp(name));
		dir_ = name;
	}

	void TearDown() override
	{
		run("rm -r " + dir_);
	}

	static int run(const std::string &command)
	{
		return system(command.c_str());
	}

	void write(const std::string &name, std::string_view text) const
	{
		FILE *file = fopen((dir_ + "/" + name).c_str(), "w");

		ASSERT_TRUE(file);
		fwrite(text.data(), 1, text.size(), file);
		fclose(file);
	}

	std::string dir_;
};

TEST_F(DebugInformation, OfARelocatableObjectIsRead)
{
	code_lines lines;

	/* Two sections, so that both begin at 0. */
	write("a.c", "void take(int);\n"
		     "void one(void) {\n"
		     "take(1);\n"
		     "take(2);\n"
		     "}\n"
		     "__attribute__((section(\".init.text\")))\n"
		     "void two(void) {\n"
		     "take(3);\n"
		     "take(4);\n"
		     "}\n");
	ASSERT_EQ(run("cd " + dir_ + " && gcc -g -O1 -c a.c -o a-b.ko"), 0);
	ASSERT_TRUE(load_lines(dir_, any, lines));

	ASSERT_EQ(lines.problems.size(), 0u);
	ASSERT_EQ(lines.modules.size(), 1u);
	EXPECT_EQ(lines.modules[0].name, "a_b");
	for (const char *const name : { "one", "two" }) {
		stack_frame at;
		std::string all;

		at.symbol = name;
		at.module = "a_b";
		for (at.offset = 1; at.offset < 64; ++at.offset)
			for (const site &one : call_sites(lines, at))
				all += fmt::format("{}:{} ", one.file,
						   one.line);
		EXPECT_NE(all.find(*name == 'o' ? "a.c:4" : "a.c:9"),
			  std::string::npos)
			<< all;
		EXPECT_EQ(all.find(*name == 'o' ? "a.c:9" : "a.c:4"),
			  std::string::npos)
			<< all;
	}
}

TEST_F(DebugInformation, ThatIsMissingIsNamed)
{
	code_lines lines;

	write("a.c", "void take(int); void one(void) { take(1); }\n");
	ASSERT_EQ(run("cd " + dir_ + " && gcc -c a.c -o a.ko"), 0);
	write("b.ko", "no object");
	write("c.ko", "");
	load_lines(dir_, any, lines);

	ASSERT_EQ(lines.problems.size(), 3u);
	EXPECT_EQ(lines.problems[0], dir_ + "/a.ko: has no debug information");
	EXPECT_EQ(lines.problems[1], dir_ + "/b.ko: is no kernel module");
	EXPECT_EQ(lines.problems[2], dir_ + "/c.ko: is no kernel module");
}

/* Any byte of an object may be wrong; none does harm. */
TEST_F(DebugInformation, ThatIsDamagedDoesNoHarm)
{
	std::string good;
	FILE *file;
	int c;

	write("a.c", "void take(int);\nvoid one(void) {\ntake(1);\n}\n");
	ASSERT_EQ(run("cd " + dir_ + " && gcc -g -c a.c -o a.ko"), 0);
	file = fopen((dir_ + "/a.ko").c_str(), "r");
	ASSERT_TRUE(file);
	while ((c = fgetc(file)) != EOF)
		good += static_cast<char>(c);
	fclose(file);
	for (size_t i = 0; i < good.size(); i += 7) {
		code_lines lines;
		std::string bad = good;

		bad[i] = static_cast<char>(bad[i] ^ (1 << (i % 8)));
		write("b.ko", bad);
		read_debug_information(dir_ + "/b.ko", "b", lines);
		EXPECT_EQ(lines.problems.size() + lines.modules.size(), 1u);
	}
}

TEST(Modules, ThatAreNotThereAreNamed)
{
	code_lines lines;

	EXPECT_FALSE(load_lines("/no/such/place", any, lines));
	ASSERT_EQ(lines.problems.size(), 1u);
	EXPECT_EQ(lines.problems[0],
		  "/no/such/place: No such file or directory");
}

} // namespace
} // namespace zorva
