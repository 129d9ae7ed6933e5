/* SPDX-License-Identifier: GPL-2.0 */
/* The VLANs of the example firmware. */
#ifndef FW_VLAN_H
#define FW_VLAN_H

#include <linux/types.h>

/**
 * fw_vlan_exists() - tells whether a VLAN has been added
 * @id: its ID, 1 to 4094
 *
 * Context: Thread; sleeps.
 * Return: True for one that has been added.
 */
bool fw_vlan_exists(u32 id);

#endif
