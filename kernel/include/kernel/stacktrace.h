/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

/* Stores the current call stack, innermost frame first, without the skipnr innermost frames.
 * Returns the number of addresses stored. Context: any. */
unsigned int stack_trace_save(unsigned long *store, unsigned int size, unsigned int skipnr);

KERNEL_C_END
#endif
