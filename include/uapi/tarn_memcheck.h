/* SPDX-License-Identifier: GPL-2.0-only WITH Linux-syscall-note */
/* Records that user space passes through the memcheck device, in host byte order. */
#pragma once

#if defined(TARN_MODULE)
#include <kernel/types.h>
#elif defined(__KERNEL__)
#include <linux/types.h>
#else
#include <stdint.h>
#endif

#ifdef __cplusplus
#define MEMCHECK_LAYOUT(condition) static_assert(condition)
#else
#define MEMCHECK_LAYOUT(condition) _Static_assert(condition, #condition)
#endif

/* Memory types, one bit each. */
#define MEMTYPE_SLUB 2u
#define MEMTYPE_VMALLOC 4u

/* Commands of memcheck_command. */
#define MEMCHECK_CMD_PREPARE 0u /* choose the target */
#define MEMCHECK_CMD_ON 1u
#define MEMCHECK_CMD_OFF 2u

/* Thresholds, one bit each. They select fields of memcheck_threshold. */
#define TH_SLAB_K 1u
#define TH_VMALLOC_K 2u
#define TH_SLAB_LEAK_K 4u
#define TH_VMALLOC_LEAK_K 8u

/* The largest payload that a readout accepts, in bytes. */
#define MEMCHECK_MAX_SIZE 5242880u

/* Thresholds to set, or the ones read, in KiB. */
struct memcheck_threshold {
	uint32_t mask; /* TH_* bits; others are ignored */
	uint32_t slab_k;
	uint32_t vmalloc_k;
	uint32_t slab_leak_k;
	uint32_t vmalloc_leak_k;
};
MEMCHECK_LAYOUT(sizeof(struct memcheck_threshold) == 20);

struct memcheck_command {
	uint32_t reserved0;
	uint32_t memtype; /* MEMTYPE_* */
	uint32_t reserved1[2];
	uint32_t cmd; /* MEMCHECK_CMD_* */
	uint32_t reserved2;
};
MEMCHECK_LAYOUT(sizeof(struct memcheck_command) == 24);
MEMCHECK_LAYOUT(__builtin_offsetof(struct memcheck_command, memtype) == 4);
MEMCHECK_LAYOUT(__builtin_offsetof(struct memcheck_command, cmd) == 16);

/* The header before the payload of a readout. */
struct memcheck_info {
	uint32_t type; /* MEMTYPE_* */
	uint32_t reserved0;
	uint64_t size; /* in: room for the text; out: bytes of text, which has no NUL */
};
MEMCHECK_LAYOUT(sizeof(struct memcheck_info) == 16);
MEMCHECK_LAYOUT(__builtin_offsetof(struct memcheck_info, size) == 8);

#undef MEMCHECK_LAYOUT
