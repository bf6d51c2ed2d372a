// SPDX-License-Identifier: GPL-2.0-only
// Reclaim and compaction: records the calls and returns what a test sets. Thread safe.
#pragma once

#include <vector>

#include <kernel/reclaim.h>

namespace hosted
{

struct reclaim_call {
	int order;
	gfp_t gfp;

	bool operator==(const reclaim_call &) const = default;
};

struct compact_call {
	gfp_t gfp;
	unsigned order;
	unsigned alloc_flags;
	int priority;
	int migratetype;
	int highest_zone;

	bool operator==(const compact_call &) const = default;
};

// The kernel's functions, which callers find as debug symbols.
unsigned long try_to_free_pages(zonelist *zones, int order, gfp_t gfp);
void drop_slab();
void try_to_compact_pages(gfp_t gfp, unsigned order, unsigned alloc_flags,
			  const alloc_context *context, int priority, page **captured);

// Sets what the next calls return.
void set_reclaimed(unsigned long pages);

// Remove and return the calls since the last call, in order.
std::vector<reclaim_call> take_reclaims();
std::vector<compact_call> take_compactions();
unsigned take_slab_drops();

// Clears the recorded calls and sets the results to zero.
void reset_reclaim();

} // namespace hosted
