// SPDX-License-Identifier: GPL-2.0-only
// Slab caches: their list, creation and destruction. Caches of equal objects share their slabs, as
// in a kernel that was not told to keep them apart: all go by the name of the oldest.
#include <hosted/slab.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

#include <hosted/engine/address_range.h>
#include <hosted/engine/context.h>
#include <hosted/engine/fault.h>
#include <hosted/engine/judge.h>
#include <hosted/engine/leftovers.h>
#include <hosted/kmalloc.h>
#include <hosted/physmem.h>
#include <hosted/slab_cache.h>
#include <kernel/vmstat.h>

namespace hosted
{
namespace
{

// The item next to KERNEL_NR_SLAB_UNRECLAIMABLE_B.
constexpr int nr_slab_reclaimable_b = 5;

constexpr unsigned max_object_size = page_size << max_page_order;
constexpr unsigned min_align = 8;

struct registry {
	registry()
	{
		__mutex_init(&lock, "slab_mutex", &key);
	}

	cache_entry head{{&head.list, &head.list}, nullptr};
	lock_class_key key{};
	mutex lock{};
};

registry &all()
{
	static registry instance;
	return instance;
}

// Under the slab mutex.
std::vector<kmem_cache *> caches()
{
	std::vector<kmem_cache *> result;
	const list_head *head = &all().head.list;
	for (list_head *entry = head->next; entry != head; entry = entry->next)
		result.push_back(reinterpret_cast<cache_entry *>(entry)->cache);
	return result;
}

std::vector<std::string> report()
{
	const mutex_guard guard(slab_mutex());
	std::vector<std::string> lines;
	for (const kmem_cache *cache : caches())
		if (cache->module_users != 0)
			lines.push_back(fmt::format("slab cache {}", cache->name));
	return lines;
}

const leftover_source source(report);

unsigned aligned(unsigned size, unsigned align)
{
	return (size + align - 1) / align * align;
}

unsigned slots(unsigned order, unsigned size)
{
	return (page_size << order) / size;
}

// The smallest order that wastes little; the limit is relaxed until an order is found.
unsigned choose_order(unsigned size)
{
	constexpr unsigned usual_max_order = 3;
	for (unsigned fraction = 16; fraction > 1; fraction /= 2)
		for (unsigned order = 0; order <= usual_max_order; order++)
			if (slots(order, size) > 0 &&
			    (page_size << order) % size <= (page_size << order) / fraction)
				return order;
	unsigned order = 0;
	while (slots(order, size) == 0)
		order++;
	return order;
}

// The oldest cache whose slabs can serve a new one as well, or null. Under the slab mutex.
kmem_cache *find_mergeable(unsigned object_size, unsigned align, unsigned flags)
{
	if (flags & SLAB_NO_MERGE)
		return nullptr;
	const unsigned size = aligned(object_size, align);
	const std::vector<kmem_cache *> all = caches();
	const auto found = std::find_if(all.rbegin(), all.rend(), [&](const kmem_cache *cache) {
		const unsigned its_flags = READ_ONCE(cache->flags);
		return !(its_flags & SLAB_NO_MERGE) &&
		       (its_flags & SLAB_RECLAIM_ACCOUNT) == (flags & SLAB_RECLAIM_ACCOUNT) &&
		       cache->size >= size && cache->size - size < min_align &&
		       cache->size % align == 0;
	});
	return found == all.rend() ? nullptr : *found;
}

kmem_cache *add_to_list(std::unique_ptr<kmem_cache> cache)
{
	list_head *entry = &cache->entry.list;
	list_head *head = slab_caches();
	*entry = {head->next, head};
	head->next->prev = entry;
	head->next = entry;
	return cache.release();
}

kmem_cache *create(std::string_view name, unsigned object_size, unsigned align, unsigned flags,
		   bool of_module)
{
	const mutex_guard guard(slab_mutex());
	kmem_cache *cache = find_mergeable(object_size, align, flags);
	if (!cache)
		cache = add_to_list(std::make_unique<kmem_cache>(name, object_size, align, flags));
	cache->users++;
	cache->module_users += of_module;
	return cache;
}

// Under the slab mutex.
void destroy(kmem_cache *cache)
{
	const list_head *entry = &cache->entry.list;
	entry->prev->next = entry->next;
	entry->next->prev = entry->prev;
	delete cache;
}

// Takes back one creation; the last one destroys the cache.
void drop(kmem_cache *cache, bool by_module)
{
	const mutex_guard guard(slab_mutex());
	cache->module_users -= by_module;
	if (--cache->users != 0)
		return;
	slabinfo info;
	get_slabinfo(cache, &info);
	if (info.active_objs != 0)
		judge_stop("slab", fmt::format("cache {} destroyed with {} object(s) in it",
					       cache->name, info.active_objs));
	destroy(cache);
}

void check_list_held(const char *what)
{
	if constexpr (judging)
		if (std::ranges::none_of(self().held, [](const held_lock &held) {
			    return held.lock == &slab_mutex();
		    }))
			judge_stop("slab", fmt::format("{} without the slab mutex", what));
}

} // namespace

list_head *slab_caches()
{
	return &all().head.list;
}

mutex &slab_mutex()
{
	return all().lock;
}

kmem_cache *add_cache(std::string_view name, unsigned object_size, unsigned flags)
{
	return create(name, object_size, min_align, flags, false);
}

void remove_cache(kmem_cache *cache)
{
	drop(cache, false);
}

kmem_cache *find_cache(std::string_view name)
{
	const mutex_guard guard(slab_mutex());
	const std::vector<kmem_cache *> list = caches();
	const auto found = std::ranges::find(list, name, &kmem_cache::name);
	return found == list.end() ? nullptr : *found;
}

void reset_slab()
{
	forget_waiting_objects();
	{
		const mutex_guard guard(slab_mutex());
		for (kmem_cache *cache : caches()) {
			if (cache->module_users != 0)
				judge_stop("slab",
					   fmt::format("cache {} is left at the kernel's reset",
						       cache->name));
			destroy(cache);
		}
	}
	make_kmalloc_caches();
}

} // namespace hosted

using namespace hosted;

kmem_cache::kmem_cache(std::string_view cache_name, unsigned object_size, unsigned align,
		       unsigned flag_bits)
	: cache_flags{flag_bits}, name(cache_name), size(aligned(object_size, align)),
	  order(choose_order(size)), objects_per_slab(slots(order, size)),
	  pages_stat(
		  vm_node_stat[flag_bits & SLAB_RECLAIM_ACCOUNT ? nr_slab_reclaimable_b
								: KERNEL_NR_SLAB_UNRECLAIMABLE_B]),
	  entry{{}, this}
{
}

kmem_cache *helper_kmem_cache_create(const char *name, unsigned int size, unsigned int align,
				     unsigned int flags, void (*ctor)(void *object))
{
	might_sleep("kmem_cache_create");
	if (ctor)
		judge_stop("slab", "a constructor, which this kernel does not run");
	if (!name || size == 0 || size > max_object_size)
		return nullptr;
	if (should_fail("kmem_cache_create"))
		return nullptr;
	return create(name, size, std::max(align, min_align), flags, true);
}

void kmem_cache_destroy(kmem_cache *cache)
{
	if (cache)
		drop(cache, true);
}

kmem_cache *helper_kmem_cache_of(list_head *entry)
{
	check_list_held("walk of the slab caches");
	kmem_cache *cache = reinterpret_cast<cache_entry *>(entry)->cache;
	if (!cache)
		judge_stop("slab", "the head of the list of caches taken for a cache");
	return cache;
}

const char *helper_kmem_cache_name(const kmem_cache *cache)
{
	return cache->name.c_str();
}

unsigned int helper_kmem_cache_full_size(const kmem_cache *cache)
{
	return cache->size;
}

void helper_kmem_cache_set_flags(kmem_cache *cache, unsigned int flags)
{
	check_list_held("write of a cache's flags");
	WRITE_ONCE(cache->flags, flags);
}
