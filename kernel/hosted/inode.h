// SPDX-License-Identifier: GPL-2.0-only
// Inside of an inode, for the hosted kernel's own files.
#pragma once

#include <atomic>
#include <map>
#include <mutex>

#include <hosted/fs.h>
#include <kernel/spinlock.h>

// A file's pages by index. The count is read without the lock.
struct address_space {
	inode *const file;
	std::mutex lock{};
	std::map<unsigned long, hosted::page_state> pages{};
	std::atomic<std::size_t> count{0};
};

// As an entry of the list of its file system, under that list's lock; the rest under the inode's.
struct CAPABILITY("inode") inode : list_head {
	explicit inode(super_block &of) : list_head{}, sb(&of) {}

	super_block *const sb;
	raw_spinlock_t lock{};
	unsigned long state = 0;
	int references = 0;
	bool linked = true;
	std::atomic<bool> alive{true};
	address_space mapping{this};
};

namespace hosted
{

void check_inode_locked(const inode &file, const char *what);
void drop_all_pages(address_space &mapping);
void reset_page_cache();

} // namespace hosted
