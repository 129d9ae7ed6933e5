// SPDX-License-Identifier: GPL-2.0
#include "top.h"

#include <gtest/gtest.h>

namespace zorva
{
namespace
{

component_usage usage(const char *name, uint32_t bytes, uint32_t blocks)
{
	component_usage one;

	one.name = name;
	one.current = one.max = bytes;
	one.allocs = one.delta = blocks;
	return one;
}

queue queue_of(const char *name, int64_t depth, uint32_t room)
{
	queue one;

	one.name = name;
	one.component = "FDB";
	one.depth = one.max_seen = depth;
	one.max_depth = room;
	return one;
}

model switch_at(uint64_t seconds)
{
	model now;

	now.uptime_ms = seconds * 1000;
	now.memory.state.present = now.memory.state.whole = true;
	now.memory.components = { usage("PORT", 1000, 3),
				  usage("VLAN", 3000, 1) };
	now.queues.state.present = now.queues.state.whole = true;
	now.queues.queues = { queue_of("empty", 0, 8), queue_of("full", 8, 8) };
	return now;
}

/* A mutex that was taken at 5 s and is still held. */
void hold(model &now)
{
	lock_report &report = now.locks[0];
	lock one;
	lock_call call;

	call.time = 5;
	call.from = { "fw_fdb.c", 192 };
	one.mutex = one.taken = true;
	one.index = 1;
	one.name = "fdb";
	one.component = "FDB";
	one.locker_pid = 40;
	one.locker_name = "fdb-save";
	one.history = { call };
	report.state.present = report.state.whole = true;
	report.locks = { one };
}

bool has(const std::vector<top_line> &lines, std::string_view text)
{
	for (const top_line &one : lines)
		if (one.text.find(text) != std::string::npos)
			return true;
	return false;
}

const top_line *line_with(const std::vector<top_line> &lines,
			  std::string_view text)
{
	for (const top_line &one : lines)
		if (one.text.find(text) != std::string::npos)
			return &one;
	return nullptr;
}

TEST(Top, FillsAScreenOfAnySizeAndNoMore)
{
	top_screen screen;

	screen.update(switch_at(60));
	for (const size_t lines : { 0, 1, 2, 3, 24, 200 })
		for (const size_t columns : { 0, 1, 20, 80, 300 }) {
			const auto shown = screen.frame({}, lines, columns);

			EXPECT_EQ(shown.size(), lines);
			for (const top_line &one : shown)
				EXPECT_EQ(one.text.size(), columns);
		}
}

TEST(Top, ShowsTheLargestFirstAndSumsThemUp)
{
	top_screen screen;

	screen.update(switch_at(60));

	const auto shown = screen.frame({}, 24, 80);

	EXPECT_EQ(shown[0].text.substr(0, 42),
		  "zorva top  up 1 min  3.9 KiB in memory  0 ");
	EXPECT_EQ(shown[2].text.substr(0, 4), "VLAN");
	EXPECT_EQ(shown[3].text.substr(0, 4), "PORT");
}

TEST(Top, MarksWhatHasGrownSinceTheFirstLook)
{
	top_screen screen;
	model later = switch_at(3660);
	top_view view;

	screen.update(switch_at(60));
	later.memory.components[0].current += 2048;
	screen.update(later);
	view.order = top_order::by_growth;

	const auto shown = screen.frame(view, 24, 80);

	EXPECT_EQ(shown[2].text.substr(0, 4), "PORT");
	EXPECT_NE(shown[2].text.find("+2.0 KiB"), std::string::npos);
	EXPECT_NE(shown[2].text.find("+2.0 KiB/h"), std::string::npos);
	EXPECT_EQ(shown[2].how, style::warn);
	EXPECT_EQ(shown[3].how, style::plain);
}

TEST(Top, SaysWhoHoldsAMutexForHowLong)
{
	top_screen screen;
	model now = switch_at(65);

	hold(now);
	screen.update(now);

	const auto shown = screen.frame({}, 24, 80);
	const top_line *held = line_with(shown, "mutex fdb");

	EXPECT_TRUE(has(shown, "1 mutex held"));
	ASSERT_TRUE(held);
	EXPECT_NE(held->text.find("1 min"), std::string::npos);
	EXPECT_NE(held->text.find("fdb-save (40)"), std::string::npos);
	EXPECT_EQ(held->how, style::bad);
}

TEST(Top, MarksAFullQueue)
{
	top_screen screen;

	screen.update(switch_at(60));

	const auto shown = screen.frame({}, 24, 80);

	EXPECT_TRUE(has(shown, "1 queue full"));
	EXPECT_EQ(line_with(shown, "FULL")->how, style::bad);
	EXPECT_EQ(line_with(shown, "empty")->how, style::plain);
}

TEST(Top, ShowsOnlyNamesWithTheFilterInThem)
{
	top_screen screen;
	top_view view;

	screen.update(switch_at(60));
	view.filter = "POR";

	const auto shown = screen.frame(view, 24, 80);

	EXPECT_TRUE(has(shown, "PORT"));
	EXPECT_FALSE(has(shown, "VLAN"));
	EXPECT_FALSE(has(shown, "QUEUE"));
}

TEST(Top, KeepsTheSelectedRowInSight)
{
	top_screen screen;
	model now = switch_at(60);
	top_view view;

	now.memory.components.clear();
	for (int i = 0; i < 50; ++i)
		now.memory.components.push_back(
			usage(("C" + std::to_string(100 + i)).c_str(), 1000,
			      1));
	screen.update(now);
	view.order = top_order::by_name;
	screen.move(view, 1);
	EXPECT_EQ(view.selected, "component C100");
	screen.move(view, 40);

	const auto shown = screen.frame(view, 24, 80);
	const top_line *selected = line_with(shown, "C140");

	ASSERT_TRUE(selected);
	EXPECT_TRUE(selected->selected);
	screen.move(view, 1000);
	EXPECT_EQ(view.selected, "queue 0 full");
	screen.move(view, -1000);
	EXPECT_EQ(view.selected, "component C100");
	screen.next_section(view);
	EXPECT_EQ(view.selected, "queue 0 empty");
	screen.next_section(view);
	EXPECT_EQ(view.selected, "component C100");
}

TEST(Top, LooksIntoARowAndSaysWhenItIsGone)
{
	top_screen screen;
	model now = switch_at(65);
	top_view view;

	hold(now);
	screen.update(now);
	view.selected = "lock true 1";
	view.looking = true;
	EXPECT_TRUE(
		has(screen.frame(view, 24, 80), "take at 5 s  fw_fdb.c:192"));
	screen.update(switch_at(66));
	EXPECT_TRUE(has(screen.frame(view, 24, 80), "It is gone."));
}

TEST(Top, KnowsWhereMemoryGoesOnlyAfterTheDetailedReport)
{
	top_screen screen;
	model now = switch_at(60);
	top_view view;

	screen.update(now);
	EXPECT_FALSE(screen.has_sites());
	view.selected = "component PORT";
	view.looking = true;
	EXPECT_TRUE(has(screen.frame(view, 24, 80), "press d"));

	now.blocks.state.present = now.blocks.state.whole = true;
	now.blocks.state.now = 60;
	now.blocks.components = { usage("PORT", 1000, 1) };
	now.blocks.sites = { { "fw_port.c", 153 } };
	now.blocks.blocks.resize(1);
	now.blocks.blocks[0].size = 1000;
	now.blocks.blocks[0].time = 10;
	screen.update(now);
	EXPECT_TRUE(screen.has_sites());
	EXPECT_TRUE(has(screen.frame(view, 24, 80), "fw_port.c:153"));
	/* The next look is without it; what was read stays. */
	screen.update(switch_at(62));
	EXPECT_TRUE(screen.has_sites());
}

TEST(Top, EscapesWhatWasRead)
{
	top_screen screen;
	model now = switch_at(60);

	now.memory.components[0].name = "\x1b[2J";
	now.queues.queues[0].name = "a\x07\x9b\n";
	screen.update(now);
	for (const top_line &one : screen.frame({}, 24, 80))
		for (const char c : one.text)
			EXPECT_GE(static_cast<unsigned char>(c), ' ');
}

} // namespace
} // namespace zorva
