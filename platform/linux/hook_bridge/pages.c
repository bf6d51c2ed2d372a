// SPDX-License-Identifier: GPL-2.0-only
/* Hooks of single pages: allocation flags and map counts. Both are hot paths and run in atomic
 * context. */
#include <linux/errno.h>
#include <linux/export.h>
#include <linux/gfp.h>
#include <linux/kernel.h>
#include <linux/kprobes.h>
#include <linux/mm_types.h>
#include <linux/ptrace.h>

#include "bridge.h"
#include "hooks.h"

/* Allocation flags. */

static int on_alloc_pages(struct kprobe *probe, struct pt_regs *regs)
{
	gfp_t gfp_mask = (__force gfp_t)regs->regs[0];

	trace_android_vh_customize_alloc_gfp(&gfp_mask, regs->regs[1]);
	regs->regs[0] = (__force unsigned int)gfp_mask;
	return 0;
}
NOKPROBE_SYMBOL(on_alloc_pages);

static struct kprobe alloc_probe = {.pre_handler = on_alloc_pages};

DEFINE_PROBE_SWITCH(alloc_gfp, &alloc_probe)
DEFINE_TRACE_FN(android_vh_customize_alloc_gfp, start_alloc_gfp, stop_alloc_gfp,
		TP_PROTO(gfp_t *gfp_mask, unsigned int order), TP_ARGS(gfp_mask, order));
EXPORT_TRACEPOINT_SYMBOL_GPL(android_vh_customize_alloc_gfp);

static int arm_alloc_gfp(void)
{
	int err = probe_add(&alloc_probe, "__alloc_pages_noprof");

	/* The function's name before the kernel had allocation profiling. */
	return err == -ENOENT ? probe_add(&alloc_probe, "__alloc_pages") : err;
}

struct hook alloc_gfp_hook = {
	.name = "android_vh_customize_alloc_gfp",
	.source = "__alloc_pages_noprof",
	.kprobe = &alloc_probe,
	.arm = arm_alloc_gfp,
};

/*
 * Map counts: the functions with arguments (folio, page, count) for ptes and (folio, page) for a
 * pmd. Fork changes the counts in inlined code, which is not seen.
 */

static int on_rmap(struct kprobe *probe, struct pt_regs *regs);

static struct rmap_probe {
	struct kprobe probe;
	const char *function;
	bool inc_size;
	bool compound;
} rmap_probes[] = {
	{{.pre_handler = on_rmap}, "folio_add_anon_rmap_ptes", true, false},
	{{.pre_handler = on_rmap}, "folio_add_anon_rmap_pmd", true, true},
	{{.pre_handler = on_rmap}, "folio_add_file_rmap_ptes", true, false},
	{{.pre_handler = on_rmap}, "folio_add_file_rmap_pmd", true, true},
	{{.pre_handler = on_rmap}, "folio_remove_rmap_ptes", false, false},
	{{.pre_handler = on_rmap}, "folio_remove_rmap_pmd", false, true},
};

static void stop_mapcount(void)
{
	for (size_t i = 0; i < ARRAY_SIZE(rmap_probes); i++)
		probe_stop(&rmap_probes[i].probe);
}

static int start_mapcount(void)
{
	int err = 0;

	for (size_t i = 0; !err && i < ARRAY_SIZE(rmap_probes); i++)
		err = probe_start(&rmap_probes[i].probe);
	if (err)
		stop_mapcount();
	return err;
}

DEFINE_TRACE_FN(android_vh_update_page_mapcount, start_mapcount, stop_mapcount,
		TP_PROTO(struct page *page, bool inc_size, bool compound, int *first_mapping,
			 bool *success),
		TP_ARGS(page, inc_size, compound, first_mapping, success));
EXPORT_TRACEPOINT_SYMBOL_GPL(android_vh_update_page_mapcount);

static int on_rmap(struct kprobe *probe, struct pt_regs *regs)
{
	const struct rmap_probe *rmap = container_of(probe, struct rmap_probe, probe);
	struct page *page = (struct page *)regs->regs[1];
	const int count = rmap->compound ? 1 : (int)regs->regs[2];

	for (int i = 0; i < count; i++) {
		int first_mapping = 0;
		bool success = false;

		trace_android_vh_update_page_mapcount(page + i, rmap->inc_size, rmap->compound,
						      &first_mapping, &success);
	}
	return 0;
}
NOKPROBE_SYMBOL(on_rmap);

static void disarm_mapcount(void)
{
	for (size_t i = 0; i < ARRAY_SIZE(rmap_probes); i++)
		probe_remove(&rmap_probes[i].probe);
}

/* All of them or none: counting only additions would be misleading. */
static int arm_mapcount(void)
{
	int err = 0;

	for (size_t i = 0; !err && i < ARRAY_SIZE(rmap_probes); i++)
		err = probe_add(&rmap_probes[i].probe, rmap_probes[i].function);
	if (err)
		disarm_mapcount();
	return err;
}

struct hook page_mapcount_hook = {
	.name = "android_vh_update_page_mapcount",
	.source = "folio rmap functions",
	.arm = arm_mapcount,
	.disarm = disarm_mapcount,
};
