/* SPDX-License-Identifier: GPL-2.0-only */
/* The areas of the contiguous memory allocator. They live as long as the kernel. */
#pragma once

#include <kernel/tracepoint.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct cma;
struct page;

/* Bytes of an area's name, the NUL included. */
#define CMA_MAX_NAME 64

/* Calls it for each area, in the kernel's order, until it returns something other than 0, and
 * returns that; no area is known where the kernel cannot tell. Context: process. */
int cma_for_each_area(int (*it)(struct cma *area, void *data), void *data);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* Probes of the allocator's tracepoints of these names. pfn is the range tried last, all ones where
 * none was; errorno is 0 or a negative error. Context: any. */
typedef void cma_alloc_finish_probe(void *data, const char *name, unsigned long pfn,
				    const struct page *page, unsigned long count,
				    unsigned int align, int errorno);
typedef void cma_release_probe(void *data, const char *name, unsigned long pfn,
			       const struct page *page, unsigned long count);

/* Context: any, for all of these. */
unsigned long helper_cma_base_pfn(const struct cma *area);
/* Pages. */
unsigned long helper_cma_count(const struct cma *area);
/* One bit a chunk of 2^order_per_bit pages, set where the chunk is taken. It changes any time. */
const unsigned long *helper_cma_bitmap(const struct cma *area);
unsigned int helper_cma_order_per_bit(const struct cma *area);
/* The whole name field, CMA_MAX_NAME bytes. */
const char *helper_cma_name(const struct cma *area);

KERNEL_C_END
