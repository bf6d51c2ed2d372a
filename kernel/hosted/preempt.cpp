// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/engine/context.h>
#include <kernel/preempt.h>

int helper_preempt_count(void)
{
	return hosted::self().preempt_count;
}
