// SPDX-License-Identifier: GPL-2.0
/*
 * The address table: which address was seen on which port of which VLAN. What
 * the chip and the command line would ask for comes through the parameters
 * under /sys/module/fw_fdb/parameters:
 *
 *	echo "10 office" >vlan			adds a VLAN
 *	echo "00:00:5e:00:53:01 3 10" >learn	an address on port 3, VLAN 10
 *	echo 10 >flush				forgets the addresses of VLAN 10
 *	echo 1 >dump				prints the table into the log
 *	echo overrun >fault			see the end of this file
 *
 * The lock of the module's parameters guards all of it: the kernel holds it
 * around every write to one of them, and load and unload take it themselves.
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/etherdevice.h>
#include <linux/jhash.h>
#include <linux/kernel.h>
#include <linux/list.h>
#include <linux/module.h>
#include <linux/moduleparam.h>
#include <linux/string.h>

#include <zorva/zorva.h>

#include "fw_port.h"

#define FDB_BUCKETS 32u
#define VLAN_MAX_ID 4094u

struct vlan {
	struct list_head node;
	u32 id;
	char *name;
};

struct fdb_entry {
	struct hlist_node node;
	u8 mac[ETH_ALEN];
	u32 port;
	u32 vlan;
	u32 learned; /* seconds since boot */
};

struct fdb {
	struct hlist_head buckets[FDB_BUCKETS];
	struct list_head vlans;
	u32 entries;
};

/* Null before the load is complete, and once the unload has begun. */
static struct fdb *fdb;

/* The VLANs. */

static struct vlan *vlan_find(u32 id)
{
	struct vlan *vlan;

	list_for_each_entry(vlan, &fdb->vlans, node)
		if (vlan->id == id)
			return vlan;
	return NULL;
}

static void vlan_destroy(struct vlan *vlan)
{
	zorva_free(ZORVA_COMP_VLAN, vlan->name);
	zorva_free(ZORVA_COMP_VLAN, vlan);
}

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
	list_add_tail(&vlan->node, &fdb->vlans);
	return 0;
}

/* The addresses. */

static struct hlist_head *fdb_bucket(const u8 *mac, u32 vlan)
{
	return &fdb->buckets[jhash(mac, ETH_ALEN, vlan) % FDB_BUCKETS];
}

static struct fdb_entry *fdb_find(const u8 *mac, u32 vlan)
{
	struct fdb_entry *entry;

	hlist_for_each_entry(entry, fdb_bucket(mac, vlan), node)
		if (entry->vlan == vlan && ether_addr_equal(entry->mac, mac))
			return entry;
	return NULL;
}

static int fdb_learn(const u8 *mac, u32 port, u32 vlan)
{
	struct fdb_entry *entry;

	if (!is_valid_ether_addr(mac) || !fw_port_exists(port))
		return -EINVAL;
	if (!vlan_find(vlan))
		return -ENOENT;

	entry = fdb_find(mac, vlan);
	if (!entry) {
		entry = zorva_malloc(ZORVA_COMP_FDB, sizeof(*entry));
		if (!entry)
			return -ENOMEM;
		ether_addr_copy(entry->mac, mac);
		entry->vlan = vlan;
		hlist_add_head(&entry->node, fdb_bucket(mac, vlan));
		fdb->entries++;
	}
	entry->port = port;
	zorva_uptime_secs_get(&entry->learned);
	return 0;
}

/* Forgets the addresses of one VLAN, or of all for 0. */
static void fdb_flush(u32 vlan)
{
	struct fdb_entry *entry;
	struct hlist_node *next;
	u32 i;

	for (i = 0; i < FDB_BUCKETS; i++) {
		hlist_for_each_entry_safe(entry, next, &fdb->buckets[i], node) {
			if (vlan && entry->vlan != vlan)
				continue;
			hlist_del(&entry->node);
			fdb->entries--;
			zorva_free(ZORVA_COMP_FDB, entry);
		}
	}
}

/*
 * Prints the table into a report file; without one, as here, zorva prints the
 * same text into the kernel log.
 */
static void fdb_dump(struct seq_file *seq)
{
	struct fdb_entry *entry;
	u32 now = 0;
	u32 i;

	zorva_uptime_secs_get(&now);
	zorva_proc_printf(seq, "Address            Port  VLAN  Age\n");
	for (i = 0; i < FDB_BUCKETS; i++)
		hlist_for_each_entry(entry, &fdb->buckets[i], node)
			zorva_proc_printf(seq, "%pM  %-4u  %-4u  %u\n",
					  entry->mac, entry->port, entry->vlan,
					  now - entry->learned);
}

/* The parameters. */

static int set_vlan(const char *text, const struct kernel_param *param)
{
	char name[33];
	u32 id;

	if (!fdb)
		return -ENODEV;
	if (sscanf(text, "%u %32s", &id, name) != 2)
		return -EINVAL;
	return vlan_add(id, name);
}

static int set_learn(const char *text, const struct kernel_param *param)
{
	char address[18];
	u8 mac[ETH_ALEN];
	u32 port;
	u32 vlan;

	if (!fdb)
		return -ENODEV;
	if (sscanf(text, "%17s %u %u", address, &port, &vlan) != 3)
		return -EINVAL;
	if (!mac_pton(address, mac))
		return -EINVAL;
	return fdb_learn(mac, port, vlan);
}

static int set_flush(const char *text, const struct kernel_param *param)
{
	u32 vlan;

	if (!fdb)
		return -ENODEV;
	if (kstrtou32(text, 10, &vlan))
		return -EINVAL;
	fdb_flush(vlan);
	return 0;
}

static int set_dump(const char *text, const struct kernel_param *param)
{
	if (!fdb)
		return -ENODEV;
	fdb_dump(NULL);
	return 0;
}

static const struct kernel_param_ops vlan_ops = { .set = set_vlan };
module_param_cb(vlan, &vlan_ops, NULL, 0200);
MODULE_PARM_DESC(vlan, "adds a VLAN: ID and name");

static const struct kernel_param_ops learn_ops = { .set = set_learn };
module_param_cb(learn, &learn_ops, NULL, 0200);
MODULE_PARM_DESC(learn, "learns an address: MAC address, port and VLAN");

static const struct kernel_param_ops flush_ops = { .set = set_flush };
module_param_cb(flush, &flush_ops, NULL, 0200);
MODULE_PARM_DESC(flush, "forgets the addresses of a VLAN, or of all for 0");

static const struct kernel_param_ops dump_ops = { .set = set_dump };
module_param_cb(dump, &dump_ops, NULL, 0200);
MODULE_PARM_DESC(dump, "prints the table into the kernel log");

/*
 * Deliberate faults, for trying out what zorva makes of them:
 *
 *	overrun		writes one byte too many into a block, and keeps it
 *	release		frees that block
 *	double-free	frees a block twice
 */

#define LABEL_SIZE 16u

static char *torn_label;

/*
 * The classic one: room for the characters of a text, but not for its end.
 * The zero goes into the guard behind the block, and nobody notices yet.
 */
static int fault_overrun(void)
{
	static const char label[] = "Uplink to core 1";

	BUILD_BUG_ON(sizeof(label) != LABEL_SIZE + 1);
	if (torn_label)
		return -EBUSY;

	torn_label = zorva_malloc(ZORVA_COMP_VLAN, LABEL_SIZE);
	if (!torn_label)
		return -ENOMEM;
	memcpy(torn_label, label, sizeof(label));
	return 0;
}

/* The free finds the guard overwritten, says so, and frees the block. */
static void fault_release(void)
{
	zorva_free(ZORVA_COMP_VLAN, torn_label);
	torn_label = NULL;
}

/* The second free finds the mark of the first, and leaves the block alone. */
static int fault_double_free(void)
{
	u8 *const frame = zorva_malloc(ZORVA_COMP_FDB, ETH_ZLEN);

	if (!frame)
		return -ENOMEM;
	zorva_free(ZORVA_COMP_FDB, frame);
	zorva_free(ZORVA_COMP_FDB, frame);
	return 0;
}

static int set_fault(const char *text, const struct kernel_param *param)
{
	if (!fdb)
		return -ENODEV;
	if (sysfs_streq(text, "overrun"))
		return fault_overrun();
	if (sysfs_streq(text, "double-free"))
		return fault_double_free();
	if (!sysfs_streq(text, "release"))
		return -EINVAL;
	fault_release();
	return 0;
}

static const struct kernel_param_ops fault_ops = { .set = set_fault };
module_param_cb(fault, &fault_ops, NULL, 0200);
MODULE_PARM_DESC(fault, "overrun, release or double-free");

/* Load and unload. */

static int __init fw_fdb_init(void)
{
	struct fdb *const table = zorva_malloc(ZORVA_COMP_FDB, sizeof(*table));

	if (!table)
		return -ENOMEM;
	INIT_LIST_HEAD(&table->vlans);

	kernel_param_lock(THIS_MODULE);
	fdb = table;
	kernel_param_unlock(THIS_MODULE);
	return 0;
}
module_init(fw_fdb_init);

static void __exit fw_fdb_exit(void)
{
	struct vlan *vlan;
	struct vlan *next;

	kernel_param_lock(THIS_MODULE);
	fdb_flush(0);
	list_for_each_entry_safe(vlan, next, &fdb->vlans, node)
		vlan_destroy(vlan);
	fault_release();
	zorva_free(ZORVA_COMP_FDB, fdb);
	fdb = NULL;
	kernel_param_unlock(THIS_MODULE);
}
module_exit(fw_fdb_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Example firmware: address table");
