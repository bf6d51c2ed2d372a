/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct dentry;
struct file;
struct inode;

KERNEL_OPAQUE(file_operations, KERNEL_SIZEOF_FILE_OPERATIONS);

/* A null parent is the root of debugfs. Returns an error pointer on failure, which is accepted as a
 * parent. Context for all functions here: process, may sleep. */
struct dentry *debugfs_create_dir(const char *name, struct dentry *parent);
struct dentry *debugfs_create_file(const char *name, umode_t mode, struct dentry *parent,
				   void *data, const struct file_operations *fops);
/* Removes the entry and everything below it, after waiting for its readers. Null and error pointers
 * are ignored. */
void debugfs_remove(struct dentry *dentry);

/* For a file that shows one number: get fetches it when the file is read from its start. */
int simple_attr_open(struct inode *inode, struct file *file, int (*get)(void *data, u64 *val),
		     int (*set)(void *data, u64 val), const char *fmt);
int simple_attr_release(struct inode *inode, struct file *file);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* Fills in the operations of a simple attribute, with debugfs_attr_read and debugfs_attr_write.
 * open calls simple_attr_open. */
void helper_attribute_fops_init(struct file_operations *fops,
				int (*open)(struct inode *inode, struct file *file));

KERNEL_C_END
