/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

/* Global counts in pages, indexed by item; a reading may be briefly negative. */
extern atomic_long_t vm_zone_stat[];
extern atomic_long_t vm_node_stat[];

KERNEL_C_END
#endif
