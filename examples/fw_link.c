// SPDX-License-Identifier: GPL-2.0
/*
 * The link monitor. What happens on the way from a cable to the log:
 *
 *	a tick timer, in a soft interrupt, wakes the poller every 50 ms
 *	the poller reads the chip and sets an event bit for each changed link
 *	the monitor waits for these bits, tells the log, and has the addresses
 *	of a lost port forgotten
 *
 * The timer's callback must not sleep, which reading the chip does: therefore
 * the poller. The monitor is a thread of its own because polling must not wait
 * for the address table.
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/kernel.h>
#include <linux/module.h>

#include <zorva/zorva.h>

#include "fw_board.h"
#include "fw_fdb.h"
#include "fw_port.h"

#define POLL_MSECS 50u
#define POLL_PRIORITY 32
/* The one value that makes a thread real time. */
#define MONITOR_PRIORITY 30

/* Set once, before everything that runs by itself is made to end. */
static bool link_ends;

static u32 poll_timer;
static u32 poll_wait;
static u32 poll_thread;

static zorva_event_t *link_event;
static u32 monitor_thread;

/* Ports from 1 on, as bits of two words. */
static bool has_port(const u32 set[2], u32 port)
{
	return set[(port - 1) / 32] & 1u << (port - 1) % 32;
}

/* The data of the timer is the wait module that it wakes. */
static void poll_expired(unsigned long wait)
{
	zorva_wake_up(ZORVA_COMP_PORT, wait);
	if (!READ_ONCE(link_ends))
		zorva_timer_start(ZORVA_COMP_PORT, &poll_timer, POLL_MSECS);
}

/*
 * Ends by the flag: a wait module's waiter discards signals, that of
 * zorva_thread_destroy() as well.
 */
static void poll(void *unused)
{
	u32 before[2] = {};
	u32 changed[2];
	u32 now[2];

	for (;;) {
		zorva_wait_event(ZORVA_COMP_PORT, poll_wait);
		if (READ_ONCE(link_ends))
			return;
		fw_port_links_get(now);
		changed[0] = before[0] ^ now[0];
		changed[1] = before[1] ^ now[1];
		if (!changed[0] && !changed[1])
			continue;
		before[0] = now[0];
		before[1] = now[1];
		zorva_event_set(ZORVA_COMP_PORT, link_event, changed);
	}
}

/*
 * A link that went and came again between two looks is one that was lost: the
 * event has its bit, the chip says up. The wait ends the thread when it was
 * told to end.
 */
static void monitor(void *unused)
{
	u32 changed[2];
	u32 up[2];
	u32 port;

	for (;;) {
		if (zorva_event_wait(ZORVA_COMP_PORT, link_event, changed,
				     ZORVA_WAIT_FOREVER))
			return;
		fw_port_links_get(up);
		for (port = 1; port <= fw_board_get()->ports; port++) {
			if (!has_port(changed, port))
				continue;
			pr_info("port %u: link %s\n", port,
				has_port(up, port) ? "up" : "down");
			if (!has_port(up, port))
				fw_fdb_flush_port(port);
		}
	}
}

/*
 * A timer cannot be deleted: its ID and its record stay with zorva for good, so
 * each load of this module leaves one. What the module owes is that the
 * callback does not run once its code is gone. The flag comes first: an expiry
 * between the two would start the timer again. Stopping does not wait for an
 * expiry that is under way, but that is a soft interrupt, which is over before
 * a thread runs again.
 */
static void poll_stop(void)
{
	WRITE_ONCE(link_ends, true);
	zorva_timer_stop(ZORVA_COMP_PORT, &poll_timer);
	zorva_wake_up(ZORVA_COMP_PORT, poll_wait);
	zorva_thread_wait(poll_thread);
}

/* The signal does not end the wait; an event, which may be empty, does. */
static void monitor_stop(void)
{
	static const u32 nothing[2];

	zorva_thread_destroy(ZORVA_COMP_PORT, monitor_thread);
	zorva_event_set(ZORVA_COMP_PORT, link_event, nothing);
	zorva_thread_wait(monitor_thread);
}

static int __init fw_link_init(void)
{
	int ret = -ENOMEM;

	if (zorva_wait_module_create(ZORVA_COMP_PORT, &poll_wait))
		return ret;
	link_event = zorva_event_create(ZORVA_COMP_PORT, "link-change");
	if (!link_event)
		goto no_event;
	monitor_thread = zorva_thread_create(ZORVA_COMP_PORT, "link-monitor", 0,
					     MONITOR_PRIORITY, monitor, NULL);
	if (!monitor_thread)
		goto no_monitor;
	poll_thread = zorva_thread_create(ZORVA_COMP_PORT, "link-poll", 0,
					  POLL_PRIORITY, poll, NULL);
	if (!poll_thread)
		goto no_poll;
	if (zorva_timer_init(ZORVA_COMP_PORT, &poll_timer, poll_expired,
			     poll_wait))
		goto no_timer;
	zorva_timer_start(ZORVA_COMP_PORT, &poll_timer, POLL_MSECS);
	return 0;

no_timer:
	WRITE_ONCE(link_ends, true);
	zorva_wake_up(ZORVA_COMP_PORT, poll_wait);
	zorva_thread_wait(poll_thread);
no_poll:
	monitor_stop();
no_monitor:
	zorva_event_destroy(ZORVA_COMP_PORT, link_event);
no_event:
	zorva_wait_module_destroy(ZORVA_COMP_PORT, poll_wait);
	return ret;
}
module_init(fw_link_init);

static void __exit fw_link_exit(void)
{
	poll_stop();
	monitor_stop();
	zorva_event_destroy(ZORVA_COMP_PORT, link_event);
	zorva_wait_module_destroy(ZORVA_COMP_PORT, poll_wait);
}
module_exit(fw_link_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Example firmware: link monitor");
