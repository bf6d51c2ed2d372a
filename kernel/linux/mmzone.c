// SPDX-License-Identifier: GPL-2.0-only
#include <linux/mm.h>
#include <linux/percpu.h>

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

const char *helper_zone_name(const struct zone *zone)
{
	return zone->name;
}

long helper_zone_free_pages(const struct zone *zone)
{
	return atomic_long_read(&zone->vm_stat[NR_FREE_PAGES]);
}

long helper_zone_free_cma_pages(const struct zone *zone)
{
	return atomic_long_read(&zone->vm_stat[NR_FREE_CMA_PAGES]);
}

int helper_zone_free_pages_diff(const struct zone *zone, unsigned int cpu)
{
	return per_cpu_ptr(zone->per_cpu_zonestats, cpu)->vm_stat_diff[NR_FREE_PAGES];
}

unsigned long helper_zone_drift_mark(const struct zone *zone)
{
	return zone->percpu_drift_mark;
}

unsigned long helper_zone_reserved_highatomic(const struct zone *zone)
{
	return zone->nr_reserved_highatomic;
}

unsigned long helper_zone_free_blocks(const struct zone *zone, unsigned int order)
{
	return READ_ONCE(zone->free_area[order].nr_free);
}

bool helper_zone_free_list_empty(const struct zone *zone, unsigned int order, int migratetype)
{
	const struct list_head *list = &zone->free_area[order].free_list[migratetype];

	return smp_load_acquire(&list->next) == list;
}

struct zonelist *helper_node_zonelist(struct pglist_data *node)
{
	return &node->node_zonelists[0];
}
