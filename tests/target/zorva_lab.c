// SPDX-License-Identifier: GPL-2.0
/*
 * Blocks on demand for the programs that test the report files from user
 * space. The file "zorva_lab" of debugfs takes one order a write:
 *
 *	alloc COMPONENT SIZE	allocates a block
 *	tear			overwrites the guard of the newest block
 *	free			frees all blocks, the newest first
 *
 * and shows one line for each block, the newest first: its component's ID and
 * name, its size, the time of its allocation and its address.
 */
#include <linux/debugfs.h>
#include <linux/fs.h>
#include <linux/module.h>
#include <linux/seq_file.h>
#include <linux/string.h>
#include <linux/uaccess.h>

#include <zorva/zorva.h>

#define BLOCKS 64

/* Only one program works in here at a time. */
static struct lab_block {
	char *user;
	u32 comp;
	u32 size;
	u32 time;
} blocks[BLOCKS];
static unsigned int count;

static int allocate(u32 comp, u32 size)
{
	struct lab_block *block = &blocks[count];

	if (count == BLOCKS)
		return -ENOSPC;
	zorva_uptime_secs_get(&block->time);
	block->user = zorva_malloc_track(comp, size, "lab.c", count + 1);
	if (!block->user)
		return -ENOMEM;
	block->comp = comp;
	block->size = size;
	count++;
	return 0;
}

static void free_all(void)
{
	while (count > 0) {
		count--;
		zorva_free(blocks[count].comp, blocks[count].user);
	}
}

static ssize_t lab_write(struct file *file, const char __user *text,
			 size_t length, loff_t *position)
{
	char order[32] = "";
	u32 comp, size;
	int result = 0;

	if (length >= sizeof(order) || copy_from_user(order, text, length))
		return -EFAULT;

	if (sscanf(order, "alloc %u %u", &comp, &size) == 2)
		result = allocate(comp, size);
	else if (strcmp(order, "tear") == 0 && count > 0)
		blocks[count - 1].user[(blocks[count - 1].size + 3) / 4 * 4] ^=
			1;
	else if (strcmp(order, "free") == 0)
		free_all();
	else
		result = -EINVAL;
	return result ? result : length;
}

static int lab_show(struct seq_file *seq, void *unused)
{
	unsigned int i;

	for (i = count; i-- > 0;)
		seq_printf(seq, "%u %s %u %u %px\n", blocks[i].comp,
			   _componentName[blocks[i].comp], blocks[i].size,
			   blocks[i].time, blocks[i].user);
	return 0;
}

static int lab_open(struct inode *inode, struct file *file)
{
	return single_open(file, lab_show, NULL);
}

static const struct file_operations lab_operations = {
	.owner = THIS_MODULE,
	.open = lab_open,
	.read = seq_read,
	.write = lab_write,
	.llseek = seq_lseek,
	.release = single_release,
};

static struct dentry *lab;

static int __init lab_init(void)
{
	lab = debugfs_create_file("zorva_lab", 0600, NULL, NULL,
				  &lab_operations);
	return PTR_ERR_OR_ZERO(lab);
}

static void __exit lab_exit(void)
{
	debugfs_remove(lab);
	free_all();
}

module_init(lab_init);
module_exit(lab_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Blocks of ZORVA on demand");
