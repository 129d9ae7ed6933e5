// SPDX-License-Identifier: GPL-2.0
#include "html.h"
#include "picture.h"

#include <gtest/gtest.h>

namespace zorva
{
namespace
{

size_t count_of(const std::string &text, std::string_view part)
{
	size_t count = 0;

	for (size_t at = 0; (at = text.find(part, at)) != text.npos;
	     at += part.size())
		++count;
	return count;
}

TEST(Html, HasNoMeaningInWhatWasRead)
{
	EXPECT_EQ(html("<a href=\"x\">&'\x1b\x7f"),
		  "&lt;a href=&quot;x&quot;&gt;&amp;&#39;\\x1b\\x7f");
}

TEST(Html, WritesAHashAsAPolicyHasIt)
{
	EXPECT_EQ(base64_of_hex(""), "");
	EXPECT_EQ(base64_of_hex("66"), "Zg==");
	EXPECT_EQ(base64_of_hex("666f"), "Zm8=");
	EXPECT_EQ(base64_of_hex("666f6f"), "Zm9v");
	EXPECT_EQ(base64_of_hex("deadbeef"), "3q2+7w==");
}

TEST(Html, SaysWhatATableLeavesOut)
{
	const html_table table = { "Queues",
				   { { "Name" }, { "Room", true } },
				   { { { "a" }, number_cell(3) } },
				   7,
				   "more queues are" };
	const std::string text = html_of(table);

	EXPECT_NE(text.find("<td>a</td><td class=\"n\" data-v=\"3\">3</td>"),
		  text.npos);
	EXPECT_NE(text.find("7 more queues are not shown."), text.npos);
}

block_group place(const char *component, const char *file, uint64_t bytes)
{
	block_group one;

	one.component = component;
	one.from = { file, 1 };
	one.bytes = bytes;
	one.blocks = 1;
	return one;
}

TEST(Picture, OfMemoryHasAnAreaForEachPlace)
{
	const std::string text = memory_picture({ place("FDB", "a.c", 600),
						  place("PORT", "b.c", 300),
						  place("FDB", "c.c", 100) });

	EXPECT_EQ(count_of(text, "<rect class=\"owner\""), 2u);
	EXPECT_EQ(count_of(text, "<rect"), 5u);
	EXPECT_NE(text.find("<title>FDB: 700 B</title>"), text.npos);
	EXPECT_NE(text.find("<title>PORT b.c:1: 300 B</title>"), text.npos);
}

TEST(Picture, OfManyPlacesOfOneOwnerIsShort)
{
	std::vector<block_group> many(100000, place("FDB", "<b>.c", 50));
	const std::string text = memory_picture(many);

	EXPECT_LT(text.size(), 20000u);
	EXPECT_NE(text.find("99960 more places"), text.npos);
	EXPECT_EQ(text.find("<b>"), text.npos);
}

TEST(Picture, OfNothingIsNone)
{
	EXPECT_EQ(memory_picture({}), "");
	EXPECT_EQ(memory_picture({ place("FDB", "a.c", 0) }), "");
	EXPECT_EQ(growth_picture({ 5 }, {}), "");
	EXPECT_EQ(growth_picture({ 5, 5 }, { { "a", { 0, 1 } } }), "");
	EXPECT_EQ(waits_picture({}), "");
}

TEST(Picture, OfGrowthHasALineForEachComponent)
{
	const std::string text =
		growth_picture({ 0, 10, 20 }, { { "A", { 0, 100, 200 } },
						{ "B", { 0, -5, -9 } } });

	/* Once in the picture, once in its legend. */
	EXPECT_EQ(count_of(text, "class=\"line l0\""), 2u);
	EXPECT_EQ(count_of(text, "class=\"line l1\""), 2u);
	EXPECT_NE(text.find("A +200 B"), text.npos);
	EXPECT_NE(text.find("B -9 B"), text.npos);
	EXPECT_NE(text.find("20 s later"), text.npos);
}

/* Two threads, each with a lock that the other wants. */
class WaitsPicture : public testing::Test {
protected:
	WaitsPicture()
	{
		for (size_t i = 0; i < 2; ++i) {
			locks_[i].mutex = locks_[i].taken = true;
			locks_[i].name = i ? "<lag>" : "stp";
			add_actor(i ? "lag-update" : "stp-update", 1 - i);
		}
		for (size_t i = 0; i < 2; ++i) {
			lock_state state;

			state.which = &locks_[i];
			state.waiters = { 1 - i };
			state.holders = { { i, { true, {} } } };
			waits_.locks.push_back(std::move(state));
		}
	}

	void add_actor(const char *name, size_t lock)
	{
		actor one;

		one.name = name;
		one.pid = static_cast<int64_t>(50 + waits_.actors.size());
		one.kind = wait_kind::mutex;
		one.lock = lock;
		one.sure.proven = true;
		waits_.actors.push_back(std::move(one));
	}

	void make_deadlock()
	{
		waits_.deadlocks.push_back(
			{ { { 0, 1, 1 }, { 1, 0, 0 } }, true, 5 });
	}

	lock locks_[2];
	waits waits_;
};

TEST_F(WaitsPicture, OfADeadlockIsAClosedCircle)
{
	make_deadlock();

	const std::string text = waits_picture(waits_);

	EXPECT_EQ(count_of(text, "class=\"box thread stuck\""), 2u);
	EXPECT_EQ(count_of(text, "class=\"box lock stuck\""), 2u);
	EXPECT_EQ(count_of(text, "class=\"arrow stuck\""), 4u);
	EXPECT_NE(text.find("mutex &#39;&lt;lag&gt;&#39;"), text.npos);
}

TEST_F(WaitsPicture, LeavesOutWhatIsTooMuch)
{
	for (size_t i = 0; i < 1000; ++i)
		add_actor("more", 0);

	const std::string text = waits_picture(waits_);

	EXPECT_LE(count_of(text, "class=\"box"), 62u);
	EXPECT_NE(text.find("more threads that wait are not shown"), text.npos);
}

} // namespace
} // namespace zorva
