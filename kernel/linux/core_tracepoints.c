// SPDX-License-Identifier: GPL-2.0-only
#include <linux/printk.h>
#include <linux/string.h>
#include <linux/tracepoint.h>
#include <trace/events/cma.h>

#include <kernel/core_tracepoints.h>

KERNEL_CORE_TRACEPOINTS(KERNEL_CHECK_PROBE_TYPE)

struct search {
	const char *name;
	struct tracepoint *found;
};

static void compare(struct tracepoint *tp, void *data)
{
	struct search *search = data;

	if (!strcmp(tp->name, search->name))
		search->found = tp;
}

struct tracepoint *helper_find_tracepoint(const char *name)
{
	struct search search = {.name = name};

	for_each_kernel_tracepoint(compare, &search);
	if (!search.found)
		pr_warn("%s: the kernel has no tracepoint %s: features that need it stay off\n",
			KBUILD_MODNAME, name);
	return search.found;
}
