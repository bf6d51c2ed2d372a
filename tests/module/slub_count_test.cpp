// SPDX-License-Identifier: GPL-2.0-only
// The tracker's counts: each event of the target is recorded, or counted as missing.
#include "slub_fixture.h"

#include <algorithm>

#include <fmt/format.h>
#include <hosted/engine/fault.h>
#include <hosted/vendor_hooks.h>

using namespace hosted;
using namespace module_tests;

namespace
{

using slub_count = slub_tracking;

TEST_F(slub_count, each_event_is_recorded_dropped_or_lost)
{
	EXPECT_EQ(set_parameter("slub_recorded", "1,1"), -EACCES);
	expect_counts({0, 0}, {0, 0}, {0, 0}, {0, 0});

	hold_thread("slub-alloc");
	record_alloc(*cache, slub_ring_entries + 7);
	record_free(*cache, 60);
	expect_counts({slub_ring_entries, 60}, {7, 0}, {0, 0}, {0, 0});
	let_go_thread("slub-alloc");
	settle();

	record_alloc(*cache, 70);
	{
		// The allocations have their node already, the frees get none.
		const fault_scope fault("kmem_cache_alloc", 1, fault_scope::mode::from_then_on);
		ASSERT_EQ(command(off), 0);
	}
	expect_counts({slub_ring_entries + 70, 0}, {7, 0}, {0, 60}, {0, 0});
	// The allocator would print under the ring's lock.
	EXPECT_THAT(log_lines(log_any, "allocation failure"), testing::IsEmpty());
	read();
	expect_counts({slub_ring_entries + 70, 0}, {7, 0}, {0, 60}, {0, 0});

	track("victim");
	expect_counts({0, 0}, {0, 0}, {0, 0}, {0, 0});
}

TEST_F(slub_count, a_full_ring_drops_before_the_stack_is_taken)
{
	const frame_scope in(path("open"));

	for (const int kind : {SLUB_ALLOC, SLUB_FREE}) {
		const auto record = kind == SLUB_ALLOC ? record_alloc : record_free;
		const fault_scope watch;
		const auto stacks = [&] {
			return std::ranges::count(watch.calls(), std::string("stack_depot_save"),
						  &fallible_call::name);
		};

		hold_thread(drain_threads[kind]);
		record(*cache, slub_ring_entries + 7);
		EXPECT_EQ(stacks(), slub_ring_entries);
		let_go_thread(drain_threads[kind]);
		settle();
		record(*cache, 1);
		EXPECT_EQ(stacks(), slub_ring_entries + 1) << "the thread has made room";
	}
	expect_counts({slub_ring_entries + 1, slub_ring_entries + 1}, {7, 7}, {0, 0}, {0, 0});
}

TEST_F(slub_count, a_ring_without_storage_drops_all)
{
	record_alloc(*cache, 3);
	ASSERT_EQ(command(off), 0);
	record_alloc(*cache, 5);
	expect_counts({3, 0}, {0, 0}, {0, 0}, {0, 0});
	choose("kmalloc-64");
	ASSERT_EQ(command(on), 0);
	choose("victim");
	ASSERT_EQ(command(off), 0);
	EXPECT_GT(set_parameter("slub_track_flag", "1"), 0);
	kmem_cache *still_marked = find_cache("kmalloc-64");
	record_alloc(*still_marked, 2);
	record_free(*still_marked, 4);
	expect_counts({0, 0}, {2, 4}, {0, 0}, {0, 0});
}

// Allocates in the target for each tree node of the tracker, as a leak detector would.
kmem_cache *detector_cache;
void watch_alloc(void *, void *, unsigned long, kmem_cache *cache)
{
	if (helper_kmem_cache_name(cache) == std::string_view("slub_track_cache"))
		record_alloc(*detector_cache);
}

TEST_F(slub_count, the_trackers_own_traffic_is_skipped)
{
	auto *probe = reinterpret_cast<void *>(watch_alloc);

	detector_cache = cache;
	ASSERT_EQ(
		tracepoint_probe_register(&__tracepoint_android_vh_slab_alloc_node, probe, nullptr),
		0);
	hold_thread("slub-alloc");
	for (const char *place : {"a", "b", "c"})
		allocate_in(place, *cache, half_ring / 2);
	let_go_thread("slub-alloc");
	settle();
	EXPECT_EQ(parameter("slub_skipped"), "3,0\n") << "once for each node";
	EXPECT_EQ(parameter("slub_recorded"), fmt::format("{},0\n", 3 * half_ring / 2));
	ASSERT_EQ(tracepoint_probe_unregister(&__tracepoint_android_vh_slab_alloc_node, probe,
					      nullptr),
		  0);
}

} // namespace
