// SPDX-License-Identifier: GPL-2.0
/*
 * The management IP stack's view of its neighbours: subscribes to the kernel's
 * network events, and tells the log when an address of a neighbour changes.
 *
 *	cat /sys/module/fw_ip/parameters/updates	how many there were
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/kernel.h>
#include <linux/module.h>
#include <linux/moduleparam.h>
#include <linux/notifier.h>
#include <net/arp.h>
#include <net/neighbour.h>
#include <net/netevent.h>

#include <zorva/zorva.h>

static struct notifier_block *subscription;
static zorva_atomic_t updates;

/* On the kernel's own path, which may be a soft interrupt: must not sleep. */
static int network_event(struct notifier_block *handle, unsigned long event,
			 void *data)
{
	const struct neighbour *const neighbour = data;

	if (event != NETEVENT_NEIGH_UPDATE || neighbour->tbl != &arp_tbl)
		return NOTIFY_DONE;
	zorva_atomic_inc(&updates);
	pr_info("neighbour %pI4 on %s: %pM, %s\n", neighbour->primary_key,
		neighbour->dev->name, neighbour->ha,
		neighbour->nud_state & NUD_VALID ? "known" : "not known");
	return NOTIFY_DONE;
}

static int get_updates(char *text, const struct kernel_param *param)
{
	return sprintf(text, "%d\n", zorva_atomic_read(&updates));
}

static const struct kernel_param_ops updates_ops = { .get = get_updates };
module_param_cb(updates, &updates_ops, NULL, 0444);
MODULE_PARM_DESC(updates, "changes of neighbours since the module was loaded");

static int __init fw_ip_init(void)
{
	subscription =
		zorva_netevent_ntfy_register(ZORVA_COMP_IP, network_event);
	return subscription ? 0 : -ENOMEM;
}
module_init(fw_ip_init);

static void __exit fw_ip_exit(void)
{
	zorva_netevent_ntfy_unregister(ZORVA_COMP_IP, subscription);
}
module_exit(fw_ip_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Example firmware: neighbours of the management station");
