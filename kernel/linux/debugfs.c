// SPDX-License-Identifier: GPL-2.0-only
#include <linux/debugfs.h>
#include <linux/fs.h>
#include <linux/module.h>

#include <kernel/debugfs.h>

void helper_attribute_fops_init(struct file_operations *fops,
				int (*open)(struct inode *inode, struct file *file))
{
	fops->owner = THIS_MODULE;
	fops->open = open;
	fops->release = simple_attr_release;
	fops->read = debugfs_attr_read;
	fops->write = debugfs_attr_write;
}
