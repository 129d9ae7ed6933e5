// SPDX-License-Identifier: GPL-2.0
/*
 * The ports and what belongs to them: the switch chip with its registers, and
 * for every port its state and that of its transceiver. Each block is owned by
 * the component that answers for it, so the memory report tells the chip's
 * memory from the ports'.
 *
 * A cable is put in and pulled out through a parameter:
 *
 *	echo "3 in" >/sys/module/fw_port/parameters/cable
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/kernel.h>
#include <linux/module.h>
#include <linux/moduleparam.h>
#include <linux/string.h>

#include <zorva/zorva.h>

#include "fw_board.h"
#include "fw_port.h"

#define CHIP_REGS 128
#define PHY_REGS 32

/* The first of the two registers with a bit for each port that has a link. */
#define CHIP_REG_LINK 16

struct chip {
	u32 regs[CHIP_REGS];
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

/* The lock of the module's parameters guards it. */
static bool running;

/* Guards the registers. */
static zorva_mutex_t *chip_lock;
static struct chip *chip;
/* As many as the board has ports; a null one was not made. */
static struct port **ports;

bool fw_port_exists(u32 number)
{
	return number >= 1 && number <= fw_board_get()->ports;
}
EXPORT_SYMBOL_GPL(fw_port_exists);

void fw_port_links_get(u32 up[2])
{
	zorva_mutex_take(ZORVA_COMP_PORT, chip_lock);
	up[0] = chip->regs[CHIP_REG_LINK];
	up[1] = chip->regs[CHIP_REG_LINK + 1];
	zorva_mutex_give(ZORVA_COMP_PORT, chip_lock);
}
EXPORT_SYMBOL_GPL(fw_port_links_get);

/* What the transceiver would do: tell the chip about its link. */
static void cable_set(u32 number, bool in)
{
	u32 *const reg = &chip->regs[CHIP_REG_LINK + (number - 1) / 32];
	const u32 bit = 1u << (number - 1) % 32;

	zorva_mutex_take(ZORVA_COMP_PHY, chip_lock);
	*reg = in ? *reg | bit : *reg & ~bit;
	zorva_mutex_give(ZORVA_COMP_PHY, chip_lock);
}

static int set_cable(const char *text, const struct kernel_param *param)
{
	char where[4];
	u32 number;
	bool in;

	if (!running)
		return -ENODEV;
	if (sscanf(text, "%u %3s", &number, where) != 2)
		return -EINVAL;
	in = !strcmp(where, "in");
	if (!fw_port_exists(number) || (!in && strcmp(where, "out")))
		return -EINVAL;
	cable_set(number, in);
	return 0;
}

static const struct kernel_param_ops cable_ops = { .set = set_cable };
module_param_cb(cable, &cable_ops, NULL, 0200);
MODULE_PARM_DESC(cable, "port, and in or out");

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
	if (chip_lock)
		zorva_mutex_destroy(ZORVA_COMP_CHIP, chip_lock);
}

static int __init fw_port_init(void)
{
	const u32 started = zorva_time_usecs_ret();
	const u32 count = fw_board_get()->ports;
	u32 i;

	chip_lock = zorva_mutex_create(ZORVA_COMP_CHIP, "chip");
	if (!chip_lock)
		goto no_memory;
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

	kernel_param_lock(THIS_MODULE);
	running = true;
	kernel_param_unlock(THIS_MODULE);
	pr_info("%u ports in %u us\n", count, zorva_time_usecs_ret() - started);
	return 0;

no_memory:
	destroy_all();
	return -ENOMEM;
}
module_init(fw_port_init);

static void __exit fw_port_exit(void)
{
	kernel_param_lock(THIS_MODULE);
	running = false;
	kernel_param_unlock(THIS_MODULE);
	destroy_all();
}
module_exit(fw_port_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Example firmware: chip, ports and transceivers");
