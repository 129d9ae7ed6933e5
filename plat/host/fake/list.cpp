// SPDX-License-Identifier: GPL-2.0
/* The kernel's lists, and the module's two that have static initialisers. */
#include "scheduler.h"

struct fake_link threads asm("kthread_list") = { &threads, &threads };
struct fake_link queues asm("zorva_msgq_list") = { &queues, &queues };

namespace
{

fake_link *const poison_next = reinterpret_cast<fake_link *>(0x100);
fake_link *const poison_prev = reinterpret_cast<fake_link *>(0x122);

/* A link at any address. */
struct [[gnu::packed]] unaligned_link {
	unaligned_link *next;
	unaligned_link *prev;
};

const fake::at_restart empty_both([] {
	fake::init_list(&threads);
	fake::init_list(&queues);
});

} // namespace

namespace fake
{

void init_list(fake_link *head)
{
	head->next = head;
	head->prev = head;
}

bool is_empty(const fake_link *head)
{
	return head->next == head;
}

void insert_after(fake_link *link, fake_link *place)
{
	link->next = place->next;
	link->prev = place;
	place->next->prev = link;
	place->next = link;
}

void unlink(fake_link *link)
{
	link->next->prev = link->prev;
	link->prev->next = link->next;
}

} // namespace fake

void zk_list_add(struct list_head *link, struct list_head *head)
{
	fake::insert_after(reinterpret_cast<fake_link *>(link),
			   reinterpret_cast<fake_link *>(head));
}

void zk_list_del(struct list_head *link)
{
	auto *const old = reinterpret_cast<fake_link *>(link);

	if (old->next == poison_next) {
		fake::complain("list_del of a link that is in no list");
		return;
	}
	fake::unlink(old);
	old->next = poison_next;
	old->prev = poison_prev;
}

struct list_head *zk_list_next(const struct list_head *link)
{
	return reinterpret_cast<struct list_head *>(
		reinterpret_cast<const fake_link *>(link)->next);
}

void zk_list_add_tail_unaligned(void *link, struct list_head *head)
{
	auto *const added = static_cast<unaligned_link *>(link);
	auto *const next = reinterpret_cast<unaligned_link *>(head);
	auto *const prev = next->prev;

	added->next = next;
	added->prev = prev;
	prev->next = added;
	next->prev = added;
}

void zk_list_del_unaligned(void *link)
{
	auto *const old = static_cast<unaligned_link *>(link);

	if (old->next == reinterpret_cast<unaligned_link *>(poison_next)) {
		fake::complain("list_del of a link that is in no list");
		return;
	}
	old->next->prev = old->prev;
	old->prev->next = old->next;
	old->next = reinterpret_cast<unaligned_link *>(poison_next);
	old->prev = reinterpret_cast<unaligned_link *>(poison_prev);
}

void *zk_list_next_unaligned(const void *link)
{
	return static_cast<const unaligned_link *>(link)->next;
}
