// SPDX-License-Identifier: GPL-2.0-only
// Frees memory on the caller's thread: reclaim, slab and page cache drops, compaction. Each call
// looks up the kernel function that does the work; if the kernel lacks it, the service logs that
// and does nothing.
//
// Locks, outermost first, both spinlocks taken with interrupts on:
// - a file system's inode list lock protects its list of inodes.
// - an inode's lock, one at a time, protects its state. Neither is held while pages are dropped or
//   a reference is put, which may sleep.
#include <kernel/reclaim.h>

#include <bit>

#include <kernel/fs.h>
#include <kernel/process.h>

#include "debug_symbol.h"
#include "mem_adapter.h"
#include "reclaim.h"

namespace
{

constexpr int unmovable = 0;
// The normal zone. The movable zone is not compacted.
constexpr int highest_compacted_zone = 1;
constexpr unsigned int whole_zones = -1;
constexpr int full_and_synchronous = 0;
// The inode is being created or freed.
constexpr unsigned long unstable = KERNEL_I_FREEING | KERNEL_I_WILL_FREE | KERNEL_I_NEW;

// The smallest order whose block holds size bytes. Size 0 wraps around and gives the largest order.
int get_order(unsigned long size)
{
	return std::bit_width((size - 1) >> KERNEL_PAGE_SHIFT);
}

bool should_drop(struct inode *inode) REQUIRES(inode)
{
	if (helper_inode_state(inode) & unstable)
		return false;
	// Dropping an inode gives up the list lock, so with a reschedule pending even an empty
	// inode is worth it.
	return !helper_mapping_empty(helper_inode_mapping(inode)) || helper_need_resched();
}

} // namespace

unsigned long tarn_reclaim(unsigned long size)
{
	unsigned long pages = 0;

	// Keeps reclaim from recursing. Cleared afterwards and not restored, as documented.
	helper_current_set_flags(PF_MEMALLOC);
	if (void *symbol = look_up_symbol(ADS_TRY_TO_FREE_PAGES, __func__))
		pages = helper_try_to_free_pages(symbol, helper_node_zonelist(first_online_pgdat()),
						 get_order(size), GFP_HIGHUSER_MOVABLE);
	helper_current_clear_flags(PF_MEMALLOC);
	return pages;
}

void tarn_drop_slabcache(void)
{
	if (void *symbol = look_up_symbol(ADS_DROP_SLAB, __func__))
		helper_drop_slab(symbol);
}

// The list lock is dropped while an inode is worked on. The reference on that inode keeps its place
// in the list, so the inode before it may be put only after the reference was taken.
void drop_pagecache_sb(struct super_block *sb, void *)
{
	struct inode *held = nullptr;
	struct list_head *inodes = helper_sb_inodes(sb);

	helper_sb_inodes_lock(sb);
	for (struct list_head *at = inodes->next; at != inodes; at = at->next) {
		struct inode *inode = helper_inode_of(at);

		helper_inode_lock(inode);
		if (!should_drop(inode)) {
			helper_inode_unlock(inode);
			continue;
		}
		helper_inode_get(inode);
		helper_inode_unlock(inode);
		helper_sb_inodes_unlock(sb);

		invalidate_mapping_pages(helper_inode_mapping(inode), 0, -1UL);
		iput(held);
		held = inode;

		helper_sb_inodes_lock(sb);
	}
	helper_sb_inodes_unlock(sb);
	iput(held);
}

void tarn_drop_pagecache(void)
{
	if (void *symbol = look_up_symbol(ADS_ITERATE_SUPERS, __func__))
		helper_iterate_supers(symbol, drop_pagecache_sb, nullptr);
}

void tarn_compact(int, unsigned int, unsigned long)
{
	void *symbol = look_up_symbol(ADS_TRY_TO_COMPACT_PAGES, __func__);
	struct page *captured = nullptr;
	alloc_context context;

	if (!symbol)
		return;
	helper_alloc_context_init(&context, helper_node_zonelist(first_online_pgdat()), unmovable,
				  highest_compacted_zone);
	helper_try_to_compact_pages(symbol, GFP_KERNEL, whole_zones, 0, &context,
				    full_and_synchronous, &captured);
}
