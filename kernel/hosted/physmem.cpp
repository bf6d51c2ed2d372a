// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/physmem.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include <fmt/format.h>

#include <hosted/engine/address_range.h>
#include <hosted/engine/judge.h>
#include <hosted/engine/leftovers.h>
#include <hosted/engine/poison.h>

namespace hosted
{
namespace
{

constexpr unsigned long high_pfn = high_bank >> KERNEL_PAGE_SHIFT;

struct arena {
	unsigned char *const base = reserve_range(total_pages * page_size, access::open);
	page *const map =
		reinterpret_cast<page *>(reserve_range(total_pages * sizeof(page), access::open));
	std::mutex lock;
	std::size_t high_used = 0; // pages that were ever allocated, from the bank's start
	std::array<std::vector<page *>, max_page_order + 1> freed; // by order
	std::vector<std::span<page>> claimed;
};

arena &memory()
{
	// never destroyed: slab objects may outlive every destructor of the program
	static arena &instance = *new arena;
	return instance;
}

std::size_t index_of(const arena &a, const page &page)
{
	// A page structure below the map wraps to an offset far above it.
	return (reinterpret_cast<std::uintptr_t>(&page) - reinterpret_cast<std::uintptr_t>(a.map)) /
	       sizeof(struct page);
}

std::span<page> used_high_pages(const arena &a)
{
	return {a.map + low_pages, a.high_used};
}

void init_page(page &p, page_use use)
{
	p.flags.store(0, std::memory_order_relaxed);
	p.compound_head.store(0, std::memory_order_relaxed);
	p.refcount.store(use == page_use::cma ? 0 : 1, std::memory_order_relaxed);
	p.folio_pages.store(1, std::memory_order_relaxed);
	p.buddy.store(false, std::memory_order_relaxed);
	p.use.store(use, std::memory_order_release);
}

// Pages behind those that were used before. Null when the bank is full. Under the lock.
page *extend(arena &a, std::size_t count)
{
	if (count > high_pages - a.high_used)
		return nullptr;
	page *first = a.map + low_pages + a.high_used;
	a.high_used += count;
	return first;
}

page *find_block(unsigned order)
{
	arena &a = memory();
	const std::lock_guard guard(a.lock);
	auto &freed = a.freed[order];
	if (freed.empty())
		return extend(a, std::size_t{1} << order);
	page *first = freed.back();
	freed.pop_back();
	return first;
}

const char *owner_name(page_use use)
{
	switch (use) {
	case page_use::kernel:
		return "the kernel";
	case page_use::allocated:
		return "the page allocator's caller";
	case page_use::table:
		return "the page tables";
	case page_use::slab:
		return "a slab cache";
	case page_use::cma:
		return "a CMA area";
	case page_use::contiguous:
		return "a driver with CMA memory";
	default:
		return "nobody";
	}
}

std::vector<std::string> report()
{
	arena &a = memory();
	const std::lock_guard guard(a.lock);
	std::vector<std::string> lines;
	for (const page &p : used_high_pages(a))
		if (use_of(&p) == page_use::allocated)
			lines.push_back(fmt::format("page at {:#x}", page_to_phys(p)));
	return lines;
}

const leftover_source source(report);

} // namespace

page *virt_to_page(const void *address)
{
	const arena &a = memory();
	const std::size_t number = (reinterpret_cast<std::uintptr_t>(address) -
				    reinterpret_cast<std::uintptr_t>(a.base)) /
				   page_size;
	return number < total_pages ? a.map + number : nullptr;
}

page *pfn_to_page(unsigned long pfn)
{
	page *map = memory().map;
	if (pfn < low_pages)
		return map + pfn;
	return pfn - high_pfn < high_pages ? map + low_pages + (pfn - high_pfn) : nullptr;
}

std::size_t page_number(const page &page)
{
	const std::size_t number = index_of(memory(), page);
	if (number >= total_pages)
		judge_stop("page", "a page structure that is not in the memory map");
	return number;
}

unsigned long page_to_pfn(const page &page)
{
	const std::size_t number = page_number(page);
	return number < low_pages ? number : high_pfn + (number - low_pages);
}

unsigned char *page_address(const page &page)
{
	return memory().base + page_number(page) * page_size;
}

void poison_page(page &page)
{
	poison(page_address(page), page_size);
	page.poisoned = true;
}

void unpoison_page(page &page)
{
	if (page.poisoned)
		unpoison(page_address(page), page_size);
	page.poisoned = false;
}

page *allocate_block(unsigned order, page_use use)
{
	page *first = find_block(order);
	if (!first)
		return nullptr;
	for (page &p : std::span(first, std::size_t{1} << order)) {
		unpoison_page(p);
		init_page(p, use);
	}
	return first;
}

void release_block(page &first, unsigned order)
{
	for (page &p : std::span(&first, std::size_t{1} << order)) {
		p.use.store(page_use::free, std::memory_order_release);
		p.slab.store(nullptr, std::memory_order_release);
		p.refcount.store(0, std::memory_order_release);
		poison_page(p);
	}
	arena &a = memory();
	const std::lock_guard guard(a.lock);
	a.freed[order].push_back(&first);
}

void release_all(page_use use)
{
	std::vector<page *> found;
	{
		arena &a = memory();
		const std::lock_guard guard(a.lock);
		for (page &p : used_high_pages(a))
			if (use_of(&p) == use)
				found.push_back(&p);
	}
	for (page *p : found)
		release_block(*p, 0);
}

std::span<page> allocate_row(std::size_t count, page_use use)
{
	arena &a = memory();
	const std::lock_guard guard(a.lock);
	page *first = extend(a, count);
	if (!first)
		throw std::bad_alloc();
	const std::span pages(first, count);
	for (page &p : pages)
		init_page(p, use);
	return pages;
}

std::span<page> claim_row(unsigned long first_pfn, std::size_t count, page_use use)
{
	arena &a = memory();
	const std::lock_guard guard(a.lock);
	for (unsigned long pfn = first_pfn; pfn - first_pfn < count; pfn++) {
		const page *p = pfn_to_page(pfn);
		if (!p)
			throw std::invalid_argument("pages outside of memory");
		if (has_owner(use_of(p)))
			stop_second_owner(*p, use);
	}
	if (first_pfn >= low_pages || count > low_pages - first_pfn)
		throw std::invalid_argument("pages outside of the low bank");
	const std::span pages(a.map + first_pfn, count);
	for (page &p : pages)
		init_page(p, use);
	a.claimed.push_back(pages);
	return pages;
}

void stop_second_owner(const page &page, page_use wanted)
{
	judge_stop("page owner",
		   fmt::format("page {:#x} belongs to {} and is given to {}", page_to_pfn(page),
			       owner_name(use_of(&page)), owner_name(wanted)));
}

void check_owned(const page &page, const char *what)
{
	if constexpr (judging) {
		const unsigned long pfn = page_to_pfn(page);
		if (!has_owner(use_of(&page))) [[unlikely]]
			judge_stop("use after free",
				   fmt::format("{} of page {:#x}, which is free", what, pfn));
	}
}

void reset_physmem()
{
	arena &a = memory();
	const std::lock_guard guard(a.lock);
	a.claimed.push_back(used_high_pages(a));
	for (const std::span<page> pages : a.claimed)
		for (page &p : pages) {
			unpoison_page(p);
			new (&p) page{};
		}
	a.claimed.clear();
	a.high_used = 0;
	for (auto &freed : a.freed)
		freed.clear();
}

} // namespace hosted
