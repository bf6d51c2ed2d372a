// SPDX-License-Identifier: GPL-2.0-only
#include <linux/printk.h>
#include <linux/string.h>
#include <linux/tracepoint.h>
#include <linux/version.h>
#include <trace/events/cma.h>

#include <kernel/core_tracepoints.h>

/* Linux 6.1 does not tell a probe whether the allocation failed. Such a tracepoint counts as
 * missing: a probe would take an argument that is never passed. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(6, 2, 0)
static const char *const unusable = "cma_alloc_finish";
#define CHECK_PROBE_TYPE_cma_alloc_finish(...)
#else
static const char *const unusable = "";
#define CHECK_PROBE_TYPE_cma_alloc_finish KERNEL_CHECK_PROBE_TYPE
#endif
#define CHECK_PROBE_TYPE_cma_release KERNEL_CHECK_PROBE_TYPE
#define CHECK_PROBE_TYPE(name, prototype) CHECK_PROBE_TYPE_##name(name, prototype)

KERNEL_CORE_TRACEPOINTS(CHECK_PROBE_TYPE)

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

	if (strcmp(name, unusable))
		for_each_kernel_tracepoint(compare, &search);
	if (!search.found)
		pr_warn("%s: the kernel has no usable tracepoint %s: features that need it stay "
			"off\n",
			KBUILD_MODNAME, name);
	return search.found;
}
