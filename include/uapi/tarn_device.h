/* SPDX-License-Identifier: GPL-2.0-only WITH Linux-syscall-note */
/*
 * The memcheck device, /dev/tarn_memcheck, as user space drives it. Each call returns 0 or the
 * error of the memory adapter's entry behind it.
 */
#pragma once

#include <linux/ioctl.h>

#include "tarn_memcheck.h"

/* Page counts, in pages of 4 KiB. */
struct tarn_page_counts {
	uint64_t total_reserve;
	uint64_t free;
	uint64_t file;
	uint64_t anon;
	uint64_t zram;
	uint64_t zram_watermark;
};

#define TARN_DEVICE_PATH "/dev/tarn_memcheck"

/* The selected thresholds are set, or filled in. */
#define TARN_IOC_SET_THRESHOLDS _IOW('T', 1, struct memcheck_threshold)
#define TARN_IOC_GET_THRESHOLDS _IOWR('T', 2, struct memcheck_threshold)
#define TARN_IOC_COMMAND _IOW('T', 3, struct memcheck_command)
/* The argument is a struct memcheck_info with room for the text behind it. */
#define TARN_IOC_READ_STACKS _IOWR('T', 4, struct memcheck_info)
#define TARN_IOC_GET_PAGES _IOR('T', 5, struct tarn_page_counts)
/* The TH_* bits of the thresholds that memory use has passed, as a uint32_t. */
#define TARN_IOC_GET_LEAKS _IOR('T', 6, uint32_t)
/* Sends lmkd the value, a uint32_t. Fails with EIO where the channel is closed. */
#define TARN_IOC_NOTIFY_LMKD _IOW('T', 7, uint32_t)
/* Counts an event of a type, a uint32_t; types above 7 are ignored. */
#define TARN_IOC_REPORT_EVENT _IOW('T', 8, uint32_t)
