// SPDX-License-Identifier: GPL-2.0-only
#include <linux/workqueue.h>

#include <kernel/workqueue.h>

void helper_init_work(struct work_struct *work, void (*func)(struct work_struct *work))
{
	INIT_WORK(work, func);
}

bool helper_queue_work(struct workqueue_struct *wq, struct work_struct *work)
{
	return queue_work(wq, work);
}
