/* SPDX-License-Identifier: GPL-2.0-only */
/* A string parameter that probes read without the parameter lock: a replaced string stays until
 * every RCU reader is done with it. */
#pragma once

#include <linux/moduleparam.h>

struct param_charp_rcu {
	char **variable;
	char *allocated; /* the string to free; null while the variable has its initial value */
};

extern const struct kernel_param_ops param_ops_charp_rcu;

/* Like module_param_named for a charp. */
#define module_param_charp_rcu(name, variable, mode)                                               \
	static struct param_charp_rcu __param_rcu_##name = {&(variable), NULL};                    \
	module_param_cb(name, &param_ops_charp_rcu, &__param_rcu_##name, mode);                    \
	__MODULE_PARM_TYPE(name, "charp")
