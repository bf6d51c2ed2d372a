/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/gfp.h>
#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct kmem_cache;

/* Cache flags: two of the kernel's own, and one that the kernel leaves unused. A cache with
 * SLAB_NO_MERGE keeps its slabs to itself. */
#define SLAB_RECLAIM_ACCOUNT KERNEL_SLAB_RECLAIM_ACCOUNT
#define SLAB_NO_MERGE KERNEL_SLAB_NO_MERGE
#define SLAB_SPARE_FLAG KERNEL_SLAB_SPARE_FLAG

/* The slab allocator's figures for one cache. */
struct slabinfo {
	unsigned long active_objs;
	unsigned long num_objs;
	unsigned long active_slabs;
	unsigned long num_slabs;
	unsigned long shared_avail;
	unsigned int limit;
	unsigned int batchcount;
	unsigned int shared;
	unsigned int objects_per_slab;
	unsigned int cache_order;
};

/* The caller keeps the cache alive. All fields are zero if the kernel lacks the function. Context:
 * process. */
void get_slabinfo(struct kmem_cache *cache, struct slabinfo *info);

/* The cache must have no objects left. Null is ignored. Context: process, may sleep. */
void kmem_cache_destroy(struct kmem_cache *cache);
void kmem_cache_free(struct kmem_cache *cache, void *object);
/* Null is ignored. Context: any. */
void kfree(const void *object);

/* Read in place, since the slab hooks do so at every event. */
static inline unsigned int helper_kmem_cache_flags(const struct kmem_cache *cache)
{
	return READ_ONCE(KERNEL_FIELD(unsigned int, cache, KERNEL_KMEM_CACHE_FLAGS));
}

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* Returns null on failure. Context: process, may sleep. */
struct kmem_cache *helper_kmem_cache_create(const char *name, unsigned int size, unsigned int align,
					    unsigned int flags, void (*ctor)(void *object));
/* Returns null on failure. Sleeps only if gfp allows it. */
void *helper_kmem_cache_alloc(struct kmem_cache *cache, gfp_t gfp);
/* Returns zeroed memory to be freed with kfree, or null on failure. Sleeps only if gfp allows
 * it. */
void *helper_kzalloc(size_t size, gfp_t gfp);
/* The cache that an entry of the kernel's list of caches belongs to. */
struct kmem_cache *helper_kmem_cache_of(struct list_head *entry);
const char *helper_kmem_cache_name(const struct kmem_cache *cache);
/* Size of one object in bytes, including its metadata. */
unsigned int helper_kmem_cache_full_size(const struct kmem_cache *cache);
/* Writes the flags. The caller holds the slab mutex. */
void helper_kmem_cache_set_flags(struct kmem_cache *cache, unsigned int flags);

KERNEL_C_END
