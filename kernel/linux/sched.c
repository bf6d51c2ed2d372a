// SPDX-License-Identifier: GPL-2.0-only
#include <linux/sched.h>

#include <kernel/sched.h>

struct task_struct *helper_current(void)
{
	return current;
}

int helper_task_pid(const struct task_struct *task)
{
	return task->pid;
}

const char *helper_task_comm(const struct task_struct *task)
{
	return task->comm;
}
