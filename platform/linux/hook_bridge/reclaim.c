// SPDX-License-Identifier: GPL-2.0-only
/* Hooks of page reclaim and of the allocator's slow path. */
#include <linux/export.h>
#include <linux/jiffies.h>
#include <linux/kprobes.h>
#include <linux/mmzone.h>
#include <linux/ptrace.h>
#include <linux/string.h>
#include <trace/events/vmscan.h>

#include "bridge.h"
#include "hooks.h"

/* Background reclaim. */

struct balance_call {
	int node;
	unsigned int alloc_order;
	unsigned int highest_zone;
};

static int balance_entered(struct kretprobe_instance *instance, struct pt_regs *regs)
{
	struct balance_call *call = (struct balance_call *)instance->data;
	const pg_data_t *node = (const pg_data_t *)regs->regs[0];

	call->node = node->node_id;
	call->alloc_order = regs->regs[1];
	call->highest_zone = regs->regs[2];
	return 0;
}
NOKPROBE_SYMBOL(balance_entered);

static int balance_done(struct kretprobe_instance *instance, struct pt_regs *regs)
{
	const struct balance_call *call = (const struct balance_call *)instance->data;

	trace_android_vh_vmscan_kswapd_done(call->node, call->highest_zone, call->alloc_order,
					    regs_return_value(regs));
	return 0;
}
NOKPROBE_SYMBOL(balance_done);

static struct kretprobe balance_probe = {
	.entry_handler = balance_entered,
	.handler = balance_done,
	.data_size = sizeof(struct balance_call),
};

DEFINE_PROBE_SWITCH(kswapd_done, &balance_probe.kp)
DEFINE_TRACE_FN(android_vh_vmscan_kswapd_done, start_kswapd_done, stop_kswapd_done,
		TP_PROTO(int node, unsigned int highest_zone, unsigned int alloc_order,
			 unsigned int reclaim_order),
		TP_ARGS(node, highest_zone, alloc_order, reclaim_order));
EXPORT_TRACEPOINT_SYMBOL_GPL(android_vh_vmscan_kswapd_done);

struct hook kswapd_done_hook = {
	.name = "android_vh_vmscan_kswapd_done",
	.source = "balance_pgdat",
	.kretprobe = &balance_probe,
};

/* Slow allocations. */

struct slow_call {
	gfp_t gfp_mask;
	unsigned int order;
	unsigned long start;
};

static int slowpath_entered(struct kretprobe_instance *instance, struct pt_regs *regs)
{
	struct slow_call *call = (struct slow_call *)instance->data;

	call->gfp_mask = (__force gfp_t)regs->regs[0];
	call->order = regs->regs[1];
	call->start = jiffies;
	return 0;
}
NOKPROBE_SYMBOL(slowpath_entered);

static int slowpath_done(struct kretprobe_instance *instance, struct pt_regs *regs)
{
	const struct slow_call *call = (const struct slow_call *)instance->data;

	trace_android_vh_alloc_pages_slowpath(call->gfp_mask, call->order, call->start);
	return 0;
}
NOKPROBE_SYMBOL(slowpath_done);

/* Under memory pressure every task of the machine may be in the slow path. */
static struct kretprobe slowpath_probe = {
	.entry_handler = slowpath_entered,
	.handler = slowpath_done,
	.data_size = sizeof(struct slow_call),
	.maxactive = 512,
};

DEFINE_PROBE_SWITCH(slowpath, &slowpath_probe.kp)
DEFINE_TRACE_FN(android_vh_alloc_pages_slowpath, start_slowpath, stop_slowpath,
		TP_PROTO(gfp_t gfp_mask, unsigned int order, unsigned long start),
		TP_ARGS(gfp_mask, order, start));
EXPORT_TRACEPOINT_SYMBOL_GPL(android_vh_alloc_pages_slowpath);

struct hook alloc_slowpath_hook = {
	.name = "android_vh_alloc_pages_slowpath",
	.source = "__alloc_pages_slowpath",
	.kretprobe = &slowpath_probe,
};

/* Direct reclaim. */

DEFINE_TRACE(android_vh_mm_direct_reclaim_enter, TP_PROTO(unsigned int order), TP_ARGS(order));
EXPORT_TRACEPOINT_SYMBOL_GPL(android_vh_mm_direct_reclaim_enter);

/* Not exported, so it must be searched for among all tracepoints. */
static struct tracepoint *direct_reclaim_begin;

static void on_direct_reclaim(void *data, int order, gfp_t gfp_flags)
{
	trace_android_vh_mm_direct_reclaim_enter(order);
}

static void match_direct_reclaim(struct tracepoint *tp, void *data)
{
	if (!strcmp(tp->name, "mm_vmscan_direct_reclaim_begin"))
		direct_reclaim_begin = tp;
}

static int arm_direct_reclaim(void)
{
	check_trace_callback_type_mm_vmscan_direct_reclaim_begin(on_direct_reclaim);
	for_each_kernel_tracepoint(match_direct_reclaim, NULL);
	if (!direct_reclaim_begin)
		return -ENOENT;
	return tracepoint_probe_register(direct_reclaim_begin, on_direct_reclaim, NULL);
}

static void disarm_direct_reclaim(void)
{
	tracepoint_probe_unregister(direct_reclaim_begin, on_direct_reclaim, NULL);
}

struct hook direct_reclaim_hook = {
	.name = "android_vh_mm_direct_reclaim_enter",
	.source = "tracepoint mm_vmscan_direct_reclaim_begin",
	.arm = arm_direct_reclaim,
	.disarm = disarm_direct_reclaim,
};
