// SPDX-License-Identifier: GPL-2.0-only
// The machine's memory: one arena, which the host backs on use, with one page structure for each of
// its pages. The kernel's linear map, through which its own code reads and writes, is the arena.
//
// Memory has two banks. Tests place pages in the low one, by frame number. The page allocator takes
// its pages from the high one, at physical addresses that neither 32 nor 39 bits hold.
#pragma once

#include <atomic>
#include <cstddef>
#include <span>

#include <kernel/types.h>

namespace hosted
{

struct slab;

inline constexpr unsigned max_page_order = 10;
inline constexpr std::size_t low_pages = std::size_t{16} << (30 - KERNEL_PAGE_SHIFT);
// More than the machine's RAM, so that a leak can be simulated to any threshold.
inline constexpr std::size_t high_pages = std::size_t{8} << (30 - KERNEL_PAGE_SHIFT);
inline constexpr std::size_t total_pages = low_pages + high_pages;
inline constexpr u64 high_bank = 0x8800000000;

// The owner of a page.
enum class page_use : unsigned char {
	absent, // never used since the reset: a page structure of zeros
	free,
	kernel,	    // the rest of the kernel
	allocated,  // the module, through the page allocator
	table,	    // the kernel's page tables
	slab,	    // a slab cache
	cma,	    // a CMA area; movable pages may be in it
	contiguous, // a driver, which has it from a CMA area
};

} // namespace hosted

// A page structure exists only in the memory map, where it has a frame number and memory.
struct page {
	std::atomic<unsigned long> flags;
	std::atomic<unsigned long> compound_head;
	std::atomic<hosted::slab *> slab;
	std::atomic<int> refcount;
	std::atomic<unsigned> folio_pages; // of a head
	std::atomic<unsigned> buddy_order; // of the head of a free block
	std::atomic<bool> buddy;
	std::atomic<hosted::page_use> use;
	std::atomic<unsigned char> migratetype; // of the pageblock that begins here
	bool poisoned;				// accessed only by whoever owns or frees the page
};

namespace hosted
{

// All thread safe; the conversions and use_of() take no lock.

// Null for an address outside of the linear map.
page *virt_to_page(const void *address);
// Null for a frame in no bank.
page *pfn_to_page(unsigned long pfn);
// Stops the program if the page structure is not in the memory map.
unsigned long page_to_pfn(const page &page);
unsigned char *page_address(const page &page);
// Its place in the memory map, below total_pages.
std::size_t page_number(const page &page);

inline u64 page_to_phys(const page &page)
{
	return u64{page_to_pfn(page)} << KERNEL_PAGE_SHIFT;
}
inline page *phys_to_page(u64 phys)
{
	return pfn_to_page(phys >> KERNEL_PAGE_SHIFT);
}
// Null counts as absent.
inline page_use use_of(const page *page)
{
	return page ? page->use.load(std::memory_order_acquire) : page_use::absent;
}
inline bool has_owner(page_use use)
{
	return use != page_use::absent && use != page_use::free;
}

// A block of 2^order pages with one reference each and undefined content; null when memory is full.
page *allocate_block(unsigned order, page_use use);
// Poisons the block's memory until it is allocated again.
void release_block(page &first, unsigned order);
// Releases all single pages that the page allocator gave out for a use.
void release_all(page_use use);

// Pages in a row that stay until the reset. Throws std::bad_alloc when memory is full.
std::span<page> allocate_row(std::size_t count, page_use use);
// The same at a place of its own in the low bank. Stops the program if a page has an owner already.
// Throws std::invalid_argument for pages outside of the low bank.
std::span<page> claim_row(unsigned long first_pfn, std::size_t count, page_use use);

// Makes the use of a page's memory a fault from now on, and ends that. By the page's owner.
void poison_page(page &page);
void unpoison_page(page &page);

// Stops the program: the page has an owner, and another one takes it.
[[noreturn]] void stop_second_owner(const page &page, page_use wanted);
// Stops the program if no one owns the page. what: the use that is made of it.
void check_owned(const page &page, const char *what);

// Takes all pages back. Stops the program if free memory was written to.
void reset_physmem();

} // namespace hosted
