/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/sched.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

/* Creates a thread that does not run until wake_up_process. Node -1 means any. Returns an error
 * pointer on failure. Context: process, may sleep. */
struct task_struct *kthread_create_on_node(int (*threadfn)(void *data), void *data, int node,
					   const char *namefmt, ...);
bool kthread_should_stop(void);
/* Asks the thread to stop, wakes it, waits until it exits and returns its result. May sleep. */
int kthread_stop(struct task_struct *task);

KERNEL_C_END
#endif
