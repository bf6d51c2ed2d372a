/* SPDX-License-Identifier: GPL-2.0-only */
/* The Android vendor hooks that the module attaches to. A kernel may lack any of them. */
#pragma once

#include <kernel/tracepoint.h>

struct kmem_cache;
struct page;
struct seq_file;
struct vm_area_struct;
struct vm_struct;

/*
 * HOOK(name, prototype): the only place where a hook's prototype is written.
 *
 * caller is a code address; object is null if the allocation failed. start is the value of jiffies
 * when the allocation entered the slow path. A probe may change *gfp_mask, and sets *abort to end
 * the pass. (clang-format would read the asterisks here as products.)
 */
/* clang-format off */
#define KERNEL_VENDOR_HOOKS(HOOK)                                                                  \
	HOOK(android_vh_update_page_mapcount, (struct page *page, bool inc_size, bool compound,    \
					       int *first_mapping, bool *success))                 \
	HOOK(android_vh_customize_alloc_gfp, (gfp_t *gfp_mask, unsigned int order))                \
	HOOK(android_vh_slab_alloc_node,                                                           \
	     (void *object, unsigned long caller, struct kmem_cache *cache))                       \
	HOOK(android_vh_slab_free, (unsigned long caller, struct kmem_cache *cache))               \
	HOOK(android_vh_save_vmalloc_stack, (unsigned long flags, struct vm_struct *area))         \
	HOOK(android_vh_show_stack_hash, (struct seq_file *m, struct vm_struct *area))             \
	HOOK(android_vh_vmscan_kswapd_done,                                                        \
	     (int node, unsigned int highest_zone, unsigned int alloc_order,                       \
	      unsigned int reclaim_order))                                                         \
	HOOK(android_vh_alloc_pages_slowpath,                                                      \
	     (gfp_t gfp_mask, unsigned int order, unsigned long start))                            \
	HOOK(android_vh_mm_direct_reclaim_enter, (unsigned int order))                             \
	HOOK(android_vh_madvise_cold_or_pageout_abort, (struct vm_area_struct *vma, bool *abort))  \
	HOOK(android_vh_compact_finished, (bool *abort))
/* clang-format on */

KERNEL_C_BEGIN

KERNEL_VENDOR_HOOKS(KERNEL_PROBE_TYPE)

/* helper_<hook> is the hook's tracepoint, or null if the kernel has no such hook. */
#define KERNEL_DECLARE_HOOK(hook, prototype) extern struct tracepoint *const volatile helper_##hook;
KERNEL_VENDOR_HOOKS(KERNEL_DECLARE_HOOK)

KERNEL_C_END

#ifdef __cplusplus
/* <hook>() is the same, with the type of its probes. */
#define KERNEL_TYPE_HOOK(hook, prototype)                                                          \
	inline typed_tracepoint<hook##_probe> hook()                                               \
	{                                                                                          \
		return {helper_##hook};                                                            \
	}
KERNEL_VENDOR_HOOKS(KERNEL_TYPE_HOOK)
#endif
