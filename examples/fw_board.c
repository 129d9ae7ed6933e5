// SPDX-License-Identifier: GPL-2.0
/*
 * Board bring-up: the first module of the firmware to be loaded. It names the
 * function that prints zorva's reports, and finds out what board this is.
 *
 * There is no exit function, so the module cannot be unloaded: zorva calls the
 * registered function for as long as zorva itself is loaded.
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/kernel.h>
#include <linux/module.h>
#include <linux/string.h>

#include <zorva/zorva.h>

#include "fw_board.h"
#include "fw_port.h"

static char *board = "ZS-8G,8,02:00:5e:10:00:00";
module_param(board, charp, 0444);
MODULE_PARM_DESC(board, "model, number of ports and MAC address");

/* Written once, before any other module can ask for it. */
static struct fw_board this_board;

const struct fw_board *fw_board_get(void)
{
	return &this_board;
}
EXPORT_SYMBOL_GPL(fw_board_get);

/*
 * Prints one report of zorva as one line of the kernel log. Called in any
 * context, also with interrupts off and zorva's memory lock held: printk() is
 * one of the few functions that may be called here, and the tracked allocator
 * is not.
 */
__printf(7, 8) static void print_report(u32 compId, s32 unit, u32 level,
					const char *file, const char *func,
					s32 line, const char *format, ...)
{
	struct va_format text;
	va_list args;

	va_start(args, format);
	text.fmt = format;
	text.va = &args;
	if (level == ZORVA_LEVEL_ERROR)
		printk(KERN_ERR "%s error: %pV [%s, %s:%d]\n",
		       _componentName[compId], &text, func, file, line);
	else
		printk(KERN_INFO "%s info: %pV [%s, %s:%d]\n",
		       _componentName[compId], &text, func, file, line);
	va_end(args);
}

/* Reads "model,ports,address" from a copy, which it takes apart. */
static int parse_board(char *text)
{
	const char *const model = strsep(&text, ",");
	const char *const ports = strsep(&text, ",");
	const char *const mac = text;

	if (!ports || !mac)
		return -EINVAL;
	if (zorva_strlcpy(this_board.model, model, sizeof(this_board.model)) >=
	    sizeof(this_board.model))
		return -EINVAL;
	if (kstrtou32(ports, 10, &this_board.ports))
		return -EINVAL;
	if (this_board.ports == 0 || this_board.ports > FW_PORT_MAX)
		return -EINVAL;
	if (!mac_pton(mac, this_board.mac))
		return -EINVAL;
	return 0;
}

static int __init fw_board_init(void)
{
	const u32 size = strlen(board) + 1;
	void *copy;
	int ret;

	copy = zorva_malloc(ZORVA_COMP_SYS, size);
	if (!copy)
		return -ENOMEM;
	zorva_strlcpy(copy, board, size);
	ret = parse_board(copy);
	zorva_free_cleanup(&copy);
	if (ret) {
		pr_err("board=%s: not a model, 1 to %u ports and an address\n",
		       board, FW_PORT_MAX);
		return ret;
	}

	/* After all that can fail: a registration is never taken back. */
	zorva_debug_pr_fn_register(print_report);

	pr_info("%s, %u ports, %pM\n", this_board.model, this_board.ports,
		this_board.mac);
	return 0;
}
module_init(fw_board_init);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Example firmware: board bring-up");
