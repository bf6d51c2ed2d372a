/* SPDX-License-Identifier: GPL-2.0-only */
/* What the slab hooks read at every event, of any cache. Valid C, too, for the module entry. */
#pragma once

#include <kernel/types.h>

struct kmem_cache;

/* Written when tracking starts, stops or is switched, and when a threshold is set: so rarely that
 * every CPU keeps its copy of this cache line. Nothing that changes more often may share it. */
struct hot_words {
	/* The cache of the trees' nodes; null while the tracker is stopped. */
	struct kmem_cache *slub_track_cache;
	/* Tracking is on while nonzero. A plain word: the probes read it without the ring's lock,
	 * then again under it. Tolerated race: a probe may see a switch one call late. Also a
	 * module parameter, so it may be set while there are no rings. */
	int slub_track_flag;
	/* A leak threshold, see leak_threshold.h. */
	unsigned int slab_leak_k;
} __attribute__((aligned(KERNEL_CACHE_LINE)));

static_assert(sizeof(struct hot_words) == KERNEL_CACHE_LINE, "more than the line they are for");

KERNEL_C_BEGIN

extern struct hot_words hot;

KERNEL_C_END
