// SPDX-License-Identifier: GPL-2.0-only
#include <linux/bitops.h>
#include <linux/mm.h>
#include <linux/scatterlist.h>

#include <kernel/scatterlist.h>

struct scatterlist *helper_sg_table_first(const struct sg_table *table)
{
	return table->sgl;
}

unsigned int helper_sg_table_entries(const struct sg_table *table)
{
	return table->orig_nents;
}

struct page *helper_sg_page(const struct scatterlist *entry)
{
	return sg_page((struct scatterlist *)entry);
}

unsigned int helper_sg_length(const struct scatterlist *entry)
{
	return entry->length;
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
