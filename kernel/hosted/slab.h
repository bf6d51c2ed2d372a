// SPDX-License-Identifier: GPL-2.0-only
// Slab caches of the rest of the kernel, and its traffic on them.
#pragma once

#include <string_view>

#include <kernel/mutex.h>
#include <kernel/slab.h>

namespace hosted
{

// A cache with a name of any length, at the head of the kernel's list. Process context.
kmem_cache *add_cache(std::string_view name, unsigned object_size, unsigned flags = 0);
// The cache must hold no object. Process context.
void remove_cache(kmem_cache *cache);
// The first cache of that name in list order, or null. Process context.
kmem_cache *find_cache(std::string_view name);

// Allocation and free as any kernel code does them, hooks included. Any context.
void *allocate(kmem_cache &cache, gfp_t gfp);
void release(kmem_cache &cache, void *object);
// The same as the bulk calls do it: no hook fires.
void *allocate_quietly(kmem_cache &cache, gfp_t gfp);
void release_quietly(kmem_cache &cache, void *object);
// The same as release, for an object that tells its cache itself.
void release_kmalloced(void *object);

// Bytes of the cache's slabs that are object slots.
unsigned long footprint(kmem_cache &cache);

// The kernel's list of caches, newest first, and the mutex that guards it.
list_head *slab_caches();
mutex &slab_mutex();

// Drops the caches that add_cache made, objects and all, and makes those that a kernel boots with.
// Stops the program if the module's are left. Process context.
void reset_slab();

} // namespace hosted
