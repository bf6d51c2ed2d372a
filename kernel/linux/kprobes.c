// SPDX-License-Identifier: GPL-2.0-only
#include <linux/kprobes.h>
#include <linux/ptrace.h>

#include <kernel/kprobes.h>

static_assert(__same_type(kprobe_pre_handler_t, kprobe_entry_handler *),
	      "the interface declares kprobe handlers with another type");

void helper_kprobe_init(struct kprobe *kp, const char *symbol, kprobe_entry_handler *handler)
{
	*kp = (struct kprobe){.symbol_name = symbol, .pre_handler = handler};
}

const void *helper_kprobe_addr(const struct kprobe *kp)
{
	return kp->addr;
}

unsigned long helper_regs_argument(const struct pt_regs *regs, unsigned int n)
{
	return regs_get_kernel_argument((struct pt_regs *)regs, n);
}
NOKPROBE_SYMBOL(helper_regs_argument);
