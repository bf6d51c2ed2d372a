/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

#define __GFP_MOVABLE ((gfp_t)0x08u)
#define __GFP_IO ((gfp_t)0x40u)
#define __GFP_FS ((gfp_t)0x80u)
#define __GFP_ZERO ((gfp_t)0x100u)
#define __GFP_DIRECT_RECLAIM ((gfp_t)0x400u)
#define __GFP_KSWAPD_RECLAIM ((gfp_t)0x800u)
#define __GFP_NOWARN ((gfp_t)0x2000u)
#define GFP_NOWAIT ((gfp_t)KERNEL_GFP_NOWAIT)
#define GFP_ATOMIC ((gfp_t)KERNEL_GFP_ATOMIC)
#define GFP_HIGHUSER_MOVABLE ((gfp_t)KERNEL_GFP_HIGHUSER_MOVABLE)
#define GFP_KERNEL (__GFP_DIRECT_RECLAIM | __GFP_KSWAPD_RECLAIM | __GFP_IO | __GFP_FS)

/* Frees 2^order pages. Context: any. */
void free_pages(unsigned long addr, unsigned int order);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* One zeroed page in the linear map; 0 on failure. Sleeps where gfp allows it. */
unsigned long helper_get_zeroed_page(gfp_t gfp);

KERNEL_C_END
