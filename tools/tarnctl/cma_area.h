// SPDX-License-Identifier: GPL-2.0-only
// What the numbers about a CMA area come to.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cma_report.h"

namespace tarn
{

struct cma_area {
	cma_report report;
	// A bit of the allocation bitmap stands for 2^order pages, a chunk. Not every kernel tells.
	std::optional<unsigned int> order;
	// The warning's limit in 1/1024, for the area that is watched.
	std::optional<std::int64_t> limit_permillage;
};

// Chunks of the area, or pages where the order is not known.
std::uint64_t cma_units(const cma_area &area);
// Used chunks above which the module warns. As the module computes it: 0 for an area of fewer than
// 1024 chunks.
std::optional<std::uint64_t> cma_limit_chunks(const cma_area &area);

// The units of an area that its records cover.
class cma_coverage
{
public:
	explicit cma_coverage(const cma_area &area);

	[[nodiscard]] std::uint64_t total() const
	{
		return total_;
	}
	// From unit begin on, before end.
	[[nodiscard]] std::uint64_t between(std::uint64_t begin, std::uint64_t end) const;

private:
	struct span {
		std::uint64_t begin;
		std::uint64_t end; // behind the last
	};

	std::vector<span> spans_; // in order, none touches another
	std::uint64_t total_ = 0;
};

// Used chunks that no record covers, if that can be said: 0 also where records cover more than is
// used.
std::optional<std::uint64_t> cma_untracked_chunks(const cma_area &area);

// What a character of the map stands for.
namespace cma_cell
{
inline constexpr char free = '.'; // or one of few that are used and not tracked
inline constexpr char owned = '#';
inline constexpr char partly = '+';    // owned in part
inline constexpr char untracked = 'x'; // used, as is all that has no record
inline constexpr char unknown = '?';   // no record, and no telling whether it is used
} // namespace cma_cell

struct cma_map {
	std::uint64_t cell_pages = 0; // that a character stands for
	std::string cells;
};

// At most 1024 characters, from the area's first page on.
cma_map draw_cma_map(const cma_area &area);

// The ranges that were allocated along one call stack.
struct cma_owner {
	std::vector<std::string> frames;
	std::uint64_t ranges = 0;
	std::uint64_t pages = 0;
};

// Those with the most pages first.
std::vector<cma_owner> cma_owners(const cma_report &report);

} // namespace tarn
