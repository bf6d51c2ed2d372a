// SPDX-License-Identifier: GPL-2.0-only
// Memory event counters and their report.

#include <fmt/format.h>
#include <hosted/engine/clock.h>
#include <hosted/task_control.h>
#include <hosted/vendor_hooks.h>
#include <kernel/jiffies.h>

#include "fixture.h"

namespace
{

using namespace module_tests;
using testing::IsEmpty;
using testing::SizeIs;

class mem_event : public module_test
{
protected:
	static long set(const std::string &control, const std::string &text)
	{
		return hosted::write_file(directory_ + control, text);
	}
	// The values of each report sent during the next ticks.
	static lines reports_in(unsigned long ticks)
	{
		lines reports;
		hosted::advance(ticks);
		hosted::settle();
		for (const auto &event : platform::take_ember_events()) {
			std::string &text = reports.emplace_back();
			for (const auto &[key, value] : event.items)
				std::visit([&](const auto &v) { text += fmt::format("{} ", v); },
					   value);
		}
		return reports;
	}

	void (*const report)(unsigned) = exported<void(unsigned)>("tarn_memory_event_report");
	inline static const std::string directory_ = "/sys/kernel/mm_event/";
	const std::string head_ = "31000402203 memory_event 55500 85500 60000 25000 ";
};

TEST_F(mem_event, enabling_sends_a_report_of_everything_at_once)
{
	for (unsigned type = 0; type < 9; type++)
		for (unsigned i = 0; i <= type; i++)
			report(type);
	trace_android_vh_vmscan_kswapd_done(0, 2, 1, 0);
	trace_android_vh_vmscan_kswapd_done(0, 2, 1, 0);
	trace_android_vh_mm_direct_reclaim_enter(2);
	trace_android_vh_alloc_pages_slowpath(0, 0, READ_ONCE(jiffies) - 40);
	trace_android_vh_alloc_pages_slowpath(0, 0, READ_ONCE(jiffies) - 2);
	EXPECT_EQ(set("enabled", "1\n"), 2);
	EXPECT_EQ(reports_in(1), lines{head_ + "2 1 42 1 2 3 4 5 6 7 8 "});
	EXPECT_THAT(fmt::format("{}", fmt::join(platform::take_ember_calls(), ",")),
		    testing::MatchesRegex(
			    "alloc 1000,add_str appId,add_str eventName,add_int free_page,"
			    "add_int file_page,add_int anon_page,add_int zram_page,"
			    "add_int kswapd_cnt,add_int direct_reclaim_cnt,"
			    "add_int slowpath_cost_jiffies(,add_int record_event){8},"
			    "write,destroy"));
	set("level", "2");
	EXPECT_EQ(reports_in(1), lines{head_ + "0 0 0 0 0 0 0 0 0 0 0 "});
}

TEST_F(mem_event, the_level_chooses_the_period)
{
	set("enabled", "-3");
	EXPECT_EQ(read_file(directory_ + "enabled"), "1\n");
	EXPECT_THAT(reports_in(1), SizeIs(1));
	for (const auto &[level, period] :
	     {std::pair{1, 900000UL}, {2, 15000}, {0, 21600000}, {3, 21600000}, {-1, 21600000}}) {
		const std::string text = std::to_string(level);
		SCOPED_TRACE(text);
		set("level", text);
		EXPECT_EQ(read_file(directory_ + "level"), text + '\n');
		EXPECT_THAT(reports_in(1), SizeIs(1));
		EXPECT_THAT(reports_in(period / 2), IsEmpty());
		set("level", text); // no change: the running period goes on
		set("enabled", "7");
		EXPECT_THAT(reports_in(period - period / 2 - 1), IsEmpty());
		EXPECT_THAT(reports_in(1), SizeIs(1));
		EXPECT_THAT(reports_in(period - 1), IsEmpty());
		EXPECT_THAT(reports_in(1), SizeIs(1));
	}
}

TEST_F(mem_event, controls_accept_only_integers)
{
	for (const char *control : {"enabled", "level"}) {
		for (const char *text : {"x", "1x", "0x1", " 1", "1\n\n", "-", "\n"})
			EXPECT_EQ(set(control, text), -EINVAL) << control << text;
		EXPECT_EQ(set(control, "2147483648"), -ERANGE);
		EXPECT_EQ(read_file(directory_ + control), "0\n");
	}
	EXPECT_THAT(reports_in(30000000), IsEmpty());
}

TEST_F(mem_event, counts_while_reports_are_off)
{
	set("enabled", "1");
	reports_in(1);
	trace_android_vh_vmscan_kswapd_done(0, 2, 1, 0);
	set("enabled", "0");
	set("level", "1");
	trace_android_vh_vmscan_kswapd_done(0, 2, 1, 0);
	report(5);
	EXPECT_THAT(reports_in(30000000), IsEmpty());
	set("enabled", "1");
	EXPECT_EQ(reports_in(1), lines{head_ + "2 0 0 0 0 0 0 0 1 0 0 "});
}

TEST_F(mem_event, a_refused_event_keeps_the_counters)
{
	set("level", "2");
	trace_android_vh_vmscan_kswapd_done(0, 2, 1, 0);
	report(0);
	{
		const platform::ember_refusal refusal;
		set("enabled", "1");
		EXPECT_THAT(reports_in(1), IsEmpty());
	}
	EXPECT_EQ(errors(), lines{"lumen event is error"});
	EXPECT_EQ(platform::take_ember_calls(), lines{"alloc 1000"});
	trace_android_vh_vmscan_kswapd_done(0, 2, 1, 0);
	EXPECT_EQ(reports_in(15000), lines{head_ + "2 0 0 1 0 0 0 0 0 0 0 "});
}

} // namespace
