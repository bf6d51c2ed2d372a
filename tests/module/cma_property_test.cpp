// SPDX-License-Identifier: GPL-2.0-only
// The records of CMA tracking, compared with a plain model of the list over random histories, whose
// ranges overlap more than the allocator's would; then the allocator's ranges and its bitmap.
#include "cma_fixture.h"

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
	explicit step(std::uint32_t n)
		: in_area(n & 1), first(n >> 1 & 31), count((n >> 6 & 7) + 1), draw(n >> 9 & 127)
	{
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

	unsigned in_area;
	unsigned long first; // counted from the common base of the areas
	unsigned long count;
	unsigned draw;
};

class cma_property : public cma_test
{
protected:
	void model_release(const cma_range &gone)
	{
		auto match = std::ranges::find(model, gone);
		if (match != model.end()) {
			model.erase(match);
			return;
		}
		match = std::ranges::find_if(model, [&](const cma_range &r) {
			return r.area == gone.area && r.start <= gone.end && r.end >= gone.start;
		});
		if (match != model.end())
			model.erase(match);
	}
	void model_listing()
	{
		std::ranges::stable_sort(model, {}, &cma_range::start);
	}
	void model_failure()
	{
		const unsigned long now = jiffies;
		if (now - interval_start <= 7500)
			return;
		interval_start = now;
		model_listing();
	}
	// The same as records() == model, without a copy.
	bool agree()
	{
		auto at = model.begin();
		bool equal = true;
		visit_records([&](const cma_stackinfo &info) {
			equal = equal && at != model.end() && at->area == info.name &&
				at->start == info.start_pfn && at->end == info.end_pfn;
			at += equal;
		});
		return equal && at == model.end();
	}
	void run(const step &s)
	{
		const cma &of = s.in_area ? camera : area;
		const unsigned long pfn = base + s.first;
		const cma_range range{helper_cma_name(&of), pfn, pfn + s.count - 1};
		switch (s.what()) {
		case action::alloc:
			tell_alloc(of, pfn, s.count);
			model.insert(model.begin(), range);
			break;
		case action::alloc_untracked: {
			const fault_scope fail("kmem_cache_alloc");
			tell_alloc(of, pfn, s.count);
			break;
		}
		case action::alloc_failed:
			tell_alloc(of, pfn, s.count, -EBUSY);
			model_failure();
			break;
		case action::release:
			tell_release(of, pfn, s.count);
			model_release(range);
			break;
		case action::show:
			RC_ASSERT(listed(of).size() ==
				  std::ranges::count(model, range.area, &cma_range::area));
			model_listing();
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

	std::vector<cma_range> model; // in the order of the module's list
	unsigned long interval_start = 0;
};

TEST_F(cma_property, records_follow_the_model)
{
	unsigned long steps = 0;
	const auto history = rc::gen::resize(
		2200, rc::gen::container<std::vector<std::uint32_t>>(rc::gen::noShrink(
			      rc::gen::resize(100, rc::gen::arbitrary<std::uint32_t>()))));
	EXPECT_TRUE(rc::check([&] {
		begin_again();
		for (const std::uint32_t n : *history) {
			run(step(n));
			RC_ASSERT(agree());
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
