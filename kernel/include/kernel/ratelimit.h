/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

KERNEL_OPAQUE(ratelimit_state, KERNEL_SIZEOF_RATELIMIT_STATE);

/* True when the caller may act. func names the caller in the kernel's own note on suppressed
 * calls. Context: any; never sleeps. */
int ___ratelimit(struct ratelimit_state *rs, const char *func);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* Lets burst calls through per interval (jiffies). Once, before the first ___ratelimit. */
void helper_ratelimit_state_init(struct ratelimit_state *rs, int interval, int burst);

KERNEL_C_END
