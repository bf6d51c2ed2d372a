// SPDX-License-Identifier: GPL-2.0-only
// The records of allocations from CMA areas.
#include <hosted/engine/callstack.h>

#include "cma_fixture.h"

using namespace hosted;
using namespace module_tests;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using cma_records = cma_test;

TEST_F(cma_records, a_release_drops_the_first_record_that_overlaps_it)
{
	const auto left_by = [&](unsigned long pfn, unsigned long count) {
		tell_alloc(area, 5000, 8);
		tell_release(area, pfn, count);
		lines left = listed(area);
		tell_release(area, 5000, 8);
		return left;
	};
	for (const auto &[pfn, count] : {std::pair{5000, 8},
					 {5000, 2},
					 {5000, 20},
					 {5007, 1},
					 {4990, 18},
					 {5003, 2},
					 {4990, 11},
					 {5007, 5},
					 {4990, 40}})
		EXPECT_THAT(left_by(pfn, count), IsEmpty()) << pfn;
	for (const auto &[pfn, count] : {std::pair{4992, 8}, {5008, 8}})
		EXPECT_THAT(left_by(pfn, count), ElementsAre("5000-5007 8")) << pfn;

	// A record of another area with the same page frames stays.
	tell_alloc(area, 5000, 4);
	tell_alloc(camera, 5000, 4);
	tell_release(camera, 5000, 4);
	EXPECT_THAT(listed(area), ElementsAre("5000-5003 4"));
	EXPECT_THAT(listed(camera), IsEmpty());
}

TEST_F(cma_records, a_release_across_two_records_drops_the_first_in_the_list)
{
	const cma_range low{"linux,cma", 5000, 5003}, high{"linux,cma", 5004, 5007},
		newest{"linux,cma", 5008, 5011};
	tell_alloc(area, 5000, 4);
	tell_alloc(area, 5004, 4);
	tell_release(area, 4999, 10);
	EXPECT_THAT(records(), ElementsAre(low)) << "the newest is in front";

	tell_alloc(area, 5004, 4);
	EXPECT_THAT(listed(area), ElementsAre("5000-5003 4", "5004-5007 4"));
	tell_alloc(area, 5008, 4);
	EXPECT_THAT(records(), ElementsAre(newest, low, high)) << "in front of ranked ones, too";
	tell_release(area, 4999, 9);
	EXPECT_THAT(records(), ElementsAre(newest, high)) << "a listing had ranked them";
}

// Between the free of a range and the report of its release, others may take parts of it.
TEST_F(cma_records, a_late_release_drops_its_own_record_and_no_newer_one)
{
	tell_alloc(area, 5000, 8);
	tell_alloc(area, 5000, 4);
	tell_alloc(area, 5004, 4);
	tell_release(area, 5000, 8);
	EXPECT_THAT(listed(area), ElementsAre("5000-5003 4", "5004-5007 4"));

	tell_alloc(area, 5000, 16);
	tell_release(area, 5000, 4);
	tell_release(area, 5004, 4);
	EXPECT_THAT(listed(area), ElementsAre("5000-5015 16"));
}

TEST_F(cma_records, follow_the_allocator)
{
	page *first = cma_alloc(area, 1000);
	page *chunks = cma_alloc(camera, 5);
	const unsigned long pfn = helper_page_to_pfn(first);
	EXPECT_TRUE(cma_release(area, &page_at(pfn + 500), 500));
	EXPECT_THAT(listed(area), IsEmpty()) << "releasing a part drops the whole record";
	EXPECT_TRUE(cma_release(area, first, 500));
	EXPECT_THAT(listed(camera), ElementsAre("8192-8196 5"));
	EXPECT_THAT(log_lines(log_info, "[show_brief]"),
		    ElementsAre("[show_brief] camera valid_pfn=[8192-8703] count:512 used:2 req:0 "
				"lasttry-pfn:0x0"))
		<< "counted in chunks of four pages";
	EXPECT_TRUE(cma_release(camera, chunks, 5));
	EXPECT_FALSE(cma_alloc(area, pages + 1)) << "the kernel does not fire the tracepoint";
	EXPECT_THAT(records(), IsEmpty());
}

TEST_F(cma_records, out_of_memory_costs_the_record_or_its_stack)
{
	const frame_scope in(symbol_address("driver_probe", 0x10, 0x20));
	const auto alloc_in_interrupt = [this](unsigned long pfn) {
		const context_scope interrupt(context_kind::hardirq);
		tell_alloc(area, pfn, 4);
	};
	set_parameter("cma_show_backtrace", "1");
	alloc_in_interrupt(5000);
	{
		const fault_scope fail("kmem_cache_alloc");
		alloc_in_interrupt(5010);
	}
	{
		const fault_scope fail("stack_depot_save");
		alloc_in_interrupt(5020);
	}
	EXPECT_EQ(parameter("cma_unrecorded"), "1\n");
	EXPECT_EQ(set_parameter("cma_unrecorded", "0"), -EACCES);
	EXPECT_THAT(log_lines(log_warning), IsEmpty()) << "the kernel does not dump the stack";
	EXPECT_THAT(log_lines(log_info, "[add_cma_stackinfo]"),
		    ElementsAre("[add_cma_stackinfo] linux,cma [5000-5003] add",
				"[add_cma_stackinfo] linux,cma [5020-5023] add"));
	set_parameter("cma_show_backtrace", "0");
	EXPECT_THAT(listed(area), ElementsAre("5000-5003 4", "5020-5023 4"));
	EXPECT_THAT(log_lines(log_info, "driver_probe").size(), 1U)
		<< "only the first one has a stack";
}

using cma_areas = machine_test;

TEST_F(cma_areas, beyond_the_table_are_tracked_without_a_file)
{
	std::vector<cma *> areas;
	for (unsigned i = 0; i < max_cma_regions + 3; i++)
		areas.push_back(&add_cma_area(fmt::format("area{}", i), i * 512, 512));
	const loaded_module loaded({fmt::format("cma_target=area{}", max_cma_regions)});
	EXPECT_EQ(errors("is left out, the table has 17 areas").size(), 3U);
	EXPECT_EQ(*loaded.internal<int>("cma_region_count"), max_cma_regions);
	for (cma *area : areas)
		for (const unsigned long count : {60, 40})
			EXPECT_TRUE(cma_alloc(*area, count));
	EXPECT_THAT(log_lines(log_info, "cma warn"), IsEmpty());
	EXPECT_EQ(read_file("/sys/kernel/debug/tarn_cma/area16/show"), "0\n");
	EXPECT_EQ(read_file("/sys/kernel/debug/tarn_cma/area17/show"), std::to_string(-ENOENT));

	// The report of a failure has no summary.
	forget_log();
	EXPECT_FALSE(cma_alloc(*areas[max_cma_regions], 500));
	EXPECT_THAT(log_lines(log_info),
		    ElementsAre("[vh_cma_alloc] detect cma_alloc fail, ret=-12",
				"[show_info] area17 [8704-8763] count:60",
				"[show_info]         cma_alloc+0x1e8/0x2d0",
				"[show_info] area17 [8764-8803] count:40",
				"[show_info]         cma_alloc+0x1e8/0x2d0"));
}

} // namespace
