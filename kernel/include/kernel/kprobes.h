/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

/* For code that must not be probed. */
#define KPROBE_TEXT __attribute__((section(".kprobes.text")))

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct pt_regs;

KERNEL_OPAQUE(kprobe, KERNEL_SIZEOF_KPROBE);

/* Returns 0, or a negative error if the symbol is unknown or may not be probed. Context for both
 * functions: process, may sleep. */
int register_kprobe(struct kprobe *kp);
/* Once this returns, no handler is running. A probe that is not registered is ignored. */
void unregister_kprobe(struct kprobe *kp);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* Runs at the entry of a function with preemption disabled. Returns 0 to let the function run. */
typedef int kprobe_entry_handler(struct kprobe *kp, struct pt_regs *regs);

/* Prepares a probe at the entry of a function. The handler runs before the function with preemption
 * disabled; it returns 0 to let the function run. */
void helper_kprobe_init(struct kprobe *kp, const char *symbol, kprobe_entry_handler *handler);
/* The address of a registered probe. */
const void *helper_kprobe_addr(const struct kprobe *kp);
/* The n-th argument (from 0) of the probed function; the registers were captured at its entry. */
unsigned long helper_regs_argument(const struct pt_regs *regs, unsigned int n);

KERNEL_C_END
