// SPDX-License-Identifier: GPL-2.0-only
// Reclaim, drops and compaction: the rules for their callers.
#include <hosted/fs.h>
#include <hosted/process.h>
#include <hosted/reclaim.h>

#include "kernel_test.h"

using namespace hosted;
using namespace kernel_tests;

namespace
{

using reclaim_death = kernel_test;

TEST_F(reclaim_death, callers_must_do_as_the_allocator_does)
{
	zonelist *zones = helper_node_zonelist(&contig_page_data);
	page *captured = nullptr;
	alloc_context context;
	helper_alloc_context_init(&context, zones, 2, 1);
	const auto reclaim = [&](zonelist *from) {
		return try_to_free_pages(from, 0, GFP_KERNEL);
	};
	const auto compact = [&](page **slot) {
		try_to_compact_pages(GFP_KERNEL, 3, 4, &context, 5, slot);
	};

	EXPECT_DEATH(reclaim(zones), "without PF_MEMALLOC");
	helper_current_set_flags(PF_MEMALLOC);
	EXPECT_DEATH(reclaim(nullptr), "not the node's");
	EXPECT_DEATH(try_to_free_pages(zones, 0, GFP_ATOMIC), "forbid direct reclaim");
	EXPECT_DEATH(compact(nullptr), "no empty slot");
	{
		const rcu_read_guard rcu;
		EXPECT_DEATH(reclaim(zones), "atomic context: try_to_free_pages");
		EXPECT_DEATH(drop_slab(), "atomic context: drop_slab");
		EXPECT_DEATH(compact(&captured), "atomic context: try_to_compact_pages");
		EXPECT_DEATH(iterate_supers(nullptr, nullptr), "atomic context: iterate_supers");
	}
	set_reclaimed(9);
	EXPECT_EQ(reclaim(zones), 9U);
	compact(&captured);
	EXPECT_EQ(take_reclaims(), (std::vector<reclaim_call>{{0, GFP_KERNEL}}));
	EXPECT_EQ(take_compactions(), (std::vector<compact_call>{{GFP_KERNEL, 3, 4, 5, 2, 1}}));
	EXPECT_TRUE(take_reclaims().empty() && take_compactions().empty());
	helper_current_clear_flags(PF_MEMALLOC);
}

} // namespace
