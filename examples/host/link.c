// SPDX-License-Identifier: GPL-2.0
/*
 * The link monitor, as in fw_link.c:
 *
 *	a tick timer, in a soft interrupt, wakes the poller every 50 ms
 *	the poller reads the chip and sets an event bit for each changed link
 *	the monitor waits for these bits and keeps account of them
 *
 * The table of links and that of losses have a lock each; whoever needs both
 * takes that of the links first.
 */
#include "link.h"

#include <stddef.h>

#define OWNER ZORVA_COMP_PORT
#define POLL_MSECS 50u
#define PORTS 32u

static link_read_fn read_links;
static zorva_atomic_t ends;

static u32 poll_timer;
static u32 poll_wait;
static u32 poll_thread;
static zorva_event_t *changes;
static u32 monitor_thread;

static zorva_mutex_t *links_lock;
static u32 links_up;
static zorva_mutex_t *losses_lock;
static u32 *losses;

static void poll_expired(unsigned long wait)
{
	zorva_wake_up(OWNER, wait);
	if (!zorva_atomic_read(&ends))
		zorva_timer_start(OWNER, &poll_timer, POLL_MSECS);
}

static void poll(void *unused)
{
	u32 changed[2] = { 0, 0 };
	u32 before = 0;
	u32 now;

	(void)unused;
	for (;;) {
		zorva_wait_event(OWNER, poll_wait);
		if (zorva_atomic_read(&ends))
			return;
		now = read_links();
		changed[0] = before ^ now;
		if (changed[0])
			zorva_event_set(OWNER, changes, changed);
		before = now;
	}
}

static void account(u32 changed)
{
	u32 lost;
	u32 port;

	zorva_mutex_take(OWNER, links_lock);
	zorva_mutex_take(OWNER, losses_lock);
	lost = links_up & changed;
	links_up = read_links();
	for (port = 1; port <= PORTS; port++)
		losses[port - 1] += lost >> (port - 1) & 1;
	zorva_mutex_give(OWNER, losses_lock);
	zorva_mutex_give(OWNER, links_lock);
}

static void monitor(void *unused)
{
	u32 changed[2];

	(void)unused;
	for (;;) {
		zorva_event_wait(OWNER, changes, changed, ZORVA_WAIT_FOREVER);
		account(changed[0]);
	}
}

u32 link_losses(u32 port)
{
	u32 count;

	zorva_mutex_take(OWNER, losses_lock);
	count = losses[port - 1];
	zorva_mutex_give(OWNER, losses_lock);
	return count;
}

u32 link_ports_up(void)
{
	u32 count = 0;
	u32 port;

	zorva_mutex_take(OWNER, links_lock);
	for (port = 1; port <= PORTS; port++)
		count += links_up >> (port - 1) & 1;
	zorva_mutex_give(OWNER, links_lock);
	return count;
}

static void poll_stop(void)
{
	zorva_atomic_set(&ends, 1);
	zorva_timer_stop(OWNER, &poll_timer);
	zorva_wake_up(OWNER, poll_wait);
	zorva_thread_wait(poll_thread);
}

/* The signal does not end the wait; an event, which may be empty, does. */
static void monitor_stop(void)
{
	static const u32 nothing[2];

	zorva_thread_destroy(OWNER, monitor_thread);
	zorva_event_set(OWNER, changes, nothing);
	zorva_thread_wait(monitor_thread);
}

static void free_all(void)
{
	zorva_free(OWNER, losses);
	if (losses_lock)
		zorva_mutex_destroy(OWNER, losses_lock);
	if (links_lock)
		zorva_mutex_destroy(OWNER, links_lock);
	if (changes)
		zorva_event_destroy(OWNER, changes);
	zorva_wait_module_destroy(OWNER, poll_wait);
}

int link_start(link_read_fn read)
{
	read_links = read;
	links_up = 0;
	zorva_atomic_set(&ends, 0);
	if (zorva_wait_module_create(OWNER, &poll_wait))
		return -1;
	changes = zorva_event_create(OWNER, "link-change");
	links_lock = zorva_mutex_create(OWNER, "links");
	losses_lock = zorva_mutex_create(OWNER, "losses");
	losses = zorva_malloc(OWNER, PORTS * sizeof(*losses));
	if (!changes || !links_lock || !losses_lock || !losses)
		goto none;
	monitor_thread = zorva_thread_create(OWNER, "link-monitor", 0, 100,
					     monitor, NULL);
	if (!monitor_thread)
		goto none;
	poll_thread =
		zorva_thread_create(OWNER, "link-poll", 0, 100, poll, NULL);
	if (!poll_thread)
		goto no_poll;
	if (zorva_timer_init(OWNER, &poll_timer, poll_expired, poll_wait))
		goto no_timer;
	zorva_timer_start(OWNER, &poll_timer, POLL_MSECS);
	return 0;

no_timer:
	zorva_atomic_set(&ends, 1);
	zorva_wake_up(OWNER, poll_wait);
	zorva_thread_wait(poll_thread);
no_poll:
	monitor_stop();
none:
	free_all();
	return -1;
}

void link_stop(void)
{
	poll_stop();
	monitor_stop();
	free_all();
}
