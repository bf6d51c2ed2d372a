// SPDX-License-Identifier: GPL-2.0-only
// The pages of the slab allocator: blocks of 2^order pages and, for each page, the slab on it.
#pragma once

namespace hosted
{

struct slab;

inline constexpr unsigned max_page_order = 10;

// The block that the slab gets, or null when there are no pages left. Thread safe.
unsigned char *allocate_pages(unsigned order, slab *owner);
// The owner must not be asked for any more. Thread safe.
void free_pages(unsigned char *block, unsigned order);
// Null for an address that is on no slab. Lock-free.
slab *slab_at(const void *address);

} // namespace hosted
