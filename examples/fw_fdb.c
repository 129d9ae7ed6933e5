// SPDX-License-Identifier: GPL-2.0
/*
 * The address table: which address was seen on which port of which VLAN. Three
 * threads work on it: one learns what the ports report through a queue, one
 * forgets what has not been seen for long, and one saves the table in the
 * flash. Under /sys/module/fw_fdb/parameters:
 *
 *	echo 10 >flush	forgets the addresses of VLAN 10
 *	echo 300 >age	forgets addresses after 300 seconds; 0 for never
 *	echo 1 >save	saves the table
 *	echo 1 >dump	prints the table into the log
 *	cat addresses	how many there are
 *
 * The table's mutex is taken before the semaphore of the flash.
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/etherdevice.h>
#include <linux/jhash.h>
#include <linux/kernel.h>
#include <linux/list.h>
#include <linux/module.h>
#include <linux/moduleparam.h>

#include <zorva/zorva.h>

#include "fw_fdb.h"
#include "fw_port.h"
#include "fw_sys.h"
#include "fw_vlan.h"

#define FDB_BUCKETS 32u
#define QUEUE_DEPTH 8u
#define PRIORITY 128
#define AGE_SECS 300u
#define AGE_LOOK_MSECS 500u
#define FLASH_MSECS 30000u

struct fdb_entry {
	struct hlist_node node;
	u8 mac[ETH_ALEN];
	u32 port;
	u32 vlan;
	u32 seen; /* seconds since boot */
};

struct fdb {
	struct hlist_head buckets[FDB_BUCKETS];
	u32 entries;
};

/* The lock of the module's parameters guards it. */
static bool running;

/* Guards the table. */
static zorva_mutex_t *fdb_lock;
static struct fdb *fdb;

/* The table. Its lock is held by whoever calls one of these. */

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

static void fdb_learn(const struct fw_fdb_learned *learned)
{
	struct fdb_entry *entry = fdb_find(learned->mac, learned->vlan);

	if (!entry) {
		entry = zorva_malloc(ZORVA_COMP_FDB, sizeof(*entry));
		if (!entry)
			return;
		ether_addr_copy(entry->mac, learned->mac);
		entry->vlan = learned->vlan;
		hlist_add_head(&entry->node,
			       fdb_bucket(learned->mac, learned->vlan));
		fdb->entries++;
	}
	entry->port = learned->port;
	zorva_uptime_secs_get(&entry->seen);
}

/* Forgets the entries for which the given function says so; tells how many. */
static u32 fdb_flush(bool (*matches)(const struct fdb_entry *entry, u32 value),
		     u32 value)
{
	const u32 before = fdb->entries;
	struct fdb_entry *entry;
	struct hlist_node *next;
	u32 i;

	for (i = 0; i < FDB_BUCKETS; i++) {
		hlist_for_each_entry_safe(entry, next, &fdb->buckets[i], node) {
			if (!matches(entry, value))
				continue;
			hlist_del(&entry->node);
			fdb->entries--;
			zorva_free(ZORVA_COMP_FDB, entry);
		}
	}
	return before - fdb->entries;
}

static bool is_any(const struct fdb_entry *entry, u32 unused)
{
	return true;
}

static bool is_of_vlan(const struct fdb_entry *entry, u32 vlan)
{
	return entry->vlan == vlan;
}

static bool is_of_port(const struct fdb_entry *entry, u32 port)
{
	return entry->port == port;
}

static bool is_older(const struct fdb_entry *entry, u32 secs)
{
	u32 now = 0;

	zorva_uptime_secs_get(&now);
	return now - entry->seen > secs;
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
					  now - entry->seen);
	zorva_proc_printf(seq, "%u addresses\n", fdb->entries);
}

void fw_fdb_flush_port(u32 port)
{
	zorva_mutex_take(ZORVA_COMP_FDB, fdb_lock);
	fdb_flush(is_of_port, port);
	zorva_mutex_give(ZORVA_COMP_FDB, fdb_lock);
}
EXPORT_SYMBOL_GPL(fw_fdb_flush_port);

/*
 * Learning. The thread ends on a message: it waits without a limit, and
 * zorva_thread_destroy() would not end that wait.
 */

static zorva_msg_queue_t *learn_queue;
static u32 learn_thread;

zorva_msg_queue_t *fw_fdb_queue(void)
{
	return learn_queue;
}
EXPORT_SYMBOL_GPL(fw_fdb_queue);

static void learn(void *unused)
{
	struct fw_fdb_learned learned;

	while (!zorva_msg_queue_receive(ZORVA_COMP_FDB, learn_queue, &learned,
					sizeof(learned), ZORVA_WAIT_FOREVER) &&
	       learned.port) {
		if (!is_valid_ether_addr(learned.mac) ||
		    !fw_port_exists(learned.port) ||
		    !fw_vlan_exists(learned.vlan))
			continue;
		zorva_mutex_take(ZORVA_COMP_FDB, fdb_lock);
		fdb_learn(&learned);
		zorva_mutex_give(ZORVA_COMP_FDB, fdb_lock);
	}
}

static void learn_stop(void)
{
	const struct fw_fdb_learned end = {};

	zorva_msg_queue_send(ZORVA_COMP_FDB, learn_queue, &end, sizeof(end),
			     ZORVA_WAIT_FOREVER);
	zorva_thread_wait(learn_thread);
}

/*
 * Ageing. The thread is told to end by zorva_thread_destroy() and does so
 * inside the take, at the end of its time limit. It puts a unit back there that
 * it may never have had. That one means an early look at the table, and does
 * no harm; with a semaphore that counts what there is of something it would.
 * For the same reason it must not hold the table's lock there.
 */

static zorva_sem_t *age_look;
static u32 age_limit;
static u32 age_thread;

static void age(void *unused)
{
	u32 forgotten;

	for (;;) {
		zorva_sem_take(ZORVA_COMP_FDB, age_look, AGE_LOOK_MSECS);
		zorva_mutex_take(ZORVA_COMP_FDB, fdb_lock);
		forgotten = fdb_flush(is_older, READ_ONCE(age_limit));
		zorva_mutex_give(ZORVA_COMP_FDB, fdb_lock);
		if (forgotten)
			pr_info("%u addresses aged out\n", forgotten);
	}
}

static void age_stop(void)
{
	zorva_thread_destroy(ZORVA_COMP_FDB, age_thread);
	zorva_thread_wait(age_thread);
	age_thread = 0;
}

static int age_set(u32 secs)
{
	WRITE_ONCE(age_limit, secs);
	if (!age_thread)
		age_thread = zorva_thread_create(ZORVA_COMP_FDB, "fdb-age", 0,
						 PRIORITY, age, NULL);
	if (!age_thread)
		return -ENOMEM;
	zorva_sem_give(ZORVA_COMP_FDB, age_look);
	return 0;
}

/*
 * Saving. The thread must give back what it holds before it ends, so it is
 * asked to by a flag: zorva_thread_destroy() could end it while it waits for
 * the flash with the table locked.
 */

static zorva_sem_t *save_request;
static bool save_ends;
static u32 save_thread;

static void save(void *unused)
{
	for (;;) {
		zorva_sem_take(ZORVA_COMP_FDB, save_request,
			       ZORVA_WAIT_FOREVER);
		if (READ_ONCE(save_ends))
			return;
		/* Locked throughout, so that the copy is of one moment. */
		zorva_mutex_take(ZORVA_COMP_FDB, fdb_lock);
		if (zorva_sem_take(ZORVA_COMP_FDB, fw_flash(), FLASH_MSECS)) {
			pr_warn("not saved: the flash is busy\n");
		} else {
			pr_info("%u addresses saved\n", fdb->entries);
			zorva_sem_give(ZORVA_COMP_FDB, fw_flash());
		}
		zorva_mutex_give(ZORVA_COMP_FDB, fdb_lock);
	}
}

static void save_stop(void)
{
	WRITE_ONCE(save_ends, true);
	zorva_sem_give(ZORVA_COMP_FDB, save_request);
	zorva_thread_wait(save_thread);
}

/* The parameters. */

static int set_flush(const char *text, const struct kernel_param *param)
{
	u32 vlan;

	if (!running)
		return -ENODEV;
	if (kstrtou32(text, 10, &vlan))
		return -EINVAL;
	zorva_mutex_take(ZORVA_COMP_CLI, fdb_lock);
	fdb_flush(is_of_vlan, vlan);
	zorva_mutex_give(ZORVA_COMP_CLI, fdb_lock);
	return 0;
}

static int set_age(const char *text, const struct kernel_param *param)
{
	u32 secs;

	if (!running)
		return -ENODEV;
	if (kstrtou32(text, 10, &secs))
		return -EINVAL;
	if (secs)
		return age_set(secs);
	if (age_thread)
		age_stop();
	return 0;
}

static int set_save(const char *text, const struct kernel_param *param)
{
	if (!running)
		return -ENODEV;
	zorva_sem_give(ZORVA_COMP_CLI, save_request);
	return 0;
}

static int set_dump(const char *text, const struct kernel_param *param)
{
	if (!running)
		return -ENODEV;
	zorva_mutex_take(ZORVA_COMP_CLI, fdb_lock);
	fdb_dump(NULL);
	zorva_mutex_give(ZORVA_COMP_CLI, fdb_lock);
	return 0;
}

static int get_addresses(char *text, const struct kernel_param *param)
{
	return sprintf(text, "%u\n", running ? READ_ONCE(fdb->entries) : 0);
}

static const struct kernel_param_ops flush_ops = { .set = set_flush };
module_param_cb(flush, &flush_ops, NULL, 0200);
MODULE_PARM_DESC(flush, "forgets the addresses of a VLAN");

static const struct kernel_param_ops age_ops = { .set = set_age };
module_param_cb(age, &age_ops, NULL, 0200);
MODULE_PARM_DESC(age, "seconds after which an address is forgotten, 0 = never");

static const struct kernel_param_ops save_ops = { .set = set_save };
module_param_cb(save, &save_ops, NULL, 0200);
MODULE_PARM_DESC(save, "saves the table in the flash");

static const struct kernel_param_ops dump_ops = { .set = set_dump };
module_param_cb(dump, &dump_ops, NULL, 0200);
MODULE_PARM_DESC(dump, "prints the table into the kernel log");

static const struct kernel_param_ops addresses_ops = { .get = get_addresses };
module_param_cb(addresses, &addresses_ops, NULL, 0444);
MODULE_PARM_DESC(addresses, "how many addresses there are");

/* Load and unload. */

static void set_running(bool now)
{
	kernel_param_lock(THIS_MODULE);
	running = now;
	kernel_param_unlock(THIS_MODULE);
}

/* Also undoes what a failed load has made: first the threads, then the rest. */
static void destroy_all(void)
{
	if (age_thread)
		age_stop();
	if (save_thread)
		save_stop();
	if (learn_thread)
		learn_stop();
	if (save_request)
		zorva_sem_destroy(ZORVA_COMP_FDB, save_request);
	if (age_look)
		zorva_sem_destroy(ZORVA_COMP_FDB, age_look);
	if (learn_queue)
		zorva_msg_queue_delete(ZORVA_COMP_FDB, learn_queue);
	if (fdb)
		fdb_flush(is_any, 0);
	zorva_free(ZORVA_COMP_FDB, fdb);
	if (fdb_lock)
		zorva_mutex_destroy(ZORVA_COMP_FDB, fdb_lock);
}

static int __init fw_fdb_init(void)
{
	fdb_lock = zorva_mutex_create(ZORVA_COMP_FDB, "fdb");
	fdb = zorva_malloc(ZORVA_COMP_FDB, sizeof(*fdb));
	learn_queue = zorva_msg_queue_create(ZORVA_COMP_FDB, "fdb-learn",
					     QUEUE_DEPTH,
					     sizeof(struct fw_fdb_learned));
	age_look = zorva_sem_create(ZORVA_COMP_FDB, "fdb-age", 0);
	save_request = zorva_sem_create(ZORVA_COMP_FDB, "fdb-save", 0);
	if (!fdb_lock || !fdb || !learn_queue || !age_look || !save_request)
		goto failed;

	learn_thread = zorva_thread_create(ZORVA_COMP_FDB, "fdb-learn", 0,
					   PRIORITY, learn, NULL);
	save_thread = zorva_thread_create(ZORVA_COMP_FDB, "fdb-save", 0,
					  PRIORITY, save, NULL);
	if (!learn_thread || !save_thread || age_set(AGE_SECS))
		goto failed;

	set_running(true);
	return 0;

failed:
	destroy_all();
	return -ENOMEM;
}
module_init(fw_fdb_init);

static void __exit fw_fdb_exit(void)
{
	set_running(false);
	destroy_all();
}
module_exit(fw_fdb_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Example firmware: address table");
