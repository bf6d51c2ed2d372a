// SPDX-License-Identifier: GPL-2.0-only
// The tracepoints of the kernel proper, as the rest of the kernel fires them.
#pragma once

#include <hosted/tracepoint.h>

struct page;

extern tracepoint __tracepoint_cma_alloc_finish;
extern tracepoint __tracepoint_cma_release;

// name is the area's whole name field. On failure pfn is the first frame of the range tried last,
// ~0 if none was tried, and page null.
inline void trace_cma_alloc_finish(const char *name, unsigned long pfn, const page *page,
				   unsigned long count, unsigned int align, int errorno)
{
	hosted::fire(__tracepoint_cma_alloc_finish, name, pfn, page, count, align, errorno);
}

inline void trace_cma_release(const char *name, unsigned long pfn, const page *page,
			      unsigned long count)
{
	hosted::fire(__tracepoint_cma_release, name, pfn, page, count);
}
