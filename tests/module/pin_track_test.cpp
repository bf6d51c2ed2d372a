// SPDX-License-Identifier: GPL-2.0-only
// The reports of who pins pages of CMA pageblocks.
#include <hosted/engine/clock.h>
#include <hosted/engine/context.h>
#include <hosted/kprobes.h>
#include <hosted/mm.h>
#include <hosted/pins.h>
#include <hosted/task_control.h>
#include <kernel/jiffies.h>

#include "fixture.h"

using namespace hosted;
using namespace module_tests;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class pin_track : public module_test
{
protected:
	pin_track()
	{
		add_frames(4096, 1024);
		set_migratetype(4096, KERNEL_MIGRATE_CMA);
	}
	// The log lines when a task pins a page frame, after time has moved on.
	lines pinned_by(const char *comm, unsigned long pfn, unsigned long later = 1251,
			unsigned flags = FOLL_PIN)
	{
		const task_ptr task = make_task(comm, 7);
		const task_scope as(*task);
		forget_log();
		advance(later);
		try_grab_page(page_at(pfn), flags);
		return log_lines(log_any);
	}
	bool reported(unsigned long later)
	{
		return !pinned_by("app", 4096, later).empty();
	}
};

TEST_F(pin_track, reports_the_task_the_function_and_the_folio)
{
	const std::string start = "[show_pinner] app ";
	make_compound({&page_at(4096), 16});
	EXPECT_EQ(pinned_by("app", 4200), lines{start + "try_grab_page [0x1068-0x1068]"});
	EXPECT_EQ(pinned_by("app", 4096), lines{start + "try_grab_page [0x1000-0x100f]"});
	EXPECT_EQ(pinned_by("app", 4100), lines{start + "try_grab_page [0x1004-0x1013]"})
		<< "from the tail page on";

	const task_ptr task = make_task("app", 7);
	const task_scope as(*task);
	const context_scope interrupt(context_kind::hardirq);
	advance(1251);
	folio_add_pin(page_at(4096));
	EXPECT_EQ(log_lines(log_any).back(), start + "folio_add_pin [0x1000-0x100f]");
	advance(1251);
	EXPECT_EQ(try_grab_folio(page_at(4097), 3, FOLL_PIN), &page_at(4096))
		<< "the function still runs";
	EXPECT_EQ(log_lines(log_any).back(), start + "try_grab_folio [0x1001-0x1010]");
}

TEST_F(pin_track, ignores_other_references_other_pages_and_excluded_tasks)
{
	EXPECT_EQ(pinned_by("app", 4096).size(), 1U);
	EXPECT_EQ(pinned_by("app", 4607, 1251, FOLL_PIN | foll_get).size(), 1U);
	EXPECT_THAT(pinned_by("app", 4096, 1251, foll_get), IsEmpty());
	EXPECT_THAT(pinned_by("app", 4096, 1251, ~FOLL_PIN), IsEmpty());
	EXPECT_THAT(pinned_by("app", 4608), IsEmpty()) << "the next pageblock is not CMA's";
	for (unsigned char other = 0; other < 7; other++) {
		set_migratetype(4608, other);
		EXPECT_EQ(pinned_by("app", 4700).size(), other == KERNEL_MIGRATE_CMA);
	}
	for (const char *name : {"fio", "crash_dump64", "Signal Catcher", "RenderThread"})
		EXPECT_THAT(pinned_by(name, 4096), IsEmpty());
	for (const char *name : {"fio2", "fi", "crash_dump", "Signal Catcher2", "RenderThread2",
				 "render", "renderthread", ""})
		EXPECT_EQ(pinned_by(name, 4096).size(), 1U) << name;
}

TEST_F(pin_track, logs_one_line_per_interval_for_all_functions_and_across_the_wrap)
{
	EXPECT_TRUE(reported(0)) << "the first pin";
	advance(1000);
	folio_add_pin(page_at(4096));
	try_grab_folio(page_at(4096), 1, FOLL_PIN);
	EXPECT_EQ(log_lines(log_any).size(), 1U);
	EXPECT_FALSE(reported(250)) << "1250 after the first";
	EXPECT_THAT(pinned_by("fio", 4096, 0), IsEmpty());
	EXPECT_TRUE(reported(1)) << "what is not reported starts no interval";
	EXPECT_FALSE(reported(0));

	const unsigned long middle = ~0UL / 2;
	EXPECT_TRUE(reported(middle - jiffies));
	EXPECT_TRUE(reported(middle - 500));
	EXPECT_FALSE(reported(1250)) << jiffies;
	EXPECT_LT(jiffies, 1000U);
	EXPECT_TRUE(reported(1));
}

using pin_track_start = machine_test;

TEST_F(pin_track_start, stops_at_the_first_function_that_cannot_be_probed)
{
	add_frames(0, 512);
	set_migratetype(0, KERNEL_MIGRATE_CMA);
	const auto probed_by = [&] {
		forget_log();
		const loaded_module loaded;
		lines found;
		for (const auto pin : {+[] { folio_add_pin(page_at(0)); },
				       +[] { try_grab_page(page_at(0), FOLL_PIN); },
				       +[] {
					       try_grab_folio(page_at(0), 1, FOLL_PIN);
				       }}) {
			advance(1251);
			pin();
		}
		for (const std::string &line : log_lines(log_info, "[show_pinner]"))
			found.push_back(line.substr(line.find(" host ") + 6));
		return found;
	};
	for (const auto &[error, text] : {std::pair{-ENOENT, "-2"}, {-EINVAL, "-22"}}) {
		refuse_kprobes("try_grab_page", error);
		EXPECT_THAT(probed_by(), ElementsAre("folio_add_pin [0x0-0x0]"));
		EXPECT_EQ(errors(), lines{std::string("try_grab_page_kp register_kprobe failed, "
						      "returned ") +
					  text});
		EXPECT_EQ(log_lines(log_info, "Planted").size(), 1U);
	}
	refuse_kprobes("try_grab_page", 0);
	refuse_kprobes("folio_add_pin", -ENOENT);
	EXPECT_THAT(probed_by(), IsEmpty());
	refuse_kprobes("folio_add_pin", 0);
	EXPECT_EQ(probed_by().size(), 3U);
	EXPECT_THAT(log_lines(log_info, "Planted"),
		    ElementsAre(testing::MatchesRegex(
					"\\[pin_track_init\\] folio_add_pin_kp Planted kprobe at "
					"0xffffffc[0-9a-f]{9}"),
				testing::HasSubstr("try_grab_page_kp Planted"),
				testing::HasSubstr("try_grab_folio_kp Planted")));
}

} // namespace
