// SPDX-License-Identifier: GPL-2.0
/*
 * The readings of time, sleeps and delays, and the subscriptions to network
 * events.
 *
 * Nothing here takes a lock: a clock is read through the kernel, which retries
 * a reading that a tick has torn.
 */
#include "zorva_clock.h"
#include "zorva_debug.h"
#include "zorva_thread.h"
#include "zorva/atomic.h"
#include "zorva/mem.h"
#include "zorva/netevent.h"
#include "zorva/time.h"

namespace
{

constexpr u32 ticks_per_sec = 100;
constexpr u32 usecs_per_tick = 10000;
constexpr u32 longest_udelay = 1000;

constinit lock_class_key sleep_key = {};

/*
 * Sleeps until the ticks are used up, which returns 0, or a signal is pending,
 * which returns the ticks that are left until the end. The kernel refuses a
 * negative number, and takes it for used up.
 */
long sleep_interruptibly(wait_queue_head *queue, long ticks, unsigned long end)
{
	wait_queue_entry entry;

	init_wait_entry(&entry, 0);
	while (!prepare_to_wait_event(queue, &entry, TASK_INTERRUPTIBLE)) {
		if (!ticks) {
			finish_wait(queue, &entry);
			return 0;
		}
		ticks = schedule_timeout(ticks);
	}
	ticks = static_cast<long>(end - jiffies);
	return ticks > 0 ? ticks : 0;
}

/* True when a signal was pending that tells the task to end. */
bool discard_signals()
{
	const bool told_to_end = zk_signal_is_pending(SIGKILL) ||
				 zk_signal_is_pending(SIGTERM);

	flush_signals(zk_current());
	return told_to_end;
}

/*
 * Sleeps for ticks, discarding signals. A task that is told to end is ended
 * from here, or returns when it cannot be: a task of user space is not even
 * tried where only_threads is set.
 */
void sleep_ticks(long ticks, bool only_threads)
{
	const unsigned long end = jiffies + ticks;
	wait_queue_head queue;

	__init_waitqueue_head(&queue, "&wq_h", &sleep_key);
	do {
		ticks = sleep_interruptibly(&queue, ticks, end);
		if (zk_signal_pending() && discard_signals()) {
			if (!only_threads || zk_current_is_kthread())
				zorva_thread_exit(ZORVA_COMPONENT_SELF,
						  exit_code_killed);
			return;
		}
	} while (ticks);
}

} // namespace

u32 zorva_uptime_get(u32 *msecs)
{
	ZORVA_CHECK(msecs, ZORVA_RC_NULL_ARG);

	*msecs = uptime_secs() * 1000;
	return ZORVA_RC_OK;
}

u32 zorva_uptime_secs_get(u32 *secs)
{
	ZORVA_CHECK(secs, ZORVA_RC_NULL_ARG);

	*secs = uptime_secs();
	return ZORVA_RC_OK;
}

u32 zorva_uptime_ticks_get(u32 *ticks)
{
	*ticks = ticks_of(ktime_get_with_offset(TK_OFFS_BOOT));
	return ZORVA_RC_OK;
}

u32 zorva_time_usecs_ret(void)
{
	s64 secs;
	u32 nsecs;

	zk_ktime_get_ts64(&secs, &nsecs);
	return static_cast<u32>(secs) * 1000000 + nsecs / 1000;
}

u32 zorva_time_msecs_ret(void)
{
	s64 secs;
	u32 nsecs;

	zk_ktime_get_ts64(&secs, &nsecs);
	return static_cast<u32>(secs) * 1000 + nsecs / 1000000;
}

u32 zorva_time_secs_ret(void)
{
	s64 secs;
	u32 nsecs;

	zk_ktime_get_ts64(&secs, &nsecs);
	return static_cast<u32>(secs);
}

void zorva_time_usleep(u32 usecs)
{
	if (zk_in_interrupt())
		return;
	if (usecs >= usecs_per_tick) {
		sleep_ticks(usecs / usecs_per_tick, true);
		return;
	}
	if (ktime_get_resolution_ns() < nsecs_per_tick) {
		usleep_range(usecs, usecs + 3);
		return;
	}

	const u32 start = zorva_time_usecs_ret();

	do
		yield();
	while (zorva_time_usecs_ret() - start < usecs);
}

/* Meant to try to end any task that is told to, unlike the sleep above. */
void zorva_time_sleep(u32 secs)
{
	if (zk_in_interrupt())
		return;
	sleep_ticks(secs * ticks_per_sec, false);
}

void zorva_time_udelay(u32 usecs)
{
	if (usecs < longest_udelay) {
		zk_udelay(usecs);
		return;
	}
	for (u32 i = usecs / longest_udelay; i > 0; --i)
		zk_udelay(longest_udelay);
	zk_udelay(usecs % longest_udelay);
}

void zorva_time_mdelay(u32 msecs)
{
	for (; msecs > 0; --msecs)
		zk_udelay(longest_udelay);
}

struct notifier_block *
zorva_netevent_ntfy_register(u32 compId,
			     int (*notify)(struct notifier_block *handle,
					   unsigned long event, void *data))
{
	ZORVA_CHECK(compId != 0, nullptr);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, nullptr);
	ZORVA_CHECK(notify, nullptr);

	auto *const handle = static_cast<struct notifier_block *>(
		zorva_malloc(compId, sizeof(struct notifier_block)));

	if (!handle) {
		ZORVA_ERROR("allocate memory failed.");
		return nullptr;
	}
	zk_notifier_init(handle, notify);
	if (zk_register_netevent_notifier(handle) < 0) {
		ZORVA_ERROR("register failed.");
		zorva_free(compId, handle);
		return nullptr;
	}
	return handle;
}

u32 zorva_netevent_ntfy_unregister(u32 compId, struct notifier_block *handle)
{
	ZORVA_CHECK(compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(handle, ZORVA_RC_NULL_ARG);

	if (zk_unregister_netevent_notifier(handle) < 0) {
		ZORVA_ERROR("deregister failed.");
		return ZORVA_RC_FAIL;
	}
	zorva_free(compId, handle);
	return ZORVA_RC_OK;
}

u32 zorva_md5_hash(const void *, u32, u8 *)
{
	return ZORVA_RC_FAIL;
}
