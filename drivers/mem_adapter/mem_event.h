// SPDX-License-Identifier: GPL-2.0-only
// Counters of memory events and the periodic report of them.
#pragma once

#include <kernel/atomic.h>

inline constexpr unsigned int MM_EVENTS = 8;
// The slots that this module counts; 0 to 5 belong to other modules.
inline constexpr unsigned int MM_EVENT_SLAB_LEAK = 6;
inline constexpr unsigned int MM_EVENT_VMALLOC_LEAK = 7;

KERNEL_C_BEGIN

// Events of each type since the last report.
extern atomic64_t mm_event_arr[MM_EVENTS];

KERNEL_C_END

// Counts an event. Context: any; never sleeps.
inline void mem_event_count(unsigned int slot)
{
	atomic64_add(1, &mm_event_arr[slot]);
}
