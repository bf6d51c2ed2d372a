// SPDX-License-Identifier: GPL-2.0-only
// The machine's memory as page frames. There is none until someone adds some.
#pragma once

#include <hosted/mm.h>

namespace hosted
{

inline constexpr unsigned pageblock_order = 9;
inline constexpr unsigned long pageblock_pages = 1UL << pageblock_order;
inline constexpr unsigned char migrate_movable = 1;

// Adds the frames of whole pageblocks, movable and with no reference, each once until the reset.
// Throws std::invalid_argument for a range that is not whole blocks, not below 16 GiB or not new.
void add_frames(unsigned long first, unsigned long count);
// The page of a frame that is there.
page &page_at(unsigned long pfn);
// Of the pageblock that holds the frame.
void set_migratetype(unsigned long pfn, unsigned char type);

void reset_frames();

} // namespace hosted
