/* SPDX-License-Identifier: GPL-2.0 */
/*
 * A singly linked list of payload pointers, with a head record.
 *
 * Head and nodes are tracked blocks of one component; the payload is the
 * user's own. The list has no lock: whoever shares one serialises its calls.
 */
#ifndef SYS_SLL_H
#define SYS_SLL_H

#include "zorva/types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define SYS_SLL_MAGIC 0xDEADBEEFu

typedef struct sys_sll_node {
	struct sys_sll_node *pNext;
	void *pData;
} sys_sll_node_t;

typedef struct sys_sll {
	u32 magic; /* SYS_SLL_MAGIC in a valid list */
	u32 count;
	u32 compId;
	sys_sll_node_t *pFirst;
	sys_sll_node_t *pLast;
} sys_sll_t;

/*
 * The results are ZORVA_RC_OK; ZORVA_RC_NULL_ARG for a null list or node;
 * ZORVA_RC_BAD_VALUE for a list without its magic; ZORVA_RC_NOT_FOUND.
 */

/* Makes an empty list; null for an ID outside 1 to 56, and without memory. */
sys_sll_t *sys_sll_create(u32 compId);

/* Frees the head, not the nodes: purge the list first. */
u32 sys_sll_destroy(sys_sll_t *list);

/* Prints the list into the kernel log. */
void sys_sll_dump(const sys_sll_t *list);

/* Makes a node without payload, in no list; null without memory. */
sys_sll_node_t *sys_sll_node_new(u32 compId);

/*
 * Appends a node that is in no list; nothing stops it from being added twice.
 * Its link must be null, as that of a new node is; that of one that was taken
 * out of a list is not.
 */
u32 sys_sll_node_add(sys_sll_t *list, sys_sll_node_t *node);

/* Takes a node out of the list and leaves it to the caller. */
u32 sys_sll_node_delete(sys_sll_t *list, sys_sll_node_t *node);

sys_sll_node_t *sys_sll_node_get_first(const sys_sll_t *list);

/* The node after another one, which is not looked for; after null, the first. */
sys_sll_node_t *sys_sll_node_get_next(const sys_sll_t *list,
				      const sys_sll_node_t *node);

/* Frees all nodes, not their payloads. */
u32 sys_sll_node_purge(sys_sll_t *list);

#ifdef __cplusplus
}
#endif

#endif
