// SPDX-License-Identifier: GPL-2.0-only
// The records of slab events: task and call stack.
#include "slub_fixture.h"

#include <optional>

#include <fmt/format.h>
#include <kernel/spinlock.h>
#include <kernel/stackdepot.h>
#include <kernel/vmalloc.h>

using namespace hosted;
using namespace module_tests;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using slub_record = slub_tracking;

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

TEST_F(slub_record, pairs_differ_by_the_whole_task_name_and_join_pids)
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

TEST_F(slub_record, a_stack_has_up_to_seven_frames_of_the_caller)
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

TEST_F(slub_record, the_callers_address_replaces_a_stack_that_cannot_be_saved)
{
	const depot_stack_handle_t saved = stack_depot_save(path("other").data(), 2, GFP_ATOMIC);
	const unsigned long caller = 1UL << 32 | saved; // its low half equals a handle
	const frame_scope in(caller);
	for (int i = 0; i < 50; i++) {
		const fault_scope fault("stack_depot_save");
		record_alloc(*cache);
	}
	const tarn::readout readout = read_after_off();
	EXPECT_EQ(readout.alloc.at(0).handle, fmt::format("{:#x}", caller));
	EXPECT_THAT(readout.alloc[0].frames, IsEmpty());
}

using without_depot = machine_test;

TEST_F(without_depot, trackers_start_and_record_call_sites)
{
	// Neither at load nor when tracking starts can it be set up.
	std::optional<fault_scope> fault(std::in_place, "stack_depot_init");
	loaded_module module;
	platform::client client(module);
	fault.emplace("stack_depot_init");
	ASSERT_EQ(client.start().memtrack, 0);
	ASSERT_TRUE(fault->hit());
	fault.reset();
	EXPECT_EQ(errors("[slub_track_init] stack_depot_init failed!\n").size(), 1U);
	kmem_cache *cache = add_cache("victim", 64);
	set_parameter("specified_target", "victim");
	ASSERT_EQ(client.command(MEMTYPE_SLUB, prepare), 0);
	ASSERT_EQ(client.command(MEMTYPE_SLUB, on), 0);
	const unsigned long caller = symbol_address("caller", 8, 16);
	{
		const frame_scope in(caller);
		record_alloc(*cache, 50);
	}
	ASSERT_EQ(client.command(MEMTYPE_SLUB, off), 0);
	const auto stacks = client.read_stacks(MEMTYPE_SLUB, MEMCHECK_MAX_SIZE);
	const tarn::readout readout = tarn::parse_readout(stacks.text);
	ASSERT_EQ(readout.alloc.size(), 1U);
	EXPECT_EQ(readout.alloc[0].handle, fmt::format("{:#x}", caller));
	EXPECT_THAT(readout.alloc[0].frames, IsEmpty());

	// An area keeps its creator's address.
	ASSERT_EQ(client.command(MEMTYPE_VMALLOC, on), 0);
	vfree(helper_vmalloc(4096));
}

} // namespace
