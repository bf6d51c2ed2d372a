// SPDX-License-Identifier: GPL-2.0-only
// CMA tracking while several CPUs allocate, release, fail, list and change its parameters.
#include <tests/module/cma_fixture.h>

#include <hosted/engine/clock.h>
#include <hosted/pins.h>

#include "crew.h"

using namespace hosted;
using namespace module_tests;
using namespace concurrent_tests;

namespace
{

using cma_race = cma_test;

// The allocator clears the bits before it reports the release, so someone else may have taken the
// range, or a part of it, before the record is dropped.
void take_and_give_back(cma &area, unsigned long count)
{
	std::vector<page *> held;
	for (int i = 0; i < 20; i++)
		if (page *p = cma_alloc(area, count, 2))
			held.push_back(p);
	for (page *p : held) {
		const context_scope in(context_kind::softirq, self().cpu);
		cma_release(area, p, count);
	}
}

TEST_F(cma_race, listings_and_failures_against_releases)
{
	page *kept = cma_alloc(area, 4, 2);
	crew others;
	others.add(2, [&] { take_and_give_back(area, 4); });
	others.add(1, [&] { take_and_give_back(camera, 8); });
	others.add(1, [&] {
		EXPECT_FALSE(cma_alloc(area, pages));
		advance(7501);
	});
	for (int i = 0; i < 200; i++) {
		EXPECT_EQ(read_file(show_path(i % 4 ? "linux,cma" : "camera")), "0\n");
		take_log();
	}
	others.stop();
	EXPECT_THAT(listed(area), testing::ElementsAre("4096-4099 4"));
	EXPECT_THAT(listed(camera), testing::IsEmpty());
	cma_release(area, kept, 4);
	EXPECT_THAT(records(), testing::IsEmpty());
}

TEST_F(cma_race, ranges_of_all_sizes)
{
	crew others;
	for (const unsigned long count : {1, 3, 4, 16})
		others.add(1, [this, count] { take_and_give_back(area, count); });
	for (int i = 0; i < 100; i++) {
		EXPECT_EQ(read_file(show_path("linux,cma")), "0\n");
		take_log();
		others.let_work(10);
	}
	others.stop();
	EXPECT_THAT(records(), testing::IsEmpty());
}

TEST_F(cma_race, parameters_change_under_the_probes)
{
	crew others;
	others.add(1, [&] { take_and_give_back(area, 4); });
	others.add(1, [&] { take_and_give_back(camera, 8); });
	others.add(1, [&] {
		folio_add_pin(page_at(base));
		unpin(page_at(base));
	});
	for (int i = 0; i < 300; i++) {
		EXPECT_GT(set_parameter("cma_target", i % 2 ? "linux,cma" : "camera"), 0);
		set_parameter("cma_show_backtrace", std::to_string(i % 3 == 0));
		set_parameter("cma_warn_limit_permillage", std::to_string(i));
		take_log();
	}
	others.stop();
	EXPECT_THAT(records(), testing::IsEmpty());
}

using cma_reload = machine_test;

TEST_F(cma_reload, starts_and_stops_under_traffic)
{
	cma &area = add_cma_area("linux,cma", 0, 512);
	crew traffic;
	traffic.add(2, [&] { take_and_give_back(area, 4); });
	traffic.add(1, [&] {
		folio_add_pin(page_at(0));
		unpin(page_at(0));
	});
	traffic.add(1, [] {
		std::string text;
		const int error =
			hosted::read_file("/sys/kernel/debug/tarn_cma/linux,cma/show", text);
		EXPECT_TRUE(error == 0 ? text == "0\n" : error == -ENOENT);
	});
	// Runs before and while the module is loaded, whenever its parameters exist.
	traffic.add(1, [] {
		for (const char *target : {"linux,cma", "camera"})
			set_parameter("cma_target", target);
	});
	for (int round = 0; round < 20; round++) {
		const loaded_module module;
		traffic.let_work(50);
		take_log();
	}
}

} // namespace
