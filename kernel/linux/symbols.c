// SPDX-License-Identifier: GPL-2.0-only
#include <linux/kernel.h>
#include <linux/kprobes.h>
#include <linux/module.h>

#include "symbols.h"

struct kernel_symbols kernel_symbols __ro_after_init;

typedef unsigned long (*lookup_fn)(const char *name);

/* Kprobes can find any function by name, including the kernel's symbol lookup. */
static lookup_fn find_lookup(void)
{
	struct kprobe probe = {.symbol_name = "kallsyms_lookup_name"};

	if (register_kprobe(&probe))
		return NULL;
	unregister_kprobe(&probe);
	return (lookup_fn)probe.addr;
}

static void *find(lookup_fn lookup, const char *name, const char *without)
{
	void *symbol = lookup ? (void *)lookup(name) : NULL;

	/* The lookup also searches modules, and this one has functions of the same names. */
	if (within_module((unsigned long)symbol, THIS_MODULE))
		symbol = NULL;
	if (!symbol)
		pr_warn("%s: the kernel has no %s: %s\n", KBUILD_MODNAME, name, without);
	return symbol;
}

void find_kernel_symbols(void)
{
	lookup_fn lookup = find_lookup();

	kernel_symbols.get_slabinfo =
		find(lookup, "get_slabinfo", "slab tracking needs the name of a cache");
	kernel_symbols.si_swapinfo = find(lookup, "si_swapinfo", "swap is reported as 0");
	kernel_symbols.vmalloc_nr_pages =
		find(lookup, "vmalloc_nr_pages", "vmalloc leaks are not detected");
	kernel_symbols.cma_for_each_area =
		find(lookup, "cma_for_each_area", "CMA areas are not reported");
	kernel_symbols.get_pfnblock_flags_mask =
		find(lookup, "get_pfnblock_flags_mask", "pins of CMA pages are not reported");
	kernel_symbols.set_swapper_pgd =
		find(lookup, "set_swapper_pgd", "secure page ranges are not available");
}
