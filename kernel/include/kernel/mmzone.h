/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

typedef struct pglist_data pg_data_t;
struct zone;
struct zonelist;

/* A zone's index, in the order of the node's zones. */
enum zone_type { ZONE_TYPE_FIRST, ZONE_TYPE_LAST = KERNEL_MAX_NR_ZONES - 1 };

/* The one memory node. */
extern struct pglist_data contig_page_data;

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* Zone index is 0 to KERNEL_MAX_NR_ZONES - 1. Counts are in pages. Context: any, no lock. */
struct zone *helper_node_zone(struct pglist_data *node, int index);
unsigned long helper_node_totalreserve(const struct pglist_data *node);
void helper_node_set_totalreserve(struct pglist_data *node, unsigned long pages);
long helper_zone_lowmem_reserve(const struct zone *zone, int index);
/* The high watermark with the boost that reclaim has put on it. */
unsigned long helper_zone_high_wmark(const struct zone *zone);
unsigned long helper_zone_managed(const struct zone *zone);
const char *helper_zone_name(const struct zone *zone);
/* Global counts of a zone; a reading may be negative for a moment. */
long helper_zone_free_pages(const struct zone *zone);
long helper_zone_free_cma_pages(const struct zone *zone);
/* What a CPU has counted of free pages and not added to the zone's count yet. */
int helper_zone_free_pages_diff(const struct zone *zone, unsigned int cpu);
/* Free pages below which those differences matter; 0 for never. */
unsigned long helper_zone_drift_mark(const struct zone *zone);
unsigned long helper_zone_reserved_highatomic(const struct zone *zone);
/* Free blocks of an order, and whether none of them has a migrate type. Acquire read. */
unsigned long helper_zone_free_blocks(const struct zone *zone, unsigned int order);
bool helper_zone_free_list_empty(const struct zone *zone, unsigned int order, int migratetype);
/* The zones that an allocation on the node may fall back to. */
struct zonelist *helper_node_zonelist(struct pglist_data *node);

KERNEL_C_END
