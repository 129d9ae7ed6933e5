// SPDX-License-Identifier: GPL-2.0
/*
 * The singly linked list. It relies on tracked memory being zero at its
 * allocation: a new node has neither a successor nor a payload.
 */
#include "sys_sll.h"

#include "zorva/components.h"
#include "zorva/mem.h"

/*
 * Where messages go that must appear even when nobody listens to reports. The
 * one prototype that is not compared with the kernel's: this directory is free
 * of the kernel's headers, and of the one that restates them.
 */
extern "C" int printk(const char *format, ...)
	__attribute__((format(printf, 1, 2)));

namespace
{

/* The mark of a line of the log that continues another one. */
#define CONTINUED "\001c"

bool is_list(const sys_sll_t *list)
{
	return list && list->magic == SYS_SLL_MAGIC;
}

/* What keeps an operation from working on a list, or ZORVA_RC_OK. */
u32 list_error(const sys_sll_t *list)
{
	if (!list)
		return ZORVA_RC_NULL_ARG;
	if (list->magic != SYS_SLL_MAGIC)
		return ZORVA_RC_BAD_VALUE;
	return ZORVA_RC_OK;
}

/* The same for an operation on a list and a node. */
u32 node_error(const sys_sll_t *list, const sys_sll_node_t *node)
{
	if (!list || !node)
		return ZORVA_RC_NULL_ARG;
	return list_error(list);
}

} // namespace

sys_sll_t *sys_sll_create(u32 compId)
{
	if (compId - 1 >= ZORVA_COMPONENTS - 1)
		return nullptr;

	auto *const list = static_cast<sys_sll_t *>(
		zorva_malloc(compId, sizeof(sys_sll_t)));

	if (!list) {
		printk(CONTINUED "sys_sll_init: allocate memory failed.\n");
		return nullptr;
	}
	list->compId = compId;
	list->magic = SYS_SLL_MAGIC;
	return list;
}

u32 sys_sll_destroy(sys_sll_t *list)
{
	const u32 error = list_error(list);

	if (error)
		return error;
	zorva_free(list->compId, list);
	return ZORVA_RC_OK;
}

void sys_sll_dump(const sys_sll_t *list)
{
	if (!is_list(list))
		return;

	u32 number = 0;

	printk(CONTINUED "List %p count %u (%s)\n", list, list->count,
	       _componentName[list->compId]);
	printk(CONTINUED "----------------------------\n");
	for (const sys_sll_node_t *node = list->pFirst; node;
	     node = node->pNext)
		printk(CONTINUED "[%u] data: %p\n", number++, node->pData);
	printk(CONTINUED "\n");
}

sys_sll_node_t *sys_sll_node_new(u32 compId)
{
	return static_cast<sys_sll_node_t *>(
		zorva_malloc(compId, sizeof(sys_sll_node_t)));
}

u32 sys_sll_node_add(sys_sll_t *list, sys_sll_node_t *node)
{
	const u32 error = node_error(list, node);

	if (error)
		return error;
	if (!list->pFirst)
		list->pFirst = node;
	if (list->pLast)
		list->pLast->pNext = node;
	list->pLast = node;
	++list->count;
	return ZORVA_RC_OK;
}

u32 sys_sll_node_delete(sys_sll_t *list, sys_sll_node_t *node)
{
	const u32 error = node_error(list, node);

	if (error)
		return error;

	sys_sll_node_t *previous = nullptr;
	sys_sll_node_t *found = list->pFirst;

	while (found && found != node) {
		previous = found;
		found = found->pNext;
	}
	if (!found)
		return ZORVA_RC_NOT_FOUND;

	if (previous)
		previous->pNext = node->pNext;
	if (list->pLast == node)
		list->pLast = previous;
	if (list->pFirst == node)
		list->pFirst = node->pNext;
	--list->count;
	return ZORVA_RC_OK;
}

sys_sll_node_t *sys_sll_node_get_first(const sys_sll_t *list)
{
	return is_list(list) ? list->pFirst : nullptr;
}

sys_sll_node_t *sys_sll_node_get_next(const sys_sll_t *list,
				      const sys_sll_node_t *node)
{
	if (!is_list(list))
		return nullptr;
	return node ? node->pNext : list->pFirst;
}

u32 sys_sll_node_purge(sys_sll_t *list)
{
	const u32 error = list_error(list);

	if (error)
		return error;

	sys_sll_node_t *node = list->pFirst;

	while (node) {
		sys_sll_node_t *const next = node->pNext;

		zorva_free(list->compId, node);
		--list->count;
		node = next;
	}
	list->pFirst = nullptr;
	list->pLast = nullptr;
	return ZORVA_RC_OK;
}
