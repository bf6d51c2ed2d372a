/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

/* Size of a task's name in bytes, including the NUL. */
#define TASK_COMM_LEN 16
#define TASK_INTERRUPTIBLE 1
#define TASK_NORMAL 3

struct task_struct;

/* Sleeps until the task is woken, if its state says so. May sleep. */
void schedule(void);
/* Makes a sleeping task runnable. Returns 1 if it was asleep. Context: any. */
int wake_up_process(struct task_struct *task);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

struct task_struct *helper_current(void);
int helper_task_pid(const struct task_struct *task);
/* The task's comm array: TASK_COMM_LEN bytes. */
const char *helper_task_comm(const struct task_struct *task);

KERNEL_C_END
