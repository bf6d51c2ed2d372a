// SPDX-License-Identifier: GPL-2.0-only
#include <linux/cma.h>
#include <mm/cma.h>
#include <trace/events/cma.h>

#include <kernel/cma.h>

#include "symbols.h"

/* Never called: the compiler compares the types. */
static inline void check_probe_types(cma_alloc_finish_probe *finished, cma_release_probe *released)
{
	check_trace_callback_type_cma_alloc_finish(finished);
	check_trace_callback_type_cma_release(released);
}

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
