/* SPDX-License-Identifier: GPL-2.0 */
/* The ports of the example firmware. */
#ifndef FW_PORT_H
#define FW_PORT_H

#include <linux/types.h>

/* The most ports that a board has: as many as an event object has bits. */
#define FW_PORT_MAX 64u

/**
 * fw_port_exists() - tells whether the board has a port of this number
 * @number: the port, counted from 1
 *
 * Context: Any.
 * Return: True for a port of the board.
 */
bool fw_port_exists(u32 number);

/**
 * fw_port_links_get() - reads from the chip which ports have a link
 * @up: where to write a bit for each port: port 1 is bit 0 of the first word,
 *      port 33 bit 0 of the second
 *
 * Context: Thread; sleeps.
 */
void fw_port_links_get(u32 up[2]);

#endif
