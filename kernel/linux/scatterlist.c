// SPDX-License-Identifier: GPL-2.0-only
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
