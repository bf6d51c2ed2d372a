// SPDX-License-Identifier: GPL-2.0-only
#include <linux/mmzone.h>

#include <kernel/mmzone.h>

struct zone *helper_node_zone(struct pglist_data *node, int index)
{
	return &node->node_zones[index];
}

unsigned long helper_node_totalreserve(const struct pglist_data *node)
{
	return node->totalreserve_pages;
}

void helper_node_set_totalreserve(struct pglist_data *node, unsigned long pages)
{
	node->totalreserve_pages = pages;
}

long helper_zone_lowmem_reserve(const struct zone *zone, int index)
{
	return zone->lowmem_reserve[index];
}

unsigned long helper_zone_high_wmark(const struct zone *zone)
{
	return high_wmark_pages(zone);
}

unsigned long helper_zone_managed(const struct zone *zone)
{
	return zone_managed_pages((struct zone *)zone);
}
