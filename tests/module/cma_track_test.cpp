// SPDX-License-Identifier: GPL-2.0-only
// The record of what is allocated from the CMA areas, and the warning that one fills up.
#include <hosted/callstack.h>
#include <hosted/clock.h>

#include "cma_fixture.h"

using namespace hosted;
using namespace module_tests;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using cma_track = cma_test;

TEST_F(cma_track, a_release_takes_the_first_record_that_it_shares_a_frame_with)
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

	// Equal frames of another area are not meant.
	tell_alloc(area, 5000, 4);
	tell_alloc(camera, 5000, 4);
	tell_release(camera, 5000, 4);
	EXPECT_THAT(listed(area), ElementsAre("5000-5003 4"));
	EXPECT_THAT(listed(camera), IsEmpty());
}

TEST_F(cma_track, a_release_of_two_records_drops_the_first_of_the_list)
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
	EXPECT_THAT(records(), ElementsAre(newest, low, high)) << "behind the sort, too";
	tell_release(area, 4999, 9);
	EXPECT_THAT(records(), ElementsAre(newest, high)) << "a listing sorts";
}

TEST_F(cma_track, the_allocator_and_the_module_agree)
{
	page *first = cma_alloc(area, 1000);
	page *chunks = cma_alloc(camera, 5);
	const unsigned long pfn = helper_page_to_pfn(first);
	EXPECT_TRUE(cma_release(area, &page_at(pfn + 500), 500));
	EXPECT_THAT(listed(area), IsEmpty()) << "a part of it takes the whole record";
	EXPECT_TRUE(cma_release(area, first, 500));
	EXPECT_THAT(listed(camera), ElementsAre("8192-8196 5"));
	EXPECT_THAT(log_lines(log_info, "[show_brief]"),
		    ElementsAre("[show_brief] camera valid_pfn=[8192-8703] count:512 used:2 req:0 "
				"lasttry-pfn:0x0"))
		<< "in chunks of four pages";
	EXPECT_TRUE(cma_release(camera, chunks, 5));
	EXPECT_FALSE(cma_alloc(area, pages + 1)) << "the kernel does not even tell";
	EXPECT_THAT(records(), IsEmpty());
}

TEST_F(cma_track, the_target_warns_once_above_its_limit)
{
	const auto warnings = [&](cma &of, unsigned long count) {
		forget_log();
		EXPECT_TRUE(cma_alloc(of, count));
		lines found = log_lines(log_info, "cma warn");
		EXPECT_EQ(log_lines(log_info, "[show_brief]").size(), found.size());
		return found;
	};
	const lines warns{
		"[cma_show_when_exceed] cma warn linux,cma has been used exceed 850/1024"};
	EXPECT_THAT(warnings(camera, 512), IsEmpty()) << "not the target";
	EXPECT_THAT(warnings(area, 1699), IsEmpty());
	EXPECT_THAT(warnings(area, 1), IsEmpty()) << "850 of 1024 twice";
	EXPECT_EQ(warnings(area, 1), warns);
	EXPECT_THAT(warnings(area, 1), IsEmpty());
	set_parameter("cma_warn_limit_permillage", "100");
	EXPECT_THAT(warnings(area, 1), IsEmpty()) << "another limit does not arm it again";

	// Another target does, at its first allocation. A small area's limit is 0.
	cma_release(camera, &page_at(camera_base), 512);
	set_parameter("cma_target", "camera");
	EXPECT_THAT(warnings(area, 1), IsEmpty());
	EXPECT_EQ(warnings(camera, 1).size(), 1U);
	EXPECT_THAT(warnings(camera, 1), IsEmpty());

	// An unknown one is looked for at each allocation that it could be about, which is none.
	set_parameter("cma_target", "linux");
	EXPECT_THAT(warnings(area, 1), IsEmpty());
	set_parameter("cma_target", "linux,cma");
	set_parameter("cma_warn_limit_permillage", "-1");
	EXPECT_THAT(warnings(area, 1), IsEmpty()) << "a limit below 0 is out of reach";
	set_parameter("cma_warn_limit_permillage", "849");
	EXPECT_EQ(warnings(area, 1).size(), 1U);
}

TEST_F(cma_track, the_backtrace_switch_logs_both_ends_of_a_record)
{
	std::vector<unsigned long> callers(12);
	for (int i = 0; i < 12; i++)
		callers[i] = symbol_address(fmt::format("caller_{}", i), 4, 8);
	const frame_scope in(callers);
	page *quiet = cma_alloc(area, 8);
	set_parameter("cma_show_backtrace", "1");
	cma_release(area, quiet, 8);
	const auto said = [&] {
		lines all = log_lines(log_info);
		forget_log();
		return all;
	};
	const lines released = said();
	cma_alloc(area, 8);
	const lines allocated = said();
	tell_alloc(area, base + 100, 4);
	tell_release(area, base + 102, 2);
	EXPECT_THAT(log_lines(log_info, "overlaps"), IsEmpty()) << "they end together";
	tell_release(area, base + 2, 2);

	lines stack{"[get_track_stack_handle]         cma_alloc+0x1e8/0x2d0"};
	for (int i = 0; i < 10; i++)
		stack.push_back(
			fmt::format("[get_track_stack_handle]         caller_{}+0x4/0x8", i));
	lines expected = stack;
	expected.push_back("[add_cma_stackinfo] linux,cma [4096-4103] add");
	EXPECT_EQ(allocated, expected);

	stack[0] = "[get_track_stack_handle]         cma_release+0x94/0x140";
	expected = stack;
	expected.push_back("[__check_and_del] linux,cma [4096-4103] del");
	EXPECT_THAT(lines(released.end() - 12, released.end()), expected);
	const lines overlapped = said();
	EXPECT_THAT(lines(overlapped.end() - 2, overlapped.end()),
		    ElementsAre("[__check_and_del] linux,cma [4098-4099] del",
				"[__check_and_del] [4098-4099] overlaps existed [4096, 4103]"));

	set_parameter("cma_show_backtrace", "0");
	said();
	cma_release(area, cma_alloc(area, 8), 8);
	tell_release(area, base, 1);
	EXPECT_THAT(said(), IsEmpty());
}

TEST_F(cma_track, without_memory_a_range_has_no_record_or_no_stack)
{
	const frame_scope in(symbol_address("driver_probe", 0x10, 0x20));
	for (const unsigned nth : {1u, 2u, 9u}) {
		const fault_scope fail(nth);
		const context_scope interrupt(context_kind::hardirq);
		tell_alloc(area, base + 10 * nth, 4);
	}
	EXPECT_THAT(listed(area), ElementsAre("4116-4119 4", "4186-4189 4"));
	EXPECT_THAT(log_lines(log_info, "driver_probe").size(), 1U) << "of the last one";
}

using cma_areas = machine_test;

TEST_F(cma_areas, beyond_the_table_are_tracked_but_not_shown)
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

	// A failure is reported without its summary.
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
