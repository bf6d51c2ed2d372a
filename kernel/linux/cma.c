// SPDX-License-Identifier: GPL-2.0-only
#include <linux/cma.h>
#include <mm/cma.h>

#include <kernel/cma.h>

#include "symbols.h"

int cma_for_each_area(int (*it)(struct cma *area, void *data), void *data)
{
	return kernel_symbols.cma_for_each_area ? kernel_symbols.cma_for_each_area(it, data) : 0;
}

unsigned long helper_cma_base_pfn(const struct cma *area)
{
	return area->base_pfn;
}

unsigned long helper_cma_count(const struct cma *area)
{
	return area->count;
}

const unsigned long *helper_cma_bitmap(const struct cma *area)
{
	return area->bitmap;
}

unsigned int helper_cma_order_per_bit(const struct cma *area)
{
	return area->order_per_bit;
}

const char *helper_cma_name(const struct cma *area)
{
	return area->name;
}
