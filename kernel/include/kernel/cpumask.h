/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

KERNEL_C_BEGIN

/* The online CPUs, a bit each, in KERNEL_NR_CPUS bits. Context: any; it may change at any time. */
const unsigned long *helper_online_cpus(void);

KERNEL_C_END
