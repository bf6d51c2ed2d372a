// SPDX-License-Identifier: GPL-2.0-only
// Choosing the target cache, and switching tracking on and off.
#include "slub_fixture.h"

#include <cerrno>

#include <fmt/format.h>
#include <hosted/engine/fault.h>
#include <hosted/engine/leftovers.h>

using namespace hosted;
using namespace module_tests;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

// Adds a cache and fills it up to a footprint.
kmem_cache *filled(const std::string &name, unsigned long kib, unsigned flags = 0)
{
	kmem_cache *cache = add_cache(name, 1024, flags | SLAB_NO_MERGE);
	while (footprint(*cache) < kib * 1024)
		allocate_untraced(*cache, GFP_KERNEL);
	return cache;
}

bool marked(const kmem_cache *cache)
{
	return helper_kmem_cache_flags(cache) & SLUB_TRACK_MARK;
}

using slub_choice = slub_test;
using slub_target = slub_tracking;

TEST_F(slub_choice, is_the_largest_unreclaimable_cache_or_the_specified_one)
{
	const auto chosen = [this](const std::string &specified = "") {
		set_parameter("specified_target", specified);
		forget_log();
		EXPECT_EQ(command(prepare), 0);
		return std::string(internal<char>("top_slub_name"));
	};

	filled("dentry", 800, SLAB_RECLAIM_ACCOUNT);
	filled("kmemleak_object", 800);
	EXPECT_EQ(chosen(), "");
	EXPECT_EQ(errors("no slab cache to track").size(), 1U);
	filled("small", 40);
	filled("large", 200);
	filled("tiny", 8);
	EXPECT_EQ(chosen(), "large");
	filled("as large", 200);
	EXPECT_EQ(chosen(), "as large") << "the newest comes first in the list";
	filled("kmemleak", 240);

	add_cache("empty", 64);
	for (const char *name : {"dentry", "kmemleak_object", "empty"})
		EXPECT_EQ(chosen(name), name);
	EXPECT_THAT(log_lines(log_info, "slub track specify target empty"), SizeIs(1));
	for (const char *name : {"nobody", "dent", "dentry2"})
		EXPECT_EQ(chosen(name), "kmemleak");
	EXPECT_THAT(log_lines(log_any), IsEmpty());
}

TEST_F(slub_target, refuses_names_that_are_too_long_and_the_trackers_own)
{
	ASSERT_EQ(command(off), 0);
	const std::string longest(63, 'x');
	add_cache(longest + 'y', 64);
	for (const std::string &name : {longest + 'y', std::string("slub_track_cache")}) {
		choose(name);
		EXPECT_EQ(command(on), -EINVAL);
		EXPECT_THAT(errors("slub name[" + name.substr(0, 63) + "] not found"), SizeIs(1));
	}
	const kmem_cache *fits = add_cache(longest, 64);
	track(longest);
	EXPECT_TRUE(marked(fits));
}

// A kernel has caches of its own with objects as large as the tracker's nodes.
class slub_merge : public slub_tracking
{
protected:
	kmem_cache *twin = hosted::add_cache("vmap_area", sizeof(slub_caller_node), 0);
};

TEST_F(slub_merge, the_trackers_nodes_keep_a_cache_of_their_own)
{
	ASSERT_EQ(command(off), 0);
	track("vmap_area");
	record_alloc(*twin, 50);
	record_free(*twin, 60);
	const tarn::readout readout = read_after_off();
	ASSERT_THAT(readout.alloc, SizeIs(1));
	EXPECT_EQ(readout.alloc[0].count, 50);
	ASSERT_THAT(readout.free, SizeIs(1));
	EXPECT_EQ(readout.free[0].count, 60);
}

TEST_F(slub_target, commands_during_a_hunt_keep_the_first_target)
{
	kmem_cache *other = add_cache("other", 64);
	track("other");
	EXPECT_FALSE(marked(other));
	record_alloc(*other);
	remove_cache(other);
	EXPECT_EQ(command(off), -EINVAL);
	EXPECT_THAT(errors("slub name[other] not found"), SizeIs(1));
	EXPECT_TRUE(marked(cache));
	record_alloc(*cache);
	EXPECT_EQ(ring(SLUB_ALLOC), ring_counters(1, 0));
}

TEST_F(slub_target, only_one_cache_is_tracked_whatever_came_before)
{
	kmem_cache *other = add_cache("other", 64);
	choose("other");
	forget_log();
	ASSERT_EQ(command(off), 0);
	EXPECT_THAT(log_lines(log_info, "slub name["),
		    ElementsAre("[tarn_slub_track_off] slub name[victim] was tracked\n",
				"[tarn_slub_track_off] slub name[other] ok\n"));
	ASSERT_EQ(command(on), 0);
	EXPECT_FALSE(marked(cache));
	record_alloc(*cache, 3);
	record_alloc(*other, 5);
	EXPECT_EQ(ring(SLUB_ALLOC), ring_counters(5, 0));
	forget_log();
	ASSERT_EQ(command(off), 0);
	EXPECT_THAT(log_lines(log_info, "was tracked"), IsEmpty());
	EXPECT_EQ(command(off), 0);
	EXPECT_EQ(log_lines(log_info, "slub name[").size(), 1U) << "it was off already";
}

TEST_F(slub_target, a_flag_set_and_cleared_by_hand_does_no_harm)
{
	const kmem_cache *other = add_cache("other", 64);
	record_alloc(*cache, 30);
	set_parameter("slub_track_flag", "0");
	ASSERT_EQ(command(on), 0);
	record_alloc(*cache, 60);
	EXPECT_EQ(ring(SLUB_ALLOC), ring_counters(60, 0)) << "in a new ring";

	// Under another name, the switch-off leaves the mark but frees the rings.
	choose("other");
	EXPECT_EQ(command(off), 0);
	EXPECT_TRUE(marked(cache));
	EXPECT_THAT(leftovers(), Not(Contains(HasSubstr("vmalloc area"))));
	set_parameter("slub_track_flag", "1");
	ASSERT_EQ(command(on), 0);
	EXPECT_FALSE(marked(other)) << "it is on already, without rings";
	record_alloc(*cache, half_ring);
	settle();
	EXPECT_EQ(ring(SLUB_ALLOC), ring_counters(60, 60));

	// The tracker's mark does not outlive the tracker.
	client.stop();
	EXPECT_FALSE(marked(cache));
}

TEST_F(slub_target, without_memory_for_both_rings_tracking_stays_off)
{
	ASSERT_EQ(command(off), 0);
	for (const unsigned failing : {1, 2}) {
		const fault_scope fault("vmalloc", failing);
		EXPECT_EQ(command(on), -ENOMEM);
		EXPECT_EQ(fault.calls().size(), failing) << "gives up at once";
		EXPECT_EQ(parameter("slub_track_flag"), "0\n");
		EXPECT_FALSE(marked(cache));
		EXPECT_THAT(leftovers(), Not(Contains(HasSubstr("vmalloc area"))));
	}
	EXPECT_EQ(command(on), 0);
}

TEST_F(slub_target, growth_of_the_target_is_reported_while_it_exists)
{
	std::vector<void *> objects(2000);
	for (const bool grows : {true, false}) {
		track("victim");
		const unsigned long before = footprint(*cache) / 1024;
		for (void *&object : objects)
			if (grows)
				object = allocate_untraced(*cache, GFP_KERNEL);
			else
				release_quietly(*cache, object);
		const unsigned long now = footprint(*cache) / 1024;
		EXPECT_NE(now, before);
		EXPECT_EQ(command(off), 0);
		EXPECT_THAT(log_lines(log_info, "kB"),
			    ElementsAre(fmt::format("[tarn_slub_track_off] {}+{}={}kB", before,
						    static_cast<long>(now - before), now)));
		forget_log();
	}

	// A destroyed target is neither measured nor named, even if another cache has its name.
	track("victim");
	record_alloc(*cache, 50);
	add_cache("victim", 64);
	remove_cache(cache);
	EXPECT_EQ(command(off), 0);
	EXPECT_THAT(log_lines(log_info, "no target to measure"), SizeIs(1));
	EXPECT_THAT(read().alloc, SizeIs(1));
	EXPECT_THAT(errors(" items"), ElementsAre("[tarn_slub_stack_read]  Alloc 1 items\n",
						  "[tarn_slub_stack_read]  Free 0 items\n"));
}

} // namespace
