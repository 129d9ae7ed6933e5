// SPDX-License-Identifier: GPL-2.0
/*
 * The VLANs. The command line adds one through the parameter:
 *
 *	echo "10 office" >/sys/module/fw_vlan/parameters/add
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/kernel.h>
#include <linux/list.h>
#include <linux/module.h>
#include <linux/moduleparam.h>
#include <linux/string.h>

#include <zorva/zorva.h>

#include "fw_vlan.h"

#define VLAN_MAX_ID 4094u

struct vlan {
	struct list_head node;
	u32 id;
	char *name;
};

/* The lock of the module's parameters guards it. */
static bool running;

/* Guards the list. */
static zorva_mutex_t *vlan_lock;
static LIST_HEAD(vlans);

/* The lock is held. */
static struct vlan *vlan_find(u32 id)
{
	struct vlan *vlan;

	list_for_each_entry(vlan, &vlans, node)
		if (vlan->id == id)
			return vlan;
	return NULL;
}

bool fw_vlan_exists(u32 id)
{
	bool exists;

	zorva_mutex_take(ZORVA_COMP_VLAN, vlan_lock);
	exists = vlan_find(id);
	zorva_mutex_give(ZORVA_COMP_VLAN, vlan_lock);
	return exists;
}
EXPORT_SYMBOL_GPL(fw_vlan_exists);

static void vlan_destroy(struct vlan *vlan)
{
	zorva_free(ZORVA_COMP_VLAN, vlan->name);
	zorva_free(ZORVA_COMP_VLAN, vlan);
}

/* The lock is held. */
static int vlan_add(u32 id, const char *name)
{
	const u32 size = strlen(name) + 1;
	struct vlan *vlan;

	if (id == 0 || id > VLAN_MAX_ID)
		return -EINVAL;
	if (vlan_find(id))
		return -EEXIST;

	vlan = zorva_malloc(ZORVA_COMP_VLAN, sizeof(*vlan));
	if (!vlan)
		return -ENOMEM;
	vlan->name = zorva_malloc(ZORVA_COMP_VLAN, size);
	if (!vlan->name) {
		vlan_destroy(vlan);
		return -ENOMEM;
	}
	zorva_strlcpy(vlan->name, name, size);
	vlan->id = id;
	list_add_tail(&vlan->node, &vlans);
	return 0;
}

static int set_add(const char *text, const struct kernel_param *param)
{
	char name[33];
	u32 id;
	int ret;

	if (!running)
		return -ENODEV;
	if (sscanf(text, "%u %32s", &id, name) != 2)
		return -EINVAL;
	zorva_mutex_take(ZORVA_COMP_CLI, vlan_lock);
	ret = vlan_add(id, name);
	zorva_mutex_give(ZORVA_COMP_CLI, vlan_lock);
	return ret;
}

static const struct kernel_param_ops add_ops = { .set = set_add };
module_param_cb(add, &add_ops, NULL, 0200);
MODULE_PARM_DESC(add, "adds a VLAN: ID and name");

static int __init fw_vlan_init(void)
{
	vlan_lock = zorva_mutex_create(ZORVA_COMP_VLAN, "vlan");
	if (!vlan_lock)
		return -ENOMEM;

	kernel_param_lock(THIS_MODULE);
	running = true;
	kernel_param_unlock(THIS_MODULE);
	return 0;
}
module_init(fw_vlan_init);

static void __exit fw_vlan_exit(void)
{
	struct vlan *vlan;
	struct vlan *next;

	kernel_param_lock(THIS_MODULE);
	running = false;
	kernel_param_unlock(THIS_MODULE);

	list_for_each_entry_safe(vlan, next, &vlans, node)
		vlan_destroy(vlan);
	zorva_mutex_destroy(ZORVA_COMP_VLAN, vlan_lock);
}
module_exit(fw_vlan_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Example firmware: VLANs");
