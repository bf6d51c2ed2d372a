/* SPDX-License-Identifier: GPL-2.0-only */
/* A parameter that shows two numbers, of allocations and frees, and cannot be set. */
#pragma once

#include <linux/moduleparam.h>
#include <linux/types.h>

struct param_kind_counts {
	void (*count)(u64 counts[2]);
};

extern const struct kernel_param_ops param_ops_kind_counts;

#define module_param_kind_counts(name, function, mode)                                             \
	static struct param_kind_counts __param_counts_##name = {function};                        \
	module_param_cb(name, &param_ops_kind_counts, &__param_counts_##name, mode);               \
	__MODULE_PARM_TYPE(name, "array of ullong")
