// SPDX-License-Identifier: GPL-2.0-only
// A CMA area: its limit, the map of its chunks and the owners of its pages.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <tarnctl/cma/cma_report.h>

namespace tarn
{

struct cma_area {
	cma_report report;
	// A bit of the allocation bitmap stands for a chunk of 2^order pages. Not every kernel
	// says.
	std::optional<unsigned int> order;
	// The warning limit in 1/1024, if this is the area that the module watches.
	std::optional<std::int64_t> limit_permillage;
	// Ranges of all areas that the module had no memory to record, since it was loaded. Not
	// every module counts them.
	std::optional<std::uint64_t> unrecorded;
};

// An area whose report could not be had.
struct unreadable_cma_area {
	std::string name;
	std::string reason; // a sentence for the user
};

struct cma_areas {
	std::vector<cma_area> areas;
	std::vector<unreadable_cma_area> unreadable;
};

// The area's size in chunks, or in pages if the order is unknown.
std::uint64_t cma_units(const cma_area &area);
// The module warns when more chunks than this are used. Computed as the module does it: 0 for an
// area of fewer than 1024 chunks.
std::optional<std::uint64_t> cma_limit_chunks(const cma_area &area);

// The units of an area that records cover.
class cma_coverage
{
public:
	explicit cma_coverage(const cma_area &area);

	[[nodiscard]] std::uint64_t total() const
	{
		return total_;
	}
	// Of the units from begin to end, end excluded.
	[[nodiscard]] std::uint64_t between(std::uint64_t begin, std::uint64_t end) const;

private:
	struct span {
		std::uint64_t begin;
		std::uint64_t end; // excluded
	};

	std::vector<span> spans_; // sorted; no two touch
	std::uint64_t total_ = 0;
};

// Used chunks that no record covers, if that is known. 0 also if records cover more than is used.
std::optional<std::uint64_t> cma_untracked_chunks(const cma_area &area);

// The characters of the map.
namespace cma_cell
{
inline constexpr char free = '.'; // or one of a few that are used but not tracked
inline constexpr char owned = '#';
inline constexpr char partly = '+';    // owned in part
inline constexpr char untracked = 'x'; // used, as is everything without a record
inline constexpr char unknown = '?';   // no record; may be used or not
} // namespace cma_cell

struct cma_map {
	std::uint64_t cell_pages = 0; // per character
	std::string cells;
};

// At most 1024 characters, beginning with the area's first page.
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
