/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

KERNEL_C_BEGIN

/* Bitmap of the online CPUs, KERNEL_NR_CPUS bits. Context: any. May change at any time. */
const unsigned long *helper_online_cpus(void);

KERNEL_C_END
