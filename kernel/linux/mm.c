// SPDX-License-Identifier: GPL-2.0-only
#include <linux/mm.h>

#include <kernel/mm.h>

unsigned long helper_page_compound_head_word(const struct page *page)
{
	return smp_load_acquire(&page->compound_head);
}

int helper_page_refcount(const struct page *page)
{
	return atomic_read_acquire(&page->_refcount);
}
