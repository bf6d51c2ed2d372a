// SPDX-License-Identifier: GPL-2.0-only
/* Finds symbols by name that the kernel does not export. */
#include <linux/err.h>
#include <linux/errno.h>
#include <linux/export.h>
#include <linux/kernel.h>
#include <linux/kprobes.h>
#include <linux/list.h>
#include <linux/mutex.h>

#include <kernel/debug_symbol.h>

#include "bridge.h"
#include "hooks.h"

static unsigned long (*lookup_name)(const char *name);
static int (*lookup_size_offset)(unsigned long addr, unsigned long *size, unsigned long *offset);

static const char *const debug_symbol_names[] = {
	[ADS_INIT_MM] = "init_mm",
	[ADS_ITERATE_SUPERS] = "iterate_supers",
	[ADS_DROP_SLAB] = "drop_slab",
	[ADS_TRY_TO_FREE_PAGES] = "try_to_free_pages",
	[ADS_TRY_TO_COMPACT_PAGES] = "try_to_compact_pages",
	[ADS_SLAB_CACHES] = "slab_caches",
	[ADS_SLAB_MUTEX] = "slab_mutex",
};
static void *debug_symbols[ARRAY_SIZE(debug_symbol_names)];

int symbols_init(void)
{
	/* A kprobe can be set by name, which yields the address of the lookup for all other
	 * symbols. */
	struct kprobe probe = {.symbol_name = "kallsyms_lookup_name"};
	int err = register_kprobe(&probe);

	if (err)
		return err;
	lookup_name = (void *)probe.addr;
	unregister_kprobe(&probe);

	lookup_size_offset = (void *)lookup_name("kallsyms_lookup_size_offset");
	for (size_t i = 0; i < ARRAY_SIZE(debug_symbols); i++)
		if (debug_symbol_names[i])
			debug_symbols[i] = (void *)lookup_name(debug_symbol_names[i]);
	return 0;
}

unsigned long symbol_address(const char *name)
{
	return lookup_name(name);
}

unsigned long symbol_size(unsigned long address)
{
	unsigned long size, offset;

	if (!lookup_size_offset || !lookup_size_offset(address, &size, &offset) || offset)
		return 0;
	return size;
}

void *android_debug_symbol(enum android_debug_symbol index)
{
	if ((size_t)index >= ARRAY_SIZE(debug_symbols) || !debug_symbols[index])
		return ERR_PTR(-ENOENT);
	return debug_symbols[index];
}
EXPORT_SYMBOL_NS(android_debug_symbol, MINIDUMP);
