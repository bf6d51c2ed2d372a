/* SPDX-License-Identifier: GPL-2.0-only WITH Linux-syscall-note */
/*
 * The interface of the memcheck device, /dev/tarn_memcheck. Each call returns 0 or the error of the
 * memory adapter's function behind it.
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

/* Set or get the selected thresholds. */
#define TARN_IOC_SET_THRESHOLDS _IOW('T', 1, struct memcheck_threshold)
#define TARN_IOC_GET_THRESHOLDS _IOWR('T', 2, struct memcheck_threshold)
#define TARN_IOC_COMMAND _IOW('T', 3, struct memcheck_command)
/* The argument is a struct memcheck_info followed by room for the text. */
#define TARN_IOC_READ_STACKS _IOWR('T', 4, struct memcheck_info)
#define TARN_IOC_GET_PAGES _IOR('T', 5, struct tarn_page_counts)
/* The TH_* bits of the exceeded thresholds, as a uint32_t. */
#define TARN_IOC_GET_LEAKS _IOR('T', 6, uint32_t)
/* Sends a value, a uint32_t, to lmkd. Fails with EIO if the channel is closed. */
#define TARN_IOC_NOTIFY_LMKD _IOW('T', 7, uint32_t)
/* Counts an event of the given type, a uint32_t; types above 7 are ignored. */
#define TARN_IOC_REPORT_EVENT _IOW('T', 8, uint32_t)

/* Memory services. Reserved members must be 0, or the call fails with EINVAL. */

struct tarn_watermark {
	int32_t zone_index; /* less than the number of zones; negative for none */
	uint32_t order;
	uint32_t ok; /* out: 1 or 0 */
	uint32_t reserved;
};

struct tarn_reclaim_request {
	uint64_t bytes;
	uint64_t pages; /* out: pages reclaimed */
};

struct tarn_kill_request {
	uint32_t swapped; /* 1: measure a process by its swapped pages; 0: by its resident ones */
	uint32_t reserved;
	uint64_t target; /* pages */
	uint64_t pages;	 /* out: total pages of the victims */
};

/* Whether the zones up to an index have room for a block of 2^order pages. */
#define TARN_IOC_WATERMARK _IOWR('T', 9, struct tarn_watermark)
/* In: allocation flags; out: the index of their zone. */
#define TARN_IOC_GFP_ZONE _IOWR('T', 10, uint32_t)
#define TARN_IOC_RECLAIM _IOWR('T', 11, struct tarn_reclaim_request)
#define TARN_IOC_DROP_SLAB _IO('T', 12)
#define TARN_IOC_DROP_PAGE_CACHE _IO('T', 13)
#define TARN_IOC_COMPACT _IO('T', 14)
/* Kills processes whose oom_score_adj is 600 or more. */
#define TARN_IOC_KILL _IOWR('T', 15, struct tarn_kill_request)
/* In: a pid; out: the first thread of that process that still has its memory. Fails with ESRCH if
 * there is none. */
#define TARN_IOC_FIND_TASK_MM _IOWR('T', 16, int32_t)

/*
 * For tests only: these calls reveal kernel addresses and remap kernel memory. They only touch the
 * client's own 4 MiB block, which is allocated at the first of these calls and freed as ordinary
 * memory when the client is unloaded, and an area that the kernel leaves alone.
 */

#define TARN_TEST_BLOCK_PAGES 1024
/* The pages behind the block's are those of the device tree's area "secure", which the kernel does
 * not map. */
#define TARN_TEST_UNMAPPED_PAGES 512

struct tarn_test_block {
	uint64_t address; /* in the kernel's linear map */
	uint64_t physical;
};

enum tarn_test_access {
	TARN_TEST_ORDINARY,
	TARN_TEST_READ_ONLY,
	TARN_TEST_NONE,
};

/* Maps pages of the block, by number, to the frames of the pages from target on. */
struct tarn_test_range {
	uint32_t first;
	uint32_t pages;
	uint32_t target;
	uint32_t access; /* enum tarn_test_access */
};

/* The first word of a page of the block; initially the page's number. */
struct tarn_test_word {
	uint32_t page;
	uint32_t reserved;
	uint64_t value;
};

/* A scatter table over pages of the block, with one page between entries. Without entries there is
 * no table. */
struct tarn_test_flags {
	uint32_t entries;
	uint32_t entry_bytes; /* at least 1 */
	uint32_t set;	      /* 1 or 0 */
	uint32_t flagged;     /* out: pages of the block that then have the flag */
};

struct tarn_test_dma {
	int32_t dmabuf;	  /* a descriptor */
	uint32_t iommu;	  /* 1: set the device's IOMMU pointer for the call */
	uint64_t attrs;	  /* 0, or 0x20 to skip cache maintenance */
	int32_t result;	  /* out: result of the mapping */
	uint32_t entries; /* out: entries in the buffer's table */
	uint64_t bytes;	  /* out: bytes mapped */
	uint32_t same;	  /* out: 1 if the addresses equal the heap's own mapping */
	uint32_t reserved;
};

#define TARN_IOC_TEST_BLOCK _IOR('T', 64, struct tarn_test_block)
#define TARN_IOC_TEST_RANGE _IOW('T', 65, struct tarn_test_range)
/* Fails with EFAULT if the page's mapping does not allow the access. */
#define TARN_IOC_TEST_READ _IOWR('T', 66, struct tarn_test_word)
#define TARN_IOC_TEST_WRITE _IOW('T', 67, struct tarn_test_word)
#define TARN_IOC_TEST_PAGE_FLAGS _IOWR('T', 68, struct tarn_test_flags)
/* Maps a buffer for a device of the client, then unmaps it. */
#define TARN_IOC_TEST_DMA _IOWR('T', 69, struct tarn_test_dma)
