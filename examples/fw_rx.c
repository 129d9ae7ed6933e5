// SPDX-License-Identifier: GPL-2.0
/*
 * What the ports receive. The chip has a buffer for each half of the ports, and
 * a thread for each buffer tells the address table which address it has seen
 * where. Frames come in, and are asked for, through parameters:
 *
 *	echo "00:00:5e:00:53:01 3 10" >frame	from that address, on port 3,
 *						in VLAN 10
 *	echo "00:00:5e:00:53:01 3 10 5" >frame	from 5 addresses in a row
 *	cat lost				how many were not told
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/etherdevice.h>
#include <linux/kernel.h>
#include <linux/module.h>
#include <linux/moduleparam.h>

#include <zorva/zorva.h>

#include "fw_board.h"
#include "fw_fdb.h"
#include "fw_port.h"

#define BUFFER_DEPTH 16u
#define PRIORITY 64
#define TELL_MSECS 200u

struct rx {
	const char *name;
	zorva_msg_queue_t *buffer;
	u32 thread;
};

/* The lower half of the ports, and the upper one. */
static struct rx halves[] = { { .name = "port-rx-1" },
			      { .name = "port-rx-2" } };

/* The lock of the module's parameters guards it. */
static bool running;
static zorva_atomic_t lost;

/*
 * The table may be busy, but not for ever: after a while the frame is given up,
 * and zorva reports it. The address comes again with the next frame.
 *
 * Ends on a message. zorva_thread_destroy() could end it while it waits for a
 * place in the table's queue, and what it would put back there is a place that
 * the queue does not have.
 */
static void receive(void *argument)
{
	const struct rx *const rx = argument;
	struct fw_fdb_learned seen;

	while (!zorva_msg_queue_receive(ZORVA_COMP_PORT, rx->buffer, &seen,
					sizeof(seen), ZORVA_WAIT_FOREVER) &&
	       seen.port) {
		if (zorva_msg_queue_send(ZORVA_COMP_PORT, fw_fdb_queue(), &seen,
					 sizeof(seen), TELL_MSECS))
			zorva_atomic_inc(&lost);
	}
}

static int set_frame(const char *text, const struct kernel_param *param)
{
	struct fw_fdb_learned seen = {};
	char address[18];
	u32 count = 1;
	struct rx *rx;

	if (!running)
		return -ENODEV;
	if (sscanf(text, "%17s %u %u %u", address, &seen.port, &seen.vlan,
		   &count) < 3)
		return -EINVAL;
	if (!mac_pton(address, seen.mac) || !fw_port_exists(seen.port))
		return -EINVAL;

	rx = &halves[seen.port > fw_board_get()->ports / 2];
	for (; count; count--) {
		if (zorva_msg_queue_send(ZORVA_COMP_CHIP, rx->buffer, &seen,
					 sizeof(seen), ZORVA_NO_WAIT))
			return -ENOBUFS;
		eth_addr_inc(seen.mac);
	}
	return 0;
}

static int get_lost(char *text, const struct kernel_param *param)
{
	return sprintf(text, "%d\n", zorva_atomic_read(&lost));
}

static const struct kernel_param_ops frame_ops = { .set = set_frame };
module_param_cb(frame, &frame_ops, NULL, 0200);
MODULE_PARM_DESC(frame, "MAC address, port, VLAN, and how many in a row");

static const struct kernel_param_ops lost_ops = { .get = get_lost };
module_param_cb(lost, &lost_ops, NULL, 0444);
MODULE_PARM_DESC(lost, "frames whose address the table was not told");

static void set_running(bool now)
{
	kernel_param_lock(THIS_MODULE);
	running = now;
	kernel_param_unlock(THIS_MODULE);
}

/* Also undoes what a failed load has made. */
static void destroy_all(void)
{
	const struct fw_fdb_learned end = {};
	struct rx *rx;

	for (rx = halves; rx < halves + ARRAY_SIZE(halves); rx++) {
		if (rx->thread) {
			zorva_msg_queue_send(ZORVA_COMP_PORT, rx->buffer, &end,
					     sizeof(end), ZORVA_WAIT_FOREVER);
			zorva_thread_wait(rx->thread);
		}
		if (rx->buffer)
			zorva_msg_queue_delete(ZORVA_COMP_PORT, rx->buffer);
	}
}

static int __init fw_rx_init(void)
{
	struct rx *rx;

	for (rx = halves; rx < halves + ARRAY_SIZE(halves); rx++) {
		rx->buffer =
			zorva_msg_queue_create(ZORVA_COMP_PORT, rx->name,
					       BUFFER_DEPTH,
					       sizeof(struct fw_fdb_learned));
		if (!rx->buffer)
			goto failed;
		rx->thread = zorva_thread_create(ZORVA_COMP_PORT, rx->name, 0,
						 PRIORITY, receive, rx);
		if (!rx->thread)
			goto failed;
	}
	set_running(true);
	return 0;

failed:
	destroy_all();
	return -ENOMEM;
}
module_init(fw_rx_init);

static void __exit fw_rx_exit(void)
{
	set_running(false);
	destroy_all();
}
module_exit(fw_rx_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Example firmware: what the ports receive");
