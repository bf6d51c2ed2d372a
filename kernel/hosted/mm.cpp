// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/mm.h>

#include <cstdint>

#include <kernel/printk.h>

namespace hosted
{

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

unsigned long helper_page_compound_head_word(const page *page)
{
	return page->compound_head.load(std::memory_order_acquire);
}

int helper_page_refcount(const page *page)
{
	return page->refcount.load(std::memory_order_acquire);
}

unsigned long helper_page_folio_pages(const page *page)
{
	return hosted::folio_head(*const_cast<struct page *>(page))
		.folio_pages.load(std::memory_order_relaxed);
}

bool helper_page_is_buddy(const page *page)
{
	return page->buddy.load(std::memory_order_relaxed);
}

unsigned long helper_page_buddy_order(const page *page)
{
	return page->buddy_order.load(std::memory_order_relaxed);
}

void dump_page(const page *page, const char *reason)
{
	_printk(KERN_WARNING "page: refcount:%d pfn:0x%lx, dumped because: %s\n",
		helper_page_refcount(page), helper_page_to_pfn(page), reason);
}
