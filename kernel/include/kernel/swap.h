/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct sysinfo;

/* Free swap pages, and pages of RAM. */
extern atomic_long_t nr_swap_pages;
extern atomic_long_t _totalram_pages;

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* Total and free swap in pages, from si_swapinfo. Returns false, and sets neither, if the kernel
 * lacks it. Takes the kernel's swap lock. */
bool helper_swapinfo(unsigned long *total, unsigned long *free);

KERNEL_C_END
