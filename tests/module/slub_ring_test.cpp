// SPDX-License-Identifier: GPL-2.0-only
// The rings of recorded events, and the threads and trees that drain them.
#include "slub_fixture.h"

#include <hosted/vendor_hooks.h>

using namespace hosted;
using namespace module_tests;
using testing::ElementsAre;

namespace
{

using slub_ring = slub_tracking;

TEST_F(slub_ring, a_half_full_ring_wakes_its_thread)
{
	for (const int kind : {SLUB_ALLOC, SLUB_FREE}) {
		const auto record = kind == SLUB_ALLOC ? record_alloc : record_free;

		record(*cache, half_ring - 1);
		settle();
		EXPECT_EQ(ring(kind), ring_counters(half_ring - 1, 0));
		record(*cache, 1);
		settle();
		EXPECT_EQ(ring(kind), ring_counters(half_ring, half_ring));
	}
}

TEST_F(slub_ring, a_full_ring_drops_the_newest_and_still_wakes_its_thread)
{
	hold_thread("slub-alloc");
	allocate_in("early", *cache, slub_ring_entries - 60);
	allocate_in("late", *cache, 100);
	// The thread finds tracking off and goes back to sleep with the ring still full.
	set_parameter("slub_track_flag", "0");
	let_go_thread("slub-alloc");
	settle();
	set_parameter("slub_track_flag", "1");
	EXPECT_EQ(ring(SLUB_ALLOC), ring_counters(slub_ring_entries, 0));
	allocate_in("late", *cache, 1);
	settle();
	EXPECT_EQ(ring(SLUB_ALLOC), ring_counters(slub_ring_entries, slub_ring_entries));

	// The counters go on past the ring's end.
	allocate_in("late", *cache, 10);
	constexpr u64 early = slub_ring_entries - 60;
	EXPECT_THAT(read_after_off().alloc,
		    ElementsAre(pair_of("task", early, early), pair_of("task", 70, 70)));
}

TEST_F(slub_ring, an_event_without_memory_for_its_node_is_lost)
{
	allocate_in("known", *cache, 60, "a");
	allocate_in("unknown", *cache, 60, "b");
	{
		// The first pair gets its node; all later calls are the second pair's.
		const fault_scope fault("kmem_cache_alloc", 2, fault_scope::mode::from_then_on);
		ASSERT_EQ(command(off), 0);
		EXPECT_EQ(fault.calls().size(), 1U + 60U);
	}
	EXPECT_EQ(ring(SLUB_ALLOC), ring_counters(120, 120));
	EXPECT_THAT(read().alloc, ElementsAre(pair_of("a", 60, 60)));
}

// Acts as a leak detector does: allocates an object of its own for each tree node that the tracker
// allocates or frees, while the tracker holds a ring's lock.
kmem_cache *detector_cache;
void watch_alloc(void *, void *, unsigned long, kmem_cache *cache)
{
	if (helper_kmem_cache_name(cache) == std::string_view("slub_track_cache"))
		record_alloc(*detector_cache);
}
void watch_free(void *, unsigned long, kmem_cache *cache)
{
	if (helper_kmem_cache_name(cache) == std::string_view("slub_track_cache"))
		record_free(*detector_cache);
}

TEST_F(slub_ring, an_allocator_that_serves_the_tracker_may_use_the_target)
{
	detector_cache = cache;
	ASSERT_EQ(tracepoint_probe_register(&__tracepoint_android_vh_slab_alloc_node,
					    reinterpret_cast<void *>(watch_alloc), nullptr),
		  0);
	ASSERT_EQ(tracepoint_probe_register(&__tracepoint_android_vh_slab_free,
					    reinterpret_cast<void *>(watch_free), nullptr),
		  0);
	// Both threads drain, and both trees are emptied, while tracking is on.
	allocate_in("work", *cache, half_ring);
	record_free(*cache, half_ring);
	settle();
	const tarn::readout result = read();
	EXPECT_THAT(result.alloc, ElementsAre(pair_of("task", half_ring, half_ring)));
	EXPECT_EQ(result.free.size(), 1U);
	EXPECT_EQ(ring(SLUB_ALLOC), ring_counters(half_ring, half_ring));
	EXPECT_EQ(ring(SLUB_FREE), ring_counters(half_ring, half_ring));
	tracepoint_probe_unregister(&__tracepoint_android_vh_slab_alloc_node,
				    reinterpret_cast<void *>(watch_alloc), nullptr);
	tracepoint_probe_unregister(&__tracepoint_android_vh_slab_free,
				    reinterpret_cast<void *>(watch_free), nullptr);
}

} // namespace
