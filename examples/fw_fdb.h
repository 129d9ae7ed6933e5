/* SPDX-License-Identifier: GPL-2.0 */
/* The address table of the example firmware. */
#ifndef FW_FDB_H
#define FW_FDB_H

#include <linux/if_ether.h>

#include <zorva/zorva.h>

/**
 * struct fw_fdb_learned - a message: an address was seen
 * @mac: the address
 * @port: where it was seen, counted from 1; 0 tells a receiver to end
 * @vlan: the VLAN of the frame
 */
struct fw_fdb_learned {
	u8 mac[ETH_ALEN];
	u32 port;
	u32 vlan;
};

/**
 * fw_fdb_queue() - the queue that the address table learns from
 *
 * Its messages are of type struct fw_fdb_learned. Only the table itself sends
 * the message with which its receiver ends.
 *
 * Context: Any.
 * Return: The queue; it stays while a module that uses it is loaded.
 */
zorva_msg_queue_t *fw_fdb_queue(void);

/**
 * fw_fdb_flush_port() - forgets the addresses that were seen on a port
 * @port: the port, counted from 1
 *
 * Context: Thread; sleeps.
 */
void fw_fdb_flush_port(u32 port);

#endif
