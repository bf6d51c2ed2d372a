/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

/* The kernel's tick counter. Read it with READ_ONCE. */
extern unsigned long volatile jiffies;

KERNEL_C_END
#endif
