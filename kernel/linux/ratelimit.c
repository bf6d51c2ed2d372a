// SPDX-License-Identifier: GPL-2.0-only
#include <linux/ratelimit.h>

#include <kernel/ratelimit.h>

void helper_ratelimit_state_init(struct ratelimit_state *rs, int interval, int burst)
{
	ratelimit_state_init(rs, interval, burst);
}
