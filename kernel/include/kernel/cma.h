/* SPDX-License-Identifier: GPL-2.0-only */
/* The areas of the contiguous memory allocator. They live as long as the kernel. */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct cma;

/* Size of an area's name in bytes, including the NUL. */
#define CMA_MAX_NAME 64

/* Calls "it" for each area, in the kernel's order, until it returns nonzero, and returns that
 * value. If the kernel lacks this function, there are no areas. Context: process. */
int cma_for_each_area(int (*it)(struct cma *area, void *data), void *data);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* The functions below may be called in any context. */
unsigned long helper_cma_base_pfn(const struct cma *area);
/* In pages. */
unsigned long helper_cma_count(const struct cma *area);
/* One bit per chunk of 2^order_per_bit pages, set while the chunk is allocated. May change at any
 * time. */
const unsigned long *helper_cma_bitmap(const struct cma *area);
unsigned int helper_cma_order_per_bit(const struct cma *area);
/* The name field: CMA_MAX_NAME bytes. */
const char *helper_cma_name(const struct cma *area);

KERNEL_C_END
