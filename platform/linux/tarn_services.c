// SPDX-License-Identifier: GPL-2.0-only
/* The memory services, each as a call of the memcheck device. */
#include <linux/dma-mapping.h>
#include <linux/errno.h>
#include <linux/mmzone.h>
#include <linux/pgtable.h>
#include <linux/pid.h>
#include <linux/rcupdate.h>
#include <linux/sched.h>
#include <linux/sched/task.h>
#include <linux/types.h>
#include <linux/uaccess.h>

#include <mem_adapter.h>
#include <uapi/tarn_device.h>

#include "tarn_client.h"

static long watermark(struct tarn_watermark __user *arg)
{
	struct tarn_watermark request;

	if (copy_from_user(&request, arg, sizeof(request)))
		return -EFAULT;
	if (request.reserved || request.zone_index >= MAX_NR_ZONES)
		return -EINVAL;
	request.ok = tarn_zone_watermark_ok(request.zone_index, request.order);
	return copy_to_user(arg, &request, sizeof(request)) ? -EFAULT : 0;
}

static long gfp_zone_of(uint32_t __user *arg)
{
	uint32_t flags;

	if (get_user(flags, arg))
		return -EFAULT;
	return put_user((uint32_t)tarn_gfp_zone((__force gfp_t)flags), arg);
}

static long reclaim(struct tarn_reclaim_request __user *arg)
{
	struct tarn_reclaim_request request;

	if (copy_from_user(&request, arg, sizeof(request)))
		return -EFAULT;
	request.pages = tarn_reclaim(request.bytes);
	return copy_to_user(arg, &request, sizeof(request)) ? -EFAULT : 0;
}

static long kill_processes(struct tarn_kill_request __user *arg)
{
	struct tarn_kill_request request;

	if (copy_from_user(&request, arg, sizeof(request)))
		return -EFAULT;
	if (request.reserved || request.swapped > 1)
		return -EINVAL;
	request.pages = tarn_direct_kill(request.swapped, request.target);
	return copy_to_user(arg, &request, sizeof(request)) ? -EFAULT : 0;
}

/* The read section keeps the process alive, and the thread until its pid has been read. */
static pid_t thread_with_mm(pid_t pid)
{
	struct task_struct *process, *thread = NULL;
	pid_t found = 0;

	rcu_read_lock();
	process = pid_task(find_vpid(pid), PIDTYPE_TGID);
	if (process)
		thread = find_task_mm(process);
	if (thread) {
		found = task_pid_vnr(thread);
		task_unlock(thread);
	}
	rcu_read_unlock();
	return found;
}

static long find_thread(int32_t __user *arg)
{
	int32_t pid;

	if (get_user(pid, arg))
		return -EFAULT;
	pid = thread_with_mm(pid);
	return pid ? put_user(pid, arg) : -ESRCH;
}

long service_ioctl(unsigned int cmd, void __user *arg)
{
	switch (cmd) {
	case TARN_IOC_WATERMARK:
		return watermark(arg);
	case TARN_IOC_GFP_ZONE:
		return gfp_zone_of(arg);
	case TARN_IOC_RECLAIM:
		return reclaim(arg);
	case TARN_IOC_DROP_SLAB:
		tarn_drop_slabcache();
		return 0;
	case TARN_IOC_DROP_PAGE_CACHE:
		tarn_drop_pagecache();
		return 0;
	case TARN_IOC_COMPACT:
		tarn_compact(0, 0, 0);
		return 0;
	case TARN_IOC_KILL:
		return kill_processes(arg);
	case TARN_IOC_FIND_TASK_MM:
		return find_thread(arg);
	case TARN_IOC_TEST_DMA:
		return test_dma_ioctl(cmd, arg);
	default:
		return test_block_ioctl(cmd, arg);
	}
}
