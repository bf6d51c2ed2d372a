// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/cma/cma_area.h>

#include <algorithm>
#include <bit>
#include <functional>
#include <map>

namespace tarn
{

namespace
{

// The character for units that no record covers.
char uncovered_cell(const cma_area &area, std::uint64_t covered)
{
	const auto untracked = cma_untracked_chunks(area);

	if (!untracked)
		return cma_cell::unknown;
	return *untracked < cma_units(area) - covered ? cma_cell::free : cma_cell::untracked;
}

} // namespace

std::uint64_t cma_units(const cma_area &area)
{
	return area.report.pages >> area.order.value_or(0);
}

std::optional<std::uint64_t> cma_limit_chunks(const cma_area &area)
{
	if (!area.order || !area.limit_permillage)
		return std::nullopt;
	return (cma_units(area) >> 10) * static_cast<std::uint64_t>(*area.limit_permillage);
}

cma_coverage::cma_coverage(const cma_area &area)
{
	const unsigned int order = area.order.value_or(0);
	const cma_report &report = area.report;
	std::vector<span> all;

	for (const cma_record &record : report.records) {
		const std::uint64_t first = std::max(record.first_pfn, report.first_pfn);
		const std::uint64_t last = std::min(record.last_pfn, report.last_pfn);

		if (first <= last)
			all.push_back({(first - report.first_pfn) >> order,
				       ((last - report.first_pfn) >> order) + 1});
	}
	std::ranges::sort(all, {}, &span::begin);
	// A record may outlive its range, and the next owner's then overlaps it.
	for (const span &next : all) {
		if (!spans_.empty() && next.begin <= spans_.back().end)
			spans_.back().end = std::max(spans_.back().end, next.end);
		else
			spans_.push_back(next);
	}
	for (const span &covered : spans_)
		total_ += covered.end - covered.begin;
}

std::uint64_t cma_coverage::between(std::uint64_t begin, std::uint64_t end) const
{
	std::uint64_t sum = 0;

	for (auto at = std::ranges::upper_bound(spans_, begin, {}, &span::end);
	     at != spans_.end() && at->begin < end; ++at)
		sum += std::min(end, at->end) - std::max(begin, at->begin);
	return sum;
}

std::optional<std::uint64_t> cma_untracked_chunks(const cma_area &area)
{
	if (area.report.lost)
		return std::nullopt;
	if (area.report.used_bits == 0)
		return 0;
	if (!area.order)
		return std::nullopt;
	const std::uint64_t covered = cma_coverage(area).total();

	return area.report.used_bits > covered ? area.report.used_bits - covered : 0;
}

cma_map draw_cma_map(const cma_area &area)
{
	constexpr std::uint64_t most_cells = 1024;
	const cma_coverage coverage(area);
	const std::uint64_t all = cma_units(area);
	const char uncovered = uncovered_cell(area, coverage.total());
	const std::uint64_t step = std::bit_ceil((all - 1) / most_cells + 1);
	std::string cells;

	for (std::uint64_t begin = 0; begin < all; begin += step) {
		const std::uint64_t end = std::min(begin + step, all);
		const std::uint64_t covered = coverage.between(begin, end);

		if (covered == 0)
			cells += uncovered;
		else
			cells += covered == end - begin ? cma_cell::owned : cma_cell::partly;
	}
	return {step << area.order.value_or(0), cells};
}

std::vector<cma_owner> cma_owners(const cma_report &report)
{
	std::map<std::vector<std::string>, std::size_t> index;
	std::vector<cma_owner> owners;

	for (const cma_record &record : report.records) {
		const auto [at, is_new] = index.emplace(record.frames, owners.size());

		if (is_new)
			owners.push_back({record.frames});
		owners[at->second].ranges++;
		owners[at->second].pages += record.pages();
	}
	std::ranges::stable_sort(owners, std::greater{}, &cma_owner::pages);
	return owners;
}

} // namespace tarn
