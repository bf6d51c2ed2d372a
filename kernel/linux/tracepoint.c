// SPDX-License-Identifier: GPL-2.0-only
#include <linux/tracepoint.h>

#include <kernel/tracepoint.h>

void helper_tracepoint_synchronize_unregister(void)
{
	tracepoint_synchronize_unregister();
}
