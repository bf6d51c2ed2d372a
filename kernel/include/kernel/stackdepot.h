/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/gfp.h>
#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

typedef u32 depot_stack_handle_t;

/* Sets up the depot unless that is done already. Call before the first save. Returns 0 or a
 * negative error. May sleep. */
int stack_depot_init(void);
/* Returns one handle per distinct stack, or 0 on failure. Sleeps only if gfp allows it. */
depot_stack_handle_t stack_depot_save(unsigned long *entries, unsigned int nr_entries, gfp_t gfp);
/* Looks up the frames of a handle; the depot owns them and never frees them. Returns their number,
 * or 0 for a handle that is 0 or unknown. Context: any. */
unsigned int stack_depot_fetch(depot_stack_handle_t handle, unsigned long **entries);

KERNEL_C_END
#endif
