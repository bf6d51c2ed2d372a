// SPDX-License-Identifier: GPL-2.0-only
// Slab caches: their list, creation and destruction.
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
		if (cache->of_module)
			lines.push_back(fmt::format("slab cache {}", cache->name));
	return lines;
}

const leftover_source source(report);

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

kmem_cache *create(std::string_view name, unsigned object_size, unsigned align, unsigned flags,
		   bool of_module)
{
	auto cache = std::make_unique<kmem_cache>(name, object_size, align, flags, of_module);
	list_head *entry = &cache->entry.list;
	const mutex_guard guard(slab_mutex());
	list_head *head = slab_caches();
	*entry = {head->next, head};
	head->next->prev = entry;
	head->next = entry;
	return cache.release();
}

// Under the slab mutex.
void destroy(kmem_cache *cache)
{
	const list_head *entry = &cache->entry.list;
	entry->prev->next = entry->next;
	entry->next->prev = entry->prev;
	delete cache;
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
	kmem_cache_destroy(cache);
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
	{
		const mutex_guard guard(slab_mutex());
		for (kmem_cache *cache : caches()) {
			if (cache->of_module)
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
		       unsigned cache_flags, bool made_by_module)
	: name(cache_name), size((object_size + align - 1) / align * align),
	  order(choose_order(size)), objects_per_slab(slots(order, size)),
	  of_module(made_by_module),
	  pages_stat(vm_node_stat[cache_flags & SLAB_RECLAIM_ACCOUNT
					  ? nr_slab_reclaimable_b
					  : KERNEL_NR_SLAB_UNRECLAIMABLE_B]),
	  flags(cache_flags), entry{{}, this}
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
	if (!cache)
		return;
	const mutex_guard guard(slab_mutex());
	slabinfo info;
	get_slabinfo(cache, &info);
	if (info.active_objs != 0)
		judge_stop("slab", fmt::format("cache {} destroyed with {} object(s) in it",
					       cache->name, info.active_objs));
	destroy(cache);
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

unsigned int helper_kmem_cache_flags(const kmem_cache *cache)
{
	return cache->flags.load(std::memory_order_relaxed);
}

void helper_kmem_cache_set_flags(kmem_cache *cache, unsigned int flags)
{
	check_list_held("write of a cache's flags");
	cache->flags.store(flags, std::memory_order_relaxed);
}
