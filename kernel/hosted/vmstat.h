// SPDX-License-Identifier: GPL-2.0-only
// The machine's memory counters and swap, all settable. Counts are in pages. Everything here is
// thread safe.
#pragma once

#include <kernel/swap.h>
#include <kernel/vmstat.h>

namespace hosted
{

inline constexpr int vm_stat_items = 64; // of each array

// item is an index into the array.
void set_zone_stat(int item, long pages);
void set_node_stat(int item, long pages);
void add_zone_stat(int item, long pages);
void add_node_stat(int item, long pages);

void set_totalram(long pages);
// to_be_unused: free pages of a device that is being switched off, which nr_swap_pages does not
// include.
void set_swap(unsigned long total, unsigned long free, unsigned long to_be_unused = 0);

// Resets to a machine with 1 GiB, partly in use, and a zram swap of half that size.
void reset_statistics();

} // namespace hosted
