// SPDX-License-Identifier: GPL-2.0-only
#include <linux/wait.h>

#include <kernel/wait.h>

void helper_init_wait(struct wait_queue_entry *wq_entry)
{
	init_wait(wq_entry);
}
