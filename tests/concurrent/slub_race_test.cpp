// SPDX-License-Identifier: GPL-2.0-only
// Slab tracking while several CPUs allocate and free at once.
#include <tests/module/slub_fixture.h>

#include <array>

#include <hosted/engine/fault.h>

#include "crew.h"

using namespace hosted;
using namespace module_tests;
using namespace concurrent_tests;

namespace
{

constexpr int cpus = 4;
constexpr auto kinds = {SLUB_ALLOC, SLUB_FREE};

class slub_race : public slub_tracking
{
protected:
	void allocate_and_free(u64 times)
	{
		for (u64 i = 0; i < times; i++)
			release(*cache, allocate(*cache, GFP_ATOMIC));
	}
	// Makes events of each kind on each CPU, all by one pair, so that a readout shows all of
	// them.
	void record_on_all(u64 times)
	{
		in_threads(cpus, [&](int) { allocate_and_free(times); });
	}
	void read_more()
	{
		const tarn::readout readout = read();
		for (const tarn::caller_record &record : readout.alloc)
			read_out[SLUB_ALLOC] += record.count;
		for (const tarn::caller_record &record : readout.free)
			read_out[SLUB_FREE] += record.count;
	}

	u64 read_out[SLUB_KINDS] = {}; // in events
};

TEST_F(slub_race, counts_are_exact_while_rings_overflow)
{
	constexpr u64 times = half_ring / cpus - 1;
	record_on_all(times);
	for (const int kind : kinds) {
		EXPECT_EQ(ring(kind), ring_counters(times * cpus, 0)) << "less than half full";
		hold_thread(drain_threads[kind]);
	}
	record_on_all(half_ring);
	for (const int kind : kinds) {
		EXPECT_EQ(ring(kind), ring_counters(slub_ring_entries, 0));
		let_go_thread(drain_threads[kind]);
	}
	settle();

	constexpr u64 more = 3 * slub_ring_entries;
	record_on_all(more);
	ASSERT_EQ(command(off), 0);
	read_more();
	for (const int kind : kinds) {
		const auto [in, out] = ring(kind);
		EXPECT_GE(in, 2 * slub_ring_entries);
		EXPECT_LE(in, slub_ring_entries + more * cpus);
		EXPECT_EQ(out, in);
		EXPECT_EQ(read_out[kind], in);
	}
}

// Each event is counted once, whether it is recorded or not, and the readout shows what is
// recorded.
TEST_F(slub_race, counts_add_up_to_what_happened)
{
	constexpr u64 times = slub_ring_entries;
	for (const int kind : kinds)
		hold_thread(drain_threads[kind]);
	record_on_all(half_ring);
	{
		const fault_scope fault("kmem_cache_alloc", 1, fault_scope::mode::from_then_on);

		for (const int kind : kinds)
			let_go_thread(drain_threads[kind]);
		settle();
	}
	record_on_all(times);
	ASSERT_EQ(command(off), 0);
	read_more();

	const kind_counts recorded = count("slub_recorded"), dropped = count("slub_dropped"),
			  lost = count("slub_lost"), skipped = count("slub_skipped");
	constexpr u64 produced = (half_ring + times) * cpus;
	EXPECT_EQ(recorded.first + dropped.first + lost.first + skipped.first, produced);
	EXPECT_EQ(recorded.second + dropped.second + lost.second + skipped.second, produced);
	EXPECT_GE(dropped.first, half_ring * cpus - slub_ring_entries);
	EXPECT_GT(lost.second, 0U);
	EXPECT_EQ(read_out[SLUB_ALLOC], recorded.first);
	EXPECT_EQ(read_out[SLUB_FREE], recorded.second);
}

// The drain may fall behind and drop events, but a readout drops at most the one pair that it finds
// too rare.
TEST_F(slub_race, switches_and_readouts_while_events_come)
{
	constexpr u64 rounds = 8, readouts = 2 * rounds, rare = 49;
	u64 recorded[SLUB_KINDS] = {};
	crew traffic;
	traffic.add(cpus, [&] { allocate_and_free(50); });
	for (u64 round = 0; round < rounds; round++) {
		ASSERT_EQ(command(on), 0);
		traffic.let_work(40);
		read_more();
		EXPECT_EQ(command(prepare), 0);
		traffic.let_work(10);
		ASSERT_EQ(command(off), 0);
		for (const int kind : kinds) {
			const auto [in, out] = ring(kind);
			EXPECT_EQ(in, out);
			recorded[kind] += in;
		}
		read_more();
	}
	traffic.stop();
	for (const int kind : kinds) {
		EXPECT_GE(recorded[kind], rounds * 1000);
		EXPECT_LE(read_out[kind], recorded[kind]);
		EXPECT_GE(read_out[kind] + rare * readouts, recorded[kind]);
	}
}

// Anyone may send commands, read, and set the parameter at any time.
TEST_F(slub_race, commands_against_each_other_and_the_flag)
{
	const std::array<std::function<int(int)>, cpus> commands = {
		[&](int) { return command(on); },
		[&](int) { return command(off) | command(prepare); },
		[&](int) { return client.read_stacks(MEMTYPE_SLUB, 4096).status; },
		[&](int i) {
			return set_parameter("slub_track_flag", i % 2 ? "1" : "0") - 1;
		}};
	in_threads(cpus, [&](int cpu) {
		for (int i = 0; i < 40; i++) {
			slab_traffic(*cache, 50);
			EXPECT_EQ(commands[cpu](i), 0);
		}
	});
	// Whatever state the threads left behind, tracking still works.
	set_parameter("slub_track_flag", "1");
	EXPECT_EQ(command(off), 0);
	read();
	ASSERT_EQ(command(on), 0);
	record_on_all(100);
	EXPECT_EQ(command(off), 0);
	read_more();
	EXPECT_THAT(read_out, testing::Each(100U * cpus));
}

} // namespace
