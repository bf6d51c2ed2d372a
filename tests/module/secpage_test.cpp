// SPDX-License-Identifier: GPL-2.0-only
// Secure page ranges: the order of what is done, failures, and others at the same tables.
#include "fixture.h"

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
// The attributes of a kernel page, and those that a secure one gets: read-only.
constexpr u64 page_kernel = 0x0068000000000703;
constexpr u64 secure = (page_kernel & ~(1ULL << 51)) | 1ULL << 7;
constexpr u64 not_global = 1ULL << 11;
constexpr u64 contiguous = 1ULL << 52;
constexpr u64 own = 1ULL << 55; // of the blocks, unlike a page
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
	// In place, as the kernel maps it.
	void change(u64 offset, u64 size, u64 prot = secure)
	{
		call({phys + offset}, base + offset, size, {prot});
	}
	// Without the barriers, one of which must be behind each store; of the stores that fill a
	// table, entry by entry, the last one.
	static std::vector<table_event> short_form(const std::vector<table_event> &events)
	{
		using kind = table_event::kind;
		std::vector<table_event> found;
		for (std::size_t i = 0; i < events.size(); i++) {
			if (events[i].what == kind::flush) {
				found.push_back(events[i]);
				continue;
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
	change(0, gib, secure); // a bit that must not change under way
	change(0, gib, page_kernel | own | contiguous);
	call({phys + gib}, base, gib, {page_kernel | own});
	EXPECT_EQ(translate(base), changed);

	for (const u64 at : {0, 1, 2}) { // the second is elsewhere
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
	EXPECT_EQ(table_activity(), (table_counts{512 + 1 + 512 + 1 + 1, 2}));
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
	EXPECT_EQ(table_activity(), (table_counts{1028, 2})) << "the tables are there";
}

TEST_F(secpage, pages_of_a_split_follow_the_kernels_use_of_not_global)
{
	arm64_use_ng_mappings = true;
	change(0, page);
	EXPECT_EQ(attributes(base + page), bits_of(page_kernel | not_global));
	EXPECT_EQ(attributes(base + mib2), bits_of(block)) << "a block keeps its own";
}

TEST_F(secpage, a_contiguous_page_is_warned_of_once_and_written)
{
	for (const u64 at : {0, 1})
		boot_map(base + gib + at * page, 3, phys | page_kernel | contiguous);
	change(gib, 2 * page, secure | contiguous);
	EXPECT_EQ(attributes(base + gib), bits_of(secure));
	EXPECT_EQ(attributes(base + gib + page), bits_of(secure));
	EXPECT_EQ(log_lines(log_warning, "WARNING").size(), 1U);
}

TEST_F(secpage, each_failing_call_stops_the_walk_with_an_error)
{
	constexpr u64 size = gib + 2 * mib2; // blocks, then tables where nothing was
	for (unsigned n = 1;; n++) {
		reset_page_tables();
		boot_map(base, 1, phys | block);
		forget_log();
		const fault_scope fault(n);
		change(mib2 + page, size);
		const auto end = [](u64 at) {
			return translate(base + mib2 + page + at);
		};
		if (!fault.hit()) {
			EXPECT_EQ(n, 10U) << "two lookups and seven tables";
			EXPECT_TRUE(end(size - page));
			break;
		}
		EXPECT_EQ(errors().size(), 1U);
		EXPECT_FALSE(end(size - page)) << n;
		EXPECT_EQ(table_activity().flushes, n > 2 ? n - 3 : 0);
		EXPECT_EQ(translate(base), (translation{phys, bits_of(block), n > 3 ? 2 : 1}))
			<< "what lies outside keeps its translation";
	}
}

TEST_F(secpage, bad_input_changes_nothing)
{
	const auto refused = [&](u64 at, u64 virt, u64 size) {
		forget_log();
		call({at}, virt, size, {secure});
		EXPECT_EQ(errors("bad range").size(), 1U);
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
	EXPECT_TRUE(errors().empty()) << "nothing is asked";
	EXPECT_EQ(translate(base), (translation{phys, bits_of(block), 1}));
}

// While the caller waits for the page of a table, another CPU is at the same entry.
TEST_F(secpage, a_table_that_came_meanwhile_is_kept)
{
	at_next_table_page([&] {
		at_next_table_page([&] { change(page, page); });
		change(2 * page, page);
	});
	change(0, page);
	for (const u64 at : {0, 1, 2})
		EXPECT_EQ(attributes(base + at * page), bits_of(secure)) << at;
	EXPECT_EQ(attributes(base + 3 * page), bits_of(page_kernel));
	EXPECT_EQ(table_activity().flushes, 2U) << "one table a level; the others went back";

	at_next_table_page([&] { change(mib2 + page, page); });
	change(mib2, page);
	EXPECT_EQ(attributes(base + mib2), attributes(base + mib2 + page));
	EXPECT_EQ(table_activity().flushes, 3U);
}

TEST_F(secpage, a_block_that_changed_meanwhile_is_split_as_it_is_now)
{
	at_next_table_page([&] { change(0, gib, secure | own | not_global); });
	change(mib2, mib2, secure | not_global);
	EXPECT_EQ(translate(base), (translation{phys, bits_of(secure) | own | not_global, 2}));
}

} // namespace
