// SPDX-License-Identifier: GPL-2.0-only
// The inside of an inode, for the hosted kernel's own files.
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

// The list entry is protected by the file system's list lock, the rest by the inode's lock.
struct CAPABILITY("inode") inode : list_head {
	explicit inode(super_block *of, void *data = nullptr) : sb(of), i_private(data)
	{
		next = prev = nullptr;
	}

	super_block *const sb; // null in debugfs, whose inodes live while their file is open
	void *const i_private; // data that a debugfs file shows
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
