// SPDX-License-Identifier: GPL-2.0-only
// The vendor hooks as the rest of the kernel fires them.
#pragma once

#include <hosted/tracepoint.h>
#include <kernel/gfp.h>
#include <kernel/vendor_hooks.h>

struct kmem_cache;
struct page;
struct seq_file;
struct vm_area_struct;
struct vm_struct;

#define DECLARE_TRACEPOINT(hook) extern tracepoint __tracepoint_##hook;
KERNEL_VENDOR_HOOKS(DECLARE_TRACEPOINT)
#undef DECLARE_TRACEPOINT

inline void trace_android_vh_update_page_mapcount(page *page, bool inc_size, bool compound,
						  int *first_mapping, bool *success)
{
	hosted::fire(__tracepoint_android_vh_update_page_mapcount, page, inc_size, compound,
		     first_mapping, success);
}

inline void trace_android_vh_customize_alloc_gfp(gfp_t *gfp_mask, unsigned int order)
{
	hosted::fire(__tracepoint_android_vh_customize_alloc_gfp, gfp_mask, order);
}

inline void trace_android_vh_slab_alloc_node(void *object, unsigned long caller, kmem_cache *cache)
{
	hosted::fire(__tracepoint_android_vh_slab_alloc_node, object, caller, cache);
}

inline void trace_android_vh_slab_free(unsigned long caller, kmem_cache *cache)
{
	hosted::fire(__tracepoint_android_vh_slab_free, caller, cache);
}

inline void trace_android_vh_save_vmalloc_stack(unsigned long flags, vm_struct *area)
{
	hosted::fire(__tracepoint_android_vh_save_vmalloc_stack, flags, area);
}

inline void trace_android_vh_show_stack_hash(seq_file *m, vm_struct *area)
{
	hosted::fire(__tracepoint_android_vh_show_stack_hash, m, area);
}

inline void trace_android_vh_vmscan_kswapd_done(int node, unsigned int highest_zone,
						unsigned int alloc_order,
						unsigned int reclaim_order)
{
	hosted::fire(__tracepoint_android_vh_vmscan_kswapd_done, node, highest_zone, alloc_order,
		     reclaim_order);
}

// start is the value of jiffies when the allocation entered the slow path
inline void trace_android_vh_alloc_pages_slowpath(gfp_t gfp_mask, unsigned int order,
						  unsigned long start)
{
	hosted::fire(__tracepoint_android_vh_alloc_pages_slowpath, gfp_mask, order, start);
}

inline void trace_android_vh_mm_direct_reclaim_enter(unsigned int order)
{
	hosted::fire(__tracepoint_android_vh_mm_direct_reclaim_enter, order);
}

inline void trace_android_vh_madvise_cold_or_pageout_abort(vm_area_struct *vma, bool *abort)
{
	hosted::fire(__tracepoint_android_vh_madvise_cold_or_pageout_abort, vma, abort);
}

inline void trace_android_vh_compact_finished(bool *abort)
{
	hosted::fire(__tracepoint_android_vh_compact_finished, abort);
}
