/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

#define KERN_SOH "\001"
#define KERN_ERR KERN_SOH "3"
#define KERN_WARNING KERN_SOH "4"
#define KERN_INFO KERN_SOH "6"

/* Context: any; never sleeps. %pS prints an address as symbol+offset/size [module]. */
int _printk(const char *fmt, ...) KERNEL_PRINTF(1, 2);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* Issues a kernel warning with a stack dump, attributed to the unit tarn_mapcount, and taints the
 * kernel. Context: any. */
void helper_warn_tarn_mapcount(void);

KERNEL_C_END
