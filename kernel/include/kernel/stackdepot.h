/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/gfp.h>
#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

typedef u32 depot_stack_handle_t;

/* Saves the current call stack, innermost first, less the skipnr innermost frames. Returns the
 * number of addresses stored. Context: any. */
unsigned int stack_trace_save(unsigned long *store, unsigned int size, unsigned int skipnr);
/* Sets the depot up, if no one has; 0 or a negative error. Before the first save. May sleep. */
int stack_depot_init(void);
/* One handle for each distinct stack; 0 on failure. Sleeps only where gfp allows it. */
depot_stack_handle_t stack_depot_save(unsigned long *entries, unsigned int nr_entries, gfp_t gfp);
/* The frames of a handle, owned by the depot and never freed. Returns their number; 0 for a handle
 * that is 0 or unknown. Context: any. */
unsigned int stack_depot_fetch(depot_stack_handle_t handle, unsigned long **entries);

KERNEL_C_END
#endif
