// SPDX-License-Identifier: GPL-2.0-only
// The notification to lmkd when slab memory exceeds its threshold.
#include "slub_fixture.h"

#include <hosted/console.h>
#include <hosted/engine/clock.h>
#include <hosted/vmstat.h>
#include <platform/hosted/lmkd.h>

using namespace hosted;
using namespace module_tests;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using slub_notify = slub_tracking;

TEST_F(slub_notify, lmkd_learns_of_a_leak_once_per_interval)
{
	constexpr unsigned long leak_interval = 7500;
	const auto slab_leak = testing::Field("value", &platform::lmkd_notification::value, 8U);
	platform::lmkd daemon(77);
	ASSERT_EQ(daemon.handshake(), 0);
	set_parameter("slab_leak_k", "4096");
	allocate_untraced(*cache, GFP_KERNEL); // keeps a slab in use, so that the footprint stays
	for (const long pages : {0, -1, 1024}) {
		set_node_stat(KERNEL_NR_SLAB_UNRECLAIMABLE_B, pages);
		record_alloc(*cache);
	}
	set_node_stat(KERNEL_NR_SLAB_UNRECLAIMABLE_B, 1025);
	record_free(*cache);
	ASSERT_EQ(command(off), 0); // allocates tree nodes, which must not notify
	EXPECT_THAT(daemon.collect(), IsEmpty());
	record_alloc(*cache, 3);
	EXPECT_THAT(daemon.collect(), ElementsAre(slab_leak));

	ASSERT_EQ(command(on), 0);
	advance(leak_interval - 1);
	record_alloc(*cache);
	EXPECT_THAT(daemon.collect(), IsEmpty());
	advance(2);
	const fault_scope fault("kmem_cache_alloc");
	record_alloc(*cache);
	EXPECT_THAT(daemon.collect(), ElementsAre(slab_leak));
	EXPECT_EQ(internal<s64>("mm_event_arr")[6], 2);
	EXPECT_EQ(ring(SLUB_ALLOC), ring_counters(1, 0)) << "a failed allocation is not recorded";
}

// The serial driver allocates with the console's lock held; whoever prints then waits for ever.
TEST_F(slub_notify, a_leak_seen_under_the_consoles_lock_is_reported_after_it)
{
	platform::lmkd daemon(77);
	ASSERT_EQ(daemon.handshake(), 0);
	set_parameter("slab_leak_k", "4096");
	set_node_stat(KERNEL_NR_SLAB_UNRECLAIMABLE_B, 1025);
	{
		const console_interrupt serving;
		release(*cache, allocate(*cache, GFP_ATOMIC));
		EXPECT_THAT(daemon.collect(), IsEmpty());
	}
	EXPECT_THAT(daemon.collect(), testing::SizeIs(1));
}

} // namespace
