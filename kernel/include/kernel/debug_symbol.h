/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

KERNEL_C_BEGIN

/* Indices of android_debug_symbol. */
enum android_debug_symbol_index {
	ADS_SLAB_CACHES = 12, /* struct list_head: all slab caches */
	ADS_SLAB_MUTEX = 13,  /* struct mutex: guards that list */
};

/* android_debug_symbol, which a kernel may lack: the address of a symbol that the kernel does not
 * export, or an error pointer. Context: any. */
void *helper_debug_symbol(int index);

KERNEL_C_END
