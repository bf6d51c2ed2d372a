/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct page;
struct scatterlist;
struct sg_table;

/* The next entry, along the chain; null behind the last. */
struct scatterlist *sg_next(struct scatterlist *entry);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

struct scatterlist *helper_sg_table_first(const struct sg_table *table);
/* Entries, before any was merged for a device. */
unsigned int helper_sg_table_entries(const struct sg_table *table);
/* The first page of an entry, and its bytes. */
struct page *helper_sg_page(const struct scatterlist *entry);
unsigned int helper_sg_length(const struct scatterlist *entry);
/* The n-th page structure behind one. */
struct page *helper_page_behind(struct page *page, unsigned long n);
/* One bit of a page's flags word, atomically. */
void helper_page_set_flag(struct page *page, unsigned int bit);
void helper_page_clear_flag(struct page *page, unsigned int bit);

KERNEL_C_END
