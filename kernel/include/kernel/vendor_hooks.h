/* SPDX-License-Identifier: GPL-2.0-only */
/* The Android vendor hooks that the module attaches to. */
#pragma once

#include <kernel/tracepoint.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_BEGIN

extern struct tracepoint __tracepoint_android_vh_update_page_mapcount;
extern struct tracepoint __tracepoint_android_vh_customize_alloc_gfp;
extern struct tracepoint __tracepoint_android_vh_slab_alloc_node;
extern struct tracepoint __tracepoint_android_vh_slab_free;
extern struct tracepoint __tracepoint_android_vh_save_vmalloc_stack;
extern struct tracepoint __tracepoint_android_vh_show_stack_hash;
extern struct tracepoint __tracepoint_android_vh_vmscan_kswapd_done;
extern struct tracepoint __tracepoint_android_vh_alloc_pages_slowpath;
extern struct tracepoint __tracepoint_android_vh_mm_direct_reclaim_enter;

KERNEL_END
#endif
