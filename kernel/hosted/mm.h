// SPDX-License-Identifier: GPL-2.0-only
// Page structures. Free-standing ones have no frame number, a test makes as many as it needs; those
// of the machine's memory are in page_frames.h.
#pragma once

#include <atomic>
#include <span>

#include <kernel/mm.h>

struct page {
	std::atomic<unsigned long> flags{0};
	std::atomic<unsigned long> compound_head{0};
	std::atomic<int> refcount{1};
	std::atomic<unsigned> folio_pages{1}; // of a head
	std::atomic<unsigned> buddy_order{0}; // of the head of a free block
	std::atomic<bool> buddy{false};
	std::atomic<bool> present{false};	   // in the machine's memory
	std::atomic<unsigned char> migratetype{0}; // of the pageblock that begins here
};

namespace hosted
{

// Makes the first page the head of the others.
void make_compound(std::span<page> pages);
// Makes each a page of its own.
void split_compound(std::span<page> pages);
// The first page of the page's folio.
page &folio_head(page &page);

// Makes the page the head of a free block of 2^order pages.
void make_buddy(page &page, unsigned order);

} // namespace hosted
