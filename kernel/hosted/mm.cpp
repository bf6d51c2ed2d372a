// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/mm.h>

#include <cstdint>
#include <stdexcept>

#include <fmt/format.h>

#include <hosted/engine/judge.h>
#include <kernel/printk.h>

namespace hosted
{
namespace
{

// A frame that was never added has a page structure, but no memory behind it.
const page &in_frame(const page *page)
{
	if (judging && use_of(page) == page_use::absent) [[unlikely]]
		judge_stop("page", "a page that is in no frame");
	return *page;
}

// Both banks begin at a pageblock boundary, so the place in the memory map gives the block.
page &first_of_block(const page &page)
{
	return const_cast<struct page &>(*(&page - page_number(page) % pageblock_pages));
}

} // namespace

std::span<page> make_pages(std::size_t count)
{
	return allocate_row(count, page_use::kernel);
}

void add_frames(unsigned long first, unsigned long count, page_use use)
{
	if (first % pageblock_pages || count % pageblock_pages)
		throw std::invalid_argument("frames that are not whole pageblocks");
	for (page &p : claim_row(first, count, use))
		p.migratetype.store(migrate_movable, std::memory_order_relaxed);
}

page &page_at(unsigned long pfn)
{
	page *p = pfn_to_page(pfn);
	if (use_of(p) == page_use::absent)
		judge_stop("page", fmt::format("there is no frame {:#x}", pfn));
	return *p;
}

void set_migratetype(unsigned long pfn, unsigned char type)
{
	first_of_block(page_at(pfn)).migratetype.store(type, std::memory_order_relaxed);
}

void make_compound(std::span<page> pages)
{
	const auto head = reinterpret_cast<std::uintptr_t>(pages.data());
	pages[0].folio_pages.store(static_cast<unsigned>(pages.size()), std::memory_order_relaxed);
	for (page &tail : pages.subspan(1))
		tail.compound_head.store(head | 1, std::memory_order_release);
}

void split_compound(std::span<page> pages)
{
	for (page &p : pages) {
		p.compound_head.store(0, std::memory_order_relaxed);
		p.folio_pages.store(1, std::memory_order_relaxed);
	}
}

page &folio_head(page &page)
{
	const unsigned long word = page.compound_head.load(std::memory_order_acquire);
	return word & 1 ? *reinterpret_cast<struct page *>(word - 1) : page;
}

void make_buddy(page &page, unsigned order)
{
	page.buddy_order.store(order, std::memory_order_relaxed);
	page.buddy.store(true, std::memory_order_relaxed);
}

} // namespace hosted

using namespace hosted;

unsigned long helper_page_compound_head_word(const page *page)
{
	return page->compound_head.load(std::memory_order_acquire);
}

int helper_page_refcount(const page *page)
{
	return page->refcount.load(std::memory_order_acquire);
}

const page *helper_pfn_to_page(unsigned long pfn)
{
	return &page_at(pfn);
}

unsigned long helper_page_to_pfn(const page *page)
{
	return page_to_pfn(in_frame(page));
}

unsigned long helper_page_migratetype(const page *page)
{
	return first_of_block(in_frame(page)).migratetype.load(std::memory_order_relaxed);
}

unsigned long helper_page_folio_pages(const page *page)
{
	struct page &head = folio_head(const_cast<struct page &>(*page));
	check_owned(head, "folio size");
	return head.folio_pages.load(std::memory_order_relaxed);
}

bool helper_page_is_buddy(const page *page)
{
	return page->buddy.load(std::memory_order_relaxed);
}

unsigned long helper_page_buddy_order(const page *page)
{
	return page->buddy_order.load(std::memory_order_relaxed);
}

page *helper_page_behind(page *page, unsigned long n)
{
	return page + n;
}

void helper_page_set_flag(page *page, unsigned int bit)
{
	check_owned(*page, "change of a flag");
	page->flags.fetch_or(1UL << bit, std::memory_order_relaxed);
}

void helper_page_clear_flag(page *page, unsigned int bit)
{
	check_owned(*page, "change of a flag");
	page->flags.fetch_and(~(1UL << bit), std::memory_order_relaxed);
}

void dump_page(const page *page, const char *reason)
{
	_printk(KERN_WARNING "page: refcount:%d pfn:0x%lx, dumped because: %s\n",
		helper_page_refcount(page), helper_page_to_pfn(page), reason);
}
