// SPDX-License-Identifier: GPL-2.0-only
// The insides of a slab cache.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <boost/intrusive/list.hpp>

#include <kernel/slab.h>
#include <kernel/types.h>

namespace hosted
{

// A block of pages divided into objects. Guarded by its cache's lock, except for what never
// changes.
struct slab : boost::intrusive::list_base_hook<> {
	static constexpr std::uint16_t end = 0xfffe;	// of the free list
	static constexpr std::uint16_t in_use = 0xffff; // the link of an allocated object

	kmem_cache *cache;
	unsigned char *pages;
	unsigned allocated = 0;
	std::uint16_t first_free = 0;
	std::vector<std::uint16_t> link; // the free list, by object
};

using slab_list = boost::intrusive::list<slab>;

// Drops the objects that wait for a grace period, when their caches go.
void forget_waiting_objects();

// Leads from a list entry to its cache; null in the list's head.
struct cache_entry {
	list_head list;
	kmem_cache *cache;
};

// The part of a cache that the interface reads in place. Written under the slab mutex, read
// without.
struct cache_flags {
	unsigned flags;
};
static_assert(offsetof(cache_flags, flags) == KERNEL_KMEM_CACHE_FLAGS);

} // namespace hosted

struct kmem_cache : hosted::cache_flags {
	kmem_cache(std::string_view name, unsigned object_size, unsigned align, unsigned flags);
	~kmem_cache();
	kmem_cache(const kmem_cache &) = delete;
	kmem_cache &operator=(const kmem_cache &) = delete;

	const std::string name;
	const unsigned size; // of an object, alignment included
	const unsigned order;
	const unsigned objects_per_slab;
	atomic_long_t &pages_stat; // where the pages are counted
	hosted::cache_entry entry{};
	// Creations that have not been undone, the module's among them. Under the slab mutex.
	unsigned users = 0;
	unsigned module_users = 0;

	std::mutex lock;
	hosted::slab_list partial; // slabs with a free object, the empty ones last
	hosted::slab_list full;
	unsigned long slabs = 0;
	unsigned long empty_slabs = 0;
	unsigned long objects = 0; // allocated
};
