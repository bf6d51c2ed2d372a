// SPDX-License-Identifier: GPL-2.0-only
// The readout of slab tracking: which records it shows, and in what order.
#include "slub_fixture.h"

#include <array>
#include <set>
#include <span>

#include <fmt/format.h>

using namespace hosted;
using namespace module_tests;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using slub_read = slub_tracking;
using compare_function = int(const void *, const void *);

TEST_F(slub_read, shows_pairs_seen_fifty_times_and_empties_the_tree)
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

	// Pairs that were left out are gone, too.
	track("victim");
	allocate_in("seldom", *cache, 49, "b");
	EXPECT_THAT(read_after_off().alloc, IsEmpty());
}

TEST_F(slub_read, shows_three_tasks_per_stack_and_the_total_of_all)
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
		EXPECT_EQ(read_records(nullptr, room, SLUB_ALLOC), 0)
			<< "without a buffer the tree stays";
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
