// SPDX-License-Identifier: GPL-2.0
/* The link monitor on the developer's machine, with GoogleTest. */
#include "link.h"

#include <gtest/gtest.h>

#include <zorva/host_gtest.h>

namespace
{

u32 chip;

u32 read_chip()
{
	return chip;
}

} // namespace

TEST(Link, CountsThePortsThatAreUp)
{
	zorva::host::run([] {
		chip = 1 << 4 | 1 << 6;
		ASSERT_EQ(link_start(read_chip), 0);
		zorva_host_sleep(200000);

		EXPECT_EQ(link_ports_up(), 2u);

		link_stop();
	});
}

TEST(Link, CountsEachLossOnceInEveryOrder)
{
	zorva::host::explore(500, [] {
		chip = 1;
		ASSERT_EQ(link_start(read_chip), 0);
		zorva_host_sleep(100000);
		chip = 0;
		zorva_host_sleep(200000);

		EXPECT_EQ(link_losses(1), 1u);

		link_stop();
	});
}

TEST(Link, BearsTheLackOfMemory)
{
	zorva::host::sweep([] {
		if (!link_start(read_chip))
			link_stop();
	});
}
