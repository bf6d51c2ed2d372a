// SPDX-License-Identifier: GPL-2.0-only
// The memory node and its zones, to be set at will. All counts are in pages unless said otherwise;
// all levers are thread safe.
#pragma once

#include <array>

#include <kernel/mmzone.h>

namespace hosted
{

inline constexpr unsigned free_area_orders = 11;
// Lists of free blocks of an order: unmovable, movable, reclaimable, CMA, high-atomic, isolated.
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
// What a CPU, online or not, has counted of free pages for itself.
void set_free_pages_diff(int index, unsigned cpu, signed char pages);
// Makes a list that many blocks long and counts the order's blocks. Their pages are not counted as
// free, see zone_state.
void set_free_blocks(int index, unsigned order, int list, unsigned blocks);
// Makes the count differ from the lists, which one who takes no lock may see while they change.
void set_block_count(int index, unsigned order, unsigned long blocks);

// Five zones, "DMA32" the first of them, two of which have memory; all lists are empty.
void reset_zones();

} // namespace hosted
