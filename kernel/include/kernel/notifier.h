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

/* Called when the vmalloc address space has run out and lazily freed areas are purged. */
int register_vmap_purge_notifier(struct notifier_block *nb);
/* No callback runs after the return. Returns -ENOENT for a block that is not registered. */
int unregister_vmap_purge_notifier(struct notifier_block *nb);

KERNEL_C_END
#endif
