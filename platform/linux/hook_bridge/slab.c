// SPDX-License-Identifier: GPL-2.0-only
/*
 * Slab hooks, fired from the kernel's own slab tracepoints. Probes that capture the stack skip a
 * fixed number of frames, so each function here, and the hook's own, is flat: between a hook's
 * probe and the allocator's caller there are only that one frame, the kernel's tracepoint and the
 * allocator.
 *
 * Bulk calls pass no tracepoint. They are caught by probes on their functions, which fire a hook
 * for each object. The frames of the breakpoint exception are hidden, and there are as many between
 * a hook's probe and the caller as elsewhere.
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/errno.h>
#include <linux/export.h>
#include <linux/kprobes.h>
#include <linux/mm.h>
#include <linux/printk.h>
#include <linux/ptrace.h>
#include <linux/slab.h>
#include <trace/events/kmem.h>
/* The allocator's private header, available in a full source tree. */
#include <mm/slab.h>

#include "bridge.h"
#include "hooks.h"

static int bulk_alloc_entered(struct kretprobe_instance *instance, struct pt_regs *regs);
static int bulk_alloc_done(struct kretprobe_instance *instance, struct pt_regs *regs);
static int on_bulk_free(struct kprobe *probe, struct pt_regs *regs);

/* The objects of a bulk call. Without a cache, each has its own. */
struct bulk {
	struct kmem_cache *cache;
	size_t count;
	void **objects;
};

/* A bulk allocation may sleep, so many tasks may be in one at once. */
static struct kretprobe bulk_alloc_probe = {
	.entry_handler = bulk_alloc_entered,
	.handler = bulk_alloc_done,
	.data_size = sizeof(struct bulk),
	.maxactive = 128,
};
static struct kprobe bulk_free_probe = {.pre_handler = on_bulk_free};

DEFINE_PROBE_SWITCH(bulk_alloc, &bulk_alloc_probe.kp)
DEFINE_TRACE_FN(android_vh_slab_alloc_node, start_bulk_alloc, stop_bulk_alloc,
		TP_PROTO(void *object, unsigned long caller, struct kmem_cache *cache),
		TP_ARGS(object, caller, cache));
EXPORT_TRACEPOINT_SYMBOL_GPL(android_vh_slab_alloc_node);

DEFINE_PROBE_SWITCH(bulk_free, &bulk_free_probe)
DEFINE_TRACE_FN(android_vh_slab_free, start_bulk_free, stop_bulk_free,
		TP_PROTO(unsigned long caller, struct kmem_cache *cache), TP_ARGS(caller, cache));
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

/*
 * Bulk calls. Below the probe of a hook there are the flat function that fires it, the function
 * that call_in_frame calls, and call_in_frame; then comes the caller. Preemption is off here, as it
 * is where a tracepoint fires.
 */

static noinline __flatten void fire_alloc(unsigned long caller, const struct bulk *bulk)
{
	/* A failed allocation has no object, but its probes look at more than that. */
	if (!bulk->count)
		trace_android_vh_slab_alloc_node(NULL, caller, bulk->cache);
	for (size_t i = 0; i < bulk->count; i++)
		trace_android_vh_slab_alloc_node(bulk->objects[i], caller, bulk->cache);
}

static int allocated_in_bulk(void *data, unsigned long caller, const struct bulk *bulk)
{
	fire_alloc(caller, bulk);
	return 0;
}

static int bulk_alloc_entered(struct kretprobe_instance *instance, struct pt_regs *regs)
{
	struct bulk *bulk = (struct bulk *)instance->data;

	bulk->cache = (struct kmem_cache *)regs->regs[0];
	bulk->objects = (void **)regs->regs[3];
	/* An empty request is none: the return needs no probe. */
	return !regs->regs[2];
}
NOKPROBE_SYMBOL(bulk_alloc_entered);

static int bulk_alloc_done(struct kretprobe_instance *instance, struct pt_regs *regs)
{
	struct bulk *bulk = (struct bulk *)instance->data;

	bulk->count = (unsigned int)regs_return_value(regs);
	call_in_frame(allocated_in_bulk, instruction_pointer(regs), bulk, frame_pointer(regs),
		      instruction_pointer(regs));
	return 0;
}
NOKPROBE_SYMBOL(bulk_alloc_done);

static noinline __flatten void fire_free(unsigned long caller, const struct bulk *bulk)
{
	for (size_t i = 0; i < bulk->count; i++) {
		struct kmem_cache *cache = bulk->cache ?: cache_of(bulk->objects[i]);

		if (cache)
			trace_android_vh_slab_free(caller, cache);
	}
}

static int freed_in_bulk(void *data, unsigned long caller, const struct bulk *bulk)
{
	fire_free(caller, bulk);
	return 0;
}

/* The function has not made its frame yet: the frame pointer and the link register are the
 * caller's. */
static int on_bulk_free(struct kprobe *probe, struct pt_regs *regs)
{
	const struct bulk bulk = {
		.cache = (struct kmem_cache *)regs->regs[0],
		.count = regs->regs[1],
		.objects = (void **)regs->regs[2],
	};
	const unsigned long caller = procedure_link_pointer(regs);

	call_in_frame(freed_in_bulk, caller, &bulk, frame_pointer(regs), caller);
	return 0;
}
NOKPROBE_SYMBOL(on_bulk_free);

/* The hooks are of use without the bulk calls, but then their counts are too low. */
static void warn_unless_added(const char *function, int err)
{
	if (err)
		pr_warn("%s: error %d: objects handled in bulk stay unseen\n", function, err);
}

static void add_bulk_alloc(void)
{
	int err = return_probe_add(&bulk_alloc_probe, "kmem_cache_alloc_bulk_noprof");

	/* The function's name before the kernel had allocation profiling. */
	if (err == -ENOENT)
		err = return_probe_add(&bulk_alloc_probe, "kmem_cache_alloc_bulk");
	warn_unless_added("kmem_cache_alloc_bulk", err);
}

static void add_bulk_free(void)
{
	warn_unless_added("kmem_cache_free_bulk",
			  probe_add(&bulk_free_probe, "kmem_cache_free_bulk"));
}

static int arm_alloc(void)
{
	int err = register_trace_kmem_cache_alloc(on_kmem_cache_alloc, NULL);

	if (err)
		return err;
	err = register_trace_kmalloc(on_kmalloc, NULL);
	if (err)
		unregister_trace_kmem_cache_alloc(on_kmem_cache_alloc, NULL);
	else
		add_bulk_alloc();
	return err;
}

static void disarm_alloc(void)
{
	return_probe_remove(&bulk_alloc_probe);
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
	else
		add_bulk_free();
	return err;
}

static void disarm_free(void)
{
	probe_remove(&bulk_free_probe);
	unregister_trace_kfree(on_kfree, NULL);
	unregister_trace_kmem_cache_free(on_kmem_cache_free, NULL);
}

struct hook slab_alloc_hook = {
	.name = "android_vh_slab_alloc_node",
	.source = "tracepoints kmem_cache_alloc and kmalloc, and kmem_cache_alloc_bulk",
	.arm = arm_alloc,
	.disarm = disarm_alloc,
};

struct hook slab_free_hook = {
	.name = "android_vh_slab_free",
	.source = "tracepoints kmem_cache_free and kfree, and kmem_cache_free_bulk",
	.arm = arm_free,
	.disarm = disarm_free,
};
