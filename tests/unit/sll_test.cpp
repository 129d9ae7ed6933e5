// SPDX-License-Identifier: GPL-2.0
/* The singly linked list. */
#include "service_fixture.h"
#include "../../plat/common/sys_sll.h"

namespace
{

constexpr char no_memory_for_a_list[] =
	"\001csys_sll_init: allocate memory failed.\n";

class LinkedList : public ServiceTest {
protected:
	/* A list with so many nodes; each carries the address of its number. */
	sys_sll_t *make(size_t count)
	{
		sys_sll_t *const list = sys_sll_create(owner);

		for (size_t i = 0; i < count; ++i) {
			nodes.push_back(sys_sll_node_new(owner));
			nodes[i]->pData = &numbers[i];
			EXPECT_EQ(sys_sll_node_add(list, nodes[i]), ok);
		}
		return list;
	}

	/* The nodes in the order of the list. */
	static std::vector<sys_sll_node_t *> listed(const sys_sll_t *list)
	{
		std::vector<sys_sll_node_t *> found;

		for (auto *node = list->pFirst; node; node = node->pNext)
			found.push_back(node);
		return found;
	}

	static void dispose(sys_sll_t *list)
	{
		EXPECT_EQ(sys_sll_node_purge(list), ok);
		EXPECT_EQ(sys_sll_destroy(list), ok);
	}

	static zorva_mem_block_hdr_t *header(void *block)
	{
		return static_cast<zorva_mem_block_hdr_t *>(block) - 1;
	}

	std::vector<sys_sll_node_t *> nodes;
	int numbers[8];
};

using node_list = std::vector<sys_sll_node_t *>;

} // namespace

TEST_F(LinkedList, StartsEmptyAndBelongsToItsComponent)
{
	sys_sll_t *const list = sys_sll_create(owner);

	ASSERT_NE(list, nullptr);
	EXPECT_EQ(list->magic, 0xDEADBEEFu);
	EXPECT_EQ(list->count, 0u);
	EXPECT_EQ(list->compId, owner);
	EXPECT_EQ(list->pFirst, nullptr);
	EXPECT_EQ(list->pLast, nullptr);
	EXPECT_EQ(sizeof(*list), 20u);
	EXPECT_EQ(header(list)->size, 20u);
	EXPECT_EQ(header(list)->compId, owner);
	EXPECT_STREQ(header(list)->file, "sys_sll.cpp");

	EXPECT_EQ(sys_sll_destroy(list), ok);
}

TEST_F(LinkedList, IsRefusedSilentlyToAComponentOutside1To56)
{
	EXPECT_EQ(sys_sll_create(0), nullptr);
	EXPECT_EQ(sys_sll_create(57), nullptr);
	EXPECT_EQ(sys_sll_create(0xFFFFFFFF), nullptr);

	EXPECT_TRUE(fake::heap_calls().empty());
	EXPECT_EQ(all_reports(), "");
	EXPECT_EQ(fake::log_text(), "");
}

TEST_F(LinkedList, IsMadeForTheFirstAndTheLastComponent)
{
	sys_sll_t *const first = sys_sll_create(1);
	sys_sll_t *const last = sys_sll_create(56);

	ASSERT_NE(first, nullptr);
	ASSERT_NE(last, nullptr);
	EXPECT_EQ(last->compId, 56u);

	sys_sll_destroy(first);
	sys_sll_destroy(last);
}

TEST_F(LinkedList, IsNotMadeWithoutMemoryWhichTheLogTells)
{
	fake::fail_allocation(1);

	EXPECT_EQ(sys_sll_create(owner), nullptr);

	EXPECT_EQ(fake::log_text(),
		  std::string("<stack>\n") + no_memory_for_a_list);
	EXPECT_EQ(all_reports().find("1 zorva_mem.cpp zorva_malloc_track: "
				     "Memory allocation failed: 20 bytes "
				     "(sys_sll.cpp:"),
		  0u);
	EXPECT_EQ(reports().size(), 1u);
}

TEST_F(LinkedList, FreesItsHeadOnlyWhenDestroyed)
{
	sys_sll_t *const list = make(2);

	EXPECT_EQ(sys_sll_destroy(list), ok);

	EXPECT_EQ(tracked_blocks(), 2u);
	EXPECT_EQ(_zorvaMallocMemUsage[owner].currUsage, 16u);
	EXPECT_EQ(_zorvaMallocMemUsage[owner].freeCount, 1u);
	fake::allow_access_to_freed(&list->magic, sizeof(list->magic));
	EXPECT_EQ(list->magic, 0xDEADBEEFu);
	zorva_free_track(owner, nodes[0], "caller.c", 1);
	zorva_free_track(owner, nodes[1], "caller.c", 1);
}

TEST_F(LinkedList, IsFreedForTheComponentThatItNames)
{
	sys_sll_t *const list = make(1);
	list->compId = 0;

	EXPECT_EQ(sys_sll_node_purge(list), ok);
	EXPECT_EQ(sys_sll_destroy(list), ok);

	/* For component 0 nothing is freed. */
	EXPECT_EQ(tracked_blocks(), 2u);
	zorva_free_track(owner, nodes[0], "caller.c", 1);
	zorva_free_track(owner, list, "caller.c", 1);
}

TEST_F(LinkedList, RefusesEveryOperationWhenNull)
{
	sys_sll_node_t *const node = sys_sll_node_new(owner);

	EXPECT_EQ(sys_sll_destroy(nullptr), null_argument);
	EXPECT_EQ(sys_sll_node_add(nullptr, node), null_argument);
	EXPECT_EQ(sys_sll_node_delete(nullptr, node), null_argument);
	EXPECT_EQ(sys_sll_node_purge(nullptr), null_argument);
	EXPECT_EQ(sys_sll_node_get_first(nullptr), nullptr);
	EXPECT_EQ(sys_sll_node_get_next(nullptr, nullptr), nullptr);
	EXPECT_EQ(sys_sll_node_get_next(nullptr, node), nullptr);
	sys_sll_dump(nullptr);

	EXPECT_EQ(all_reports(), "");
	EXPECT_EQ(fake::log_text(), "");
	zorva_free_track(owner, node, "caller.c", 1);
}

TEST_F(LinkedList, RefusesEveryOperationWithoutItsMagic)
{
	sys_sll_t *const list = make(2);
	sys_sll_node_t *const node = sys_sll_node_new(owner);
	list->magic ^= 1;

	EXPECT_EQ(sys_sll_destroy(list), bad_value);
	EXPECT_EQ(sys_sll_node_add(list, node), bad_value);
	EXPECT_EQ(sys_sll_node_delete(list, nodes[0]), bad_value);
	EXPECT_EQ(sys_sll_node_purge(list), bad_value);
	EXPECT_EQ(sys_sll_node_get_first(list), nullptr);
	EXPECT_EQ(sys_sll_node_get_next(list, nullptr), nullptr);
	EXPECT_EQ(sys_sll_node_get_next(list, nodes[0]), nullptr);
	sys_sll_dump(list);

	EXPECT_EQ(fake::log_text(), "");
	list->magic ^= 1;
	EXPECT_EQ(listed(list), nodes);
	EXPECT_EQ(list->count, 2u);
	EXPECT_EQ(tracked_blocks(), 4u);
	zorva_free_track(owner, node, "caller.c", 1);
	dispose(list);
}

TEST_F(LinkedList, TestsForANullNodeBeforeItsMagic)
{
	sys_sll_t *const list = make(1);

	EXPECT_EQ(sys_sll_node_add(list, nullptr), null_argument);
	EXPECT_EQ(sys_sll_node_delete(list, nullptr), null_argument);
	list->magic = 0;
	EXPECT_EQ(sys_sll_node_add(list, nullptr), null_argument);
	EXPECT_EQ(sys_sll_node_delete(list, nullptr), null_argument);
	EXPECT_EQ(sys_sll_node_add(nullptr, nullptr), null_argument);

	list->magic = 0xDEADBEEF;
	EXPECT_EQ(list->count, 1u);
	dispose(list);
}

TEST_F(LinkedList, HasNewNodesThatAreEmptyAndBelongToTheirComponent)
{
	sys_sll_node_t *const node = sys_sll_node_new(other);

	ASSERT_NE(node, nullptr);
	EXPECT_EQ(node->pNext, nullptr);
	EXPECT_EQ(node->pData, nullptr);
	EXPECT_EQ(header(node)->size, 8u);
	EXPECT_EQ(header(node)->compId, other);
	EXPECT_STREQ(header(node)->file, "sys_sll.cpp");

	zorva_free_track(other, node, "caller.c", 1);
}

TEST_F(LinkedList, LeavesTheTestOfANodesComponentToTheAllocator)
{
	EXPECT_EQ(sys_sll_node_new(0), nullptr);
	EXPECT_EQ(sys_sll_node_new(57), nullptr);

	EXPECT_EQ(all_reports(),
		  "1 zorva_mem.cpp zorva_malloc_track: invalid parameter\n"
		  "1 zorva_mem.cpp zorva_malloc_track: invalid parameter\n");
}

TEST_F(LinkedList, HasNoNodeWithoutMemory)
{
	fake::fail_allocation(1);

	EXPECT_EQ(sys_sll_node_new(owner), nullptr);

	EXPECT_EQ(reports().size(), 1u);
	EXPECT_EQ(fake::log_text(), "<stack>\n");
}

TEST_F(LinkedList, AppendsNodesAtItsEnd)
{
	sys_sll_t *const list = make(3);

	EXPECT_EQ(listed(list), nodes);
	EXPECT_EQ(list->pFirst, nodes[0]);
	EXPECT_EQ(list->pLast, nodes[2]);
	EXPECT_EQ(list->count, 3u);

	dispose(list);
}

TEST_F(LinkedList, DoesNotWriteTheSuccessorOfANodeThatIsAppended)
{
	sys_sll_t *const list = sys_sll_create(owner);
	sys_sll_node_t node = { reinterpret_cast<sys_sll_node_t *>(0x1234),
				&numbers[0] };

	EXPECT_EQ(sys_sll_node_add(list, &node), ok);

	EXPECT_EQ(node.pNext, reinterpret_cast<sys_sll_node_t *>(0x1234));
	EXPECT_EQ(node.pData, &numbers[0]);
	sys_sll_destroy(list);
}

TEST_F(LinkedList, LetsANodeBeAppendedTwice)
{
	sys_sll_t *const list = make(1);

	EXPECT_EQ(sys_sll_node_add(list, nodes[0]), ok);

	EXPECT_EQ(list->count, 2u);
	EXPECT_EQ(nodes[0]->pNext, nodes[0]);
	nodes[0]->pNext = nullptr;
	dispose(list);
}

TEST_F(LinkedList, IsEmptyWithoutItsOnlyNode)
{
	sys_sll_t *const list = make(1);

	EXPECT_EQ(sys_sll_node_delete(list, nodes[0]), ok);

	EXPECT_EQ(list->pFirst, nullptr);
	EXPECT_EQ(list->pLast, nullptr);
	EXPECT_EQ(list->count, 0u);
	EXPECT_EQ(tracked_blocks(), 2u);
	zorva_free_track(owner, nodes[0], "caller.c", 1);
	dispose(list);
}

TEST_F(LinkedList, StartsWithTheSecondNodeWithoutItsFirst)
{
	sys_sll_t *const list = make(3);

	EXPECT_EQ(sys_sll_node_delete(list, nodes[0]), ok);

	EXPECT_EQ(listed(list), node_list({ nodes[1], nodes[2] }));
	EXPECT_EQ(list->pLast, nodes[2]);
	EXPECT_EQ(list->count, 2u);
	EXPECT_EQ(nodes[0]->pNext, nodes[1]);
	zorva_free_track(owner, nodes[0], "caller.c", 1);
	dispose(list);
}

TEST_F(LinkedList, ClosesTheGapOfANodeInTheMiddle)
{
	sys_sll_t *const list = make(3);

	EXPECT_EQ(sys_sll_node_delete(list, nodes[1]), ok);

	EXPECT_EQ(listed(list), node_list({ nodes[0], nodes[2] }));
	EXPECT_EQ(list->pLast, nodes[2]);
	EXPECT_EQ(list->count, 2u);
	EXPECT_EQ(nodes[1]->pNext, nodes[2]);
	zorva_free_track(owner, nodes[1], "caller.c", 1);
	dispose(list);
}

TEST_F(LinkedList, EndsWithTheNodeBeforeItsLast)
{
	sys_sll_t *const list = make(3);

	EXPECT_EQ(sys_sll_node_delete(list, nodes[2]), ok);

	EXPECT_EQ(listed(list), node_list({ nodes[0], nodes[1] }));
	EXPECT_EQ(list->pLast, nodes[1]);
	EXPECT_EQ(nodes[1]->pNext, nullptr);
	EXPECT_EQ(list->count, 2u);
	zorva_free_track(owner, nodes[2], "caller.c", 1);
	dispose(list);
}

TEST_F(LinkedList, IsNotChangedByDeletingANodeThatItDoesNotHave)
{
	sys_sll_t *const list = make(2);
	sys_sll_t *const empty = sys_sll_create(owner);
	sys_sll_node_t stranger = { nodes[0], nullptr };

	EXPECT_EQ(sys_sll_node_delete(list, &stranger), not_found);
	EXPECT_EQ(sys_sll_node_delete(empty, &stranger), not_found);

	EXPECT_EQ(listed(list), nodes);
	EXPECT_EQ(list->pLast, nodes[1]);
	EXPECT_EQ(list->count, 2u);
	EXPECT_EQ(empty->count, 0u);
	EXPECT_EQ(all_reports(), "");
	sys_sll_destroy(empty);
	dispose(list);
}

TEST_F(LinkedList, IsWalkedFromItsFirstNodeOrFromNone)
{
	sys_sll_t *const list = make(2);
	sys_sll_t *const empty = sys_sll_create(owner);
	sys_sll_node_t stranger = { nodes[1], nullptr };

	EXPECT_EQ(sys_sll_node_get_first(list), nodes[0]);
	EXPECT_EQ(sys_sll_node_get_next(list, nullptr), nodes[0]);
	EXPECT_EQ(sys_sll_node_get_next(list, nodes[0]), nodes[1]);
	EXPECT_EQ(sys_sll_node_get_next(list, nodes[1]), nullptr);
	EXPECT_EQ(sys_sll_node_get_next(list, &stranger), nodes[1]);
	EXPECT_EQ(sys_sll_node_get_first(empty), nullptr);
	EXPECT_EQ(sys_sll_node_get_next(empty, nullptr), nullptr);

	sys_sll_destroy(empty);
	dispose(list);
}

TEST_F(LinkedList, FreesAllItsNodesWhenPurged)
{
	sys_sll_t *const list = make(3);
	const size_t before = fake::heap_calls().size();

	EXPECT_EQ(sys_sll_node_purge(list), ok);

	EXPECT_EQ(fake::heap_calls().size() - before, 3u);
	EXPECT_EQ(_zorvaMallocMemUsage[owner].freeCount, 3u);
	EXPECT_EQ(list->count, 0u);
	EXPECT_EQ(list->pFirst, nullptr);
	EXPECT_EQ(list->pLast, nullptr);
	EXPECT_EQ(list->magic, 0xDEADBEEFu);
	sys_sll_destroy(list);
}

TEST_F(LinkedList, CountsDownByOneForEachNodeThatIsPurged)
{
	sys_sll_t *const list = make(3);
	list->count = 5;

	EXPECT_EQ(sys_sll_node_purge(list), ok);

	EXPECT_EQ(list->count, 2u);
	sys_sll_destroy(list);
}

TEST_F(LinkedList, IsPurgedWhenEmpty)
{
	sys_sll_t *const list = sys_sll_create(owner);

	EXPECT_EQ(sys_sll_node_purge(list), ok);

	EXPECT_EQ(list->count, 0u);
	sys_sll_destroy(list);
}

TEST_F(LinkedList, PrintsItselfIntoTheLogLineByLine)
{
	sys_sll_t *const list = make(2);
	nodes[0]->pData = nullptr;

	sys_sll_dump(list);

	texts lines;
	for (const fake::log_entry &entry : fake::kernel_log())
		lines.push_back(entry.text);
	EXPECT_EQ(lines, texts({ "\001cList (ptrval) count 2 (PORT)\n",
				 "\001c----------------------------\n",
				 "\001c[0] data: 00000000\n",
				 "\001c[1] data: (ptrval)\n", "\001c\n" }));
	dispose(list);
}

TEST_F(LinkedList, PrintsItselfWhenEmpty)
{
	sys_sll_t *const list = sys_sll_create(other);

	sys_sll_dump(list);

	EXPECT_EQ(fake::log_text(), "\001cList (ptrval) count 0 (VLAN)\n"
				    "\001c----------------------------\n"
				    "\001c\n");
	sys_sll_destroy(list);
}
