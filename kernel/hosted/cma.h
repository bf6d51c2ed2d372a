// SPDX-License-Identifier: GPL-2.0-only
// The contiguous memory allocator, as the rest of the kernel uses it.
#pragma once

#include <string_view>

#include <hosted/mm.h>
#include <kernel/cma.h>

namespace hosted
{

inline constexpr unsigned max_cma_areas = 32;

// Reserves an area, adding its frames; it lives until the reset. The name is truncated to its
// field. Throws std::invalid_argument for what the kernel refuses: a range that is not whole
// pageblocks and whole chunks, or too many areas.
cma &add_cma_area(std::string_view name, unsigned long base_pfn, unsigned long pages,
		  unsigned order_per_bit = 0);

// Adds an area as the kernel leaves it when it cannot activate it: without pages and bitmap.
cma &add_failed_cma_area(std::string_view name, unsigned long base_pfn);

// Allocates the first range of free chunks whose pages are all available; null on failure. A pinned
// page makes a range busy, and the next one is tried. align is an order. Process context.
page *cma_alloc(cma &area, unsigned long count, unsigned align = 0);
// Releases any part of an allocation. Returns false for pages outside the area. Context: any.
bool cma_release(cma &area, const page *pages, unsigned long count);

// Removes all areas.
void reset_cma();

} // namespace hosted
