// SPDX-License-Identifier: GPL-2.0-only
#include <linux/errno.h>
#include <linux/kernel.h>
#include <linux/mm.h>

#include "param_kind_counts.h"

/* The kernel calls this without a check for a parameter that is given at load. */
static int set(const char *value, const struct kernel_param *kp)
{
	return -EPERM;
}

static int get(char *buffer, const struct kernel_param *kp)
{
	const struct param_kind_counts *param = kp->arg;
	u64 counts[2];

	param->count(counts);
	return scnprintf(buffer, PAGE_SIZE, "%llu,%llu\n", counts[0], counts[1]);
}

const struct kernel_param_ops param_ops_kind_counts = {.set = set, .get = get};
