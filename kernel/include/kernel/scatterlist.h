/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct page;
struct scatterlist;
struct sg_table;

/* The next entry, following chains; null after the last. */
struct scatterlist *sg_next(struct scatterlist *entry);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

struct scatterlist *helper_sg_table_first(const struct sg_table *table);
/* Number of entries before any were merged for a device. */
unsigned int helper_sg_table_entries(const struct sg_table *table);
/* The first page of an entry, and its length in bytes. */
struct page *helper_sg_page(const struct scatterlist *entry);
unsigned int helper_sg_length(const struct scatterlist *entry);

KERNEL_C_END
