// SPDX-License-Identifier: GPL-2.0-only
// The records of slab events: task and call stack.
#include "slub_fixture.h"

#include <fmt/format.h>
#include <kernel/spinlock.h>
#include <kernel/stackdepot.h>

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

} // namespace
