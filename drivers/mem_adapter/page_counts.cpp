// SPDX-License-Identifier: GPL-2.0-only
// Page counts for other modules and for the memory event report, computed at each call. No locks
// but the kernel's swap lock, which helper_swapinfo() takes.
#include <kernel/atomic.h>
#include <kernel/mmzone.h>
#include <kernel/swap.h>
#include <kernel/vmstat.h>

#include "log.h"
#include "mem_adapter.h"
#include "page_counts.h"

namespace
{

// Swap pages in use and the size of swap. Both are 0 where the kernel does not tell.
struct swap_pages {
	unsigned long used = 0;
	unsigned long size = 0;

	swap_pages()
	{
		unsigned long total = 0;
		unsigned long free = 0;

		if (!helper_swapinfo(&total, &free))
			return;
		used = total - free;
		size = used + static_cast<unsigned long>(atomic_long_read(&nr_swap_pages));
	}
};

} // namespace

pg_data_t *first_online_pgdat(void)
{
	return &contig_page_data;
}

pg_data_t *next_online_pgdat(pg_data_t *)
{
	return nullptr;
}

// Tolerated race: the node's field passes through partial sums, and the kernel may recalculate it
// at the same time. Its readers use it as an estimate.
unsigned long tarn_get_totalreserve_pages(void)
{
	unsigned long reserve = 0;

	for (pg_data_t *node = first_online_pgdat(); node; node = next_online_pgdat(node)) {
		unsigned long node_reserve = 0;

		helper_node_set_totalreserve(node, 0);
		for (int i = 0; i < KERNEL_MAX_NR_ZONES; i++) {
			const struct zone *zone = helper_node_zone(node, i);
			const unsigned long managed = helper_zone_managed(zone);
			long lowmem = 0;

			for (int j = i; j < KERNEL_MAX_NR_ZONES; j++) {
				const long entry = helper_zone_lowmem_reserve(zone, j);

				lowmem = entry > lowmem ? entry : lowmem;
			}
			unsigned long pages =
				static_cast<unsigned long>(lowmem) + helper_zone_high_wmark(zone);
			if (pages > managed)
				pages = managed;
			node_reserve += pages;
			helper_node_set_totalreserve(node, node_reserve);
		}
		reserve += node_reserve;
	}
	return reserve;
}

unsigned long tarn_get_free_page(void)
{
	unsigned long pages = page_stat(vm_zone_stat[KERNEL_NR_FREE_PAGES]);
	const unsigned long reserve = tarn_get_totalreserve_pages();

	if (pages > reserve)
		pages -= reserve;
	MEM_INFO("free_pages:%ld, totalreserve_pages:%ld", static_cast<long>(pages),
		 static_cast<long>(reserve));
	return pages;
}

unsigned long tarn_get_file_page(void)
{
	return page_stat(vm_node_stat[KERNEL_NR_FILE_PAGES]) -
	       page_stat(vm_node_stat[KERNEL_NR_SWAPCACHE]) -
	       (page_stat(vm_node_stat[KERNEL_NR_SHMEM]) +
		page_stat(vm_node_stat[KERNEL_NR_UNEVICTABLE]));
}

unsigned long tarn_get_anon_page(void)
{
	return page_stat(vm_node_stat[KERNEL_NR_INACTIVE_ANON]) +
	       page_stat(vm_node_stat[KERNEL_NR_ACTIVE_ANON]);
}

unsigned long tarn_get_zram_page(void)
{
	return swap_pages().used;
}

unsigned long tarn_cpa_get_zram_watermark_page(void)
{
	// The lower watermark applies to swap that is larger than this part of RAM.
	constexpr unsigned long ram_limit_percent = 100;
	const unsigned long size = swap_pages().size;
	const unsigned long limit = static_cast<unsigned long>(atomic_long_read(&_totalram_pages)) *
				    ram_limit_percent / 100;
	const unsigned int ratio = size > limit ? 20 : 75;

	MEM_INFO("cpa_zram_ratio: %u", ratio);
	return static_cast<unsigned long>(static_cast<s64>(size * ratio) / 100);
}
