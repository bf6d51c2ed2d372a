/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/compiler.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

typedef uint8_t u8;
typedef uint16_t u16;
typedef uint32_t u32;
typedef unsigned long long u64;
typedef int32_t s32;
typedef long long s64;

/* Allocation flags, as the kernel lays them out. */
typedef unsigned int gfp_t;
/* File permissions. */
typedef unsigned short umode_t;

typedef struct {
	int counter;
} atomic_t;

typedef struct {
	long counter;
} atomic_long_t;

typedef struct {
	s64 counter;
} atomic64_t;

struct list_head {
	struct list_head *next, *prev;
};

KERNEL_C_END
#endif

/* The target uses 4 KiB pages. */
#define KERNEL_PAGE_SHIFT 12
/* Bytes of a cache line of the target's data caches. */
#define KERNEL_CACHE_LINE 64
