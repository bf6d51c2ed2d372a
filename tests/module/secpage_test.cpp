// SPDX-License-Identifier: GPL-2.0-only
// Secure page ranges: the order of steps, failures, and other writers of the same tables.
#include "fixture.h"

#include <fmt/format.h>
#include <hosted/gfp.h>
#include <hosted/pgtable.h>
#include <mem_adapter.h>

using namespace hosted;
using namespace module_tests;
using testing::ElementsAre;

namespace
{

constexpr u64 page = entry_span(3);
constexpr u64 mib2 = entry_span(2);
constexpr u64 gib = entry_span(1);
constexpr u64 base = lowest_kernel_address + 4 * gib;
constexpr u64 phys = 36 * gib;
// The attributes of a kernel page and of a secure one, which is read-only.
constexpr u64 page_kernel = 0x0068000000000703;
constexpr u64 secure = (page_kernel & ~(1ULL << 51)) | 1ULL << 7;
constexpr u64 not_global = 1ULL << 11;
constexpr u64 contiguous = 1ULL << 52;
constexpr u64 own = 1ULL << 55; // set in blocks, not in pages
constexpr u64 block = (page_kernel & ~2ULL) | own;

constexpr u64 bits_of(u64 prot)
{
	return prot & ~3ULL;
}

class secpage : public module_test
{
protected:
	secpage()
	{
		boot_map(base, 1, phys | block);
	}
	static u64 attributes(u64 virt)
	{
		const auto found = translate(virt);
		EXPECT_TRUE(found);
		return found ? found->attributes : 0;
	}
	// Changes attributes only: the range stays where the kernel maps it.
	void change(u64 offset, u64 size, u64 prot = secure)
	{
		call({phys + offset}, base + offset, size, {prot});
	}
	// Drops the barriers, checking that each store is followed by one and that one comes before
	// each table, and keeps only the last of the stores that fill a table.
	static std::vector<table_event> short_form(const std::vector<table_event> &events)
	{
		using kind = table_event::kind;
		std::vector<table_event> found;
		for (std::size_t i = 0; i < events.size(); i++) {
			if (events[i].what == kind::flush) {
				found.push_back(events[i]);
				continue;
			}
			if (events[i].what == kind::barrier) {
				const table_event &next = events.at(++i);
				EXPECT_TRUE(next.level < 3 && (next.entry & 3) == 3);
			}
			EXPECT_EQ(events[i++].what, kind::store);
			EXPECT_EQ(events.at(i), table_event{kind::barrier});
			const table_event &stored = events[i - 1];
			if (!found.empty() && found.back().what == kind::store &&
			    found.back().level == stored.level &&
			    found.back().index + 1 == stored.index)
				found.pop_back();
			found.push_back(stored);
		}
		return found;
	}

	decltype(tarn_change_secpage_range) *call =
		exported<decltype(tarn_change_secpage_range)>("tarn_change_secpage_range");
};

MATCHER_P3(store, level, index, low_bits, "")
{
	return arg.what == table_event::kind::store && arg.level == level &&
	       arg.index == unsigned(index) && (arg.entry & 3) == unsigned(low_bits);
}

const table_event flush{table_event::kind::flush};

TEST_F(secpage, whole_blocks_change_in_place_where_that_is_safe)
{
	change(0, gib, secure | own);
	const translation changed{phys, bits_of(secure) | own, 1};
	EXPECT_EQ(translate(base), changed);
	change(0, gib, secure); // would change a bit of a live block
	change(0, gib, page_kernel | own | contiguous);
	call({phys + gib}, base, gib, {page_kernel | own});
	EXPECT_EQ(translate(base), changed);

	for (const u64 at : {0, 1, 2}) { // the second one maps other memory
		const u64 mapped = phys + gib * (1 + at % 2) + at * mib2;
		boot_map(base + gib + at * mib2, 2, mapped | block);
	}
	change(gib, 3 * mib2, secure | own);
	EXPECT_EQ(attributes(base + gib), bits_of(secure) | own);
	EXPECT_EQ(translate(base + gib + mib2),
		  (translation{phys + 2 * gib + mib2, bits_of(block), 2}));
	EXPECT_EQ(attributes(base + gib + 2 * mib2), bits_of(secure) | own);
	EXPECT_EQ(table_activity(), (table_counts{3, 0}));
}

TEST_F(secpage, a_page_in_a_gigabyte_splits_it_twice_and_in_order)
{
	const table_trace trace;
	change(5 * mib2 + 7 * page, page);
	EXPECT_THAT(short_form(trace.events()),
		    ElementsAre(store(2, 511, 1), store(1, 4, 3), flush, store(3, 511, 3),
				store(2, 5, 3), flush, store(3, 7, 3)));
	EXPECT_EQ(table_activity(), (table_counts{512 + 2 + 512 + 2 + 1, 2}));
	for (const table_event &event : trace.events())
		if (event.level < 3 && (event.entry & 3) == 3) {
			EXPECT_EQ(event.entry >> 48, 0U) << "a table has no attributes";
			EXPECT_EQ(event.entry & 0xfff, 3U);
		}

	EXPECT_EQ(translate(base + mib2), (translation{phys + mib2, bits_of(block), 2}));
	EXPECT_EQ(translate(base + 5 * mib2),
		  (translation{phys + 5 * mib2, bits_of(page_kernel), 3}));
	EXPECT_EQ(translate(base + 5 * mib2 + 7 * page + 9),
		  (translation{phys + 5 * mib2 + 7 * page + 9, bits_of(secure), 3}));
	change(5 * mib2 + 7 * page, page, page_kernel);
	EXPECT_EQ(table_activity(), (table_counts{1030, 2})) << "the tables exist already";
}

TEST_F(secpage, pages_of_a_split_follow_the_kernels_use_of_not_global)
{
	arm64_use_ng_mappings = true;
	change(0, page);
	EXPECT_EQ(attributes(base + page), bits_of(page_kernel | not_global));
	EXPECT_EQ(attributes(base + mib2), bits_of(block)) << "a block keeps its attributes";
}

TEST_F(secpage, a_contiguous_page_is_written_with_one_warning)
{
	for (const u64 at : {0, 1})
		boot_map(base + gib + at * page, 3, phys | page_kernel | contiguous);
	change(gib, 2 * page, secure | contiguous);
	EXPECT_EQ(attributes(base + gib), bits_of(secure));
	EXPECT_EQ(attributes(base + gib + page), bits_of(secure));
	EXPECT_EQ(log_lines(log_warning, "WARNING").size(), 1U);
}

TEST_F(secpage, a_block_split_out_of_a_contiguous_run_is_logged)
{
	for (const u64 at : {0, 1, 2})
		boot_map(base + gib + at * mib2, 2, (phys + at * mib2) | block | contiguous);
	change(gib + page, mib2);
	change(gib + page, page);
	EXPECT_THAT(log_lines(log_info, "[tarn_change_secpage_range]"),
		    ElementsAre("[tarn_change_secpage_range] split 2 blocks of contiguous runs, "
				"their neighbours keep the bit\n"));
	EXPECT_EQ(attributes(base + gib + 2 * mib2), bits_of(block) | contiguous);
}

TEST_F(secpage, a_tagged_address_is_the_address_that_it_means)
{
	// One tag of four bits as the hardware keeps it, one of eight bits.
	for (const u64 tag : {0xf3, 0x2a}) {
		const u64 at = tag * page;
		call({phys + at}, (base + at) << 8 >> 8 | tag << 56, page, {secure});
		EXPECT_EQ(translate(base + at), (translation{phys + at, bits_of(secure), 3}));
	}
	EXPECT_TRUE(errors().empty());
}

TEST_F(secpage, each_failing_call_stops_the_walk_with_an_error)
{
	constexpr u64 size = gib + 2 * mib2; // splits blocks, then fills empty entries
	const auto boot_and_change = [&] {
		reset_page_tables();
		boot_map(base, 1, phys | block);
		forget_log();
		change(mib2 + page, size);
	};
	const auto last_page = [] {
		return translate(base + mib2 + size);
	};
	const std::vector<fallible_call> calls = fallible_calls(boot_and_change);
	EXPECT_EQ(calls.size(), 9U) << "two lookups and seven tables";
	EXPECT_TRUE(last_page());
	for (const fallible_call &call : calls) {
		SCOPED_TRACE(call);
		const fault_scope fault(call);
		boot_and_change();
		const unsigned tables = call.name == "__get_free_pages" ? call.nth - 1 : 0;
		EXPECT_EQ(errors().size(), 1U);
		EXPECT_FALSE(last_page());
		EXPECT_EQ(table_activity().flushes, tables);
		EXPECT_EQ(translate(base), (translation{phys, bits_of(block), tables ? 2 : 1}))
			<< "memory outside the range keeps its translation";
	}
}

TEST_F(secpage, bad_input_changes_nothing)
{
	const auto refused = [&](u64 at, u64 virt, u64 size) {
		forget_log();
		call({at}, virt, size, {secure});
		EXPECT_EQ(errors("bad range").size(), 1U);
		EXPECT_TRUE(errors(fmt::format("{:016x}", virt)).empty()) << "addresses are hashed";
		EXPECT_EQ(table_activity(), (table_counts{0, 0}));
	};
	refused(phys + 1, base, page);
	refused(phys, base + 2048, page);
	refused(phys, base, page + 4095);
	refused(phys, 0x1000, page);
	refused(phys, lowest_kernel_address - page, 2 * page);
	refused(phys, ~u64{0} - page + 1, 2 * page);
	forget_log();
	change(0, 0);
	EXPECT_TRUE(errors().empty()) << "an empty range is no error";
	EXPECT_EQ(translate(base), (translation{phys, bits_of(block), 1}));
}

// Another CPU changes the same entry while the caller allocates a table.
TEST_F(secpage, a_table_made_meanwhile_is_kept)
{
	at_next_page([&] {
		at_next_page([&] { change(page, page); });
		change(2 * page, page);
	});
	change(0, page);
	for (const u64 at : {0, 1, 2})
		EXPECT_EQ(attributes(base + at * page), bits_of(secure)) << at;
	EXPECT_EQ(attributes(base + 3 * page), bits_of(page_kernel));
	EXPECT_EQ(table_activity().flushes, 2U) << "one table per level; the others were freed";

	at_next_page([&] { change(mib2 + page, page); });
	change(mib2, page);
	EXPECT_EQ(attributes(base + mib2), attributes(base + mib2 + page));
	EXPECT_EQ(table_activity().flushes, 3U);
}

TEST_F(secpage, a_block_that_changed_meanwhile_is_split_as_it_is_now)
{
	at_next_page([&] { change(0, gib, secure | own | not_global); });
	change(mib2, mib2, secure | not_global);
	EXPECT_EQ(translate(base), (translation{phys, bits_of(secure) | own | not_global, 2}));
}

} // namespace
