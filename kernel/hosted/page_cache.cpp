// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/fs.h>

#include <utility>

#include <hosted/engine/judge.h>
#include <hosted/inode.h>
#include <hosted/sched.h>

namespace hosted
{
namespace
{

struct invalidation_log {
	std::mutex lock;
	std::vector<const inode *> files{};
	std::function<void(inode &)> hook{};
};

invalidation_log &invalidations()
{
	static invalidation_log instance;
	return instance;
}

bool can_go(const page_state &page)
{
	return !page.dirty && !page.mapped && !page.locked && !page.writeback;
}

} // namespace

void cache_page(inode &file, unsigned long index, page_state state)
{
	address_space &mapping = file.mapping;
	const std::lock_guard guard(mapping.lock);

	mapping.pages[index] = state;
	mapping.count.store(mapping.pages.size(), std::memory_order_relaxed);
}

std::vector<unsigned long> cached_pages(inode &file)
{
	const std::lock_guard guard(file.mapping.lock);
	std::vector<unsigned long> indices;

	for (const auto &[index, page] : file.mapping.pages)
		indices.push_back(index);
	return indices;
}

void drop_all_pages(address_space &mapping)
{
	const std::lock_guard guard(mapping.lock);

	mapping.pages.clear();
	mapping.count.store(0, std::memory_order_relaxed);
}

std::vector<const inode *> take_invalidations()
{
	const std::lock_guard guard(invalidations().lock);
	return std::exchange(invalidations().files, {});
}

void on_invalidation(std::function<void(inode &)> run)
{
	invalidations().hook = std::move(run);
}

void reset_page_cache()
{
	on_invalidation({});
	take_invalidations();
}

} // namespace hosted

using namespace hosted;

unsigned long invalidate_mapping_pages(address_space *mapping, unsigned long start,
				       unsigned long end)
{
	might_sleep("invalidate_mapping_pages");
	if (judging && references(*mapping->file) == 0)
		judge_stop("invalidate_mapping_pages", "no one keeps the inode");
	{
		const std::lock_guard guard(invalidations().lock);
		invalidations().files.push_back(mapping->file);
	}
	if (invalidations().hook)
		invalidations().hook(*mapping->file);

	unsigned long dropped = 0;
	bool seen = false;
	{
		const std::lock_guard guard(mapping->lock);
		auto &pages = mapping->pages;
		for (auto at = pages.lower_bound(start); at != pages.end() && at->first <= end;) {
			seen = true;
			if (can_go(at->second)) {
				at = pages.erase(at);
				dropped++;
			} else {
				++at;
			}
		}
		mapping->count.store(pages.size(), std::memory_order_relaxed);
	}
	if (seen)
		resched();
	return dropped;
}

bool helper_mapping_empty(const address_space *mapping)
{
	return mapping->count.load(std::memory_order_relaxed) == 0;
}
