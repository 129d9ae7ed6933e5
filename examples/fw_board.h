/* SPDX-License-Identifier: GPL-2.0 */
/* What the modules of the example firmware know about their board. */
#ifndef FW_BOARD_H
#define FW_BOARD_H

/* Where later kernels have mac_pton(). */
#if __has_include(<linux/hex.h>)
#include <linux/hex.h>
#endif
#include <linux/if_ether.h>
#include <linux/types.h>

/**
 * struct fw_board - the board that the firmware runs on
 * @model: its name
 * @ports: the number of its ports, which are counted from 1
 * @mac: the switch's own address
 */
struct fw_board {
	char model[16];
	u32 ports;
	u8 mac[ETH_ALEN];
};

/**
 * fw_board_get() - describes the board
 *
 * Context: Any.
 * Return: The board; it does not change while a module that uses it is loaded.
 */
const struct fw_board *fw_board_get(void);

#endif
