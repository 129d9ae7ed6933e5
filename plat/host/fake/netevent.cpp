// SPDX-License-Identifier: GPL-2.0
/* The chain of those who are told of network events. */
#include "scheduler.h"

#include <algorithm>

namespace
{

struct fake_block {
	int (*call)(struct notifier_block *block, unsigned long event,
		    void *data);
	fake_block *next;
	int priority;
};

static_assert(sizeof(fake_block) == sizeof(notifier_block));

constexpr int notify_stop_mask = 0x8000;

fake_block *chain;
int error;

const fake::at_restart set_back([] {
	if (chain && !fake::is_forsaken())
		fake::complain("a subscription is left");
	chain = nullptr;
	error = 0;
});

fake_block *view(struct notifier_block *block)
{
	return reinterpret_cast<fake_block *>(block);
}

} // namespace

namespace fake
{

void refuse_netevents(int value)
{
	error = value;
}

int raise_netevent(unsigned long event, void *data)
{
	const soft_interrupt interrupt;
	int result = 0;

	for (fake_block *each = chain; each;) {
		fake_block *const next = each->next;

		result = each->call(reinterpret_cast<struct notifier_block *>(
					    each),
				    event, data);
		if (result & notify_stop_mask)
			break;
		each = next;
	}
	return result;
}

size_t netevent_listeners()
{
	size_t count = 0;

	for (const fake_block *each = chain; each; each = each->next)
		++count;
	return count;
}

int netevent_priority(const struct notifier_block *block)
{
	return reinterpret_cast<const fake_block *>(block)->priority;
}

} // namespace fake

void zk_notifier_init(struct notifier_block *block,
		      int (*call)(struct notifier_block *block,
				  unsigned long event, void *data))
{
	view(block)->call = call;
}

/* Behind all of at least the same priority. */
int zk_register_netevent_notifier(struct notifier_block *block)
{
	fake_block *const added = view(block);
	fake_block **place = &chain;

	fake::record("register_netevent_notifier", block);
	if (error)
		return error;
	while (*place && (*place)->priority >= added->priority) {
		if (*place == added) {
			fake::complain("a notifier registered twice");
			return 0;
		}
		place = &(*place)->next;
	}
	added->next = *place;
	*place = added;
	return 0;
}

int zk_unregister_netevent_notifier(struct notifier_block *block)
{
	fake::record("unregister_netevent_notifier", block);
	fake::might_sleep("unregister_netevent_notifier");
	for (fake_block **place = &chain; *place; place = &(*place)->next)
		if (*place == view(block)) {
			*place = (*place)->next;
			return 0;
		}
	return -ENOENT_;
}
