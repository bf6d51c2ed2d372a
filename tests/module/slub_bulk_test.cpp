// SPDX-License-Identifier: GPL-2.0-only
// Objects that are allocated and freed several at a time.
#include "slub_fixture.h"

#include <array>

#include <hosted/engine/fault.h>
#include <hosted/vmstat.h>
#include <kernel/vmstat.h>
#include <platform/hosted/lmkd.h>

using namespace hosted;
using namespace module_tests;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

using slub_bulk = slub_tracking;
using objects = std::array<void *, 60>;

TEST_F(slub_bulk, calls_count_each_object_at_their_caller)
{
	const task_ptr task = make_task("filler", 12);
	const task_scope as(*task);
	objects some;
	{
		const frame_scope in(path("refill"));
		ASSERT_EQ(allocate_bulk(*cache, GFP_KERNEL, some), some.size());
	}
	{
		const frame_scope in(path("flush"));
		release_bulk(cache, some);
	}
	const tarn::readout readout = read_after_off();
	ASSERT_THAT(readout.alloc, ElementsAre(pair_of("filler", 60, 60)));
	EXPECT_THAT(readout.alloc[0].frames,
		    ElementsAre("refill+0x10/0x80", "invoke_syscall+0x48/0x114"));
	ASSERT_THAT(readout.free, ElementsAre(pair_of("filler", 60, 60)));
	EXPECT_THAT(readout.free[0].frames,
		    ElementsAre("flush+0x10/0x80", "invoke_syscall+0x48/0x114"));
}

TEST_F(slub_bulk, frees_after_a_grace_period_are_those_of_each_objects_cache)
{
	kmem_cache *other = add_cache("other", 64);
	objects some;
	ASSERT_EQ(allocate_bulk(*cache, GFP_KERNEL, some), some.size());
	for (void *object : some) {
		release_after_grace_period(object);
		release_after_grace_period(allocate(*other, GFP_KERNEL));
	}
	EXPECT_EQ(count("slub_recorded"), kind_counts(60, 0));
	end_grace_period();
	EXPECT_EQ(count("slub_recorded"), kind_counts(60, 60));
	const tarn::readout readout = read_after_off();
	ASSERT_THAT(readout.free, SizeIs(1));
	EXPECT_EQ(readout.free[0].frames.front(), "kvfree_rcu_bulk+0x7c/0x1e0");
}

TEST_F(slub_bulk, failed_calls_are_checked_for_a_leak_but_not_recorded)
{
	platform::lmkd daemon(77);
	objects some;
	ASSERT_EQ(daemon.handshake(), 0);
	set_parameter("slab_leak_k", "1");
	set_node_stat(KERNEL_NR_SLAB_UNRECLAIMABLE_B, 1000);
	{
		const fault_scope fault("kmem_cache_alloc", 5);
		EXPECT_EQ(allocate_bulk(*cache, GFP_ATOMIC, some), 0U);
	}
	EXPECT_THAT(daemon.collect(), SizeIs(1));
	EXPECT_EQ(count("slub_recorded"), kind_counts(0, 0));
	EXPECT_THAT(read_after_off().alloc, IsEmpty());
}

} // namespace
