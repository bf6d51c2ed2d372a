// SPDX-License-Identifier: GPL-2.0-only
/* The hook for a new vmalloc area, fired when the function that creates areas returns. */
#include <linux/export.h>
#include <linux/kprobes.h>
#include <linux/ptrace.h>
#include <linux/vmalloc.h>

#include "bridge.h"
#include "hooks.h"

/*
 * A return probe runs in a breakpoint exception, whose frames alone would fill a short stack trace.
 * They are hidden: the frames look as if the function had fired the hook itself, with call_in_frame
 * in its place. Preemption is off here, as it is where a tracepoint fires.
 */
static int area_created(struct kretprobe_instance *instance, struct pt_regs *regs)
{
	struct vm_struct *area = (struct vm_struct *)regs_return_value(regs);

	if (area && trace_android_vh_save_vmalloc_stack_enabled())
		call_in_frame(__traceiter_android_vh_save_vmalloc_stack, area->flags, area,
			      frame_pointer(regs), instruction_pointer(regs));
	return 0;
}
NOKPROBE_SYMBOL(area_created);

/* Creating an area may sleep, so many tasks may be doing it at once. */
static struct kretprobe create_probe = {.handler = area_created, .maxactive = 128};

DEFINE_PROBE_SWITCH(save_vmalloc, &create_probe.kp)
DEFINE_TRACE_FN(android_vh_save_vmalloc_stack, start_save_vmalloc, stop_save_vmalloc,
		TP_PROTO(unsigned long flags, struct vm_struct *area), TP_ARGS(flags, area));
EXPORT_TRACEPOINT_SYMBOL_GPL(android_vh_save_vmalloc_stack);

struct hook save_vmalloc_stack_hook = {
	.name = "android_vh_save_vmalloc_stack",
	.source = "__get_vm_area_node",
	.kretprobe = &create_probe,
};
