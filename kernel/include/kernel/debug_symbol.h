/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

KERNEL_C_BEGIN

/* Indices of android_debug_symbol. */
enum android_debug_symbol_index {
	ADS_INIT_MM = 5,	/* struct mm_struct: the kernel's own */
	ADS_ITERATE_SUPERS = 6, /* iterate_supers, see fs.h */
	ADS_DROP_SLAB = 7,	/* this and the next two: see reclaim.h */
	ADS_TRY_TO_FREE_PAGES = 8,
	ADS_TRY_TO_COMPACT_PAGES = 9,
	ADS_SLAB_CACHES = 12, /* struct list_head: all slab caches */
	ADS_SLAB_MUTEX = 13,  /* struct mutex: guards that list */
};

/* Calls android_debug_symbol, which a kernel may lack: returns the address of a symbol that the
 * kernel does not export, or an error pointer. Context: any. */
void *helper_debug_symbol(int index);

KERNEL_C_END
