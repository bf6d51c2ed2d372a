// SPDX-License-Identifier: GPL-2.0-only
// The contiguous memory allocator, as the rest of the kernel uses it.
#pragma once

#include <string_view>

#include <hosted/page_frames.h>
#include <kernel/cma.h>

namespace hosted
{

inline constexpr unsigned max_cma_areas = 32;

// Reserves an area of frames that are added with it; it lives until the reset. The name is cut to
// what its field holds. Throws std::invalid_argument for what the kernel refuses: a range that is
// not whole pageblocks and whole chunks, or too many areas.
cma &add_cma_area(std::string_view name, unsigned long base_pfn, unsigned long pages,
		  unsigned order_per_bit = 0);

// The first range of free chunks whose pages can all be had; null on failure. A page with a pin
// cannot be had: the range is busy, and the next one is tried. align is an order. Process context.
page *cma_alloc(cma &area, unsigned long count, unsigned align = 0);
// Any part of what was allocated. False for pages outside the area. Context: any.
bool cma_release(cma &area, const page *pages, unsigned long count);

// Forgets all areas.
void reset_cma();

} // namespace hosted
