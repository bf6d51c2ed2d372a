// SPDX-License-Identifier: GPL-2.0-only
// Readings of the kernel's page counters.
#pragma once

#include <kernel/atomic.h>
#include <kernel/types.h>
#include <kernel/vmstat.h>

// Reads a global counter, in pages. CPUs fold in their parts at different times, so it can be
// negative for a moment; that counts as 0. Context: any; never sleeps.
inline unsigned long page_stat(const atomic_long_t &item)
{
	const long pages = atomic_long_read(&item);

	return pages < 0 ? 0 : static_cast<unsigned long>(pages);
}

inline unsigned long pages_to_kib(unsigned long pages)
{
	return pages << (KERNEL_PAGE_SHIFT - 10);
}

inline unsigned long unreclaimable_slab_kib()
{
	return pages_to_kib(page_stat(vm_node_stat[KERNEL_NR_SLAB_UNRECLAIMABLE_B]));
}
