/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

KERNEL_OPAQUE(ratelimit_state, KERNEL_SIZEOF_RATELIMIT_STATE);

/* Returns nonzero if the caller may act. func is the name that the kernel logs when it reports
 * suppressed calls. Never sleeps. Context: any. */
int ___ratelimit(struct ratelimit_state *rs, const char *func);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* Allows up to burst calls per interval (in jiffies). Call once, before the first ___ratelimit. */
void helper_ratelimit_state_init(struct ratelimit_state *rs, int interval, int burst);

KERNEL_C_END
