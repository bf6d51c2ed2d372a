/* SPDX-License-Identifier: GPL-2.0-only */
/* File systems and their inodes: just enough to drop the page cache. */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct address_space;
struct inode;
struct super_block;

/* Drops the clean, unmapped, unlocked pages in a range of page indices. Returns how many it
 * dropped. Context: process, may sleep. */
unsigned long invalidate_mapping_pages(struct address_space *mapping, unsigned long start,
				       unsigned long end);
/* Drops a reference; the last one frees the inode. Null is ignored. Context: process, may sleep. */
void iput(struct inode *inode);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* Calls iterate_supers through its address (ADS_ITERATE_SUPERS), which calls the callback for each
 * mounted file system. Context: process, may sleep. */
void helper_iterate_supers(void *symbol, void (*callback)(struct super_block *sb, void *arg),
			   void *arg);

/* The lock of a file system's list of inodes. It is taken outside the lock of a single inode. */
void helper_sb_inodes_lock(struct super_block *sb) ACQUIRE(sb);
void helper_sb_inodes_unlock(struct super_block *sb) RELEASE(sb);
struct list_head *helper_sb_inodes(struct super_block *sb);
struct inode *helper_inode_of(struct list_head *entry);

void helper_inode_lock(struct inode *inode) ACQUIRE(inode);
void helper_inode_unlock(struct inode *inode) RELEASE(inode);
/* KERNEL_I_* bits. Call with the inode locked. */
unsigned long helper_inode_state(const struct inode *inode) REQUIRES(inode);
/* Takes a reference. Call with the inode locked. */
void helper_inode_get(struct inode *inode) REQUIRES(inode);
struct address_space *helper_inode_mapping(const struct inode *inode);
/* Whether the mapping has no cached pages. */
bool helper_mapping_empty(const struct address_space *mapping);

KERNEL_C_END
