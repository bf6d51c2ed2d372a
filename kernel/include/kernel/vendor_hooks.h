/* SPDX-License-Identifier: GPL-2.0-only */
/* The Android vendor hooks that the module attaches to. A kernel may lack any of them. */
#pragma once

#include <kernel/tracepoint.h>

/* X(hook) */
#define KERNEL_VENDOR_HOOKS(X)                                                                     \
	X(android_vh_update_page_mapcount)                                                         \
	X(android_vh_customize_alloc_gfp)                                                          \
	X(android_vh_slab_alloc_node)                                                              \
	X(android_vh_slab_free)                                                                    \
	X(android_vh_save_vmalloc_stack)                                                           \
	X(android_vh_show_stack_hash)                                                              \
	X(android_vh_vmscan_kswapd_done)                                                           \
	X(android_vh_alloc_pages_slowpath)                                                         \
	X(android_vh_mm_direct_reclaim_enter)                                                      \
	X(android_vh_madvise_cold_or_pageout_abort)                                                \
	X(android_vh_compact_finished)

KERNEL_C_BEGIN

/* helper_<hook> is the hook's tracepoint, or null where the kernel has no such hook. */
#define KERNEL_DECLARE_HOOK(hook) extern struct tracepoint *const helper_##hook;
KERNEL_VENDOR_HOOKS(KERNEL_DECLARE_HOOK)

KERNEL_C_END
