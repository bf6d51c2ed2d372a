// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/mmzone.h>

#include <atomic>
#include <mutex>
#include <numeric>

#include <fmt/format.h>

#include <hosted/engine/judge.h>

namespace hosted
{
namespace
{

constexpr auto relaxed = std::memory_order_relaxed;

struct free_block {
	list_head entry;
};

struct free_area {
	std::atomic<unsigned long> blocks;
	std::array<list_head, free_list_types> lists;
	std::array<unsigned, free_list_types> lengths;
};

} // namespace
} // namespace hosted

// Fields are read without a lock, as in the kernel; only changes to a list take the zone's lock.
struct zone {
	std::atomic<const char *> name;
	std::array<std::atomic<long>, KERNEL_MAX_NR_ZONES> lowmem_reserve;
	std::atomic<unsigned long> high_wmark;
	std::atomic<unsigned long> boost;
	std::atomic<unsigned long> managed;
	std::atomic<long> free;
	std::atomic<long> free_cma;
	std::atomic<unsigned long> reserved_highatomic;
	std::atomic<unsigned long> drift_mark;
	std::array<std::atomic<signed char>, KERNEL_NR_CPUS> free_diffs;
	std::array<hosted::free_area, hosted::free_area_orders> free_areas;
	std::mutex lock;
};

struct zonelist {
	const pglist_data *node;
};

struct pglist_data {
	std::array<zone, KERNEL_MAX_NR_ZONES> zones;
	std::atomic<unsigned long> totalreserve;
	zonelist fallback;
};

constinit pglist_data contig_page_data{
	.zones = {}, .totalreserve = 0, .fallback = {&contig_page_data}};

namespace hosted
{
namespace
{

template <class Index>
void check_index(Index index, Index count, const char *what)
{
	if (index < 0 || index >= count) [[unlikely]]
		judge_stop("zone", fmt::format("{} {} is out of range", what, index));
}

zone &zone_at(pglist_data &node, int index)
{
	check_index(index, KERNEL_MAX_NR_ZONES, "zone");
	return node.zones[index];
}

list_head *load(list_head *const &link)
{
	return __atomic_load_n(&link, __ATOMIC_ACQUIRE);
}

// Release, for readers that do not take the lock.
void store(list_head *&link, list_head *to)
{
	__atomic_store_n(&link, to, __ATOMIC_RELEASE);
}

void add(list_head &head)
{
	auto *block = new free_block;

	block->entry = {head.next, &head};
	head.next->prev = &block->entry;
	store(head.next, &block->entry);
}

void remove_first(list_head &head)
{
	list_head *entry = head.next;

	entry->next->prev = &head;
	store(head.next, entry->next);
	delete reinterpret_cast<free_block *>(entry);
}

} // namespace

void set_zone(int index, const zone_state &state)
{
	zone &z = zone_at(contig_page_data, index);

	for (int i = 0; i < KERNEL_MAX_NR_ZONES; i++)
		z.lowmem_reserve[i].store(state.lowmem_reserve[i], relaxed);
	z.high_wmark.store(state.high_wmark, relaxed);
	z.boost.store(state.boost, relaxed);
	z.managed.store(state.managed, relaxed);
	z.free.store(state.free, relaxed);
	z.free_cma.store(state.free_cma, relaxed);
	z.reserved_highatomic.store(state.reserved_highatomic, relaxed);
	z.drift_mark.store(state.drift_mark, relaxed);
}

void set_zone_name(int index, const char *name)
{
	zone_at(contig_page_data, index).name.store(name, relaxed);
}

void set_free_pages_diff(int index, unsigned cpu, signed char pages)
{
	check_index(cpu, unsigned{KERNEL_NR_CPUS}, "CPU");
	zone_at(contig_page_data, index).free_diffs[cpu].store(pages, relaxed);
}

void set_free_blocks(int index, unsigned order, int list, unsigned blocks)
{
	zone &z = zone_at(contig_page_data, index);
	check_index(order, free_area_orders, "order");
	check_index(list, free_list_types, "list");
	free_area &area = z.free_areas[order];
	list_head &head = area.lists[list];
	const std::lock_guard guard(z.lock);

	if (!head.next) // never used
		head = {&head, &head};
	for (; area.lengths[list] < blocks; area.lengths[list]++)
		add(head);
	for (; area.lengths[list] > blocks; area.lengths[list]--)
		remove_first(head);
	area.blocks.store(std::accumulate(area.lengths.begin(), area.lengths.end(), 0UL), relaxed);
}

void set_block_count(int index, unsigned order, unsigned long blocks)
{
	check_index(order, free_area_orders, "order");
	zone_at(contig_page_data, index).free_areas[order].blocks.store(blocks, relaxed);
}

void reset_zones()
{
	static constexpr const char *names[KERNEL_MAX_NR_ZONES] = {"DMA32", "Normal", "Movable",
								   "Device", "Spare"};

	for (int index = 0; index < KERNEL_MAX_NR_ZONES; index++) {
		set_zone(index, {});
		set_zone_name(index, names[index]);
		for (unsigned cpu = 0; cpu < KERNEL_NR_CPUS; cpu++)
			set_free_pages_diff(index, cpu, 0);
		for (unsigned order = 0; order < free_area_orders; order++)
			for (int list = 0; list < free_list_types; list++)
				set_free_blocks(index, order, list, 0);
	}
	set_zone(0, {{0, 500, 500, 500, 500}, 3000, 0, 200000, 45000});
	set_zone(1, {{0, 0, 100, 100, 100}, 900, 0, 50000, 15000});
	contig_page_data.totalreserve.store(4500, relaxed);
}

} // namespace hosted

using namespace hosted;

zone *helper_node_zone(pglist_data *node, int index)
{
	return &zone_at(*node, index);
}

unsigned long helper_node_totalreserve(const pglist_data *node)
{
	return node->totalreserve.load(relaxed);
}

void helper_node_set_totalreserve(pglist_data *node, unsigned long pages)
{
	node->totalreserve.store(pages, relaxed);
}

long helper_zone_lowmem_reserve(const zone *zone, int index)
{
	check_index(index, KERNEL_MAX_NR_ZONES, "zone");
	return zone->lowmem_reserve[index].load(relaxed);
}

unsigned long helper_zone_high_wmark(const zone *zone)
{
	return zone->high_wmark.load(relaxed) + zone->boost.load(relaxed);
}

unsigned long helper_zone_managed(const zone *zone)
{
	return zone->managed.load(relaxed);
}

const char *helper_zone_name(const zone *zone)
{
	return zone->name.load(relaxed);
}

long helper_zone_free_pages(const zone *zone)
{
	return zone->free.load(relaxed);
}

long helper_zone_free_cma_pages(const zone *zone)
{
	return zone->free_cma.load(relaxed);
}

int helper_zone_free_pages_diff(const zone *zone, unsigned cpu)
{
	check_index(cpu, unsigned{KERNEL_NR_CPUS}, "CPU");
	return zone->free_diffs[cpu].load(relaxed);
}

unsigned long helper_zone_drift_mark(const zone *zone)
{
	return zone->drift_mark.load(relaxed);
}

unsigned long helper_zone_reserved_highatomic(const zone *zone)
{
	return zone->reserved_highatomic.load(relaxed);
}

unsigned long helper_zone_free_blocks(const zone *zone, unsigned order)
{
	check_index(order, free_area_orders, "order");
	return zone->free_areas[order].blocks.load(relaxed);
}

bool helper_zone_free_list_empty(const zone *zone, unsigned order, int migratetype)
{
	check_index(order, free_area_orders, "order");
	check_index(migratetype, free_list_types, "list");
	const list_head &head = zone->free_areas[order].lists[migratetype];

	return load(head.next) == &head;
}

zonelist *helper_node_zonelist(pglist_data *node)
{
	return &node->fallback;
}
