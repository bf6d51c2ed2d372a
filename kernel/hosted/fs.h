// SPDX-License-Identifier: GPL-2.0-only
// File systems, their files and the page cache of those. Thread safe but where noted; process
// context.
#pragma once

#include <functional>
#include <vector>

#include <kernel/fs.h>

namespace hosted
{

// The kernel's function, which callers find as a debug symbol. It holds off unmounting meanwhile.
void iterate_supers(void (*callback)(super_block *sb, void *arg), void *arg);

super_block &mount();
// Its files go; no one may use one of them any more.
void unmount(super_block &sb);

// A file at the head of the list of its file system, in the cache of inodes without a user.
inode &create_file(super_block &sb);
// Its inode goes at once or with the last reference.
void remove_file(inode &file);
// KERNEL_I_* bits, for an inode that is on its way in or out and stays there.
void set_inode_state(inode &file, unsigned long state);
int references(inode &file);

struct page_state {
	bool dirty = false;
	bool mapped = false;
	bool locked = false;
	bool writeback = false;
};
void cache_page(inode &file, unsigned long index, page_state state = {});
// Indices of the pages that are there.
std::vector<unsigned long> cached_pages(inode &file);

// The files whose pages were to be dropped since the last look, in order.
std::vector<const inode *> take_invalidations();
// Runs at the beginning of each invalidation, on the thread that asked for it. Not while another
// thread invalidates.
void on_invalidation(std::function<void(inode &file)> run);

// No file system is mounted.
void reset_fs();

} // namespace hosted
