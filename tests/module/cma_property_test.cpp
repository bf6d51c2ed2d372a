// SPDX-License-Identifier: GPL-2.0-only
// The records of CMA tracking, compared with a plain list that is walked and sorted, over random
// histories, whose ranges overlap more than the allocator's would; then the allocator's ranges and
// its bitmap.
#include "cma_fixture.h"

#include <array>
#include <cstdio>
#include <functional>
#include <list>
#include <optional>

#include <hosted/engine/clock.h>
#include <kernel/jiffies.h>
#include <rapidcheck.h>

using namespace hosted;
using namespace module_tests;

namespace
{

enum class action { alloc, alloc_untracked, alloc_failed, release, show, wait };

// A step is made from a number: RapidCheck makes numbers fast.
struct step {
	static constexpr std::array<unsigned long, 8> counts{0, 1, 1, 2, 3, 4, 8, 24};

	explicit step(std::uint32_t n)
		: seed(n), in_area(n & 1), first(n >> 1 & 31), count(counts[n >> 6 & 7]),
		  draw(n >> 9 & 127)
	{
	}
	// What another CPU does while the n-th record of a listing is printed.
	[[nodiscard]] step meanwhile(std::size_t n) const
	{
		return step((seed + static_cast<std::uint32_t>(n) + 1) * 2654435761U >> 16);
	}
	[[nodiscard]] action what() const
	{
		if (draw == 0)
			return action::show;
		if (draw == 1)
			return action::wait;
		if (draw < 5)
			return action::alloc_failed;
		if (draw < 8)
			return action::alloc_untracked;
		return draw < 64 ? action::alloc : action::release;
	}

	std::uint32_t seed;
	unsigned in_area;
	unsigned long first; // counted from the common base of the areas
	unsigned long count;
	unsigned draw;
};

using between = std::function<void(std::size_t printed)>;

// The records as one list: a new one goes to the front, a listing sorts all of them, a release
// takes the first that equals it, else the first that fits, and a listing keeps the record that it
// prints.
class plain_list
{
public:
	struct entry {
		cma_range range;
		int readers = 0;
		bool released = false;
	};

	void alloc(const cma_range &range)
	{
		list_.push_front({range});
	}
	void release(const cma_range &gone)
	{
		auto at = std::ranges::find_if(
			list_, [&](const entry &e) { return !e.released && e.range == gone; });
		if (at == list_.end())
			at = std::ranges::find_if(list_, [&](const entry &e) {
				const cma_range &r = e.range;
				return !e.released && r.area == gone.area &&
				       (r.start == gone.start || r.end == gone.end ||
					(r.start <= gone.end && r.end >= gone.start));
			});
		if (at == list_.end())
			return;
		at->released = true;
		drop(at);
	}
	std::vector<cma_range> listing(
		const std::string &area, const between &others = [](std::size_t) {})
	{
		std::vector<cma_range> seen;
		list_.sort([](const entry &a, const entry &b) {
			return a.range.start < b.range.start;
		});
		for (auto at = next(list_.begin(), area); at != list_.end();) {
			at->readers++;
			others(seen.size());
			seen.push_back(at->range);
			const auto following = next(std::next(at), area);
			at->readers--;
			drop(at);
			at = following;
		}
		return seen;
	}
	void clear()
	{
		list_.clear();
	}
	[[nodiscard]] bool equals(const std::vector<const cma_stackinfo *> &records) const
	{
		return std::ranges::equal(records, list_,
					  [](const cma_stackinfo *info, const entry &e) {
						  return e.range.area == info->name &&
							 e.range.start == info->start_pfn &&
							 e.range.end == info->end_pfn;
					  });
	}

private:
	using iterator = std::list<entry>::iterator;

	iterator next(iterator from, const std::string &area)
	{
		return std::find_if(from, list_.end(), [&](const entry &e) {
			return !e.released && e.range.area == area;
		});
	}
	void drop(iterator at)
	{
		if (at->released && at->readers == 0)
			list_.erase(at);
	}

	std::list<entry> list_;
};

class cma_property : public cma_test
{
protected:
	void model_failure(const cma &of)
	{
		const unsigned long now = jiffies;
		if (now - interval_start <= 7500)
			return;
		interval_start = now;
		model.listing(helper_cma_name(&of));
	}
	// The records that the module prints; others act while it prints each.
	std::vector<cma_range> listing(const std::string &name, const between &others)
	{
		std::vector<cma_range> seen;
		const log_watch printed([&](const std::string &text) {
			unsigned long start = 0, end = 0;
			const std::size_t at = text.find("show_info");
			if (at == std::string::npos)
				return;
			const std::size_t range = text.find(name + " [", at);
			RC_ASSERT(range != std::string::npos);
			const int found = std::sscanf(text.c_str() + range + name.size(),
						      " [%lu-%lu]", &start, &end);
			RC_ASSERT(found == 2);
			others(seen.size());
			seen.push_back({name, start, end});
		});
		EXPECT_EQ(read_file(show_path(name)), "0\n");
		forget_log();
		return seen;
	}
	const cma &area_of(const step &s)
	{
		return s.in_area ? camera : area;
	}
	static cma_range range_of(const cma &of, const step &s)
	{
		const unsigned long pfn = base + s.first;
		return {helper_cma_name(&of), pfn, pfn + s.count - 1};
	}
	void show(const step &s)
	{
		const std::string name = helper_cma_name(&area_of(s));
		const auto seen = listing(name, [&](std::size_t n) {
			const step other = s.meanwhile(n);
			const cma &of = area_of(other);
			if (other.what() == action::alloc)
				tell_alloc(of, base + other.first, other.count);
			else
				tell_release(of, base + other.first, other.count);
		});
		const auto expected = model.listing(name, [&](std::size_t n) {
			const step other = s.meanwhile(n);
			const cma_range range = range_of(area_of(other), other);
			if (other.what() == action::alloc)
				model.alloc(range);
			else
				model.release(range);
		});
		RC_ASSERT(seen == expected);
	}
	void run(const step &s)
	{
		const cma &of = area_of(s);
		const cma_range range = range_of(of, s);
		switch (s.what()) {
		case action::alloc:
			tell_alloc(of, range.start, s.count);
			model.alloc(range);
			break;
		case action::alloc_untracked: {
			const fault_scope fail("kmem_cache_alloc");
			tell_alloc(of, range.start, s.count);
			break;
		}
		case action::alloc_failed:
			tell_alloc(of, range.start, s.count, -EBUSY);
			model_failure(of);
			break;
		case action::release:
			tell_release(of, range.start, s.count);
			model.release(range);
			break;
		case action::show:
			show(s);
			break;
		case action::wait:
			advance(4000);
			break;
		}
	}
	void begin_again()
	{
		for (const cma *of : {&area, &camera})
			while (!listed(*of).empty())
				tell_release(*of, base, 64);
		model.clear();
		advance(7501);
		interval_start = jiffies - 7501;
	}

	plain_list model;
	unsigned long interval_start = 0;
};

TEST_F(cma_property, records_follow_a_plain_list)
{
	unsigned long steps = 0;
	const auto history = rc::gen::resize(
		2200, rc::gen::container<std::vector<std::uint32_t>>(rc::gen::noShrink(
			      rc::gen::resize(100, rc::gen::arbitrary<std::uint32_t>()))));
	EXPECT_TRUE(rc::check([&] {
		begin_again();
		for (const std::uint32_t n : *history) {
			run(step(n));
			RC_ASSERT(model.equals(ranked()));
			steps++;
		}
	}));
	EXPECT_GT(steps, 90'000U);
}

TEST_F(cma_property, records_cover_exactly_what_is_allocated)
{
	EXPECT_TRUE(rc::check([&](const std::vector<std::uint8_t> &sizes) {
		std::vector<std::pair<page *, unsigned long>> held;
		for (const unsigned long size : sizes) {
			if (size % 2 == 0 && !held.empty()) {
				auto &some = held[size % held.size()];
				RC_ASSERT(cma_release(camera, some.first, some.second));
				some = held.back();
				held.pop_back();
			} else if (page *p = cma_alloc(camera, size + 1, size % 4)) {
				held.emplace_back(p, size + 1);
			}
		}
		std::vector<unsigned long> expected(512 / 4 / 64);
		for (const cma_range &r : records())
			for (unsigned long bit = (r.start - camera_base) / 4;
			     bit <= (r.end - camera_base) / 4; bit++)
				expected[bit / 64] |= 1UL << bit % 64;
		RC_ASSERT(std::ranges::equal(
			expected, std::span(helper_cma_bitmap(&camera), expected.size())));
		for (const auto &[first, count] : held)
			cma_release(camera, first, count);
		RC_ASSERT(records().empty());
	}));
}

} // namespace
