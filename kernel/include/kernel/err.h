/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

#define ENOENT 2
#define ENOMEM 12
#define EFAULT 14
#define EEXIST 17
#define EINVAL 22

#define MAX_ERRNO 4095

/* Kernel functions that return a pointer report an error as one of the top MAX_ERRNO addresses. */
static inline bool IS_ERR(const void *ptr)
{
	return (uintptr_t)ptr >= (uintptr_t)-MAX_ERRNO;
}

static inline bool IS_ERR_OR_NULL(const void *ptr)
{
	return !ptr || IS_ERR(ptr);
}

static inline void *ERR_PTR(long error)
{
	return (void *)error;
}

KERNEL_C_END
#endif
