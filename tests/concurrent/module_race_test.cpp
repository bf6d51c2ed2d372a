// SPDX-License-Identifier: GPL-2.0-only
// Start and stop of the module, its channel and its controls while the kernel is busy.
#include <tests/module/fixture.h>

#include <array>
#include <set>

#include <hosted/engine/clock.h>
#include <hosted/netlink.h>
#include <hosted/vmalloc.h>
#include <hosted/vmstat.h>
#include <platform/hosted/ember.h>
#include <platform/hosted/lmkd.h>

#include "crew.h"

using namespace hosted;
using namespace module_tests;
using namespace concurrent_tests;

namespace
{

using module_race = module_test;

TEST_F(module_race, notifications_while_the_channel_opens_and_closes)
{
	auto *notify = exported<int(unsigned)>("lmkd_notify");
	std::set<u32> arrived;
	ASSERT_EQ(exported<int()>("tarn_memory_netlink_init")(), 0);
	platform::lmkd daemon(77, 1 << 20);
	hosted::netlink_socket other(31, 78);

	crew notifiers;
	notifiers.add(2, [&] { notify(8); });
	notifiers.add(1, [&] {
		const context_scope in(context_kind::softirq);
		notify(16);
	});
	// The kernel does not wait for its callback when the channel closes.
	notifiers.add(1, [&] { other.send(std::array<std::byte, 4>{}); });
	for (int round = 0; round < 40; round++) {
		ASSERT_EQ(exported<int()>("tarn_memory_netlink_init")(), 0);
		ASSERT_EQ(daemon.handshake(), 0);
		notifiers.let_work(5);
		exported<void()>("tarn_memory_netlink_exit")();
		EXPECT_LT(daemon.handshake(), 0);
		for (const platform::lmkd_notification &n : daemon.collect()) {
			EXPECT_TRUE(n.value == 8 || n.value == 16) << n.value;
			EXPECT_TRUE(arrived.insert(n.seq).second) << n.seq;
		}
	}
	notifiers.stop();
	EXPECT_FALSE(arrived.empty());
	EXPECT_EQ(notify(8), -1);
}

TEST_F(module_race, trackers_start_and_stop_under_eight_threads)
{
	kmem_cache *cache = add_cache("victim", 64);
	set_parameter("specified_target", "victim");
	crew traffic;
	traffic.add(8, [&] { slab_traffic(*cache, 30); });
	for (int round = 0; round < 30; round++) {
		start();
		if (round % 3 != 0) {
			EXPECT_EQ(client.command(MEMTYPE_SLUB, MEMCHECK_CMD_PREPARE), 0);
			EXPECT_EQ(client.command(MEMTYPE_SLUB, MEMCHECK_CMD_ON), 0);
		}
		traffic.let_work(30);
		if (round % 3 == 1) {
			EXPECT_EQ(client.command(MEMTYPE_SLUB, MEMCHECK_CMD_OFF), 0);
		}
		// In the other rounds it stops in the middle of its work.
		client.stop();
		EXPECT_EQ(helper_kmem_cache_flags(cache), SLAB_NO_MERGE);
	}
}

TEST_F(module_race, report_controls_against_time)
{
	const std::string enabled = "/sys/kernel/mm_event/enabled";
	const std::string level = "/sys/kernel/mm_event/level";
	crew clock;
	clock.add(1, [] { advance(5000); });
	in_threads(3, [&](int cpu) {
		for (int i = 0; i < 400; i++)
			EXPECT_EQ(cpu == 0 ? write_file(enabled, i % 2 ? "0" : "1")
					   : write_file(level, std::to_string((i + cpu) % 3)),
				  1);
	});
	clock.stop();

	EXPECT_EQ(write_file(level, "2"), 1);
	EXPECT_EQ(write_file(enabled, "0"), 1);
	settle();
	platform::take_ember_events();
	advance(21600001);
	settle();
	EXPECT_TRUE(platform::take_ember_events().empty());
	EXPECT_EQ(write_file(enabled, "1"), 1);
	for (const unsigned long ms : {1, 15000}) {
		advance(ms);
		settle();
	}
	EXPECT_EQ(platform::take_ember_events().size(), 2U);
}

using module_reload = machine_test;

TEST_F(module_reload, whole_lives_of_the_module_under_traffic)
{
	kmem_cache *cache = add_cache("victim", 64);
	set_totalram(1200); // always above the leak thresholds
	set_node_stat(KERNEL_NR_SLAB_UNRECLAIMABLE_B, 1 << 20);
	crew traffic;
	traffic.add(2, [&] { slab_traffic(*cache, 40); });
	crew mapper;
	mapper.add(1, [] {
		vm_struct *area = vmalloc_area(3 * 4096);
		EXPECT_FALSE(vmallocinfo().empty());
		release_area(area);
	});
	for (int round = 0; round < 10; round++) {
		loaded_module module({"specified_target=victim"});
		platform::client client(module);
		ASSERT_EQ(client.start().memtrack, 0);
		platform::lmkd daemon(77); // keeps the module loaded
		EXPECT_EQ(daemon.handshake(), 0);
		advance(7501); // an earlier notification may have used up the interval
		for (const u32 type : {MEMTYPE_SLUB, MEMTYPE_VMALLOC})
			for (const u32 cmd : {MEMCHECK_CMD_PREPARE, MEMCHECK_CMD_ON})
				EXPECT_EQ(client.command(type, cmd), 0);
		traffic.let_work(60);
		EXPECT_FALSE(daemon.collect().empty());
		if (round % 2 == 0)
			continue; // unload in the middle of a hunt
		EXPECT_EQ(client.command(MEMTYPE_SLUB, MEMCHECK_CMD_OFF), 0);
		EXPECT_THAT(client.read_stacks(MEMTYPE_SLUB, MEMCHECK_MAX_SIZE).text,
			    testing::HasSubstr("storm+0x10/0x80"));
	}
}

} // namespace
