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

/* Kernel warning with a stack dump, attributed to the file and line; taints the kernel. Any
 * context. */
void helper_warn(const char *file, int line);

KERNEL_C_END
