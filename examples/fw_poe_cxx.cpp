// SPDX-License-Identifier: GPL-2.0
/*
 * Power over Ethernet, in C++: ports ask for power through a queue, and a
 * thread grants it for as long as the budget lasts. What needs the kernel's
 * headers, which are not C++, is in fw_poe_kernel.c.
 *
 * A module has no static constructors: what is global is complete as it is
 * compiled, which constinit makes sure of. It has no operator new either, and
 * so no destructor of anything global.
 */
#include <zorva/zorva.h>

#include "fw_poe.h"

namespace
{

constexpr u32 owner = ZORVA_COMP_POE;
constexpr u32 ports = 8;
constexpr u32 queue_depth = 8;
constexpr u32 look_msecs = 100;
constexpr s32 priority = 128;

struct request {
	u32 port; /* from 1; 0 ends the thread */
	u32 milliwatts;
};

/* Holds a mutex for as long as it lives. */
class mutex_guard {
public:
	[[nodiscard]] explicit mutex_guard(zorva_mutex_t *mutex) : mutex_(mutex)
	{
		zorva_mutex_take(owner, mutex_);
	}
	~mutex_guard()
	{
		zorva_mutex_give(owner, mutex_);
	}
	mutex_guard(const mutex_guard &) = delete;
	mutex_guard &operator=(const mutex_guard &) = delete;

private:
	zorva_mutex_t *const mutex_;
};

/* What there is, and who has how much of it. Its user locks it. */
class power_budget {
public:
	bool begin(u32 milliwatts)
	{
		granted_ = static_cast<u32 *>(
			zorva_malloc(owner, ports * sizeof(*granted_)));
		if (!granted_)
			return false;
		for (u32 port = 1; port <= ports; ++port)
			of(port) = 0;
		free_ = total_ = milliwatts;
		return true;
	}

	void end()
	{
		zorva_free(owner, granted_);
		granted_ = nullptr;
	}

	/* A port gives back what it has only for what it then gets. */
	bool grant(const request &wish)
	{
		u32 &has = of(wish.port);

		if (wish.milliwatts > free_ + has)
			return false;
		free_ = free_ + has - wish.milliwatts;
		has = wish.milliwatts;
		return true;
	}

	u32 granted() const
	{
		return total_ - free_;
	}

private:
	u32 &of(u32 port)
	{
		return granted_[port - 1];
	}

	u32 *granted_ = nullptr;
	u32 total_ = 0;
	u32 free_ = 0;
};

/* Guards the budget. */
constinit zorva_mutex_t *lock = nullptr;
constinit power_budget budget;

constinit zorva_msg_queue_t *wishes = nullptr;
constinit u32 thread = 0;

bool grant(const request &wish)
{
	const mutex_guard guard(lock);

	return budget.grant(wish);
}

/* A real one would look at its ports when no wish came in time. */
void serve(void *)
{
	request wish;

	for (;;) {
		if (zorva_msg_queue_receive(owner, wishes, &wish, sizeof(wish),
					    look_msecs))
			continue;
		if (wish.port == 0)
			return;
		if (!grant(wish))
			fw_poe_refused(wish.port, wish.milliwatts);
	}
}

} // namespace

int fw_poe_start(u32 milliwatts)
{
	lock = zorva_mutex_create(owner, "poe");
	if (!lock)
		return 0;
	if (!budget.begin(milliwatts))
		goto no_budget;
	wishes = zorva_msg_queue_create(owner, "poe", queue_depth,
					sizeof(request));
	if (!wishes)
		goto no_queue;
	thread = zorva_thread_create(owner, "poe", 0, priority, serve, nullptr);
	if (!thread)
		goto no_thread;
	return 1;

no_thread:
	zorva_msg_queue_delete(owner, wishes);
no_queue:
	budget.end();
no_budget:
	zorva_mutex_destroy(owner, lock);
	return 0;
}

/* Ends the thread by a message: it uses the queue with a time limit. */
void fw_poe_stop(void)
{
	const request end = {};

	zorva_msg_queue_send(owner, wishes, &end, sizeof(end),
			     ZORVA_WAIT_FOREVER);
	fw_poe_wait_for(thread);
	zorva_msg_queue_delete(owner, wishes);
	budget.end();
	zorva_mutex_destroy(owner, lock);
}

int fw_poe_ask(u32 port, u32 milliwatts)
{
	const request wish = { port, milliwatts };

	if (port < 1 || port > ports)
		return 0;
	return zorva_msg_queue_send(owner, wishes, &wish, sizeof(wish),
				    look_msecs) == ZORVA_RC_OK;
}

u32 fw_poe_granted(void)
{
	const mutex_guard guard(lock);

	return budget.granted();
}
