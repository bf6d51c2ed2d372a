/* SPDX-License-Identifier: GPL-2.0-only */
/* Kernel functions that the kernel does not export; null if it lacks them. */
#pragma once

#include <linux/pgtable.h>
#include <linux/types.h>

struct cma;
struct kmem_cache;
struct page;
struct slabinfo;
struct sysinfo;

struct kernel_symbols {
	void (*get_slabinfo)(struct kmem_cache *cache, struct slabinfo *info);
	void (*si_swapinfo)(struct sysinfo *info);
	unsigned long (*vmalloc_nr_pages)(void);
	int (*cma_for_each_area)(int (*it)(struct cma *area, void *data), void *data);
	unsigned long (*get_pfnblock_flags_mask)(const struct page *page, unsigned long pfn,
						 unsigned long mask);
	void (*set_swapper_pgd)(pgd_t *entry, pgd_t value);
};

extern struct kernel_symbols kernel_symbols;

/* Fills the table and logs each missing function with its consequence. Called once, before the
 * module starts. Context: process, may sleep. */
void find_kernel_symbols(void);
