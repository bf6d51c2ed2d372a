// SPDX-License-Identifier: GPL-2.0-only
// Freeing memory on the caller's own thread: reclaim, slab and page cache drops, compaction. What
// does the work is looked up at each call; where the kernel has it not, the service logs that and
// does nothing.
//
// Locks: a file system's list of inodes; inside it, one inode.
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
// The normal zone: the movable one is left alone.
constexpr int highest_compacted_zone = 1;
constexpr unsigned int whole_zones = -1;
constexpr int full_and_synchronous = 0;
// An inode on its way in or out.
constexpr unsigned long unstable = KERNEL_I_FREEING | KERNEL_I_WILL_FREE | KERNEL_I_NEW;

// The smallest order whose block holds size bytes; of nothing, all that a word can count.
int get_order(unsigned long size)
{
	return std::bit_width((size - 1) >> KERNEL_PAGE_SHIFT);
}

bool is_to_drop(struct inode *inode) REQUIRES(inode)
{
	if (helper_inode_state(inode) & unstable)
		return false;
	// With a reschedule pending even an empty one is worth the break that its turn brings.
	return !helper_mapping_empty(helper_inode_mapping(inode)) || helper_need_resched();
}

} // namespace

unsigned long tarn_reclaim(unsigned long size)
{
	unsigned long pages = 0;

	// Keeps the reclaim from reclaiming for itself. Cleared and not restored: callers know.
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

// The list lock is dropped while an inode is worked on; the reference on that inode keeps its place
// in the list, so the one before it can be let go only then.
void drop_pagecache_sb(struct super_block *sb, void *)
{
	struct inode *held = nullptr;
	struct list_head *inodes = helper_sb_inodes(sb);

	helper_sb_inodes_lock(sb);
	for (struct list_head *at = inodes->next; at != inodes; at = at->next) {
		struct inode *inode = helper_inode_of(at);

		helper_inode_lock(inode);
		if (!is_to_drop(inode)) {
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
