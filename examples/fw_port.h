/* SPDX-License-Identifier: GPL-2.0 */
/* The ports of the example firmware. */
#ifndef FW_PORT_H
#define FW_PORT_H

#include <linux/types.h>

/**
 * fw_port_exists() - tells whether the board has a port of this number
 * @number: the port, counted from 1
 *
 * Context: Any.
 * Return: True for a port of the board.
 */
bool fw_port_exists(u32 number);

#endif
