/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

typedef struct pglist_data pg_data_t;
struct zone;

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

KERNEL_C_END
