// SPDX-License-Identifier: GPL-2.0-only
// The machine's memory counters and swap, to be set at will. All counts are in pages; all
// levers are thread safe.
#pragma once

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

// A machine of 1 GiB with some of it in use and a zram swap of half that size.
void reset_statistics();

} // namespace hosted
