/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * The bridge's exports: the vendor hooks as tracepoints, whose probes get a data pointer and then
 * these arguments, and access to some symbols of the kernel.
 */
#pragma once

#include <linux/gfp_types.h>
#include <linux/tracepoint.h>

struct kmem_cache;
struct page;
struct seq_file;
struct vm_area_struct;
struct vm_struct;

/* object is null if the allocation failed; caller is a code address. */
DECLARE_TRACE(android_vh_slab_alloc_node,
	      TP_PROTO(void *object, unsigned long caller, struct kmem_cache *cache),
	      TP_ARGS(object, caller, cache));
DECLARE_TRACE(android_vh_slab_free, TP_PROTO(unsigned long caller, struct kmem_cache *cache),
	      TP_ARGS(caller, cache));

/* Fires when an area has its addresses, before anything is mapped there. */
DECLARE_TRACE(android_vh_save_vmalloc_stack, TP_PROTO(unsigned long flags, struct vm_struct *area),
	      TP_ARGS(flags, area));
/* Fires at the end of the area's line, before the newline. Atomic. */
DECLARE_TRACE(android_vh_show_stack_hash, TP_PROTO(struct seq_file *m, struct vm_struct *area),
	      TP_ARGS(m, area));

DECLARE_TRACE(android_vh_vmscan_kswapd_done,
	      TP_PROTO(int node, unsigned int highest_zone, unsigned int alloc_order,
		       unsigned int reclaim_order),
	      TP_ARGS(node, highest_zone, alloc_order, reclaim_order));
/* start is the value of jiffies when the allocation entered the slow path. */
DECLARE_TRACE(android_vh_alloc_pages_slowpath,
	      TP_PROTO(gfp_t gfp_mask, unsigned int order, unsigned long start),
	      TP_ARGS(gfp_mask, order, start));
DECLARE_TRACE(android_vh_mm_direct_reclaim_enter, TP_PROTO(unsigned int order), TP_ARGS(order));

/* Values that probes store in first_mapping and success have no effect here. */
DECLARE_TRACE(android_vh_update_page_mapcount,
	      TP_PROTO(struct page *page, bool inc_size, bool compound, int *first_mapping,
		       bool *success),
	      TP_ARGS(page, inc_size, compound, first_mapping, success));
/* The allocation uses the flags as the probes leave them. */
DECLARE_TRACE(android_vh_customize_alloc_gfp, TP_PROTO(gfp_t *gfp_mask, unsigned int order),
	      TP_ARGS(gfp_mask, order));

/* If a probe sets the flag, the pass stops. */
DECLARE_TRACE(android_vh_madvise_cold_or_pageout_abort,
	      TP_PROTO(struct vm_area_struct *vma, bool *abort), TP_ARGS(vma, abort));
DECLARE_TRACE(android_vh_compact_finished, TP_PROTO(bool *abort), TP_ARGS(abort));

/* As on a phone's kernel, the index is an enum: its name is a part of the function's type. */
enum android_debug_symbol { FIRST_DEBUG_SYMBOL };
/* Returns the address of a symbol that the kernel does not export, or an error pointer. Context:
 * any. */
void *android_debug_symbol(enum android_debug_symbol index);
