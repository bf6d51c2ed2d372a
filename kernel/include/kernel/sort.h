/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

/* In-place heap sort, not stable. A null swap_func swaps the elements byte by byte. */
void sort(void *base, size_t num, size_t size, int (*cmp_func)(const void *a, const void *b),
	  void (*swap_func)(void *a, void *b, int size));

KERNEL_C_END
#endif
