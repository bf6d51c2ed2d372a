/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct sysinfo;

/* Free swap pages, and the pages of RAM. */
extern atomic_long_t nr_swap_pages;
extern atomic_long_t _totalram_pages;

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* Swap as si_swapinfo tells it, in pages. Takes the kernel's swap lock. */
void helper_swapinfo(unsigned long *total, unsigned long *free);

KERNEL_C_END
