// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/vmstat.h>

#include <atomic>
#include <mutex>

#include <fmt/format.h>

#include <hosted/judge.h>

atomic_long_t vm_zone_stat[hosted::vm_stat_items];
atomic_long_t vm_node_stat[hosted::vm_stat_items];
atomic_long_t nr_swap_pages;
atomic_long_t _totalram_pages;

// Counters of their own, read without a lock as in the kernel.
struct zone {
	std::array<std::atomic<long>, KERNEL_MAX_NR_ZONES> lowmem_reserve;
	std::atomic<unsigned long> high_wmark;
	std::atomic<unsigned long> boost;
	std::atomic<unsigned long> managed;
};

struct pglist_data {
	std::array<zone, KERNEL_MAX_NR_ZONES> zones;
	std::atomic<unsigned long> totalreserve;
};

constinit pglist_data contig_page_data{};

namespace hosted
{
namespace
{

constexpr auto relaxed = std::memory_order_relaxed;

struct swap_areas {
	std::mutex lock;
	unsigned long total = 0;
	unsigned long to_be_unused = 0;
};
constinit swap_areas swap_state;

void check_index(int index, int count, const char *what)
{
	if (index < 0 || index >= count)
		judge_stop("statistics", fmt::format("{} {} is out of range", what, index));
}

void store(atomic_long_t &counter, long value)
{
	__atomic_store_n(&counter.counter, value, __ATOMIC_RELAXED);
}

void add(atomic_long_t &counter, long value)
{
	__atomic_fetch_add(&counter.counter, value, __ATOMIC_RELAXED);
}

atomic_long_t &item_of(atomic_long_t *items, int item)
{
	check_index(item, vm_stat_items, "item");
	return items[item];
}

zone &zone_at(pglist_data &node, int index)
{
	check_index(index, KERNEL_MAX_NR_ZONES, "zone");
	return node.zones[index];
}

} // namespace

void set_zone_stat(int item, long pages)
{
	store(item_of(vm_zone_stat, item), pages);
}

void set_node_stat(int item, long pages)
{
	store(item_of(vm_node_stat, item), pages);
}

void add_zone_stat(int item, long pages)
{
	add(item_of(vm_zone_stat, item), pages);
}

void add_node_stat(int item, long pages)
{
	add(item_of(vm_node_stat, item), pages);
}

void set_totalram(long pages)
{
	store(_totalram_pages, pages);
}

void set_swap(unsigned long total, unsigned long free, unsigned long to_be_unused)
{
	const std::lock_guard guard(swap_state.lock);
	swap_state.total = total;
	swap_state.to_be_unused = to_be_unused;
	store(nr_swap_pages, static_cast<long>(free - to_be_unused));
}

void set_zone(int index, const zone_state &state)
{
	zone &z = zone_at(contig_page_data, index);
	for (int i = 0; i < KERNEL_MAX_NR_ZONES; i++)
		z.lowmem_reserve[i].store(state.lowmem_reserve[i], relaxed);
	z.high_wmark.store(state.high_wmark, relaxed);
	z.boost.store(state.boost, relaxed);
	z.managed.store(state.managed, relaxed);
}

void reset_statistics()
{
	for (int item = 0; item < vm_stat_items; item++) {
		set_zone_stat(item, 0);
		set_node_stat(item, 0);
	}
	set_totalram(250000);
	set_zone_stat(KERNEL_NR_FREE_PAGES, 60000);
	set_node_stat(KERNEL_NR_INACTIVE_ANON, 20000);
	set_node_stat(KERNEL_NR_ACTIVE_ANON, 40000);
	set_node_stat(KERNEL_NR_UNEVICTABLE, 500);
	set_node_stat(KERNEL_NR_FILE_PAGES, 90000);
	set_node_stat(KERNEL_NR_SHMEM, 3000);
	set_node_stat(KERNEL_NR_SWAPCACHE, 1000);
	set_swap(125000, 100000);

	for (int index = 0; index < KERNEL_MAX_NR_ZONES; index++)
		set_zone(index, {});
	set_zone(0, {{0, 500, 500, 500, 500}, 3000, 0, 200000});
	set_zone(1, {{0, 0, 100, 100, 100}, 900, 0, 50000});
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

void helper_swapinfo(unsigned long *total, unsigned long *free)
{
	const std::lock_guard guard(swap_state.lock);
	*total = swap_state.total;
	*free = static_cast<unsigned long>(
			__atomic_load_n(&nr_swap_pages.counter, __ATOMIC_RELAXED)) +
		swap_state.to_be_unused;
}
