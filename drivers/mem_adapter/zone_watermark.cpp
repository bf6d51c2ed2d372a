// SPDX-License-Identifier: GPL-2.0-only
// Whether the zones have room for an allocation: the kernel's own safe watermark check as it treats
// an unprivileged caller, against the high mark, counting only unmovable, movable and reclaimable
// blocks. Tolerated race: the zones are read without their locks, so the answer is an estimate.
#include <bit>

#include <kernel/cpumask.h>
#include <kernel/mmzone.h>
#include <kernel/string.h>

#include "mem_adapter.h"

namespace
{

// The highest order that is searched for a free block.
constexpr unsigned int max_order = 9;
// Unmovable, movable and reclaimable come first.
constexpr int searched_migratetypes = 3;

// Zone indices, two bits each, indexed by the low four bits of allocation flags.
constexpr unsigned int zone_table = 0x250015;

long at_least_0(long count)
{
	return count < 0 ? 0 : count;
}

// The zone's free pages, including the counts that each CPU has not folded in yet.
long free_pages_snapshot(const struct zone *zone)
{
	constexpr unsigned int word_bits = 64;
	const unsigned long *online = helper_online_cpus();
	long free = helper_zone_free_pages(zone);

	for (unsigned int base = 0; base < KERNEL_NR_CPUS; base += word_bits) {
		for (unsigned long cpus = READ_ONCE(online[base / word_bits]); cpus;
		     cpus &= cpus - 1)
			free += helper_zone_free_pages_diff(zone, base + std::countr_zero(cpus));
	}
	return at_least_0(free);
}

long settled_free_pages(const struct zone *zone)
{
	const long free = at_least_0(helper_zone_free_pages(zone));
	const unsigned long drift_mark = helper_zone_drift_mark(zone);

	if (drift_mark && static_cast<unsigned long>(free) < drift_mark)
		return free_pages_snapshot(zone);
	return free;
}

bool has_free_block(const struct zone *zone, unsigned int order)
{
	for (; order <= max_order; order++) {
		if (!helper_zone_free_blocks(zone, order))
			continue;
		for (int type = 0; type < searched_migratetypes; type++) {
			if (!helper_zone_free_list_empty(zone, order, type))
				return true;
		}
	}
	return false;
}

bool zone_ok(const struct zone *zone, int zone_index, unsigned int order)
{
	// The search cannot find such a block, and the sums below would overflow.
	if (order > max_order)
		return false;

	const long block = 1L << order;
	const long usable = settled_free_pages(zone) - (block - 1) -
			    static_cast<long>(helper_zone_reserved_highatomic(zone)) -
			    at_least_0(helper_zone_free_cma_pages(zone));
	const int mark = static_cast<int>(helper_zone_high_wmark(zone) + block);

	if (usable <= mark + helper_zone_lowmem_reserve(zone, zone_index))
		return false;
	return order == 0 || has_free_block(zone, order);
}

} // namespace

bool tarn_zone_watermark_ok(enum zone_type zone_index, unsigned int order)
{
	const int index = static_cast<int>(zone_index);

	if (index >= KERNEL_MAX_NR_ZONES)
		return false;
	for (int i = index; i >= 0; i--) {
		const struct zone *zone = helper_node_zone(first_online_pgdat(), i);

		if (strcmp(helper_zone_name(zone), "DMA32") != 0 && !zone_ok(zone, index, order))
			return false;
	}
	return true;
}

enum zone_type tarn_gfp_zone(gfp_t flags)
{
	return static_cast<enum zone_type>(zone_table >> 2 * (flags & 0xf) & 3);
}
