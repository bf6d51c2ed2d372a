// SPDX-License-Identifier: GPL-2.0-only
// Counters of memory events and the periodic report of them.
#pragma once

#include <kernel/types.h>

inline constexpr unsigned int MM_EVENTS = 8;
// Slots that the module raises itself; 0 to 5 belong to other modules.
inline constexpr unsigned int MM_EVENT_SLAB_LEAK = 6;
inline constexpr unsigned int MM_EVENT_VMALLOC_LEAK = 7;

KERNEL_C_BEGIN

// Events of each type since the last report. Plain counters, see mem_event_count.
extern u64 mm_event_arr[MM_EVENTS];

KERNEL_C_END

// Adds to a statistic without a lock. Tolerated race: of two additions at the same moment, or of an
// addition and the report's clearing, one may be lost. Context: any.
inline void stat_add(u64 &stat, u64 n)
{
	WRITE_ONCE(stat, READ_ONCE(stat) + n);
}

inline void mem_event_count(unsigned int slot)
{
	stat_add(mm_event_arr[slot], 1);
}
