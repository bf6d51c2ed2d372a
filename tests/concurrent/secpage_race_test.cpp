// SPDX-License-Identifier: GPL-2.0-only
// Changes of overlapping ranges at the same time, while the hardware walks the tables.
#include <tests/module/fixture.h>

#include <hosted/pgtable.h>
#include <mem_adapter.h>

#include "crew.h"

using namespace hosted;
using namespace module_tests;
using namespace concurrent_tests;

namespace
{

using secpage_race = module_test;

TEST_F(secpage_race, overlapping_ranges_lose_nothing)
{
	constexpr u64 page = entry_span(3);
	constexpr u64 mib2 = entry_span(2);
	constexpr u64 gib = entry_span(1);
	constexpr u64 base = lowest_kernel_address + gib;
	constexpr u64 phys = 33 * gib;
	constexpr u64 prot = 0x0068000000000703;
	// One of the two bits shows who wrote a page.
	constexpr u64 mark = 1ULL << 55;
	// The first thread changes 70 pages of each hundred, the second the last 50 of them and 20
	// of the next. They meet in all three tables of pages, and no range is a whole block.
	constexpr u64 hundreds = 13;
	constexpr u64 end = 100 * hundreds + 20;
	auto *change = exported<decltype(tarn_change_secpage_range)>("tarn_change_secpage_range");
	const auto marks = [](u64 at) {
		return translate(base + at * page).value().attributes & (mark | mark << 1);
	};

	for (int round = 0; round < 30; round++) {
		reset_page_tables();
		if (round % 2)
			boot_map(base, 1, phys | (prot & ~2ULL));
		crew walker;
		walker.add(1, [&] {
			for (u64 at = 0; at < end; at += 37)
				if (const auto found = translate(base + at * page))
					EXPECT_EQ(found->phys, phys + at * page);
				else
					EXPECT_EQ(round % 2, 0) << "a block is split";
		});
		in_threads(2, [&](int cpu) {
			for (u64 i = 0; i < 3 * hundreds; i++) {
				const u64 from = (i % hundreds * 100 + 50 * cpu) * page;
				change(phys + from, base + from, 70 * page, {prot | mark << cpu});
			}
		});
		walker.stop();

		for (u64 at = 0; at < end; at++) {
			const u64 in_hundred = at % 100;
			const bool first = in_hundred < 70 && at < 100 * hundreds;
			const bool second = at >= 50 && (in_hundred >= 50 || in_hundred < 20);
			ASSERT_TRUE((first && marks(at) == mark) ||
				    (second && marks(at) == mark << 1))
				<< at;
		}
		for (const u64 at : {end, 100 * mib2 / page})
			EXPECT_EQ(translate(base + at * page).has_value(), round % 2 == 1);
		EXPECT_EQ(table_activity().flushes, 4U) << "a table is made once";
	}
}

} // namespace
