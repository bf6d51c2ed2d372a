// SPDX-License-Identifier: GPL-2.0-only
// Slab objects: allocation and free, and the slabs that hold them. Caches are in slab_caches.cpp.
#include <hosted/slab.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include <fmt/format.h>

#include <hosted/engine/callstack.h>
#include <hosted/engine/fault.h>
#include <hosted/engine/judge.h>
#include <hosted/engine/log.h>
#include <hosted/engine/poison.h>
#include <hosted/physmem.h>
#include <hosted/slab_cache.h>
#include <hosted/task_struct.h>
#include <hosted/vendor_hooks.h>
#include <kernel/rcupdate.h>

namespace hosted
{
namespace
{

// Empty slabs that a cache keeps for its next allocations.
constexpr unsigned long max_empty_slabs = 5;

struct position {
	slab *in;
	unsigned index;
};

// The slab on an address, or null. Lock-free.
slab *slab_at(const void *address)
{
	const page *p = virt_to_page(address);
	return p ? p->slab.load(std::memory_order_acquire) : nullptr;
}

kmem_cache &cache_of(const void *object)
{
	const slab *s = slab_at(object);
	if (!s)
		judge_stop("slab", fmt::format("kfree of {}: not a slab object", object));
	return *s->cache;
}

// Objects that are freed after a grace period.
constinit std::mutex waiting_lock;
std::vector<void *> waiting;

// Under the cache's lock, like shrink and take.
bool grow(kmem_cache &cache)
{
	page *first = allocate_block(cache.order, page_use::slab);
	if (!first)
		return false;
	auto fresh = std::make_unique<slab>();
	fresh->cache = &cache;
	fresh->pages = page_address(*first);
	for (page &p : std::span(first, std::size_t{1} << cache.order))
		p.slab.store(fresh.get(), std::memory_order_release);
	fresh->link.resize(cache.objects_per_slab);
	for (unsigned i = 0; i < cache.objects_per_slab; i++)
		fresh->link[i] = static_cast<std::uint16_t>(i + 1);
	fresh->link.back() = slab::end;
	poison(fresh->pages, std::size_t{cache.objects_per_slab} * cache.size);
	cache.partial.push_back(*fresh.release());
	cache.slabs++;
	cache.empty_slabs++;
	__atomic_fetch_add(&cache.pages_stat.counter, 1L << cache.order, __ATOMIC_RELAXED);
	return true;
}

void shrink(kmem_cache &cache, slab &s)
{
	cache.slabs--;
	__atomic_fetch_sub(&cache.pages_stat.counter, 1L << cache.order, __ATOMIC_RELAXED);
	release_block(*virt_to_page(s.pages), cache.order);
	delete &s;
}

unsigned char *take(kmem_cache &cache)
{
	const std::lock_guard guard(cache.lock);
	if (cache.partial.empty() && !grow(cache))
		return nullptr;
	slab &s = cache.partial.front();
	const unsigned index = s.first_free;
	s.first_free = s.link[index];
	s.link[index] = slab::in_use;
	if (s.allocated++ == 0)
		cache.empty_slabs--;
	if (s.first_free == slab::end)
		cache.full.splice(cache.full.begin(), cache.partial, cache.partial.begin());
	cache.objects++;
	unsigned char *object = s.pages + std::size_t{index} * cache.size;
	unpoison(object, cache.size);
	return object;
}

position locate(const kmem_cache &cache, const void *object)
{
	slab *s = slab_at(object);
	if (!s)
		judge_stop("slab", fmt::format("free of {} into {}: not a slab object", object,
					       cache.name));
	if (s->cache != &cache)
		judge_stop("slab", fmt::format("free of {} into {}: it belongs to {}", object,
					       cache.name, s->cache->name));
	const auto offset =
		static_cast<unsigned>(static_cast<const unsigned char *>(object) - s->pages);
	const unsigned index = offset / cache.size;
	if (offset % cache.size != 0 || index >= cache.objects_per_slab)
		judge_stop("slab", fmt::format("free of {} into {}: not the start of an object",
					       object, cache.name));
	return {s, index};
}

void put(kmem_cache &cache, position at)
{
	slab &s = *at.in;
	const std::lock_guard guard(cache.lock);
	if (s.link[at.index] != slab::in_use)
		judge_stop("slab", fmt::format("double free into {}", cache.name));
	poison(s.pages + std::size_t{at.index} * cache.size, cache.size);
	const bool was_full = s.first_free == slab::end;
	s.link[at.index] = s.first_free;
	s.first_free = static_cast<std::uint16_t>(at.index);
	s.allocated--;
	cache.objects--;

	slab_list &list = was_full ? cache.full : cache.partial;
	if (s.allocated != 0) {
		if (was_full)
			cache.partial.splice(cache.partial.begin(), list, list.iterator_to(s));
		return;
	}
	if (cache.empty_slabs < max_empty_slabs) {
		cache.partial.splice(cache.partial.end(), list, list.iterator_to(s));
		cache.empty_slabs++;
		return;
	}
	list.erase(list.iterator_to(s));
	shrink(cache, s);
}

} // namespace

void *allocate_untraced(kmem_cache &cache, gfp_t gfp)
{
	if constexpr (judging)
		if (gfp & __GFP_DIRECT_RECLAIM)
			might_sleep("kmem_cache_alloc");
	unsigned char *object = should_fail("kmem_cache_alloc") ? nullptr : take(cache);
	if (!object && !(gfp & __GFP_NOWARN))
		add_log_record({4, fmt::format("{}: page allocation failure: order:0, mode:{:#x}\n",
					       self().task->comm, gfp)});
	if (object && (gfp & __GFP_ZERO))
		std::memset(object, 0, cache.size);
	return object;
}

void release_quietly(kmem_cache &cache, void *object)
{
	put(cache, locate(cache, object));
}

void *allocate(kmem_cache &cache, gfp_t gfp)
{
	void *object = allocate_untraced(cache, gfp);
	if (in_use(__tracepoint_android_vh_slab_alloc_node)) [[unlikely]] {
		static const std::array frames{
			symbol_address("__kmem_cache_alloc_node", 0x1c0, 0x340),
			symbol_address("kmem_cache_alloc", 0x6c, 0x2e0),
		};
		const unsigned long caller = caller_address();
		const frame_scope scope(frames);
		trace_android_vh_slab_alloc_node(object, caller, &cache);
	}
	return object;
}

void release(kmem_cache &cache, void *object)
{
	const position at = locate(cache, object);
	// while nobody else can get the object
	if (in_use(__tracepoint_android_vh_slab_free)) [[unlikely]] {
		static const std::array frames{
			symbol_address("__cache_free", 0x50, 0x120),
			symbol_address("kmem_cache_free", 0x38, 0x2c0),
		};
		const unsigned long caller = caller_address();
		const frame_scope scope(frames);
		trace_android_vh_slab_free(caller, &cache);
	}
	put(cache, at);
}

void release_kmalloced(void *object)
{
	release(cache_of(object), object);
}

std::size_t allocate_bulk(kmem_cache &cache, gfp_t gfp, std::span<void *> objects)
{
	std::size_t allocated = 0;
	while (allocated < objects.size() &&
	       (objects[allocated] = allocate_untraced(cache, gfp)) != nullptr)
		allocated++;
	if (allocated < objects.size()) {
		for (void *object : objects.first(allocated))
			release_quietly(cache, object);
		allocated = 0;
	}
	if (!in_use(__tracepoint_android_vh_slab_alloc_node) || objects.empty()) [[likely]]
		return allocated;
	static const std::array frames{
		symbol_address("slab_post_alloc_hook", 0xa4, 0x3c0),
		symbol_address("kmem_cache_alloc_bulk", 0x1b8, 0x420),
	};
	const unsigned long caller = caller_address();
	const frame_scope scope(frames);
	if (allocated == 0)
		trace_android_vh_slab_alloc_node(nullptr, caller, &cache);
	for (void *object : objects.first(allocated))
		trace_android_vh_slab_alloc_node(object, caller, &cache);
	return allocated;
}

void release_bulk(kmem_cache *cache, std::span<void *const> objects)
{
	if (in_use(__tracepoint_android_vh_slab_free)) [[unlikely]] {
		static const std::array frames{
			symbol_address("slab_free_bulk", 0x60, 0x180),
			symbol_address("kmem_cache_free_bulk", 0xd4, 0x2a0),
		};
		const unsigned long caller = caller_address();
		const frame_scope scope(frames);
		for (void *object : objects)
			trace_android_vh_slab_free(caller, cache ? cache : &cache_of(object));
	}
	for (void *object : objects)
		release_quietly(cache ? *cache : cache_of(object), object);
}

void release_after_grace_period(void *object)
{
	const std::lock_guard guard(waiting_lock);
	waiting.push_back(object);
}

void end_grace_period()
{
	static const std::array frames{
		symbol_address("kvfree_rcu_bulk", 0x7c, 0x1e0),
		symbol_address("kfree_rcu_work", 0x88, 0x124),
	};
	synchronize_rcu();
	std::vector<void *> objects;
	{
		const std::lock_guard guard(waiting_lock);
		objects.swap(waiting);
	}
	const frame_scope scope(frames);
	release_bulk(nullptr, objects);
}

void forget_waiting_objects()
{
	const std::lock_guard guard(waiting_lock);
	waiting.clear();
}

unsigned long footprint(kmem_cache &cache)
{
	const std::lock_guard guard(cache.lock);
	return cache.slabs * cache.objects_per_slab * cache.size;
}

} // namespace hosted

using namespace hosted;

kmem_cache::~kmem_cache()
{
	for (slab_list *list : {&partial, &full})
		list->clear_and_dispose([this](slab *s) { shrink(*this, *s); });
}

void *helper_kmem_cache_alloc(kmem_cache *cache, gfp_t gfp)
{
	return allocate(*cache, gfp);
}

void kmem_cache_free(kmem_cache *cache, void *object)
{
	release(*cache, object);
}

void get_slabinfo(kmem_cache *cache, slabinfo *info)
{
	const std::lock_guard guard(cache->lock);
	*info = {};
	info->active_objs = cache->objects;
	info->num_objs = cache->slabs * cache->objects_per_slab;
	info->active_slabs = info->num_slabs = cache->slabs;
	info->objects_per_slab = cache->objects_per_slab;
	info->cache_order = cache->order;
}
