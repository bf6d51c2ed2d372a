// SPDX-License-Identifier: GPL-2.0-only
// The memory node and its zones, with settable counts. Counts are in pages unless noted. Everything
// here is thread safe.
#pragma once

#include <array>

#include <kernel/mmzone.h>

namespace hosted
{

inline constexpr unsigned free_area_orders = 11;
// One list of free blocks per order and type: unmovable, movable, reclaimable, CMA, high-atomic,
// isolated.
inline constexpr int free_list_types = 6;
inline constexpr int cma_list = KERNEL_MIGRATE_CMA;

struct zone_state {
	std::array<long, KERNEL_MAX_NR_ZONES> lowmem_reserve{};
	unsigned long high_wmark = 0;
	unsigned long boost = 0;
	unsigned long managed = 0;
	long free = 0;
	long free_cma = 0;
	unsigned long reserved_highatomic = 0;
	unsigned long drift_mark = 0;
};
void set_zone(int index, const zone_state &state);
// The name must live as long as the machine.
void set_zone_name(int index, const char *name);
// Free pages that a CPU, online or not, has counted but not yet added to the zone's count.
void set_free_pages_diff(int index, unsigned cpu, signed char pages);
// Sets the length of a list and updates the count of the order's blocks. The pages of these blocks
// do not change the count of free pages, see zone_state.
void set_free_blocks(int index, unsigned order, int list, unsigned blocks);
// Makes the count differ from the lists, as a reader without the lock may see while they change.
void set_block_count(int index, unsigned order, unsigned long blocks);

// Resets to five zones, "DMA32" first, two of which have memory. All lists are empty.
void reset_zones();

} // namespace hosted
