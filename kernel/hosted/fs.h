// SPDX-License-Identifier: GPL-2.0-only
// File systems, their files and the files' page cache. Process context. Thread safe unless noted.
#pragma once

#include <functional>
#include <vector>

#include <kernel/fs.h>

namespace hosted
{

// The kernel's function, which callers find as a debug symbol. A file system cannot be unmounted
// while the callback runs on it.
void iterate_supers(void (*callback)(super_block *sb, void *arg), void *arg);

super_block &mount();
// Removes its files, which nobody may use any more.
void unmount(super_block &sb);

// Creates a file at the head of its file system's list; its inode is cached but has no user.
inode &create_file(super_block &sb);
// Its inode is freed at once, or with the last reference.
void remove_file(inode &file);
// Sets KERNEL_I_* bits, for an inode that stays half created or half freed.
void set_inode_state(inode &file, unsigned long state);
int references(inode &file);

struct page_state {
	bool dirty = false;
	bool mapped = false;
	bool locked = false;
	bool writeback = false;
};
void cache_page(inode &file, unsigned long index, page_state state = {});
// Indices of the cached pages.
std::vector<unsigned long> cached_pages(inode &file);

// Removes and returns the files whose pages were to be dropped since the last call, in order.
std::vector<const inode *> take_invalidations();
// Called at the start of each invalidation, on the invalidating thread. Do not set it while another
// thread invalidates.
void on_invalidation(std::function<void(inode &file)> run);

// Unmounts everything.
void reset_fs();

} // namespace hosted
