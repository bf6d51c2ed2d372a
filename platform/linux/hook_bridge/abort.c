// SPDX-License-Identifier: GPL-2.0-only
/* Hooks that ask whether to continue. If a probe says no, the asking function returns at once. */
#include <linux/errno.h>
#include <linux/export.h>
#include <linux/kprobes.h>
#include <linux/mm_types.h>
#include <linux/pagewalk.h>
#include <linux/ptrace.h>
#include <linux/sched.h>
/* Needs the headers above. */
#include <linux/compaction.h>

#include "bridge.h"
#include "hooks.h"

/* Makes the probed function return a value instead of running. The handler returns this function's
 * result. The branch type left by a call through a pointer goes: only a landing pad takes one, and
 * a return address has none. */
static int return_early(struct pt_regs *regs, long value)
{
	regs->regs[0] = value;
	regs->pstate &= ~PSR_BTYPE_MASK;
	instruction_pointer_set(regs, procedure_link_pointer(regs));
	return 1;
}
NOKPROBE_SYMBOL(return_early);

/* Madvise: the walk over a range stops at its next step, as it would for a fatal signal. */

static int on_madvise(struct kprobe *probe, struct pt_regs *regs)
{
	const struct mm_walk *walk = (const struct mm_walk *)regs->regs[3];
	bool abort = false;

	trace_android_vh_madvise_cold_or_pageout_abort(walk->vma, &abort);
	return abort ? return_early(regs, -EINTR) : 0;
}
NOKPROBE_SYMBOL(on_madvise);

static struct kprobe madvise_probe = {.pre_handler = on_madvise};

DEFINE_PROBE_SWITCH(madvise, &madvise_probe)
DEFINE_TRACE_FN(android_vh_madvise_cold_or_pageout_abort, start_madvise, stop_madvise,
		TP_PROTO(struct vm_area_struct *vma, bool *abort), TP_ARGS(vma, abort));
EXPORT_TRACEPOINT_SYMBOL_GPL(android_vh_madvise_cold_or_pageout_abort);

struct hook madvise_abort_hook = {
	.name = "android_vh_madvise_cold_or_pageout_abort",
	.source = "madvise_cold_or_pageout_pte_range",
	.kprobe = &madvise_probe,
};

/* Compaction asks after each block whether it has finished. */

static int on_compact(struct kprobe *probe, struct pt_regs *regs)
{
	bool abort = false;

	trace_android_vh_compact_finished(&abort);
	return abort ? return_early(regs, COMPACT_CONTENDED) : 0;
}
NOKPROBE_SYMBOL(on_compact);

static struct kprobe compact_probe = {.pre_handler = on_compact};

DEFINE_PROBE_SWITCH(compact, &compact_probe)
DEFINE_TRACE_FN(android_vh_compact_finished, start_compact, stop_compact, TP_PROTO(bool *abort),
		TP_ARGS(abort));
EXPORT_TRACEPOINT_SYMBOL_GPL(android_vh_compact_finished);

struct hook compact_abort_hook = {
	.name = "android_vh_compact_finished",
	.source = "__compact_finished",
	.kprobe = &compact_probe,
};
