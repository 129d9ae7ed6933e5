// SPDX-License-Identifier: GPL-2.0
/* The component tables, and what the compiler says of wrong ones. */
#include "kernel_test.h"
#include "zorva_comp.h"

#include <fstream>
#include <sstream>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr u32 rows = 58;

class ComponentTables : public KernelTest {};

/* Lists of components, made from the module's own and compiled. */
class ComponentList : public KernelTest {
protected:
	void SetUp() override
	{
		KernelTest::SetUp();
		std::stringstream text;
		text << std::ifstream(ZORVA_COMPONENTS_DEF).rdbuf();
		list = text.str();
		ASSERT_NE(list, "");
	}

	/* Replaces a text that is there exactly once. */
	void replace(const std::string &before, const std::string &after)
	{
		const size_t at = list.find(before);

		ASSERT_NE(at, std::string::npos) << before;
		ASSERT_EQ(list.find(before, at + 1), std::string::npos)
			<< before;
		list.replace(at, before.size(), after);
	}

	/* True when the module's tables can be compiled from the list. */
	bool compiles()
	{
		std::string path = ::testing::TempDir() + "components.XXXXXX";
		const int fd = mkstemp(path.data());

		if (fd < 0)
			throw std::runtime_error("no temporary file");
		close(fd);
		std::ofstream(path) << list;

		const std::string command =
			std::string(ZORVA_COMPILE_MODULE) +
			" -fsyntax-only '-DZORVA_COMPONENT_LIST=\"" + path +
			"\"' " + ZORVA_MODULE_DIR + "/zorva_comp.cpp 2>&1";
		FILE *const pipe = popen(command.c_str(), "r");
		char part[4096];

		while (const size_t got = fread(part, 1, sizeof(part), pipe))
			said.append(part, got);
		const int status = pclose(pipe);
		unlink(path.c_str());
		return WIFEXITED(status) && WEXITSTATUS(status) == 0;
	}

	/* True when the compiler refuses the list, and says this of it. */
	::testing::AssertionResult refused(const std::string &message)
	{
		if (compiles())
			return ::testing::AssertionFailure() << "it compiles";
		if (said.find("error: " + message) == std::string::npos)
			return ::testing::AssertionFailure() << said;
		return ::testing::AssertionSuccess();
	}

	std::string list;
	std::string said;
};

constexpr char wrong_count[] =
	"static assertion failed: "
	"the list of components must have 58 rows, 0 to 57";
constexpr char wrong_order[] =
	"static assertion failed: "
	"the rows of the list must be in the order of their IDs";
constexpr char wrong_name[] =
	"static assertion failed: "
	"short names have 1 to 7 upper-case letters or digits";

} // namespace

TEST_F(ComponentTables, NameTheEndsAndTheModuleItself)
{
	EXPECT_STREQ(_componentName[0], "FIRST");
	EXPECT_STREQ(_componentName[9], "ZORVA");
	EXPECT_STREQ(_componentName[57], "LAST");
}

TEST_F(ComponentTables, DescribeTheEndsAndTheModuleItself)
{
	EXPECT_STREQ(_componentDesc[0], "First");
	EXPECT_STREQ(_componentDesc[9], "ZORVA");
	EXPECT_STREQ(_componentDesc[57], "LAST");
}

TEST_F(ComponentTables, HaveRowsForAllIdsAndBothEnds)
{
	EXPECT_EQ(sizeof(_componentName), rows * sizeof(char *));
	EXPECT_EQ(sizeof(_componentDesc), rows * sizeof(char *));
	EXPECT_EQ(_numOfCompName, rows);
	EXPECT_EQ(_numOfCompDesc, rows);
}

TEST_F(ComponentTables, FollowTheListOfComponents)
{
	EXPECT_STREQ(_componentName[ZORVA_COMP_PORT], "PORT");
	EXPECT_STREQ(_componentDesc[ZORVA_COMP_PORT], "Port control");
	EXPECT_EQ(ZORVA_COMP_PORT, 11);
	EXPECT_STREQ(_componentName[56], "DIAG");
}

TEST_F(ComponentTables, HaveShortNamesOfUpTo7LettersOrDigits)
{
	for (u32 i = 0; i < rows; ++i) {
		const std::string name = _componentName[i];

		EXPECT_GE(name.size(), 1u) << i;
		EXPECT_LE(name.size(), 7u) << i;
		EXPECT_EQ(name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ"
						 "0123456789"),
			  std::string::npos)
			<< name;
		EXPECT_STRNE(_componentDesc[i], "") << i;
	}
}

TEST_F(ComponentTables, NameAtMost5SubComponentsOfARow)
{
	EXPECT_EQ(sizeof(_subComponentName), 57 * 32 * sizeof(char *));
	for (u32 i = 0; i < 57; ++i) {
		const auto &names = _subComponentName.names[i];
		u32 used = 0;

		while (names[used])
			++used;

		EXPECT_LE(used, 5u) << i;
		for (u32 j = used; j < 32; ++j)
			EXPECT_EQ(names[j], nullptr) << i << ", " << j;
	}
}

TEST_F(ComponentTables, HoldTheSubComponentsOfTheList)
{
	const auto &names = _subComponentName.names[ZORVA_COMP_PORT];

	EXPECT_STREQ(names[0], "LINK");
	EXPECT_STREQ(names[1], "SPEED");
	EXPECT_STREQ(names[2], "STATS");
	EXPECT_EQ(names[3], nullptr);
}

TEST_F(ComponentTables, NameNoSubComponentsOfTheFirstRowAndOfTheModule)
{
	EXPECT_EQ(_subComponentName.names[0][0], nullptr);
	EXPECT_EQ(_subComponentName.names[9][0], nullptr);
}

TEST_F(ComponentTables, LetTheIds1To56OwnSomething)
{
	EXPECT_FALSE(valid_owner(0));
	for (u32 id = 1; id <= 56; ++id)
		EXPECT_TRUE(valid_owner(id)) << id;
	EXPECT_FALSE(valid_owner(57));
	EXPECT_FALSE(valid_owner(58));
	EXPECT_FALSE(valid_owner(0xFFFFFFFF));
}

TEST_F(ComponentList, OfTheModuleCompiles)
{
	EXPECT_TRUE(compiles()) << said;
	EXPECT_EQ(said, "");
}

TEST_F(ComponentList, MayHaveOtherNamesAndUpTo32SubComponents)
{
	std::string names;

	for (int i = 0; i < 32; ++i)
		names += ", \"" + std::to_string(i) + "\"";
	replace("ZORVA_COMPONENT(2, CFG, \"Configuration store\")",
		"ZORVA_COMPONENT(2, ABCDE77, \"x\"" + names + ")");

	EXPECT_TRUE(compiles()) << said;
}

TEST_F(ComponentList, IsRefusedWithARowMissing)
{
	replace("ZORVA_COMPONENT(56, DIAG, \"Self-test and diagnostics\")\n",
		"");

	EXPECT_TRUE(refused(wrong_count));
}

TEST_F(ComponentList, IsRefusedWithARowTooMany)
{
	list += "ZORVA_COMPONENT(58, MORE, \"More\")\n";

	EXPECT_TRUE(refused(wrong_count));
}

TEST_F(ComponentList, IsRefusedWithRowsOutOfOrder)
{
	replace("(3, LOG,", "(4, LOG,");
	replace("(4, CLI,", "(3, CLI,");

	EXPECT_TRUE(refused(wrong_order));
}

TEST_F(ComponentList, IsRefusedWithAnIdTwice)
{
	replace("(3, LOG,", "(2, LOG,");

	EXPECT_TRUE(refused(wrong_order));
}

TEST_F(ComponentList, IsRefusedWithANameOf8Characters)
{
	replace(" LOG,", " LOGGINGS,");

	EXPECT_TRUE(refused(wrong_name));
}

TEST_F(ComponentList, IsRefusedWithAnotherIdInTheFirstRow)
{
	replace("(0, FIRST,", "(1, FIRST,");

	EXPECT_TRUE(refused(wrong_order));
}

/* They stand next to the letters and the digits. */
TEST_F(ComponentList, IsRefusedWithNamesThatHaveOtherCharacters)
{
	const std::string good = list;

	for (const char *other : { "@", "[", "/", ":" }) {
		SCOPED_TRACE(other);
		list = good;
		said = "";

		replace(" LOG,", std::string(" L") + other + "G,");

		EXPECT_TRUE(refused(wrong_name));
	}
}

TEST_F(ComponentList, IsRefusedWithANameInLowerCase)
{
	replace(" LOG,", " LOg,");

	EXPECT_TRUE(refused(wrong_name));
}

TEST_F(ComponentList, IsRefusedWithANameWithAnUnderscore)
{
	replace(" LOG,", " L_G,");

	EXPECT_TRUE(refused(wrong_name));
}

TEST_F(ComponentList, IsRefusedWithoutAName)
{
	replace(" LOG,", " ,");

	EXPECT_TRUE(refused(wrong_name));
}

TEST_F(ComponentList, IsRefusedWithAnotherFirstRow)
{
	replace(" FIRST,", " FRONT,");

	EXPECT_TRUE(refused("static assertion failed: row 0 is FIRST, "
			    "\"First\", without sub-components"));
}

TEST_F(ComponentList, IsRefusedWithAnotherFirstDescription)
{
	replace("\"First\"", "\"FIRST\"");

	EXPECT_TRUE(refused("static assertion failed: row 0 is FIRST, "
			    "\"First\", without sub-components"));
}

TEST_F(ComponentList, IsRefusedWithSubComponentsOfTheFirstRow)
{
	replace("\"First\"", "\"First\", \"SUB\"");

	EXPECT_TRUE(refused("static assertion failed: row 0 is FIRST, "
			    "\"First\", without sub-components"));
}

TEST_F(ComponentList, IsRefusedWithAnotherNameForTheModule)
{
	replace(" ZORVA,", " ZORVB,");

	EXPECT_TRUE(refused("static assertion failed: row 9 is ZORVA, "
			    "\"ZORVA\", without sub-components"));
}

TEST_F(ComponentList, IsRefusedWithAnotherDescriptionOfTheModule)
{
	replace("\"ZORVA\"", "\"Zorva\"");

	EXPECT_TRUE(refused("static assertion failed: row 9 is ZORVA, "
			    "\"ZORVA\", without sub-components"));
}

TEST_F(ComponentList, IsRefusedWithSubComponentsOfTheModule)
{
	replace("\"ZORVA\"", "\"ZORVA\", \"SUB\"");

	EXPECT_TRUE(refused("static assertion failed: row 9 is ZORVA, "
			    "\"ZORVA\", without sub-components"));
}

TEST_F(ComponentList, IsRefusedWithAnotherLastRow)
{
	replace(" LAST,", " END,");

	EXPECT_TRUE(refused("static assertion failed: row 57 is LAST, "
			    "\"LAST\", without sub-components"));
}

TEST_F(ComponentList, IsRefusedWithAnotherLastDescription)
{
	replace("\"LAST\"", "\"Last\"");

	EXPECT_TRUE(refused("static assertion failed: row 57 is LAST, "
			    "\"LAST\", without sub-components"));
}

TEST_F(ComponentList, IsRefusedWithSubComponentsOfTheLastRow)
{
	replace("\"LAST\"", "\"LAST\", \"SUB\"");

	EXPECT_TRUE(refused("static assertion failed: row 57 is LAST, "
			    "\"LAST\", without sub-components"));
}

TEST_F(ComponentList, IsRefusedWithMoreThan32SubComponents)
{
	std::string names;

	for (int i = 0; i < 33; ++i)
		names += ", \"" + std::to_string(i) + "\"";
	replace("\"Configuration store\"", "\"Configuration store\"" + names);

	EXPECT_TRUE(refused("too many initializers"));
}
