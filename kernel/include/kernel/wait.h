/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/lockdep.h>
#include <kernel/sched.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

KERNEL_OPAQUE(wait_queue_head, KERNEL_SIZEOF_WAIT_QUEUE_HEAD);
KERNEL_OPAQUE(wait_queue_entry, KERNEL_SIZEOF_WAIT_QUEUE_ENTRY);

void __init_waitqueue_head(struct wait_queue_head *wq_head, const char *name,
			   struct lock_class_key *key);
/* Queues the current task and sets its state, so that the next schedule() sleeps. Context:
 * process. */
void prepare_to_wait(struct wait_queue_head *wq_head, struct wait_queue_entry *wq_entry, int state);
void finish_wait(struct wait_queue_head *wq_head, struct wait_queue_entry *wq_entry);
/* Wakes waiting tasks whose state is in mode, at most nr_exclusive exclusive ones. Context: any. */
int __wake_up(struct wait_queue_head *wq_head, unsigned int mode, int nr_exclusive, void *key);

/* Whether a task waits, without the queue's lock: the answer may miss a task that is just queueing
 * itself. Read in place, since a recorder asks at every event. Context: any. */
static inline bool helper_waitqueue_active(const struct wait_queue_head *wq_head)
{
	const struct list_head *entries =
		&KERNEL_FIELD(struct list_head, wq_head, KERNEL_WAIT_QUEUE_ENTRIES);

	return READ_ONCE(entries->next) != entries;
}

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* Makes an entry for the current task that leaves the queue when the task is woken. */
void helper_init_wait(struct wait_queue_entry *wq_entry);

KERNEL_C_END
