/* SPDX-License-Identifier: GPL-2.0-only */
/* The parts that handle the memcheck device's calls. Each returns -ENOTTY for a call that it does
 * not handle. */
#pragma once

#include <linux/compiler.h>
#include <linux/errno.h>

long service_ioctl(unsigned int cmd, void __user *arg);
long test_block_ioctl(unsigned int cmd, void __user *arg);

/* Release what the test calls have allocated. */
void test_block_exit(void);

#ifdef CONFIG_DMA_SHARED_BUFFER
long test_dma_ioctl(unsigned int cmd, void __user *arg);
void test_dma_exit(void);
#else
static inline long test_dma_ioctl(unsigned int cmd, void __user *arg)
{
	return -ENOTTY;
}

static inline void test_dma_exit(void) {}
#endif
