// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/reclaim.h>

#include <mutex>
#include <utility>

#include <hosted/engine/opaque.h>
#include <hosted/task_struct.h>
#include <kernel/process.h>

namespace hosted
{
namespace
{

struct context_fields {
	const zonelist *zones;
	int migratetype;
	int highest_zone;
};

struct call_log {
	std::mutex lock;
	unsigned long reclaimed = 0;
	unsigned slab_drops = 0;
	std::vector<reclaim_call> reclaims{};
	std::vector<compact_call> compactions{};
};

call_log &calls()
{
	static call_log instance;
	return instance;
}

void check_zones(const zonelist *zones, const char *call)
{
	if (judging && zones != helper_node_zonelist(&contig_page_data))
		judge_stop(call, "the zone list is not the node's");
}

} // namespace

unsigned long try_to_free_pages(zonelist *zones, int order, gfp_t gfp)
{
	might_sleep("try_to_free_pages");
	check_zones(zones, "try_to_free_pages");
	if (judging && !(gfp & __GFP_DIRECT_RECLAIM))
		judge_stop("try_to_free_pages", "the flags forbid direct reclaim");
	if (judging && !(self().task->flags.load(std::memory_order_relaxed) & PF_MEMALLOC))
		judge_stop("try_to_free_pages",
			   "without PF_MEMALLOC its own allocations may reclaim, too");
	const std::lock_guard guard(calls().lock);
	calls().reclaims.push_back({order, gfp});
	return calls().reclaimed;
}

void drop_slab()
{
	might_sleep("drop_slab");
	const std::lock_guard guard(calls().lock);
	calls().slab_drops++;
}

void try_to_compact_pages(gfp_t gfp, unsigned order, unsigned alloc_flags,
			  const alloc_context *context, int priority, page **captured)
{
	const auto fields = load_opaque<context_fields>(context);

	might_sleep("try_to_compact_pages");
	check_zones(fields.zones, "try_to_compact_pages");
	if (judging && (!captured || *captured))
		judge_stop("try_to_compact_pages", "there is no empty slot for a captured page");
	const std::lock_guard guard(calls().lock);
	calls().compactions.push_back(
		{gfp, order, alloc_flags, priority, fields.migratetype, fields.highest_zone});
}

void set_reclaimed(unsigned long pages)
{
	const std::lock_guard guard(calls().lock);
	calls().reclaimed = pages;
}

std::vector<reclaim_call> take_reclaims()
{
	const std::lock_guard guard(calls().lock);
	return std::exchange(calls().reclaims, {});
}

std::vector<compact_call> take_compactions()
{
	const std::lock_guard guard(calls().lock);
	return std::exchange(calls().compactions, {});
}

unsigned take_slab_drops()
{
	const std::lock_guard guard(calls().lock);
	return std::exchange(calls().slab_drops, 0);
}

void reset_reclaim()
{
	set_reclaimed(0);
	take_reclaims();
	take_compactions();
	take_slab_drops();
}

} // namespace hosted

using namespace hosted;

void helper_alloc_context_init(alloc_context *context, zonelist *zones, int migratetype,
			       int highest_zone)
{
	store_opaque(context, context_fields{.zones = zones,
					     .migratetype = migratetype,
					     .highest_zone = highest_zone});
}

unsigned long helper_try_to_free_pages(void *symbol, zonelist *zones, int order, gfp_t gfp)
{
	return reinterpret_cast<decltype(&try_to_free_pages)>(symbol)(zones, order, gfp);
}

void helper_drop_slab(void *symbol)
{
	reinterpret_cast<decltype(&drop_slab)>(symbol)();
}

void helper_try_to_compact_pages(void *symbol, gfp_t gfp, unsigned order, unsigned alloc_flags,
				 const alloc_context *context, int priority, page **captured)
{
	reinterpret_cast<decltype(&try_to_compact_pages)>(symbol)(gfp, order, alloc_flags, context,
								  priority, captured);
}
