// SPDX-License-Identifier: GPL-2.0-only
#include <linux/fs.h>

#include <kernel/fs.h>

/* Called through the kernel's own type, since a kernel with control-flow integrity checks it at
 * each indirect call. */
void helper_iterate_supers(void *symbol, void (*callback)(struct super_block *sb, void *arg),
			   void *arg)
{
	((typeof(&iterate_supers))symbol)(callback, arg);
}

void helper_sb_inodes_lock(struct super_block *sb)
{
	spin_lock(&sb->s_inode_list_lock);
}

void helper_sb_inodes_unlock(struct super_block *sb)
{
	spin_unlock(&sb->s_inode_list_lock);
}

struct list_head *helper_sb_inodes(struct super_block *sb)
{
	return &sb->s_inodes;
}

struct inode *helper_inode_of(struct list_head *entry)
{
	return list_entry(entry, struct inode, i_sb_list);
}

void helper_inode_lock(struct inode *inode)
{
	spin_lock(&inode->i_lock);
}

void helper_inode_unlock(struct inode *inode)
{
	spin_unlock(&inode->i_lock);
}

unsigned long helper_inode_state(const struct inode *inode)
{
	return inode->i_state;
}

void helper_inode_get(struct inode *inode)
{
	atomic_inc(&inode->i_count);
}

struct address_space *helper_inode_mapping(const struct inode *inode)
{
	return inode->i_mapping;
}

bool helper_mapping_empty(const struct address_space *mapping)
{
	return xa_empty(&mapping->i_pages);
}
