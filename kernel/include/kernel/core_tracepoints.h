/* SPDX-License-Identifier: GPL-2.0-only */
/* The kernel's own tracepoints that the module attaches to. A kernel may lack any of them. */
#pragma once

#include <kernel/tracepoint.h>

struct page;

/*
 * TRACEPOINT(name, prototype): the only place where a tracepoint's prototype is written.
 *
 * name is the name field of a CMA area. A failed allocation passes its negative error, no page, and
 * as pfn the start of the last range tried (all ones if none was tried). Probes run in any context.
 */
#define KERNEL_CORE_TRACEPOINTS(TRACEPOINT)                                                        \
	TRACEPOINT(cma_alloc_finish,                                                               \
		   (const char *name, unsigned long pfn, const struct page *page,                  \
		    unsigned long count, unsigned int align, int errorno))                         \
	TRACEPOINT(cma_release, (const char *name, unsigned long pfn, const struct page *page,     \
				 unsigned long count))

KERNEL_C_BEGIN

KERNEL_CORE_TRACEPOINTS(KERNEL_PROBE_TYPE)

/* The kernel's own tracepoint of this name; null if there is none. Context: process. */
struct tracepoint *helper_find_tracepoint(const char *name);

KERNEL_C_END

#ifdef __cplusplus
/* helper_find_<name>() finds the tracepoint of that name. Context: process. */
#define KERNEL_FIND_TRACEPOINT(name, prototype)                                                    \
	inline typed_tracepoint<name##_probe> helper_find_##name()                                 \
	{                                                                                          \
		return {helper_find_tracepoint(#name)};                                            \
	}
KERNEL_CORE_TRACEPOINTS(KERNEL_FIND_TRACEPOINT)
#endif
