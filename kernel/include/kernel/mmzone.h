/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

typedef struct pglist_data pg_data_t;
struct zone;
struct zonelist;

/* Index of a zone, in the order of the node's zones. */
enum zone_type { ZONE_TYPE_FIRST, ZONE_TYPE_LAST = KERNEL_MAX_NR_ZONES - 1 };

/* The only memory node. */
extern struct pglist_data contig_page_data;

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* A zone index runs from 0 to KERNEL_MAX_NR_ZONES - 1. Counts are in pages. Context: any; no lock
 * needed. */
struct zone *helper_node_zone(struct pglist_data *node, int index);
unsigned long helper_node_totalreserve(const struct pglist_data *node);
void helper_node_set_totalreserve(struct pglist_data *node, unsigned long pages);
long helper_zone_lowmem_reserve(const struct zone *zone, int index);
/* The high watermark, including the boost that reclaim adds temporarily. */
unsigned long helper_zone_high_wmark(const struct zone *zone);
unsigned long helper_zone_managed(const struct zone *zone);
const char *helper_zone_name(const struct zone *zone);
/* The zone's global counts; a reading may be briefly negative. */
long helper_zone_free_pages(const struct zone *zone);
long helper_zone_free_cma_pages(const struct zone *zone);
/* Free pages that a CPU has counted but not yet added to the zone's count. */
int helper_zone_free_pages_diff(const struct zone *zone, unsigned int cpu);
/* Number of free pages below which those per-CPU differences matter; 0 means never. */
unsigned long helper_zone_drift_mark(const struct zone *zone);
unsigned long helper_zone_reserved_highatomic(const struct zone *zone);
/* Number of free blocks of an order, and whether the list of one migrate type is empty. Acquire
 * read. */
unsigned long helper_zone_free_blocks(const struct zone *zone, unsigned int order);
bool helper_zone_free_list_empty(const struct zone *zone, unsigned int order, int migratetype);
/* The zones that an allocation on the node may fall back to. */
struct zonelist *helper_node_zonelist(struct pglist_data *node);

KERNEL_C_END
