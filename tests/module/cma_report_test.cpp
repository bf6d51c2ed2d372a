// SPDX-License-Identifier: GPL-2.0-only
// The reports of CMA tracking: summaries, listings, and the pages where an allocation failed.
#include <hosted/engine/callstack.h>
#include <hosted/engine/clock.h>
#include <hosted/pins.h>

#include "cma_fixture.h"

using namespace hosted;
using namespace module_tests;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class cma_report : public cma_test
{
protected:
	// The log lines of an allocation that fails at a range of the area.
	lines failed(unsigned long pfn, unsigned long count)
	{
		forget_log();
		advance(7501);
		tell_alloc(area, pfn, count, -EBUSY);
		return log_lines(log_any);
	}
	lines pages_of(unsigned long pfn, unsigned long count)
	{
		failed(pfn, count);
		lines found = log_lines(log_info, "FreePage");
		for (std::string &line : log_lines(log_warning, "page: "))
			found.push_back(line.substr(line.find("pfn:"), 10));
		return found;
	}
};

TEST_F(cma_report, of_an_area_that_could_not_be_activated_has_no_pages)
{
	EXPECT_EQ(read_file(show_path("failed")), "0\n");
	EXPECT_THAT(log_lines(log_info, "[show_brief]"),
		    ElementsAre("[show_brief] failed valid_pfn=[24576-24575] count:0 used:0 req:0 "
				"lasttry-pfn:0x0"));
	set_parameter("cma_target", "failed");
	tell_alloc(area, 5000, 1);
	EXPECT_FALSE(cma_alloc(failed_area, 1));
	EXPECT_THAT(log_lines(log_info, "cma warn"), IsEmpty());
}

TEST_F(cma_report, show_lists_one_area_but_ranks_all)
{
	EXPECT_EQ(write_file(show_path("camera"), "1"), -EACCES);
	{
		const fault_scope fail("simple_attr_open");
		EXPECT_EQ(read_file(show_path("camera")), std::to_string(-ENOMEM));
	}
	for (const unsigned long pfn : {5000, 4200, 6000})
		tell_alloc(area, pfn, 2);
	{
		const frame_scope in(
			std::vector{symbol_address("inner", 1, 2), symbol_address("outer", 3, 4)});
		tell_alloc(camera, 8300, 1);
	}
	tell_alloc(camera, 5000, 1);
	forget_log();
	EXPECT_EQ(read_file(show_path("camera")), "0\n");
	EXPECT_THAT(log_lines(log_any),
		    ElementsAre("[show_brief] camera valid_pfn=[8192-8703] count:512 used:0 req:0 "
				"lasttry-pfn:0x0",
				"[show_info] camera [5000-5000] count:1",
				"[show_info] camera [8300-8300] count:1",
				"[show_info]         inner+0x1/0x2",
				"[show_info]         outer+0x3/0x4"));
	EXPECT_THAT(records(),
		    ElementsAre(cma_range{"linux,cma", 4200, 4201}, cma_range{"camera", 5000, 5000},
				cma_range{"linux,cma", 5000, 5001},
				cma_range{"linux,cma", 6000, 6001},
				cma_range{"camera", 8300, 8300}))
		<< "records with the same start keep their order";
}

TEST_F(cma_report, records_of_another_area_are_passed_over)
{
	constexpr unsigned long others = 100;
	static_assert(others > 3 * cma_records_at_once);
	for (unsigned long i = 0; i < others; i++)
		tell_alloc(camera, base + i, 1);
	tell_alloc(area, base + others / 2, 1);
	tell_alloc(area, base + others, 1);
	EXPECT_THAT(listed(area), ElementsAre("4146-4146 1", "4196-4196 1"));
	EXPECT_THAT(listed(camera).size(), others);
}

TEST_F(cma_report, each_failure_logs_a_summary_but_only_one_listing_per_interval)
{
	tell_alloc(area, 4096, 4);
	const std::string summary =
		"[show_brief] linux,cma valid_pfn=[4096-6143] count:2048 used:0 "
		"req:7 lasttry-pfn:0xffffffffffffffff";
	const lines whole{"[vh_cma_alloc] detect cma_alloc fail, ret=-12", summary,
			  "[show_info] linux,cma [4096-4099] count:4"};
	const auto fail = [&] {
		forget_log();
		tell_alloc(area, ~0UL, 7, -ENOMEM);
		return log_lines(log_info);
	};
	EXPECT_EQ(fail(), whole);
	for (const unsigned long later : {0, 7500}) {
		advance(later);
		EXPECT_EQ(fail(), lines(whole.begin(), whole.end() - 1)) << later;
	}
	advance(1);
	EXPECT_EQ(fail(), whole);
	EXPECT_THAT(log_lines(log_warning),
		    ElementsAre("show_stackinfos_ratelimit: 2 callbacks suppressed\n"));
	EXPECT_THAT(listed(area), ElementsAre("4096-4099 4")) << "reading show is not rate limited";
}

TEST_F(cma_report, free_blocks_are_skipped_and_at_most_three_pages_dumped)
{
	const auto free_run = [](unsigned long first, unsigned long last) {
		return fmt::format("[show_cma_pages] FreePage:[0x{:x}-0x{:x}]", first, last);
	};
	const auto dump = [](unsigned long pfn) {
		return fmt::format("pfn:0x{:x}", pfn);
	};
	make_buddy(page_at(0x1000), 2);
	make_buddy(page_at(0x1004), 0);
	const std::string two = free_run(0x1000, 0x1003), one = free_run(0x1004, 0x1004);
	EXPECT_EQ(pages_of(0x1000, 8), (lines{two, one, dump(0x1005), dump(0x1006), dump(0x1007)}));
	EXPECT_EQ(pages_of(0x1000, 6), (lines{two, one, dump(0x1005)}));
	EXPECT_EQ(pages_of(0x1000, 5), (lines{two, one}));
	EXPECT_EQ(pages_of(0x1000, 2), (lines{two})) << "a free block may reach beyond the range";
	EXPECT_EQ(pages_of(0x1005, 100), (lines{dump(0x1005), dump(0x1006), dump(0x1007)}));
	EXPECT_THAT(pages_of(~0UL, 8), IsEmpty());

	make_buddy(page_at(0x1400), 10);
	make_buddy(page_at(0x1000), 10);
	EXPECT_EQ(pages_of(0x1000, 2048),
		  (lines{free_run(0x1000, 0x13ff), free_run(0x1400, 0x17ff)}));
	make_buddy(page_at(0x1400), 63);
	EXPECT_EQ(pages_of(0x1400, 1), (lines{dump(0x1400)})) << "no block has this order";
}

TEST_F(cma_report, a_pinned_page_shows_where_the_allocator_gave_up)
{
	cma_alloc(area, 2040);
	for (page *p : {&page_at(base + 2040), &page_at(base + 2047)})
		try_grab_page(*p, FOLL_PIN);
	advance(7501); // the usage warning has used up the interval
	forget_log();
	EXPECT_FALSE(cma_alloc(area, 4, 2));
	EXPECT_THAT(log_lines(log_any, "lasttry-pfn:0x17fc").size(), 1U);
	EXPECT_THAT(log_lines(log_warning, "cma_alloc fail"),
		    ElementsAre("page: refcount:0 pfn:0x17fc, dumped because: cma_alloc fail\n",
				"page: refcount:0 pfn:0x17fd, dumped because: cma_alloc fail\n",
				"page: refcount:0 pfn:0x17fe, dumped because: cma_alloc fail\n"));
	unpin(page_at(base + 2047));
	EXPECT_EQ(cma_alloc(area, 4, 2), &page_at(0x17fc));
	unpin(page_at(base + 2040));
}

// Others change the list while a record is printed, since the lock is dropped for that.
TEST_F(cma_report, a_record_may_be_released_while_it_is_printed)
{
	for (unsigned long i = 0; i < 5; i++)
		tell_alloc(area, 4096 + 10 * i, 10);
	const auto record = [](unsigned long pfn) {
		return cma_range{"linux,cma", pfn, pfn + 9};
	};
	lines seen;
	{
		const log_watch others([&](const std::string &text) {
			if (text.find("show_info") == std::string::npos)
				return;
			seen.push_back(text.substr(text.find("[4") + 1, 4));
			if (seen.size() != 2)
				return;
			// Release the printed record twice, then its neighbours.
			for (const unsigned long pfn : {4106, 4106, 4096, 4116})
				tell_release(area, pfn, 10);
			tell_alloc(area, 4106, 10);
			EXPECT_THAT(records(), ElementsAre(record(4106), record(4106), record(4126),
							   record(4136)));
			// Another listing ranks the records in the middle of this one.
			tell_alloc(area, ~0UL, 1, -ENOMEM);
		});
		listed(area);
	}
	EXPECT_EQ(seen, (lines{"4096", "4106", "4106", "4126", "4136", "4126", "4136"}));
	EXPECT_THAT(records(), ElementsAre(record(4106), record(4126), record(4136)));
}

} // namespace
