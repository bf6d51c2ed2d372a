// SPDX-License-Identifier: GPL-2.0-only
// File systems and inodes. The page cache is in page_cache.cpp.
#include <hosted/fs.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <shared_mutex>

#include <hosted/engine/judge.h>
#include <hosted/inode.h>
#include <hosted/spinlock.h>

struct CAPABILITY("file system") super_block {
	raw_spinlock_t inode_list_lock{};
	list_head inodes{&inodes, &inodes};
	std::shared_mutex mounted_lock{}; // while held shared, it stays mounted
	bool mounted = true;
};

namespace hosted
{
namespace
{

constinit lock_class_key inode_list_key{};
constinit lock_class_key inode_key{};

struct file_systems {
	std::mutex lock;
	std::vector<std::shared_ptr<super_block>> all{};
	// Freed inodes are kept so that later uses of them are detected.
	std::vector<std::unique_ptr<inode>> freed{};
};

file_systems &systems()
{
	static file_systems instance;
	return instance;
}

void evict(inode &file)
{
	{
		const spin_guard guard(file.sb->inode_list_lock);
		file.prev->next = file.next;
		file.next->prev = file.prev;
		file.next = file.prev = nullptr;
	}
	drop_all_pages(file.mapping);
	file.alive.store(false, std::memory_order_release);
	const std::lock_guard guard(systems().lock);
	systems().freed.emplace_back(&file);
}

// Starts to free the inode if nothing keeps it, and returns whether it did. Called under its lock.
bool begin_eviction(inode &file)
{
	if (file.references != 0 || file.linked ||
	    (file.state & (KERNEL_I_FREEING | KERNEL_I_WILL_FREE)))
		return false;
	file.state |= KERNEL_I_FREEING;
	return true;
}

void evict_all(super_block &sb)
{
	while (sb.inodes.next != &sb.inodes) {
		auto &file = static_cast<inode &>(*sb.inodes.next);

		if (file.references != 0)
			judge_stop("inode", "a file system is unmounted with a file in use");
		evict(file);
	}
}

} // namespace

void check_inode_locked(const inode &file, const char *what)
{
	if (judging && !holds(file.lock))
		judge_stop(what, "the inode is not locked");
}

void iterate_supers(void (*callback)(super_block *sb, void *arg), void *arg)
{
	might_sleep("iterate_supers");
	std::vector<std::shared_ptr<super_block>> all;
	{
		const std::lock_guard guard(systems().lock);
		all = systems().all;
	}
	for (const auto &sb : all) {
		const std::shared_lock guard(sb->mounted_lock);
		const callback_check check("iterate_supers callback");

		if (sb->mounted)
			callback(sb.get(), arg);
	}
}

super_block &mount()
{
	auto sb = std::make_shared<super_block>();

	helper_raw_spin_lock_init(&sb->inode_list_lock, "s_inode_list_lock", &inode_list_key);
	const std::lock_guard guard(systems().lock);
	return *systems().all.emplace_back(std::move(sb));
}

void unmount(super_block &sb)
{
	might_sleep("unmount");
	{
		const std::lock_guard guard(sb.mounted_lock);

		sb.mounted = false;
		evict_all(sb);
	}
	const std::lock_guard guard(systems().lock);
	std::erase_if(systems().all, [&](const auto &each) { return each.get() == &sb; });
}

inode &create_file(super_block &sb)
{
	auto *file = new inode(&sb);

	helper_raw_spin_lock_init(&file->lock, "i_lock", &inode_key);
	const spin_guard guard(sb.inode_list_lock);
	file->next = sb.inodes.next;
	file->prev = &sb.inodes;
	sb.inodes.next->prev = file;
	sb.inodes.next = file;
	return *file;
}

void remove_file(inode &file)
{
	might_sleep("unlink");
	bool goes;
	{
		const spin_guard guard(file.lock);
		file.linked = false;
		goes = begin_eviction(file);
	}
	if (goes)
		evict(file);
}

void set_inode_state(inode &file, unsigned long state)
{
	const spin_guard guard(file.lock);
	file.state = state;
}

int references(inode &file)
{
	const spin_guard guard(file.lock);
	return file.references;
}

void reset_fs()
{
	file_systems &s = systems();
	for (const auto &sb : std::vector(s.all))
		unmount(*sb);
	s.freed.clear();
	reset_page_cache();
}

} // namespace hosted

using namespace hosted;

void iput(inode *file)
{
	if (!file)
		return;
	might_sleep("iput");
	bool goes;
	{
		const spin_guard guard(file->lock);
		if (judging && (!file->alive || file->references == 0))
			judge_stop("iput", "a reference is dropped that no one has");
		file->references--;
		goes = begin_eviction(*file);
	}
	if (goes)
		evict(*file);
}

void helper_sb_inodes_lock(super_block *sb) NO_THREAD_SAFETY_ANALYSIS
{
	spin_lock(sb->inode_list_lock);
}

void helper_sb_inodes_unlock(super_block *sb) NO_THREAD_SAFETY_ANALYSIS
{
	spin_unlock(sb->inode_list_lock);
}

list_head *helper_sb_inodes(super_block *sb)
{
	return &sb->inodes;
}

inode *helper_inode_of(list_head *entry)
{
	auto *file = static_cast<inode *>(entry);

	if constexpr (judging) {
		if (!file || !file->alive.load(std::memory_order_acquire))
			judge_stop("inode", "the walk has lost its place: that inode was freed");
		if (!holds(file->sb->inode_list_lock))
			judge_stop("inode", "the list of inodes is walked without its lock");
	}
	return file;
}

void helper_inode_lock(inode *file) NO_THREAD_SAFETY_ANALYSIS
{
	spin_lock(file->lock);
}

void helper_inode_unlock(inode *file) NO_THREAD_SAFETY_ANALYSIS
{
	spin_unlock(file->lock);
}

unsigned long helper_inode_state(const inode *file)
{
	check_inode_locked(*file, "inode state");
	return file->state;
}

void helper_inode_get(inode *file)
{
	check_inode_locked(*file, "inode reference");
	if (judging && (file->state & (KERNEL_I_FREEING | KERNEL_I_WILL_FREE)))
		judge_stop("inode reference", "the inode is being freed");
	file->references++;
}

address_space *helper_inode_mapping(const inode *file)
{
	return &const_cast<inode *>(file)->mapping;
}

void helper_iterate_supers(void *symbol, void (*callback)(super_block *sb, void *arg), void *arg)
{
	reinterpret_cast<decltype(&hosted::iterate_supers)>(symbol)(callback, arg);
}
