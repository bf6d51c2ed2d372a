// SPDX-License-Identifier: GPL-2.0-only
#include <linux/preempt.h>

#include <kernel/preempt.h>

int helper_preempt_count(void)
{
	return preempt_count();
}
