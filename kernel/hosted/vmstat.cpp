// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/vmstat.h>

#include <mutex>

#include <fmt/format.h>

#include <hosted/engine/fault.h>
#include <hosted/engine/judge.h>
#include <hosted/mmzone.h>

atomic_long_t vm_zone_stat[hosted::vm_stat_items];
atomic_long_t vm_node_stat[hosted::vm_stat_items];
atomic_long_t nr_swap_pages;
atomic_long_t _totalram_pages;

namespace hosted
{
namespace
{

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
	reset_zones();
}

} // namespace hosted

using namespace hosted;

bool helper_swapinfo(unsigned long *total, unsigned long *free)
{
	if (should_fail("swapinfo"))
		return false;
	const std::lock_guard guard(swap_state.lock);
	*total = swap_state.total;
	*free = static_cast<unsigned long>(
			__atomic_load_n(&nr_swap_pages.counter, __ATOMIC_RELAXED)) +
		swap_state.to_be_unused;
	return true;
}
