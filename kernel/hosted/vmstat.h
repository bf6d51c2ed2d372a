// SPDX-License-Identifier: GPL-2.0-only
// The machine's memory counters, zones and swap, to be set at will. All counts are in pages; all
// levers are thread safe.
#pragma once

#include <array>

#include <kernel/mmzone.h>
#include <kernel/swap.h>
#include <kernel/vmstat.h>

namespace hosted
{

inline constexpr int vm_stat_items = 64; // of each array

// item is an index of the array
void set_zone_stat(int item, long pages);
void set_node_stat(int item, long pages);
void add_zone_stat(int item, long pages);
void add_node_stat(int item, long pages);

void set_totalram(long pages);
// to_be_unused: free pages of a device that is just being switched off, which nr_swap_pages lacks.
void set_swap(unsigned long total, unsigned long free, unsigned long to_be_unused = 0);

struct zone_state {
	std::array<long, KERNEL_MAX_NR_ZONES> lowmem_reserve{};
	unsigned long high_wmark = 0;
	unsigned long boost = 0;
	unsigned long managed = 0;
};
void set_zone(int index, const zone_state &state);

// A machine of 1 GiB with some of it in use and a zram swap of half that size.
void reset_statistics();

} // namespace hosted
