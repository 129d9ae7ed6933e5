// SPDX-License-Identifier: GPL-2.0
/* The list against a model, with arguments that are null or of no list. */
#include "input.h"
#include "life.h"

#include "../../plat/common/sys_sll.h"
#include "zorva/components.h"
#include "zorva/mem.h"

namespace
{

constexpr u32 owner = 3;
constexpr size_t most_nodes = 20;

void check_list(const sys_sll_t *list,
		const std::vector<sys_sll_node_t *> &nodes)
{
	const sys_sll_node_t *at = nullptr;

	EXPECT_EQ(list->count, nodes.size());
	EXPECT_EQ(list->pFirst, nodes.empty() ? nullptr : nodes.front());
	EXPECT_EQ(list->pLast, nodes.empty() ? nullptr : nodes.back());
	for (const sys_sll_node_t *node : nodes) {
		at = sys_sll_node_get_next(list, at);
		EXPECT_EQ(at, node);
	}
	if (!nodes.empty()) {
		EXPECT_EQ(sys_sll_node_get_next(list, nodes.back()), nullptr);
	}
	EXPECT_EQ(sys_sll_node_get_first(list), list->pFirst);
}

/* All calls on a list that is none: null, or without its marker. */
void check_refusals(sys_sll_t *list, u32 result)
{
	sys_sll_node_t node = {};

	EXPECT_EQ(sys_sll_node_add(list, &node), result);
	EXPECT_EQ(sys_sll_node_delete(list, &node), result);
	EXPECT_EQ(sys_sll_node_purge(list), result);
	EXPECT_EQ(sys_sll_destroy(list), result);
	EXPECT_EQ(sys_sll_node_get_first(list), nullptr);
	EXPECT_EQ(sys_sll_node_get_next(list, &node), nullptr);
	sys_sll_dump(list);
}

} // namespace

void fuzz_list(const u8 *bytes, size_t size)
{
	life::begin();

	input in(bytes, size);
	std::vector<sys_sll_node_t *> nodes;
	std::vector<sys_sll_node_t *> loose;
	sys_sll_t *const list = sys_sll_create(owner);

	ASSERT_NE(list, nullptr);
	EXPECT_EQ(sys_sll_create(0), nullptr);
	EXPECT_EQ(sys_sll_create(ZORVA_COMPONENTS), nullptr);
	while (!in.empty()) {
		const u32 what = in.below(8);
		const u32 which = in.byte();

		if (what == 0 && loose.size() + nodes.size() < most_nodes) {
			sys_sll_node_t *const node = sys_sll_node_new(owner);

			ASSERT_NE(node, nullptr);
			EXPECT_EQ(node->pData, nullptr);
			loose.push_back(node);
		} else if (what <= 2 && !loose.empty()) {
			const auto node = loose.begin() + which % loose.size();

			/* A node that was taken out keeps its link. */
			(*node)->pNext = nullptr;
			EXPECT_EQ(sys_sll_node_add(list, *node), ZORVA_RC_OK);
			nodes.push_back(*node);
			loose.erase(node);
		} else if (what <= 4 && !nodes.empty()) {
			const auto node = nodes.begin() + which % nodes.size();

			EXPECT_EQ(sys_sll_node_delete(list, *node),
				  ZORVA_RC_OK);
			loose.push_back(*node);
			nodes.erase(node);
		} else if (what == 5 && !loose.empty()) {
			EXPECT_EQ(sys_sll_node_delete(list,
						      loose[which %
							    loose.size()]),
				  ZORVA_RC_NOT_FOUND);
			EXPECT_EQ(sys_sll_node_add(list, nullptr),
				  ZORVA_RC_NULL_ARG);
			EXPECT_EQ(sys_sll_node_delete(list, nullptr),
				  ZORVA_RC_NULL_ARG);
		} else if (what == 6) {
			check_refusals(nullptr, ZORVA_RC_NULL_ARG);
			list->magic ^= 1 + which;
			check_refusals(list, ZORVA_RC_BAD_VALUE);
			list->magic ^= 1 + which;
		} else if (what == 7 && which < 32) {
			EXPECT_EQ(sys_sll_node_purge(list), ZORVA_RC_OK);
			nodes.clear();
		}
		check_list(list, nodes);
	}
	sys_sll_dump(list);
	EXPECT_EQ(sys_sll_node_purge(list), ZORVA_RC_OK);
	for (sys_sll_node_t *node : loose)
		zorva_free(owner, node);
	EXPECT_EQ(sys_sll_destroy(list), ZORVA_RC_OK);
	life::end(life::leftovers::forbidden);
}
