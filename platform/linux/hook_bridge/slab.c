// SPDX-License-Identifier: GPL-2.0-only
/*
 * Slab hooks, fired from the kernel's own slab tracepoints. Probes that capture the stack skip a
 * fixed number of frames, so each function here, and the hook's own, is flat: between a hook's
 * probe and the allocator's caller there are only that one frame, the kernel's tracepoint and the
 * allocator.
 *
 * Bulk allocations and frees do not reach these tracepoints.
 */
#include <linux/export.h>
#include <linux/mm.h>
#include <linux/slab.h>
#include <trace/events/kmem.h>
/* The allocator's private header, available in a full source tree. */
#include <mm/slab.h>

#include "bridge.h"
#include "hooks.h"

DEFINE_TRACE(android_vh_slab_alloc_node,
	     TP_PROTO(void *object, unsigned long caller, struct kmem_cache *cache),
	     TP_ARGS(object, caller, cache));
EXPORT_TRACEPOINT_SYMBOL_GPL(android_vh_slab_alloc_node);

DEFINE_TRACE(android_vh_slab_free, TP_PROTO(unsigned long caller, struct kmem_cache *cache),
	     TP_ARGS(caller, cache));
EXPORT_TRACEPOINT_SYMBOL_GPL(android_vh_slab_free);

/* The cache of a kmalloc object. Large blocks come from the page allocator and have none. */
static struct kmem_cache *cache_of(const void *object)
{
	const struct slab *slab = ZERO_OR_NULL_PTR(object) ? NULL : virt_to_slab(object);

	return slab ? slab->slab_cache : NULL;
}

static __flatten void on_kmem_cache_alloc(void *data, unsigned long call_site, const void *object,
					  struct kmem_cache *cache, gfp_t gfp_flags, int node)
{
	trace_android_vh_slab_alloc_node((void *)object, call_site, cache);
}

static __flatten void on_kmalloc(void *data, unsigned long call_site, const void *object,
				 size_t bytes_req, size_t bytes_alloc, gfp_t gfp_flags, int node)
{
	struct kmem_cache *cache;

	if (!trace_android_vh_slab_alloc_node_enabled())
		return;
	cache = cache_of(object);
	/* A failed allocation has no cache, but its probes look at more than that. */
	if (cache || !object)
		trace_android_vh_slab_alloc_node((void *)object, call_site, cache);
}

static __flatten void on_kmem_cache_free(void *data, unsigned long call_site, const void *object,
					 const struct kmem_cache *cache)
{
	trace_android_vh_slab_free(call_site, (struct kmem_cache *)cache);
}

static __flatten void on_kfree(void *data, unsigned long call_site, const void *object)
{
	struct kmem_cache *cache;

	if (!trace_android_vh_slab_free_enabled())
		return;
	cache = cache_of(object);
	if (cache)
		trace_android_vh_slab_free(call_site, cache);
}

static int arm_alloc(void)
{
	int err = register_trace_kmem_cache_alloc(on_kmem_cache_alloc, NULL);

	if (err)
		return err;
	err = register_trace_kmalloc(on_kmalloc, NULL);
	if (err)
		unregister_trace_kmem_cache_alloc(on_kmem_cache_alloc, NULL);
	return err;
}

static void disarm_alloc(void)
{
	unregister_trace_kmalloc(on_kmalloc, NULL);
	unregister_trace_kmem_cache_alloc(on_kmem_cache_alloc, NULL);
}

static int arm_free(void)
{
	int err = register_trace_kmem_cache_free(on_kmem_cache_free, NULL);

	if (err)
		return err;
	err = register_trace_kfree(on_kfree, NULL);
	if (err)
		unregister_trace_kmem_cache_free(on_kmem_cache_free, NULL);
	return err;
}

static void disarm_free(void)
{
	unregister_trace_kfree(on_kfree, NULL);
	unregister_trace_kmem_cache_free(on_kmem_cache_free, NULL);
}

struct hook slab_alloc_hook = {
	.name = "android_vh_slab_alloc_node",
	.source = "tracepoints kmem_cache_alloc and kmalloc",
	.arm = arm_alloc,
	.disarm = disarm_alloc,
};

struct hook slab_free_hook = {
	.name = "android_vh_slab_free",
	.source = "tracepoints kmem_cache_free and kfree",
	.arm = arm_free,
	.disarm = disarm_free,
};
