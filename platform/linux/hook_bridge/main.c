// SPDX-License-Identifier: GPL-2.0-only
/* Fires the vendor hooks from the tracepoints and functions of a kernel that lacks them. */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/err.h>
#include <linux/init.h>
#include <linux/module.h>
#include <linux/printk.h>
#include <linux/tracepoint.h>

#include <kernel/vendor_hooks.h>

#include "bridge.h"
#include "hooks.h"

KERNEL_VENDOR_HOOKS(KERNEL_CHECK_PROBE_TYPE)

static struct hook *const hooks[] = {
	&slab_alloc_hook,  &slab_free_hook,	 &save_vmalloc_stack_hook, &show_stack_hash_hook,
	&kswapd_done_hook, &alloc_slowpath_hook, &direct_reclaim_hook,	   &page_mapcount_hook,
	&alloc_gfp_hook,   &madvise_abort_hook,	 &compact_abort_hook,
};

static int start(struct hook *hook)
{
	if (hook->arm)
		return hook->arm();
	if (hook->kprobe)
		return probe_add(hook->kprobe, hook->source);
	return return_probe_add(hook->kretprobe, hook->source);
}

static void arm(struct hook *hook)
{
	int err = start(hook);

	hook->armed = !err;
	if (!err)
		pr_info("%s: armed (by %s)\n", hook->name, hook->source);
	else if (err == -ENOENT)
		pr_warn("%s: not armed: the kernel has no %s\n", hook->name, hook->source);
	else
		pr_warn("%s: not armed: %s: error %d\n", hook->name, hook->source, err);
}

static void disarm(struct hook *hook)
{
	if (!hook->armed)
		return;
	if (hook->disarm)
		hook->disarm();
	else if (hook->kprobe)
		probe_remove(hook->kprobe);
	else
		return_probe_remove(hook->kretprobe);
}

static int __init hook_bridge_init(void)
{
	int err = symbols_init();

	if (err) {
		pr_err("cannot look up the kernel's symbols: error %d\n", err);
		return err;
	}
	for (size_t i = 0; i < ARRAY_SIZE(hooks); i++)
		arm(hooks[i]);
	return 0;
}

static void __exit hook_bridge_exit(void)
{
	for (size_t i = ARRAY_SIZE(hooks); i-- > 0;)
		disarm(hooks[i]);
	/* Wait for probes on the kernel's own tracepoints; removing a kprobe has waited already. */
	tracepoint_synchronize_unregister();
}

module_init(hook_bridge_init);
module_exit(hook_bridge_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Vendor hooks for a stock kernel");
