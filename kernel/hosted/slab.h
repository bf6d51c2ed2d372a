// SPDX-License-Identifier: GPL-2.0-only
// Slab caches of the rest of the kernel, and its use of them.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include <kernel/mutex.h>
#include <kernel/slab.h>

namespace hosted
{

// Adds a cache with a name of any length at the head of the kernel's list. Without SLAB_NO_MERGE it
// may instead get an older one of equal objects. Process context.
kmem_cache *add_cache(std::string_view name, unsigned object_size, unsigned flags = SLAB_NO_MERGE);
// The cache must have no objects, unless others were merged with it. Process context.
void remove_cache(kmem_cache *cache);
// The first cache of that name in list order, or null. Process context.
kmem_cache *find_cache(std::string_view name);

// Allocates and frees as kernel code does, including the hooks. Any context.
void *allocate(kmem_cache &cache, gfp_t gfp);
void release(kmem_cache &cache, void *object);
// Without hooks, as before they were attached.
void *allocate_untraced(kmem_cache &cache, gfp_t gfp);
void release_quietly(kmem_cache &cache, void *object);
// Like release(), but finds the object's cache itself.
void release_kmalloced(void *object);

// Several objects in one call, with the hook of each. allocate_bulk allocates all or none and
// returns their number. Without a cache, release_bulk finds the cache of each object. Context: as
// above.
std::size_t allocate_bulk(kmem_cache &cache, gfp_t gfp, std::span<void *> objects);
void release_bulk(kmem_cache *cache, std::span<void *const> objects);

// Frees an object of any cache in bulk with others when end_grace_period() is called, or without a
// hook when the kernel is reset. Any context; end_grace_period() in process context.
void release_after_grace_period(void *object);
void end_grace_period();

// Bytes of object slots in all slabs of the cache.
unsigned long footprint(kmem_cache &cache);

// The kernel's list of caches, newest first, and the mutex that guards it.
list_head *slab_caches();
mutex &slab_mutex();

// Destroys the caches that add_cache made, including their objects, and creates those that a kernel
// boots with. Stops the program if any of the module's caches are left. Process context.
void reset_slab();

} // namespace hosted
