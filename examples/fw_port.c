// SPDX-License-Identifier: GPL-2.0
/*
 * The ports and what belongs to them: the switch chip with the shadow of its
 * registers, and for every port its state and that of its transceiver. Each
 * block is owned by the component that answers for it, so the memory report
 * tells the chip's memory from the ports'.
 *
 * Everything is made at load and given back at unload; in between nothing
 * here changes, so there is no lock.
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/kernel.h>
#include <linux/module.h>

#include <zorva/zorva.h>

#include "fw_board.h"
#include "fw_port.h"

#define CHIP_REGS 128
#define PHY_REGS 32

struct chip {
	u32 shadow[CHIP_REGS];
};

struct phy {
	u32 address;
	u16 shadow[PHY_REGS];
};

struct port {
	u32 number;
	u32 up_since; /* seconds since boot */
	struct phy *phy;
};

static struct chip *chip;
/* As many as the board has ports; a null one was not made. */
static struct port **ports;

bool fw_port_exists(u32 number)
{
	return number >= 1 && number <= fw_board_get()->ports;
}
EXPORT_SYMBOL_GPL(fw_port_exists);

static void port_destroy(struct port *port)
{
	if (!port)
		return;
	zorva_free(ZORVA_COMP_PHY, port->phy);
	zorva_free(ZORVA_COMP_PORT, port);
}

static struct port *port_create(u32 number)
{
	struct port *const port = zorva_malloc(ZORVA_COMP_PORT, sizeof(*port));

	if (!port)
		return NULL;

	/* The rest of a new block is zero. */
	port->number = number;
	port->phy = zorva_malloc(ZORVA_COMP_PHY, sizeof(*port->phy));
	if (!port->phy) {
		port_destroy(port);
		return NULL;
	}
	port->phy->address = number - 1;
	zorva_uptime_secs_get(&port->up_since);
	return port;
}

/* Also undoes what a failed load has made: a null block is ignored. */
static void destroy_all(void)
{
	u32 i;

	for (i = 0; ports && i < fw_board_get()->ports; i++)
		port_destroy(ports[i]);
	zorva_free(ZORVA_COMP_PORT, ports);
	zorva_free(ZORVA_COMP_CHIP, chip);
}

static int __init fw_port_init(void)
{
	const u32 started = zorva_time_usecs_ret();
	const u32 count = fw_board_get()->ports;
	u32 i;

	chip = zorva_malloc(ZORVA_COMP_CHIP, sizeof(*chip));
	if (!chip)
		goto no_memory;
	ports = zorva_malloc(ZORVA_COMP_PORT, count * sizeof(*ports));
	if (!ports)
		goto no_memory;
	for (i = 0; i < count; i++) {
		ports[i] = port_create(i + 1);
		if (!ports[i])
			goto no_memory;
	}

	pr_info("%u ports in %u us\n", count, zorva_time_usecs_ret() - started);
	return 0;

no_memory:
	destroy_all();
	return -ENOMEM;
}
module_init(fw_port_init);

static void __exit fw_port_exit(void)
{
	destroy_all();
}
module_exit(fw_port_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Example firmware: chip, ports and transceivers");
