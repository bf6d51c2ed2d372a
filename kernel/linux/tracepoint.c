// SPDX-License-Identifier: GPL-2.0-only
#include <linux/printk.h>
#include <linux/string.h>
#include <linux/tracepoint.h>

#include <kernel/tracepoint.h>

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
		pr_warn("%s: the kernel has no tracepoint %s: what rests on it stays off\n",
			KBUILD_MODNAME, name);
	return search.found;
}

void helper_tracepoint_synchronize_unregister(void)
{
	tracepoint_synchronize_unregister();
}
