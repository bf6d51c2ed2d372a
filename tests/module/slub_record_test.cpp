// SPDX-License-Identifier: GPL-2.0-only
// What the probes in the slab allocator record, from the ring through its thread to the readout.
#include "slub_fixture.h"

#include <array>
#include <set>
#include <span>

#include <fmt/format.h>
#include <hosted/clock.h>
#include <hosted/fault.h>
#include <hosted/vendor_hooks.h>
#include <hosted/vmstat.h>
#include <kernel/spinlock.h>
#include <kernel/stackdepot.h>
#include <platform/lmkd.h>

using namespace hosted;
using namespace module_tests;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using slub_record = slub_tracking;

TEST_F(slub_record, a_leak_is_told_once_an_interval)
{
	constexpr unsigned long leak_interval = 7500;
	const auto slab_leak = testing::Field("value", &platform::lmkd_notification::value, 8U);
	platform::lmkd daemon(77);
	ASSERT_EQ(daemon.handshake(), 0);
	set_parameter("slab_leak_k", "4096");
	allocate_quietly(*cache, GFP_KERNEL); // keeps a slab, so that no event changes it
	for (const long pages : {0, -1, 1024}) {
		set_node_stat(KERNEL_NR_SLAB_UNRECLAIMABLE_B, pages);
		record_alloc(*cache);
	}
	set_node_stat(KERNEL_NR_SLAB_UNRECLAIMABLE_B, 1025);
	record_free(*cache);
	ASSERT_EQ(command(off), 0); // allocates nodes, of its own
	EXPECT_THAT(daemon.collect(), IsEmpty());
	record_alloc(*cache, 3);
	EXPECT_THAT(daemon.collect(), ElementsAre(slab_leak));

	ASSERT_EQ(command(on), 0);
	advance(leak_interval - 1);
	record_alloc(*cache);
	EXPECT_THAT(daemon.collect(), IsEmpty());
	advance(2);
	const fault_scope fault(1);
	record_alloc(*cache);
	EXPECT_THAT(daemon.collect(), ElementsAre(slab_leak));
	EXPECT_EQ(internal<u64>("mm_event_arr")[6], 2U);
	EXPECT_EQ(ring(SLUB_ALLOC), ring_counters(1, 0)) << "a failed allocation";
}

TEST_F(slub_record, a_half_full_ring_wakes_its_thread)
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

TEST_F(slub_record, a_full_ring_drops_the_newest_and_still_wakes_its_thread)
{
	hold_thread("slub-alloc");
	allocate_in("early", *cache, slub_ring_entries - 60);
	allocate_in("late", *cache, 100);
	// The thread finds tracking off and goes to sleep beside a full ring.
	set_parameter("slub_track_flag", "0");
	let_go_thread("slub-alloc");
	settle();
	set_parameter("slub_track_flag", "1");
	EXPECT_EQ(ring(SLUB_ALLOC), ring_counters(slub_ring_entries, 0));
	allocate_in("late", *cache, 1);
	settle();
	EXPECT_EQ(ring(SLUB_ALLOC), ring_counters(slub_ring_entries, slub_ring_entries));

	// The counters run on over the ring's end.
	allocate_in("late", *cache, 10);
	constexpr u64 early = slub_ring_entries - 60;
	EXPECT_THAT(read_after_off().alloc,
		    ElementsAre(pair_of("task", early, early), pair_of("task", 70, 70)));
}

TEST_F(slub_record, interrupts_belong_to_no_task)
{
	const task_ptr task = make_task("innocent", 42);
	const task_scope as(*task);
	const frame_scope in(path("handler"));
	for (const context_kind kind : {context_kind::softirq, context_kind::hardirq}) {
		const context_scope interrupt(kind);
		record_alloc(*cache, 30);
	}
	lock_class_key key{};
	raw_spinlock_t lock{};
	helper_raw_spin_lock_init(&lock, "lock", &key);
	{
		// Atomic, but still the task's own work.
		const irqsave_guard guard(lock);
		record_alloc(*cache, 55);
	}
	EXPECT_THAT(read_after_off().alloc,
		    ElementsAre(pair_of("", 60, 115), pair_of("innocent", 55, 115)));
}

TEST_F(slub_record, pairs_are_told_apart_by_the_whole_name_and_joined_over_pids)
{
	allocate_in("f", *cache, 50, "kworker/u8:1", 20);
	for (const int pid : {23, 3, 21})
		allocate_in("f", *cache, 1, "kworker/u8:1", pid);
	allocate_in("f", *cache, 52, "kworker/u8:2", 5);
	allocate_in("f", *cache, 51, "\xffworker", 6);
	const tarn::readout readout = read_after_off();
	ASSERT_THAT(readout.alloc,
		    ElementsAre(pair_of("kworker/u8:1", 53, 156), pair_of("kworker/u8:2", 52, 156),
				pair_of("\xffworker", 51, 156)));
	EXPECT_EQ(readout.alloc[0].pid_min, 3);
	EXPECT_EQ(readout.alloc[0].pid_max, 23);
}

TEST_F(slub_record, a_stack_is_the_callers_up_to_seven_frames)
{
	std::vector<unsigned long> deep;
	for (unsigned i = 1; i <= 9; i++)
		deep.push_back(symbol_address("level", i, 0x10));
	{
		const frame_scope in(deep);
		record_alloc(*cache, 50);
		record_free(*cache, 50);
	}
	const tarn::readout readout = read_after_off();
	const lines &frames = readout.alloc.at(0).frames;
	ASSERT_EQ(frames.size(), 7U);
	EXPECT_EQ(frames.front(), "level+0x1/0x10");
	EXPECT_EQ(frames.back(), "level+0x7/0x10");
	EXPECT_EQ(readout.free.at(0).frames, frames);
}

// A leak detector: it allocates an object of its own for every tree node that the tracker allocates
// and frees, while the tracker holds a ring's lock.
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

TEST_F(slub_record, an_allocator_that_serves_the_tracker_may_use_the_target)
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

TEST_F(slub_record, the_caller_stands_in_for_a_stack_that_cannot_be_saved)
{
	const depot_stack_handle_t saved = stack_depot_save(path("other").data(), 2, GFP_ATOMIC);
	const unsigned long caller = 1UL << 32 | saved; // ends like a handle
	const frame_scope in(caller);
	for (int i = 0; i < 50; i++) {
		const fault_scope fault(2);
		record_alloc(*cache);
		ASSERT_THAT(fault.calls(), ElementsAre("kmem_cache_alloc", "stack_depot_save"));
	}
	const tarn::readout readout = read_after_off();
	EXPECT_EQ(readout.alloc.at(0).handle, fmt::format("{:#x}", caller));
	EXPECT_THAT(readout.alloc[0].frames, IsEmpty());
}

TEST_F(slub_record, an_event_without_memory_for_its_node_is_lost)
{
	allocate_in("known", *cache, 60, "a");
	allocate_in("unknown", *cache, 60, "b");
	{
		// The first pair gets its node; the calls behind it are the second pair's.
		const fault_scope fault(2, fault_scope::mode::from_then_on);
		ASSERT_EQ(command(off), 0);
		EXPECT_EQ(fault.calls().size(), 1U + 60U);
	}
	EXPECT_EQ(ring(SLUB_ALLOC), ring_counters(120, 120));
	EXPECT_THAT(read().alloc, ElementsAre(pair_of("a", 60, 60)));
}

using slub_read = slub_tracking;
using compare_function = int(const void *, const void *);

TEST_F(slub_read, pairs_seen_fifty_times_are_shown_once)
{
	allocate_in("often", *cache, 50, "a", 5);
	allocate_in("seldom", *cache, 49, "b");
	tarn::readout readout = read_after_off();
	ASSERT_THAT(readout.alloc, ElementsAre(pair_of("a", 50, 50)));
	const unsigned kib = 50 * helper_kmem_cache_full_size(cache) / 1024;
	EXPECT_THAT(
		errors("[tarn_slub_stack_read]"),
		ElementsAre(fmt::format("[tarn_slub_stack_read] top0 Alloc {} cnt:[50/50] size: "
					"{} KB pid:[5-5] a\n",
					readout.alloc[0].handle, kib),
			    "[tarn_slub_stack_read]         often+0x10/0x80\n",
			    "[tarn_slub_stack_read]         invoke_syscall+0x48/0x114\n",
			    "[tarn_slub_stack_read] victim Alloc 1 items\n",
			    "[tarn_slub_stack_read] victim Free 0 items\n"));

	// What was left out is gone, not kept for the next time.
	track("victim");
	allocate_in("seldom", *cache, 49, "b");
	EXPECT_THAT(read_after_off().alloc, IsEmpty());
}

TEST_F(slub_read, a_stack_shows_three_tasks_and_the_total_of_all)
{
	allocate_in("other", *cache, 300, "lone");
	for (int i = 0; i < 5; i++)
		allocate_in("shared", *cache, 50 + 10 * i, fmt::format("task{}", i));
	allocate_in("shared", *cache, 49, "rare");
	EXPECT_THAT(read_after_off().alloc,
		    ElementsAre(pair_of("task4", 90, 350), pair_of("task3", 80, 350),
				pair_of("task2", 70, 350), pair_of("lone", 300, 300)));
}

TEST_F(slub_read, a_small_buffer_gets_the_smallest_keys_and_the_rest_is_lost)
{
	auto *read_records = internal<long(void *, unsigned long, int)>("tarn_slub_stack_read");
	std::array<slub_stack_record, 8> records{};
	std::set<u64> handles;

	for (const long room : {8, 2, 0}) {
		for (int i = 0; i < 4; i++)
			allocate_in(fmt::format("f{}", i), *cache, 50 + i);
		ASSERT_EQ(command(off), 0);
		EXPECT_EQ(read_records(nullptr, room, SLUB_ALLOC), 0) << "takes nothing";
		const long num = read_records(records.data(), room, SLUB_ALLOC);
		std::set<u64> got;
		for (const slub_stack_record &record : std::span(records).first(num))
			got.insert(record.handle);
		if (room == 8)
			handles = got;
		handles.erase(std::next(handles.begin(), std::min(room, 4L)), handles.end());
		EXPECT_EQ(got, handles);
		EXPECT_EQ(read_records(records.data(), 8, SLUB_ALLOC), 0);
		track("victim");
	}
	EXPECT_EQ(read_records(records.data(), 8, 2), 0);
	EXPECT_EQ(read_records(records.data(), 8, -1), 0);
}

TEST_F(slub_read, records_are_ordered_over_their_full_range)
{
	const auto before = [](compare_function *compare, const slub_stack_record &a,
			       const slub_stack_record &b) {
		return compare(&a, &b) < 0 && compare(&b, &a) > 0 && compare(&a, &a) == 0;
	};
	const auto record = [](u64 handle, s64 total, int count) {
		return slub_stack_record{handle, total, {count}, {}, 0, 0};
	};

	auto *by_caller = internal<compare_function>("compare_same_caller");
	EXPECT_TRUE(before(by_caller, record(1, 0, 5), record(1UL << 32, 0, 9)));
	EXPECT_TRUE(before(by_caller, record(1, 0, 5), record(0xffffffc008000010, 0, 9)));
	EXPECT_TRUE(before(by_caller, record(7, 1, 6), record(7, 2, 5)));
	auto *by_count = internal<compare_function>("compare_count");
	EXPECT_TRUE(before(by_count, record(9, 0x7fffffff, 1), record(1, -0x7fffffff, 9)));
	EXPECT_TRUE(before(by_count, record(9, 1L << 32, 1), record(1, 1, 9)));
	EXPECT_TRUE(before(by_count, record(9, 5, 4), record(1, 5, 3)));
}

} // namespace
