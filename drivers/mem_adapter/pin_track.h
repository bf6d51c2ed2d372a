// SPDX-License-Identifier: GPL-2.0-only
// Reports who pins pages of CMA pageblocks.
#pragma once

#include <kernel/kprobes.h>
#include <kernel/mm.h>

KERNEL_C_BEGIN

// The handlers of the probes at the kernel's pinning functions: they look and let the function run.
// Context: kprobe; lock-free, never sleep.
int folio_add_pin_handler_pre(struct kprobe *kp, struct pt_regs *regs);
int try_grab_page_handler_pre(struct kprobe *kp, struct pt_regs *regs);
int try_grab_folio_handler_pre(struct kprobe *kp, struct pt_regs *regs);

KERNEL_C_END
