// SPDX-License-Identifier: GPL-2.0-only
// Chooses the target cache and switches tracking on and off. Locks: see slub_track.h.
#include <kernel/err.h>
#include <kernel/module.h>
#include <kernel/string.h>

#include "log.h"
#include "memcheck.h"
#include "slab_caches.h"
#include "slub_track.h"

// The cache of the last choice. Its owner may destroy it at any time, so it is looked up in the
// kernel's list before it is used.
constinit struct kmem_cache *max_slub_cache = nullptr;
// Module parameter: the name of the cache to track instead of the largest.
constinit char *specified_target = nullptr;

constinit const page_stack_ops slub_page_stack = {
	tarn_slub_track_on,    tarn_slub_track_off,  tarn_slub_stack_open,
	tarn_slub_stack_close, tarn_slub_stack_read,
};

namespace
{

// The target's footprint in KiB when it was chosen. Protected by memcheck_lock.
constinit u64 target_start_k = 0;

constexpr const char own_cache_name[] = "slub_track_cache";

// Bytes of all object slots in all slabs of a cache. Called with the slab mutex held.
u64 footprint(struct kmem_cache *cache)
{
	slabinfo info = {};

	get_slabinfo(cache, &info);
	return u64{info.num_objs} * helper_kmem_cache_full_size(cache);
}

bool is_candidate(const struct kmem_cache *cache)
{
	constexpr const char kmemleak[] = "kmemleak_";

	return !(helper_kmem_cache_flags(cache) & SLAB_RECLAIM_ACCOUNT) &&
	       strncmp(helper_kmem_cache_name(cache), kmemleak, sizeof(kmemleak) - 1) != 0;
}

struct choice {
	struct kmem_cache *cache = nullptr;
	u64 footprint = 0;
	bool specified = false;
};

// Called with the slab mutex and, for specified_target, the parameter lock held.
choice choose_cache()
{
	choice best;

	for (struct kmem_cache *cache : slab_caches(tarn_slab_caches)) {
		if (specified_target &&
		    strcmp(specified_target, helper_kmem_cache_name(cache)) == 0)
			return {cache, footprint(cache), true};
		if (!is_candidate(cache))
			continue;
		const u64 bytes = footprint(cache);

		if (bytes > best.footprint)
			best = {cache, bytes, false};
	}
	return best;
}

// Called with the slab mutex held.
bool still_exists(const struct kmem_cache *wanted)
{
	for (const struct kmem_cache *cache : slab_caches(tarn_slab_caches)) {
		if (cache == wanted)
			return true;
	}
	return false;
}

// Copies at most size - 1 characters and fills the rest with NULs.
void copy_name(char *to, size_t size, const char *name)
{
	const size_t len = strlen(name);
	const size_t kept = len < size - 1 ? len : size - 1;

	memcpy(to, name, kept);
	memset(to + kept, 0, size - kept);
}

// Tracking the tracker's own nodes would record its own work.
bool is_own(const struct kmem_cache *cache)
{
	return cache == hot.slub_track_cache ||
	       strcmp(helper_kmem_cache_name(cache), own_cache_name) == 0;
}

bool is_marked(const struct kmem_cache *cache)
{
	return helper_kmem_cache_flags(cache) & SLUB_TRACK_MARK;
}

// Called with the slab mutex held.
void set_mark(struct kmem_cache *cache, bool mark)
{
	const unsigned int flags = helper_kmem_cache_flags(cache);

	helper_kmem_cache_set_flags(cache,
				    mark ? flags | SLUB_TRACK_MARK : flags & ~SLUB_TRACK_MARK);
}

// Called with the slab mutex held. Returns null if no cache has the name.
struct kmem_cache *find_cache(const char *name, bool own_too)
{
	for (struct kmem_cache *cache : slab_caches(tarn_slab_caches)) {
		if (strcmp(helper_kmem_cache_name(cache), name) == 0 && (own_too || !is_own(cache)))
			return cache;
	}
	return nullptr;
}

// Marks the first cache of that name, and no other: a switch-off under another name has left its
// cache marked. Returns false if there is none.
bool mark_cache(const char *name)
{
	if (!tarn_slab_mutex)
		return false;
	const mutex_guard guard(*tarn_slab_mutex);
	struct kmem_cache *target = find_cache(name, false);

	if (!target)
		return false;
	for (struct kmem_cache *cache : slab_caches(tarn_slab_caches)) {
		if (is_marked(cache) != (cache == target))
			set_mark(cache, cache == target);
	}
	return true;
}

// Clears the mark of the first cache of that name. Returns false if there is none. Gives the name
// of the cache that was tracked instead, or an empty one.
bool unmark_cache(const char *name, char (&other)[slub_name_size])
{
	if (!tarn_slab_mutex)
		return false;
	const mutex_guard guard(*tarn_slab_mutex);
	struct kmem_cache *target = find_cache(name, true);

	if (!target)
		return false;
	set_mark(target, false);
	for (struct kmem_cache *cache : slab_caches(tarn_slab_caches)) {
		if (is_marked(cache))
			copy_name(other, sizeof(other), helper_kmem_cache_name(cache));
	}
	return true;
}

void report_growth()
{
	bool exists = false;
	u64 now_k = 0;

	if (tarn_slab_mutex) {
		const mutex_guard guard(*tarn_slab_mutex);

		exists = still_exists(max_slub_cache);
		if (exists)
			now_k = footprint(max_slub_cache) / 1024;
	}
	if (!exists) {
		MEM_LOG(KERN_INFO, "tarn_slub_track_off", "no target to measure\n");
		return;
	}
	MEM_LOG(KERN_INFO, "tarn_slub_track_off", "%lu+%ld=%lukB",
		static_cast<unsigned long>(target_start_k),
		static_cast<long>(now_k - target_start_k), static_cast<unsigned long>(now_k));
}

} // namespace

int get_max_slub(void)
{
	if (!tarn_slab_mutex) {
		MEM_ERR("slab tracking is not started\n");
		return 0;
	}
	const param_guard params;
	const mutex_guard guard(*tarn_slab_mutex);
	const choice best = choose_cache();

	if (best.specified)
		MEM_INFO("slub track specify target %s", helper_kmem_cache_name(best.cache));
	if (best.cache)
		max_slub_cache = best.cache;
	else if (!still_exists(max_slub_cache)) {
		MEM_ERR("no slab cache to track\n");
		return 0;
	}
	target_start_k = best.footprint / 1024;
	copy_name(top_slub_name, sizeof(top_slub_name), helper_kmem_cache_name(max_slub_cache));
	return 0;
}

int tarn_slub_track_on(const char *name)
{
	if (READ_ONCE(hot.slub_track_flag))
		return 0;
	if (!mark_cache(name)) {
		MEM_ERR("slub name[%s] not found\n", name);
		return -EINVAL;
	}
	// The probes check the flag before the rings, so the mark may come first.
	if (slub_create_ringbuf()) {
		char other[slub_name_size] = {};

		MEM_ERR("create ringbuf failed\n");
		unmark_cache(name, other);
		return -ENOMEM;
	}
	MEM_INFO("slub name[%s] ok\n", name);
	WRITE_ONCE(hot.slub_track_flag, 1);
	return 0;
}

int tarn_slub_track_off(const char *name)
{
	char other[slub_name_size] = {};

	if (!READ_ONCE(hot.slub_track_flag))
		return 0;
	if (!unmark_cache(name, other)) {
		MEM_ERR("slub name[%s] not found\n", name);
		return -EINVAL;
	}
	WRITE_ONCE(hot.slub_track_flag, 0);
	// Freeing a ring takes its lock: events recorded before that are drained, and a recorder
	// that takes the lock later sees the flag.
	slub_free_ring(SLUB_ALLOC);
	slub_free_ring(SLUB_FREE);
	if (other[0])
		MEM_INFO("slub name[%s] was tracked\n", static_cast<const char *>(other));
	MEM_INFO("slub name[%s] ok\n", name);
	report_growth();
	return 0;
}

int tarn_slub_stack_open(int)
{
	return 0;
}

int tarn_slub_stack_close(void)
{
	return 0;
}

slub_target slub_describe_target(void)
{
	slub_target target = {};

	if (!tarn_slab_mutex)
		return target;
	const mutex_guard guard(*tarn_slab_mutex);

	if (still_exists(max_slub_cache)) {
		target.size = helper_kmem_cache_full_size(max_slub_cache);
		copy_name(target.name, sizeof(target.name), helper_kmem_cache_name(max_slub_cache));
	}
	return target;
}
