// SPDX-License-Identifier: GPL-2.0-only
// Start and stop of slab tracking. Locks: see slub_track.h.
#include <kernel/debug_symbol.h>
#include <kernel/err.h>

#include "depot.h"
#include "log.h"
#include "slab_caches.h"
#include "slub_track.h"
#include "vendor_hook.h"

constinit struct list_head *tarn_slab_caches = nullptr;
constinit struct mutex *tarn_slab_mutex = nullptr;

namespace
{

constinit vendor_hook<android_vh_slab_alloc_node_probe> alloc_hook;
constinit vendor_hook<android_vh_slab_free_probe> free_hook;

int look_up_slab_symbols()
{
	void *symbol = helper_debug_symbol(ADS_SLAB_CACHES);

	if (IS_ERR_OR_NULL(symbol)) {
		MEM_LOG(KERN_ERR, "slub_track_init", "get tarn_slab_caches failed!\n");
		return -EINVAL;
	}
	tarn_slab_caches = static_cast<struct list_head *>(symbol);

	symbol = helper_debug_symbol(ADS_SLAB_MUTEX);
	if (IS_ERR_OR_NULL(symbol)) {
		MEM_LOG(KERN_ERR, "slub_track_init", "get tarn_slab_mutex failed!\n");
		return -EINVAL;
	}
	tarn_slab_mutex = static_cast<struct mutex *>(symbol);
	return 0;
}

int attach_probes()
{
	const int alloc_ret = alloc_hook.attach(android_vh_slab_alloc_node(), vh_slab_alloc_node);
	const int free_ret = free_hook.attach(android_vh_slab_free(), vh_slab_free);

	if (alloc_ret < 0 || free_ret < 0) {
		MEM_LOG(KERN_ERR, "slub_track_init", "slub track register hook failed!\n");
		return -EINVAL;
	}
	return 0;
}

int create_threads()
{
	if (slub_create_track(SLUB_ALLOC, "alloc")) {
		MEM_LOG(KERN_ERR, "slub_track_init", "slub_create_track SLUB_ALLOC failed!\n");
		return -EINVAL;
	}
	if (slub_create_track(SLUB_FREE, "free")) {
		MEM_LOG(KERN_ERR, "slub_track_init", "slub_create_track SLUB_FREE failed!\n");
		return -EINVAL;
	}
	return 0;
}

// A mark must not outlive the tracker: it is a bit in the flags of someone else's cache.
void clear_marks()
{
	if (!tarn_slab_caches || !tarn_slab_mutex)
		return;
	const mutex_guard guard(*tarn_slab_mutex);

	for (struct kmem_cache *cache : slab_caches(tarn_slab_caches)) {
		const unsigned int flags = helper_kmem_cache_flags(cache);

		if (flags & SLUB_TRACK_MARK)
			helper_kmem_cache_set_flags(cache, flags & ~SLUB_TRACK_MARK);
	}
}

} // namespace

int slub_track_init(void)
{
	// For vmalloc tracking, too.
	depot_set_up("slub_track_init");
	hot.slub_track_cache = helper_kmem_cache_create(
		"slub_track_cache", sizeof(slub_caller_node), 0, SLAB_NO_MERGE, nullptr);
	if (!hot.slub_track_cache) {
		MEM_ERR("create slub_track_cache failed!\n");
		return -EINVAL;
	}
	if (look_up_slab_symbols() || attach_probes() || create_threads()) {
		slub_track_exit();
		return -EINVAL;
	}
	return 0;
}

// Runs in full after a start that failed half-way, and frees what an unfinished hunt left: first
// the rings, into the trees, then the trees, then the cache of their nodes.
void slub_track_exit(void)
{
	slub_stop_track(SLUB_FREE);
	slub_stop_track(SLUB_ALLOC);
	free_hook.detach();
	alloc_hook.detach();
	// Wait for running probes, which may still record or notify.
	helper_tracepoint_synchronize_unregister();
	slub_cancel_notify();

	WRITE_ONCE(hot.slub_track_flag, 0);
	clear_marks();
	tarn_slab_mutex = nullptr;
	tarn_slab_caches = nullptr;
	for (u32 kind = SLUB_ALLOC; kind < SLUB_KINDS; kind++) {
		slub_free_ring(kind);
		slub_drop_tree(kind);
	}
	kmem_cache_destroy(hot.slub_track_cache);
	WRITE_ONCE(hot.slub_track_cache, static_cast<struct kmem_cache *>(nullptr));
}
