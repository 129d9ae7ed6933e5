// SPDX-License-Identifier: GPL-2.0
/* Wait queues, in the storage that the module has for them. */
#include "scheduler.h"

namespace
{

struct fake_queue {
	fake_link entries;
};

struct fake_entry {
	fake_link link; /* first: the queue's links are taken for entries */
	task_struct *task;
	u32 flags;
	u32 initialised;
};

constexpr u32 is_initialised = 0x7173;
constexpr u32 exclusive = 1;

static_assert(sizeof(fake_queue) == sizeof(wait_queue_head));
static_assert(sizeof(fake_entry) == sizeof(wait_queue_entry));

fake_queue &view(struct wait_queue_head *queue)
{
	auto &seen = *reinterpret_cast<fake_queue *>(queue);

	if (!seen.entries.next)
		fake::fatal("a wait queue that was not initialised");
	return seen;
}

fake_entry &view(struct wait_queue_entry *entry)
{
	auto &seen = *reinterpret_cast<fake_entry *>(entry);

	if (seen.initialised != is_initialised)
		fake::fatal("a wait queue's entry that was not initialised");
	return seen;
}

/* Leaves the entry as one that is in no queue. */
void take_out(fake_entry &entry)
{
	fake::unlink(&entry.link);
	fake::init_list(&entry.link);
}

} // namespace

void __init_waitqueue_head(struct wait_queue_head *queue, const char *name,
			   struct lock_class_key *)
{
	fake::record(fake::format("init_waitqueue_head %s", name), queue);
	fake::init_list(&reinterpret_cast<fake_queue *>(queue)->entries);
}

void init_wait_entry(struct wait_queue_entry *entry, int flags)
{
	auto &seen = *reinterpret_cast<fake_entry *>(entry);

	fake::record(fake::format("init_wait_entry %d", flags), entry);
	seen.task = fake::running();
	seen.flags = flags;
	seen.initialised = is_initialised;
	fake::init_list(&seen.link);
}

long prepare_to_wait_event(struct wait_queue_head *queue,
			   struct wait_queue_entry *entry, int state)
{
	fake_queue &queued = view(queue);
	fake_entry &seen = view(entry);

	fake::record(fake::format("prepare_to_wait_event %d", state), queue);
	if (fake::signal_ends_sleep(fake::running(), state)) {
		take_out(seen);
		return -ERESTARTSYS_;
	}
	if (fake::is_empty(&seen.link))
		fake::insert_after(&seen.link, seen.flags & exclusive
						       ? queued.entries.prev
						       : &queued.entries);
	fake::running()->state = state;
	return 0;
}

void finish_wait(struct wait_queue_head *queue, struct wait_queue_entry *entry)
{
	view(queue);
	fake::record("finish_wait", queue);
	fake::running()->state = state_running;
	take_out(view(entry));
}

void __wake_up(struct wait_queue_head *queue, unsigned int mode, int count,
	       void *key)
{
	fake::record(fake::format("wake_up %u %d %s", mode, count,
				  key ? "key" : "none"),
		     queue);

	fake_queue &queued = view(queue);
	fake_link *link = queued.entries.next;

	while (link != &queued.entries) {
		auto &entry = *reinterpret_cast<fake_entry *>(link);

		link = link->next;
		if (!fake::wake(entry.task, mode))
			continue;
		take_out(entry);
		if (entry.flags & exclusive && !--count)
			return;
	}
}
