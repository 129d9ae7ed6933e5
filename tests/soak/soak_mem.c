// SPDX-License-Identifier: GPL-2.0
/*
 * Blocks of random sizes with a pattern in each: four threads with a component
 * of their own, whose accounts have to be right at every moment, and the
 * timers' callbacks, which share one.
 */
#include <linux/slab.h>
#include <linux/spinlock.h>
#include <linux/string.h>

#include "soak.h"

#define ACTORS 4
#define SLOTS 64
#define IRQ_SLOTS 16

struct slot {
	u8 *block;
	u32 size;
	u8 pattern;
};

static struct holder {
	struct slot slots[SLOTS];
	u32 bytes;
	u32 blocks;
	u32 allocs;
} * holders;

static DEFINE_SPINLOCK(irq_slots_lock); /* guards what follows */
static struct slot irq_slots[IRQ_SLOTS];
static u32 irq_allocs, irq_bytes, irq_blocks;

static void fill(struct slot *slot)
{
	memset(slot->block, slot->pattern, slot->size);
}

static bool is_whole(const struct slot *slot)
{
	return !memchr_inv(slot->block, slot->pattern, slot->size);
}

static void allocate(struct holder *holder, struct slot *slot, u32 comp,
		     const u32 *decide)
{
	const unsigned int n = soak_decide_failure(decide[2], 100, 1);
	const u32 size = 1 + decide[1] % (decide[3] % 8 ? 200 : 6000);
	bool failed;
	u8 *block;

	soak_begin_failing(n);
	block = zorva_malloc(comp, size);
	failed = soak_end_failing(n);
	if (failed)
		SOAK_CHECK(!block, "a block without memory");
	if (!block)
		return;
	SOAK_CHECK(!memchr_inv(block, 0, (size + 3) / 4 * 4),
		   "a block is not zero");
	slot->block = block;
	slot->size = size;
	slot->pattern = decide[4];
	fill(slot);
	holder->bytes += size;
	holder->blocks++;
	holder->allocs++;
}

static void release(struct holder *holder, struct slot *slot, u32 comp, u32 how)
{
	SOAK_CHECK(is_whole(slot), "a block of %u bytes has changed",
		   slot->size);
	if (how % 2) {
		void *block = slot->block;

		zorva_free_cleanup(&block);
		SOAK_CHECK(!block, "a block was not freed");
	} else {
		zorva_free(comp, slot->block);
	}
	slot->block = NULL;
	holder->bytes -= slot->size;
	holder->blocks--;
}

static void check_account(u32 comp, u32 bytes, u32 blocks, u32 allocs)
{
	const struct soak_account account = soak_account_of(comp);

	/* What owns nothing has no line. */
	SOAK_CHECK(account.bytes == bytes && account.blocks == blocks &&
			   (blocks == 0 || account.allocs == allocs),
		   "%s owns %u bytes in %u blocks of %u, not %u in %u of %u",
		   _componentName[comp], account.bytes, account.blocks,
		   account.allocs, bytes, blocks, allocs);
}

void soak_mem_step(struct soak_actor *actor)
{
	struct holder *const holder = &holders[actor->index];
	const u32 comp = SOAK_MEM_COMP + actor->index;
	const u32 *const decide = actor->decide;
	struct slot *const slot = &holder->slots[decide[0] % SLOTS];

	if (slot->block)
		release(holder, slot, comp, decide[1]);
	else
		allocate(holder, slot, comp, decide);
	if (decide[5] % 256 == 0)
		check_account(comp, holder->bytes, holder->blocks,
			      holder->allocs);
}

/* Every second call for a slot frees what the one before has allocated. */
void soak_mem_in_interrupt(unsigned int index)
{
	struct slot *const slot = &irq_slots[index % IRQ_SLOTS];
	unsigned long flags;

	spin_lock_irqsave(&irq_slots_lock, flags);
	if (slot->block) {
		SOAK_CHECK(is_whole(slot), "an interrupt's block has changed");
		zorva_free(SOAK_IRQ_COMP, slot->block);
		slot->block = NULL;
		irq_blocks--;
		irq_bytes -= slot->size;
	} else {
		slot->size = 1 + index * 7;
		slot->pattern = 0x5a;
		slot->block = zorva_malloc(SOAK_IRQ_COMP, slot->size);
		if (slot->block) {
			fill(slot);
			irq_blocks++;
			irq_bytes += slot->size;
			irq_allocs++;
		}
	}
	spin_unlock_irqrestore(&irq_slots_lock, flags);
}

int soak_mem_set_up(void)
{
	holders = kcalloc(ACTORS, sizeof(*holders), GFP_KERNEL);
	return holders ? 0 : -ENOMEM;
}

void soak_mem_take_down(void)
{
	unsigned int i, k;
	u32 allocs = 0;

	check_account(SOAK_IRQ_COMP, irq_bytes, irq_blocks, irq_allocs);
	for (k = 0; k < IRQ_SLOTS; k++)
		if (irq_slots[k].block)
			soak_mem_in_interrupt(k);
	for (i = 0; i < ACTORS; i++) {
		struct holder *const holder = &holders[i];
		const u32 comp = SOAK_MEM_COMP + i;

		check_account(comp, holder->bytes, holder->blocks,
			      holder->allocs);
		for (k = 0; k < SLOTS; k++)
			if (holder->slots[k].block)
				release(holder, &holder->slots[k], comp, k);
		allocs += holder->allocs;
	}
	kfree(holders);
	pr_info("soak: memory: %u blocks, %u more in interrupts\n", allocs,
		irq_allocs);
}
