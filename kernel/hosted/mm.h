// SPDX-License-Identifier: GPL-2.0-only
// Pages as a test sets them up. All of them are in the machine's memory until the reset.
#pragma once

#include <span>

#include <hosted/physmem.h>
#include <kernel/mm.h>

namespace hosted
{

inline constexpr unsigned pageblock_order = 9;
inline constexpr unsigned long pageblock_pages = 1UL << pageblock_order;
inline constexpr unsigned char migrate_movable = 1;

// Pages in a row, with a reference each, that the rest of the kernel holds.
std::span<page> make_pages(std::size_t count);

// Pages of whole pageblocks in the low bank, which are movable. For a CMA area they have no
// reference. Stops the program if a page has an owner already. Throws std::invalid_argument for a
// range that is not whole blocks below 16 GiB.
void add_frames(unsigned long first, unsigned long count, page_use use = page_use::kernel);
// The page of a frame number; stops the program if that frame is absent.
page &page_at(unsigned long pfn);
// Of the pageblock that holds the frame.
void set_migratetype(unsigned long pfn, unsigned char type);

// Makes the first page the head of the others.
void make_compound(std::span<page> pages);
// Makes each page independent again.
void split_compound(std::span<page> pages);
// The first page of the page's folio.
page &folio_head(page &page);

// Makes the page the head of a free block of 2^order pages.
void make_buddy(page &page, unsigned order);

} // namespace hosted
