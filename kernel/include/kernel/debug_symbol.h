/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

KERNEL_C_BEGIN

/* Indices of android_debug_symbol. */
enum android_debug_symbol_index {
	ADS_SLAB_CACHES = 12, /* struct list_head: all slab caches */
	ADS_SLAB_MUTEX = 13,  /* struct mutex: guards that list */
};

/* The address of a symbol that the kernel does not export, or an error pointer. Context: any. */
void *android_debug_symbol(int index) KERNEL_OPTIONAL;

KERNEL_C_END

#ifdef __cplusplus
#include <kernel/err.h>

/* As android_debug_symbol, where the kernel has it. */
inline void *debug_symbol(int index)
{
	return android_debug_symbol ? android_debug_symbol(index) : ERR_PTR(-ENOENT);
}
#endif
