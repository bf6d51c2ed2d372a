/* SPDX-License-Identifier: GPL-2.0-only */
/* Entries of reclaim and compaction, which the kernel does not export. */
#pragma once

#include <kernel/gfp.h>
#include <kernel/mmzone.h>
#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
struct page;

KERNEL_OPAQUE(alloc_context, KERNEL_SIZEOF_ALLOC_CONTEXT);
#endif

KERNEL_C_BEGIN

/* Each function here calls a debug symbol through its address. Context: process, may sleep. */

/* ADS_TRY_TO_FREE_PAGES for all nodes. Returns the number of pages reclaimed. */
unsigned long helper_try_to_free_pages(void *symbol, struct zonelist *zonelist, int order,
				       gfp_t gfp);
/* ADS_DROP_SLAB. */
void helper_drop_slab(void *symbol);
/* ADS_TRY_TO_COMPACT_PAGES. Order -1 compacts whole zones; priority 0 is full, synchronous
 * compaction. */
void helper_try_to_compact_pages(void *symbol, gfp_t gfp, unsigned int order,
				 unsigned int alloc_flags, const struct alloc_context *context,
				 int priority, struct page **captured);

/* Fills in a context for all nodes, without a preferred zone. */
void helper_alloc_context_init(struct alloc_context *context, struct zonelist *zonelist,
			       int migratetype, int highest_zone);

KERNEL_C_END
