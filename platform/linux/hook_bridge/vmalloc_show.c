// SPDX-License-Identifier: GPL-2.0-only
/*
 * The hook in the listing of vmalloc areas. The kernel prints each area's line in pieces, under the
 * lock that keeps the area alive: the first piece is the address range, the last the newline. Both
 * are caught in the seq_file functions by checking the caller.
 */
#include <linux/export.h>
#include <linux/kprobes.h>
#include <linux/percpu.h>
#include <linux/ptrace.h>
#include <linux/seq_file.h>
#include <linux/uaccess.h>
#include <linux/vmalloc.h>

#include "bridge.h"
#include "hooks.h"

static int on_seq_printf(struct kprobe *probe, struct pt_regs *regs);
static int on_seq_putc(struct kprobe *probe, struct pt_regs *regs);

static struct kprobe printf_probe = {.pre_handler = on_seq_printf};
static struct kprobe putc_probe = {.pre_handler = on_seq_putc};

static int start(void)
{
	int err = probe_start(&printf_probe);

	if (err)
		return err;
	err = probe_start(&putc_probe);
	if (err)
		probe_stop(&printf_probe);
	return err;
}

static void stop(void)
{
	probe_stop(&putc_probe);
	probe_stop(&printf_probe);
}

DEFINE_TRACE_FN(android_vh_show_stack_hash, start, stop,
		TP_PROTO(struct seq_file *m, struct vm_struct *area), TP_ARGS(m, area));
EXPORT_TRACEPOINT_SYMBOL_GPL(android_vh_show_stack_hash);

static unsigned long listing_start;
static unsigned long listing_size;

/* The line being printed. Meanwhile the listing holds a spinlock and stays on its CPU. */
struct line {
	struct seq_file *m;
	struct vm_struct *area;
};
static DEFINE_PER_CPU(struct line, current_line);

static bool from_listing(const struct pt_regs *regs)
{
	return procedure_link_pointer(regs) - listing_start < listing_size;
}

static bool is_area(unsigned long candidate, unsigned long address, unsigned long size)
{
	const struct vm_struct *area = (const struct vm_struct *)candidate;
	void *area_address;
	unsigned long area_size;

	return IS_ALIGNED(candidate, sizeof(void *)) &&
	       !get_kernel_nofault(area_address, &area->addr) &&
	       !get_kernel_nofault(area_size, &area->size) &&
	       (unsigned long)area_address == address && area_size == size;
}

/*
 * Returns the area whose start, end and size are the arguments of this call, or null. The listing
 * still needs the area after the call, so it keeps the pointer in a callee-saved register. A
 * register that points to memory starting like the printed area cannot be anything else.
 */
static struct vm_struct *printed_area(const struct pt_regs *regs)
{
	const unsigned long address = regs->regs[2];
	const unsigned long size = regs->regs[4];

	if (regs->regs[3] - address != size)
		return NULL;
	for (unsigned int i = 19; i <= 28; i++)
		if (is_area(regs->regs[i], address, size))
			return (struct vm_struct *)regs->regs[i];
	return NULL;
}

static int on_seq_printf(struct kprobe *probe, struct pt_regs *regs)
{
	struct vm_struct *area;

	if (!from_listing(regs))
		return 0;
	area = printed_area(regs);
	if (area) {
		const struct line line = {(struct seq_file *)regs->regs[0], area};

		__this_cpu_write(current_line.m, line.m);
		__this_cpu_write(current_line.area, line.area);
	}
	return 0;
}
NOKPROBE_SYMBOL(on_seq_printf);

static int on_seq_putc(struct kprobe *probe, struct pt_regs *regs)
{
	struct seq_file *m = (struct seq_file *)regs->regs[0];
	struct line *line = this_cpu_ptr(&current_line);

	if (!from_listing(regs) || (char)regs->regs[1] != '\n' || !line->area || line->m != m)
		return 0;
	trace_android_vh_show_stack_hash(m, line->area);
	line->area = NULL;
	return 0;
}
NOKPROBE_SYMBOL(on_seq_putc);

static int arm(void)
{
	int err;

	listing_start = symbol_address("vmalloc_info_show");
	listing_size = symbol_size(listing_start);
	if (!listing_size)
		return -ENOENT;
	err = probe_add(&printf_probe, "seq_printf");
	if (err)
		return err;
	err = probe_add(&putc_probe, "seq_putc");
	if (err)
		probe_remove(&printf_probe);
	return err;
}

static void disarm(void)
{
	probe_remove(&putc_probe);
	probe_remove(&printf_probe);
}

struct hook show_stack_hash_hook = {
	.name = "android_vh_show_stack_hash",
	.source = "vmalloc_info_show",
	.arm = arm,
	.disarm = disarm,
};
