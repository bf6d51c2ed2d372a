// SPDX-License-Identifier: GPL-2.0-only
// Slab caches of the rest of the kernel, and its use of them.
#pragma once

#include <string_view>

#include <kernel/mutex.h>
#include <kernel/slab.h>

namespace hosted
{

// Adds a cache with a name of any length at the head of the kernel's list. Process context.
kmem_cache *add_cache(std::string_view name, unsigned object_size, unsigned flags = 0);
// The cache must have no objects. Process context.
void remove_cache(kmem_cache *cache);
// The first cache of that name in list order, or null. Process context.
kmem_cache *find_cache(std::string_view name);

// Allocates and frees as kernel code does, including the hooks. Any context.
void *allocate(kmem_cache &cache, gfp_t gfp);
void release(kmem_cache &cache, void *object);
// The same without hooks, as in the bulk calls.
void *allocate_untraced(kmem_cache &cache, gfp_t gfp);
void release_quietly(kmem_cache &cache, void *object);
// Like release(), but finds the object's cache itself.
void release_kmalloced(void *object);

// Bytes of object slots in all slabs of the cache.
unsigned long footprint(kmem_cache &cache);

// The kernel's list of caches, newest first, and the mutex that guards it.
list_head *slab_caches();
mutex &slab_mutex();

// Destroys the caches that add_cache made, including their objects, and creates those that a kernel
// boots with. Stops the program if any of the module's caches are left. Process context.
void reset_slab();

} // namespace hosted
