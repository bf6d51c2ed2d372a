/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

/* Number of bits set among the first "bits" bits. */
unsigned int __bitmap_weight(const unsigned long *bitmap, unsigned int bits);

KERNEL_C_END
#endif
