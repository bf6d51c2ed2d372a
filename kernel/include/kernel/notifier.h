/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct notifier_block {
	int (*notifier_call)(struct notifier_block *nb, unsigned long action, void *data);
	struct notifier_block *next;
	int priority;
};

/* The block is called when vmalloc runs out of address space and purges lazily freed areas. */
int register_vmap_purge_notifier(struct notifier_block *nb);
/* Once this returns, no callback is running. Returns -ENOENT if the block is not registered. */
int unregister_vmap_purge_notifier(struct notifier_block *nb);

KERNEL_C_END
#endif
