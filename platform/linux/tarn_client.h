/* SPDX-License-Identifier: GPL-2.0-only */
/* The parts of the memcheck device's calls. Each returns -ENOTTY for a call that is not its own. */
#pragma once

#include <linux/compiler.h>
#include <linux/errno.h>

long service_ioctl(unsigned int cmd, void __user *arg);
long test_block_ioctl(unsigned int cmd, void __user *arg);

/* They give back what the test calls have taken. */
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
