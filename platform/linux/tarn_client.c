// SPDX-License-Identifier: GPL-2.0-only
/*
 * Owns the memcheck device. On load it starts the memory adapter's optional subsystems, on unload
 * it stops them, and in between it forwards user space's calls to them.
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/dma-mapping.h>
#include <linux/errno.h>
#include <linux/fs.h>
#include <linux/miscdevice.h>
#include <linux/mmzone.h>
#include <linux/module.h>
#include <linux/pgtable.h>
#include <linux/printk.h>
#include <linux/sched.h>
#include <linux/types.h>
#include <linux/uaccess.h>

#include <mem_adapter.h>
#include <uapi/tarn_device.h>

#include "tarn_client.h"

static long get_pages(void __user *arg)
{
	const struct tarn_page_counts counts = {
		.total_reserve = tarn_get_totalreserve_pages(),
		.free = tarn_get_free_page(),
		.file = tarn_get_file_page(),
		.anon = tarn_get_anon_page(),
		.zram = tarn_get_zram_page(),
		.zram_watermark = tarn_cpa_get_zram_watermark_page(),
	};

	return copy_to_user(arg, &counts, sizeof(counts)) ? -EFAULT : 0;
}

static long get_leaks(uint32_t __user *arg)
{
	uint32_t leaks = 0;

	if (tarn_should_dump_unreclaim_slab())
		leaks |= TH_SLAB_K;
	if (tarn_should_dump_vmalloc())
		leaks |= TH_VMALLOC_K;
	if (tarn_should_detect_slab_leak())
		leaks |= TH_SLAB_LEAK_K;
	if (tarn_should_detect_vmalloc_leak())
		leaks |= TH_VMALLOC_LEAK_K;
	return put_user(leaks, arg);
}

static long notify_lmkd(const uint32_t __user *arg)
{
	uint32_t value;

	if (get_user(value, arg))
		return -EFAULT;
	return lmkd_notify(value) ? -EIO : 0;
}

static long report_event(const uint32_t __user *arg)
{
	uint32_t type;

	if (get_user(type, arg))
		return -EFAULT;
	tarn_memory_event_report(type);
	return 0;
}

static long device_ioctl(struct file *file, unsigned int cmd, unsigned long value)
{
	void __user *arg = (void __user *)value;
	/* The adapter's entries take user addresses as plain pointers. */
	void *user_arg = (__force void *)arg;

	switch (cmd) {
	case TARN_IOC_SET_THRESHOLDS:
		return tarn_process_set_th(user_arg);
	case TARN_IOC_GET_THRESHOLDS:
		return tarn_process_get_val(user_arg);
	case TARN_IOC_COMMAND:
		return tarn_process_leak_detect(user_arg);
	case TARN_IOC_READ_STACKS:
		return tarn_process_leak_read(user_arg);
	case TARN_IOC_GET_PAGES:
		return get_pages(arg);
	case TARN_IOC_GET_LEAKS:
		return get_leaks(arg);
	case TARN_IOC_NOTIFY_LMKD:
		return notify_lmkd(arg);
	case TARN_IOC_REPORT_EVENT:
		return report_event(arg);
	default:
		return service_ioctl(cmd, arg);
	}
}

static const struct file_operations device_fops = {
	.owner = THIS_MODULE,
	.unlocked_ioctl = device_ioctl,
	.compat_ioctl = compat_ptr_ioctl,
};

static struct miscdevice device = {
	.minor = MISC_DYNAMIC_MINOR,
	.name = "tarn_memcheck",
	.fops = &device_fops,
	.mode = 0600,
};

/* A subsystem that fails to start is left out: the others are useful without it. */
static void start_adapter(void)
{
	int err = tarn_memory_netlink_init();

	if (err)
		pr_err("cannot start the lmkd channel: error %d\n", err);
	err = tarn_meminfo_parameter_init();
	if (err)
		pr_err("cannot set the leak thresholds: error %d\n", err);
	err = tarn_memtrack_init();
	if (err)
		pr_err("cannot start memory tracking: error %d\n", err);
}

static void stop_adapter(void)
{
	tarn_memtrack_exit();
	tarn_meminfo_parameter_exit();
	tarn_memory_netlink_exit();
}

static int __init tarn_client_init(void)
{
	int err;

	start_adapter();
	err = misc_register(&device);
	if (err) {
		pr_err("cannot register the device: error %d\n", err);
		stop_adapter();
		return err;
	}
	pr_info("%s is ready\n", TARN_DEVICE_PATH);
	return 0;
}

static void __exit tarn_client_exit(void)
{
	misc_deregister(&device);
	test_dma_exit();
	test_block_exit();
	stop_adapter();
}

module_init(tarn_client_init);
module_exit(tarn_client_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Memcheck device");
