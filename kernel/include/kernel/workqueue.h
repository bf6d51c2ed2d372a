/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct workqueue_struct;

KERNEL_OPAQUE(work_struct, KERNEL_SIZEOF_WORK_STRUCT);

extern struct workqueue_struct *system_wq;

/* Cancels a queued work item and waits for a running one. Context: process, may sleep. */
bool cancel_work_sync(struct work_struct *work);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

void helper_init_work(struct work_struct *work, void (*func)(struct work_struct *work));
/* Queues the item on any CPU. Returns false if it is already queued. Context: any. */
bool helper_queue_work(struct workqueue_struct *wq, struct work_struct *work);

KERNEL_C_END
