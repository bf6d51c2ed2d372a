/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

/* Code that must not be probed itself. */
#define KPROBE_TEXT __attribute__((section(".kprobes.text")))

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct pt_regs;

KERNEL_OPAQUE(kprobe, KERNEL_SIZEOF_KPROBE);

/* Returns 0 or a negative error: the symbol is unknown or may not be probed. Context: process, may
 * sleep, for both. */
int register_kprobe(struct kprobe *kp);
/* No handler runs after the return. A probe that is not registered is ignored. */
void unregister_kprobe(struct kprobe *kp);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* Makes a probe at the entry of a function. The handler runs before it with preemption disabled and
 * returns 0 to let it run. */
void helper_kprobe_init(struct kprobe *kp, const char *symbol,
			int (*pre_handler)(struct kprobe *kp, struct pt_regs *regs));
/* Where a registered probe is. */
const void *helper_kprobe_addr(const struct kprobe *kp);
/* The n-th argument, from 0, of the function at whose entry the registers were taken. */
unsigned long helper_regs_argument(const struct pt_regs *regs, unsigned int n);

KERNEL_C_END
