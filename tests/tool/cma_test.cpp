// SPDX-License-Identifier: GPL-2.0-only
// The reports about CMA areas: found in the log, reckoned with and shown.
#include <random>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <tarnctl/cma/cma_print.h>
#include <tarnctl/cma/cma_reader.h>

#include "cma_lines.h"

namespace tarn
{

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr pid_t our_task = 1;

// A line that is empty stands for lost ones.
cma_report_reader read_lines(const std::vector<std::string> &lines, const std::string &caller = "")
{
	cma_report_reader reader("cma a", our_task);

	for (const std::string &line : lines) {
		if (line.empty())
			reader.add_loss();
		else
			reader.add({true, {}, caller, line});
	}
	return reader;
}

cma_area area_of(std::uint64_t pages, std::optional<unsigned int> order, std::uint64_t used_bits,
		 const std::vector<std::pair<std::uint64_t, std::uint64_t>> &ranges = {})
{
	cma_area area;

	area.report.name = "a";
	area.report.first_pfn = 1000;
	area.report.last_pfn = 1000 + pages - 1;
	area.report.pages = pages;
	area.report.used_bits = used_bits;
	area.order = order;
	for (const auto &[begin, count] : ranges)
		area.report.records.push_back({1000 + begin, 1000 + begin + count - 1, {}});
	return area;
}

} // namespace

TEST(cma_report, is_what_a_read_of_the_file_logged)
{
	const cma_report_reader reader = read_lines({
		frame,
		info("cma a [4096-4096] count:1"),
		brief("cma a valid_pfn=[4096-8191] count:4096 used:9 req:7 lasttry-pfn:0x1000"),
		brief("cma a valid_pfn=[4096-8191] count:4096 used:9 req:0 lasttry-pfn:0x0 "),
		brief("cma valid_pfn=[0-9] count:10 used:9 req:0 lasttry-pfn:0x0"),
		summary,
		brief("b valid_pfn=[0-9] count:10 used:9 req:0 lasttry-pfn:0x0"),
		first,
		module_says("get_track_stack_handle", "        h+0x1/0x2"),
		frame,
		"usb 1-1: new device",
		brief("cma a valid_pfn=[4096-8191] count:4096 used:9 req:7 lasttry-pfn:0x0"),
		other_frame,
		module_says("add_cma_stackinfo", "cma a [4106-4106] add"),
		second,
	});
	const auto &report = reader.result();

	ASSERT_TRUE(report);
	EXPECT_EQ(report->first_pfn, 4096U);
	EXPECT_EQ(report->last_pfn, 8191U);
	EXPECT_EQ(report->pages, 4096U);
	EXPECT_EQ(report->used_bits, 30U);
	ASSERT_EQ(report->records.size(), 2U);
	EXPECT_EQ(report->records[0].first_pfn, 4096U);
	EXPECT_EQ(report->records[0].last_pfn, 4105U);
	EXPECT_THAT(report->records[0].frames, ElementsAre("f+0x1/0x2", "g+0x1/0x2 [m]"));
	EXPECT_THAT(report->records[1].frames, IsEmpty());
	EXPECT_FALSE(report->mixed);
	EXPECT_FALSE(report->lost);
	EXPECT_FALSE(read_lines({first, frame}).result());
}

TEST(cma_report, tells_when_another_stands_between_its_lines)
{
	const std::string foreign = info("b [5000-5019] count:20");

	for (const auto &lines : std::vector<std::vector<std::string>>{
		     {summary, frame, first, frame},
		     {summary, first, frame, foreign, other_frame},
		     {summary, first, frame, summary},
		     {summary, second, first, frame},
		     {summary, first, frame, first, other_frame},
		     {summary, first, frame, info("cma a [5000-5019] count:21"), other_frame}}) {
		const auto report = read_lines(lines).result();

		EXPECT_TRUE(report->mixed) << testing::PrintToString(lines);
		for (const cma_record &record : report->records) {
			if (record.first_pfn == 4096) {
				EXPECT_THAT(record.frames, ElementsAre("f+0x1/0x2"));
			}
		}
	}
	EXPECT_EQ(read_lines({summary, first, first}).result()->records.size(), 1U);
}

TEST(cma_report, of_one_task_is_told_from_those_of_others)
{
	cma_report_reader reader = read_lines({summary, first}, "T1");

	for (const std::string &line : {summary, first, other_frame})
		reader.add({true, {}, "T2", line});
	reader.add({false, {}, "T1", other_frame});
	reader.add({true, {}, "T1", frame});
	ASSERT_EQ(reader.result()->records.size(), 1U);
	EXPECT_THAT(reader.result()->records[0].frames, ElementsAre("f+0x1/0x2"));
	EXPECT_FALSE(reader.result()->mixed);
}

TEST(cma_report, is_our_own_tasks_also_when_others_summaries_come_first)
{
	cma_report_reader reader = read_lines({summary, second, frame}, "T2");

	EXPECT_FALSE(reader.result());
	for (const std::string &line : {summary, first, frame})
		reader.add({true, {}, "T1", line});
	reader.add({true, {}, "C0", summary});
	ASSERT_EQ(reader.result()->records.size(), 1U);
	EXPECT_EQ(reader.result()->records[0].first_pfn, 4096U);
	EXPECT_FALSE(reader.result()->mixed);
}

TEST(cma_report, of_an_area_without_pages)
{
	const auto report = read_lines({brief("cma a valid_pfn=[4096-4095] count:0 used:0 req:0 "
					      "lasttry-pfn:0x0")})
				    .result();

	ASSERT_TRUE(report);
	EXPECT_EQ(report->pages, 0U);
	EXPECT_TRUE(read_lines({brief("cma a valid_pfn=[0-18446744073709551615] count:0 used:0 "
				      "req:0 lasttry-pfn:0x0")})
			    .result());
	EXPECT_FALSE(read_lines({brief("cma a valid_pfn=[4096-8191] count:0 used:0 req:0 "
				       "lasttry-pfn:0x0")})
			     .result());
}

TEST(cma_report, gives_frames_behind_a_loss_to_no_one)
{
	const auto report =
		read_lines({summary, first, frame, "", other_frame, second, frame}).result();

	EXPECT_TRUE(report->lost);
	EXPECT_FALSE(report->mixed);
	EXPECT_THAT(report->records[0].frames, ElementsAre("f+0x1/0x2"));
	EXPECT_THAT(report->records[1].frames, ElementsAre("f+0x1/0x2"));
	EXPECT_FALSE(read_lines({"", summary, first}).result()->lost);
}

TEST(cma_area, has_the_limit_that_the_module_reckons_with)
{
	const auto limit = [](std::uint64_t pages, std::optional<unsigned int> order,
			      std::int64_t permillage) {
		cma_area area = area_of(pages, order, 0);

		area.limit_permillage = permillage;
		return cma_limit_chunks(area);
	};

	EXPECT_EQ(limit(8192, 0, 850), 6800U);
	EXPECT_EQ(limit(9215, 0, 850), 6800U);
	EXPECT_EQ(limit(1023, 0, 850), 0U);
	EXPECT_EQ(limit(4096, 2, 850), 850U);
	EXPECT_EQ(limit(2048, 0, -1), UINT64_MAX - 1);
	EXPECT_EQ(limit(8192, std::nullopt, 850), std::nullopt);
	EXPECT_EQ(cma_limit_chunks(area_of(8192, 0, 0)), std::nullopt);
}

TEST(cma_area, is_covered_as_counting_page_by_page_has_it)
{
	std::mt19937 random(1); // NOLINT: the same each time
	const auto any = [&random](std::uint64_t end) {
		return random() % end;
	};

	for (int i = 0; i < 300; i++) {
		constexpr std::uint64_t pages = 64;
		const auto order = static_cast<unsigned int>(any(3));
		cma_area area = area_of(pages, order, any((pages >> order) + 1));
		std::vector<bool> covered(pages >> order);

		for (std::uint64_t n = any(6); n > 0; n--) {
			// Beyond both ends, too.
			const std::uint64_t begin = 990 + any(80);
			const std::uint64_t last = begin + any(12);

			area.report.records.push_back({begin, last, {}});
			for (std::uint64_t pfn = begin; pfn <= last; pfn++) {
				if (pfn >= 1000 && pfn < 1000 + pages)
					covered[(pfn - 1000) >> order] = true;
			}
		}
		const cma_coverage coverage(area);
		const std::uint64_t from = any(covered.size());
		const std::uint64_t to = from + any(covered.size() - from + 1);
		const auto count = [&covered](std::uint64_t begin, std::uint64_t end) {
			return static_cast<std::uint64_t>(std::count(
				covered.begin() + static_cast<std::ptrdiff_t>(begin),
				covered.begin() + static_cast<std::ptrdiff_t>(end), true));
		};

		ASSERT_EQ(coverage.total(), count(0, covered.size()));
		ASSERT_EQ(coverage.between(from, to), count(from, to));
		ASSERT_EQ(cma_untracked_chunks(area),
			  area.report.used_bits -
				  std::min(area.report.used_bits, coverage.total()));
	}
}

TEST(cma_map, shows_what_the_counts_tell)
{
	EXPECT_EQ(draw_cma_map(area_of(8, 0, 3, {{1, 2}, {4, 1}})).cells, ".##.#...");
	EXPECT_EQ(draw_cma_map(area_of(8, 0, 4, {{1, 2}, {4, 1}})).cells, ".##.#...");
	EXPECT_EQ(draw_cma_map(area_of(8, 0, 8, {{1, 2}, {4, 1}})).cells, "x##x#xxx");
	EXPECT_EQ(draw_cma_map(area_of(8, 0, 8, {{0, 8}})).cells, "########");
	EXPECT_EQ(draw_cma_map(area_of(8, 2, 1, {{0, 1}})).cells, "#.");
	EXPECT_EQ(draw_cma_map(area_of(8, std::nullopt, 1, {{0, 4}})).cells, "####????");
	EXPECT_EQ(draw_cma_map(area_of(4, std::nullopt, 0)).cells, "....");
	cma_area lost = area_of(4, 0, 1, {{0, 1}});

	lost.report.lost = true;
	EXPECT_EQ(draw_cma_map(lost).cells, "#???");
}

TEST(cma_map, of_a_large_area_is_no_larger)
{
	EXPECT_EQ(draw_cma_map(area_of(1024, 0, 0)).cells.size(), 1024U);
	const cma_map halves = draw_cma_map(area_of(1025, 0, 2, {{3, 1}, {1024, 1}}));

	EXPECT_EQ(halves.cell_pages, 2U);
	EXPECT_EQ(halves.cells.size(), 513U);
	EXPECT_EQ(halves.cells.substr(0, 3), ".+.");
	EXPECT_EQ(halves.cells.back(), '#');
	EXPECT_EQ(draw_cma_map(area_of(1ULL << 40, 3, 0)).cell_pages, 1ULL << 30);
}

TEST(cma_text, has_usage_limit_map_and_owners)
{
	cma_area area = area_of(4096, 2, 20, {{0, 4}, {8, 40}, {64, 4}});

	area.limit_permillage = 850;
	area.report.records[0].frames = area.report.records[2].frames = {"f\x1b", "g"};
	area.report.records.push_back({2000, 2999, {}});
	const std::string text = cma_text(area, 16384);

	EXPECT_THAT(text, HasSubstr("CMA area a\n"
				    "  range    pfn 1000 to 5095: 4096 pages, 65536 KiB\n"
				    "  used     80 pages, 2.0 % (20 bits of 4 pages)\n"
				    "  tracked  1048 pages in 4 ranges; more than used: "));
	EXPECT_THAT(text, HasSubstr("850/1024: the kernel warns above 3400 used pages; no more "
				    "are used now\n"));
	EXPECT_THAT(text, HasSubstr(" 4 pages (64 KiB); . free; # tracked\n"
				    "  1000  #.##########....#...."));
	EXPECT_THAT(text, HasSubstr("\n  1256  ....."));
	EXPECT_THAT(text, HasSubstr("first:\n\n"
				    "  1040 pages in 2 ranges\n"
				    "            (no call stack was saved)\n\n"
				    "     8 pages in 2 ranges\n"
				    "            f?\n"
				    "            g\n"));

	area.report.used_bits = 850;
	EXPECT_THAT(cma_text(area, 4096), HasSubstr("; no more are used now\n"));
	area.report.used_bits = 851;
	EXPECT_THAT(cma_text(area, 4096), HasSubstr("; more are used now\n"));
	EXPECT_THAT(cma_text(area, 4096), HasSubstr("; 2356 pages used but not tracked\n"));
	EXPECT_THAT(cma_text(area, 4096), HasSubstr(" free, except 2356 pages in unknown places"));
	area.limit_permillage = 1024;
	EXPECT_THAT(cma_text(area, 4096), HasSubstr("1024/1024: never reached\n"));
	area.order.reset();
	area.report.lost = true;
	EXPECT_THAT(cma_text(area, 4096),
		    HasSubstr("851 bits of the allocation bitmap; pages per bit unknown"));
	EXPECT_THAT(cma_text(area, 4096), HasSubstr("outgrew the kernel log"));
}

TEST(cma_text, claims_nothing_about_lost_records)
{
	cma_area area = area_of(4096, 0, 20, {{0, 4}});

	area.report.lost = true;
	EXPECT_THAT(cma_text(area, 4096), HasSubstr("  tracked  at least 4 pages in 1 range\n"));
	area.report.records.clear();
	const std::string text = cma_text(area, 4096);

	EXPECT_THAT(text, HasSubstr("  tracked  unknown\n"));
	EXPECT_THAT(text, HasSubstr("outgrew the kernel log"));
	EXPECT_THAT(text, Not(HasSubstr("No range is tracked")));
}

TEST(cma_text, says_why_memory_may_be_untracked)
{
	cma_area area = area_of(4096, 0, 20, {{0, 4}});
	const auto tracked = [&area](std::optional<std::uint64_t> unrecorded) {
		area.unrecorded = unrecorded;
		return cma_text(area, 4096);
	};

	EXPECT_THAT(tracked(std::nullopt), HasSubstr("; 16 pages used but not tracked\n"));
	EXPECT_THAT(tracked(0), HasSubstr("; 16 pages used but not tracked: allocated before the "
					  "module was loaded\n"));
	EXPECT_THAT(tracked(7), HasSubstr("; 16 pages used but not tracked: allocated before the "
					  "module was loaded,\n           or among the 7 ranges "
					  "in all areas that it had no memory to record\n"));
	area.report.used_bits = 4;
	EXPECT_THAT(tracked(7), HasSubstr("  tracked  4 pages in 1 range\n"));
}

TEST(cma_text, of_an_area_that_the_kernel_could_not_activate)
{
	cma_area area = area_of(0, 0, 0);

	area.limit_permillage = 850;
	EXPECT_EQ(cma_text(area, 4096),
		  "CMA area a\n  not available: the kernel could not activate it\n");
	EXPECT_EQ(nlohmann::json::parse(cma_json({{area}, {}}))["areas"][0]["pages"], 0);
}

TEST(cma_json, has_areas_records_and_frames)
{
	cma_area area = area_of(4096, 2, 20, {{0, 4}});

	area.report.records[0].frames = {"f", "g"};
	area.limit_permillage = 850;
	const auto object =
		nlohmann::json::parse(cma_json({{area, area_of(4, std::nullopt, 2)}, {}}));
	const auto &full = object["areas"][0];

	EXPECT_EQ(full["used_pages"], 80);
	EXPECT_EQ(full["untracked_pages"], 76);
	EXPECT_EQ(full["limit"]["bits"], 850);
	EXPECT_EQ(full["records"][0]["first_pfn"], 1000);
	EXPECT_EQ(full["records"][0]["last_pfn"], 1003);
	EXPECT_EQ(full["records"][0]["frames"][1], "g");
	for (const char *unknown : {"order_per_bit", "used_pages", "untracked_pages", "limit"})
		EXPECT_FALSE(object["areas"][1].contains(unknown)) << unknown;
	EXPECT_EQ(cma_json({}), "{\n  \"areas\": [],\n  \"unreadable\": []\n}\n");
	EXPECT_FALSE(full.contains("unrecorded_ranges"));
	area.unrecorded = 3;
	EXPECT_EQ(nlohmann::json::parse(cma_json({{area}, {}}))["areas"][0]["unrecorded_ranges"],
		  3);
	const auto failed = nlohmann::json::parse(cma_json({{}, {{"b", "cannot be read"}}}));

	EXPECT_EQ(failed["unreadable"][0]["name"], "b");
	EXPECT_EQ(failed["unreadable"][0]["reason"], "cannot be read");
}

TEST(cma_report, that_outgrew_the_log_is_not_asked_for_again)
{
	const auto none = read_lines({}).result();
	const auto whole = read_lines({summary, first, frame}).result();
	const auto mixed = read_lines({summary, frame, first}).result();
	const auto lost = read_lines({summary, first, ""}).result();
	const auto lost_more = read_lines({summary, ""}).result();

	EXPECT_TRUE(wants_another_attempt(none));
	EXPECT_TRUE(wants_another_attempt(mixed));
	EXPECT_FALSE(wants_another_attempt(whole));
	EXPECT_FALSE(wants_another_attempt(lost));
	for (const auto &[worse, better] :
	     {std::pair{none, lost_more}, {lost_more, lost}, {lost, mixed}, {mixed, whole}}) {
		EXPECT_TRUE(is_better(better, worse));
		EXPECT_FALSE(is_better(worse, better));
	}
}

} // namespace tarn
