// SPDX-License-Identifier: GPL-2.0
#include "memory.h"

#include <gtest/gtest.h>

namespace zorva
{
namespace
{

/* A moment whose blocks are all of one place. */
model moment(uint64_t now, const std::vector<block> &blocks)
{
	model made;
	memory_detail &of = made.blocks;

	of.state.present = of.state.whole = true;
	of.state.now = now;
	of.sites = { { "a.c", 1 }, { "b.c", 2 } };
	of.components.resize(1);
	of.components[0].name = "PORT";
	of.components[0].delta = static_cast<uint32_t>(blocks.size());
	of.blocks = blocks;
	return made;
}

block at(uint64_t address, uint64_t time, uint32_t size, uint32_t site = 0)
{
	block one;

	one.address = address;
	one.time = time;
	one.size = size;
	one.site = site;
	return one;
}

TEST(GroupBlocks, AddsUpWhatIsOfOnePlace)
{
	const model now =
		moment(100, { at(1, 90, 10), at(2, 40, 30), at(3, 99, 5, 1) });
	const auto groups = group_blocks(now.blocks, grouping::by_site);

	ASSERT_EQ(groups.size(), 2u);
	EXPECT_EQ(groups[0].from.file, "a.c");
	EXPECT_EQ(groups[0].bytes, 40u);
	EXPECT_EQ(groups[0].blocks, 2u);
	EXPECT_EQ(groups[0].oldest, 60u);
	EXPECT_EQ(groups[0].youngest, 10u);
	EXPECT_EQ(groups[1].bytes, 5u);
}

TEST(GroupBlocks, LeavesOutWhatIsYounger)
{
	const model now = moment(100, { at(1, 90, 10), at(2, 40, 30) });
	const auto groups = group_blocks(now.blocks, grouping::by_size, 60);

	ASSERT_EQ(groups.size(), 1u);
	EXPECT_EQ(groups[0].low, 30u);
}

TEST(Compare, TellsWhatOnlyGrowsFromWhatGoesUpAndDown)
{
	const model a = moment(0, { at(1, 0, 10), at(2, 0, 5, 1) });
	const model b = moment(3600, { at(1, 0, 10), at(3, 1, 10) });
	const model c = moment(7200, { at(1, 0, 10), at(3, 1, 10),
				       at(4, 4000, 10), at(5, 4000, 6, 1) });
	const comparison found = compare({ &a, &b, &c });

	ASSERT_EQ(found.grown.size(), 2u);
	EXPECT_EQ(found.grown[0].from.file, "a.c");
	EXPECT_TRUE(found.grown[0].only_up());
	EXPECT_EQ(found.grown[0].more_bytes(), 20);
	EXPECT_EQ(found.grown[0].more_blocks(), 2);
	EXPECT_EQ(found.grown[0].freed, 0u);
	EXPECT_EQ(found.grown[0].oldest, 7200u);
	EXPECT_EQ(found.grown[0].cost(), 20 + 2 * 56);
	EXPECT_EQ(found.grown[1].from.file, "b.c");
	EXPECT_FALSE(found.grown[1].only_up());
	EXPECT_EQ(found.grown[1].freed, 1u);
}

TEST(Compare, FallsBackOnTheComponents)
{
	model a, b;

	a.memory.state.present = b.memory.state.present = true;
	a.memory.components.resize(1);
	a.memory.components[0].name = "PORT";
	b.memory.components = a.memory.components;
	b.memory.components[0].current = 100;
	b.memory.components[0].delta = 2;
	a.uptime_ms = 1000;
	b.uptime_ms = 61000;

	const comparison found = compare({ &a, &b });

	EXPECT_FALSE(found.by_site);
	ASSERT_EQ(found.grown.size(), 1u);
	EXPECT_EQ(found.grown[0].more_bytes(), 100);
	EXPECT_EQ(found.seconds(), 60u);
}

TEST(FindDamage, NamesTheBlockBelow)
{
	model now = moment(9, { at(0x1034, 0, 60), at(0x8034, 0, 8) });
	torn_block torn;

	torn.header = 0x1080;
	now.blocks.torn.push_back(torn);
	torn.header = 0x9000;
	now.blocks.torn.push_back(torn);
	torn.header = 0x9080;
	now.blocks.torn.push_back(torn);

	const auto found = find_damage(now.blocks);

	ASSERT_EQ(found.size(), 3u);
	EXPECT_EQ(found[0].below, &now.blocks.blocks[0]);
	EXPECT_EQ(found[0].distance, 0x80u);
	EXPECT_TRUE(found[0].adjacent);
	EXPECT_EQ(found[1].below, &now.blocks.blocks[1]);
	EXPECT_FALSE(found[1].adjacent);
	EXPECT_EQ(found[2].torn_below, &now.blocks.torn[1]);
	EXPECT_TRUE(found[2].adjacent);
}

TEST(FindDamage, HasNoNeighbourForTheLowest)
{
	model now = moment(9, {});

	now.blocks.torn.emplace_back();

	const auto found = find_damage(now.blocks);

	ASSERT_EQ(found.size(), 1u);
	EXPECT_FALSE(found[0].below);
	EXPECT_FALSE(found[0].torn_below);
	EXPECT_FALSE(found[0].adjacent);
}

TEST(FindMismatches, CountsWhatIsListed)
{
	model now = moment(9, { at(1, 0, 1), at(2, 0, 1) });

	EXPECT_TRUE(find_mismatches(now.blocks).empty());
	now.blocks.components[0].delta = 3;
	ASSERT_EQ(find_mismatches(now.blocks).size(), 1u);
	EXPECT_EQ(find_mismatches(now.blocks)[0].listed, 2u);
	now.blocks.state.cut = true;
	EXPECT_TRUE(find_mismatches(now.blocks).empty());
}

} // namespace
} // namespace zorva
