// SPDX-License-Identifier: GPL-2.0-only
#include <linux/mm.h>
#include <linux/slab.h>
#include <mm/slab.h>

#include <kernel/slab.h>

#include "symbols.h"

void get_slabinfo(struct kmem_cache *cache, struct slabinfo *info)
{
	if (kernel_symbols.get_slabinfo)
		kernel_symbols.get_slabinfo(cache, info);
}

struct kmem_cache *helper_kmem_cache_create(const char *name, unsigned int size, unsigned int align,
					    unsigned int flags, void (*ctor)(void *object))
{
	return kmem_cache_create(name, size, align, (slab_flags_t)flags, ctor);
}

void *helper_kmem_cache_alloc(struct kmem_cache *cache, gfp_t gfp)
{
	return kmem_cache_alloc(cache, gfp);
}

void *helper_kzalloc(size_t size, gfp_t gfp)
{
	return kzalloc(size, gfp);
}

struct kmem_cache *helper_kmem_cache_of(struct list_head *entry)
{
	return list_entry(entry, struct kmem_cache, list);
}

const char *helper_kmem_cache_name(const struct kmem_cache *cache)
{
	return cache->name;
}

unsigned int helper_kmem_cache_full_size(const struct kmem_cache *cache)
{
	return cache->size;
}

void helper_kmem_cache_set_flags(struct kmem_cache *cache, unsigned int flags)
{
	WRITE_ONCE(cache->flags, (slab_flags_t)flags);
}
