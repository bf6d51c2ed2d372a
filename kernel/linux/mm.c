// SPDX-License-Identifier: GPL-2.0-only
#include <linux/bitops.h>
#include <linux/mm.h>
#include <linux/pageblock-flags.h>

#include <kernel/mm.h>

#include "symbols.h"

unsigned long helper_page_compound_head_word(const struct page *page)
{
	return smp_load_acquire(&page->compound_head);
}

int helper_page_refcount(const struct page *page)
{
	return atomic_read_acquire(&page->_refcount);
}

const struct page *helper_pfn_to_page(unsigned long pfn)
{
	return pfn_to_page(pfn);
}

unsigned long helper_page_to_pfn(const struct page *page)
{
	return page_to_pfn(page);
}

unsigned long helper_page_folio_pages(const struct page *page)
{
	return folio_nr_pages(page_folio((struct page *)page));
}

bool helper_page_is_buddy(const struct page *page)
{
	return PageBuddy((struct page *)page);
}

unsigned long helper_page_buddy_order(const struct page *page)
{
	return READ_ONCE(page->private);
}

unsigned long helper_page_migratetype(const struct page *page)
{
	if (!kernel_symbols.get_pfnblock_flags_mask)
		return 0;
	return kernel_symbols.get_pfnblock_flags_mask(page, page_to_pfn(page), MIGRATETYPE_MASK);
}

struct page *helper_page_behind(struct page *page, unsigned long n)
{
	return nth_page(page, n);
}

void helper_page_set_flag(struct page *page, unsigned int bit)
{
	set_bit(bit, &page->flags);
}

void helper_page_clear_flag(struct page *page, unsigned int bit)
{
	clear_bit(bit, &page->flags);
}
