// SPDX-License-Identifier: GPL-2.0-only
/* The module's entry points, metadata, parameters and exports. */
#include <linux/dma-mapping.h>
#include <linux/init.h>
#include <linux/mmzone.h>
#include <linux/module.h>
#include <linux/pgtable.h>
#include <linux/tracepoint.h>

#include <kernel/vendor_hooks.h>

#include "hot_words.h"
#include "mem_adapter.h"
#include "module_list.h"
#include "param_charp_rcu.h"
#include "param_kind_counts.h"
#include "symbols.h"

MODULE_LICENSE(TARN_MODULE_LICENSE);
#define DESCRIBE(description) MODULE_DESCRIPTION(description);
TARN_MODULE_DESCRIPTIONS(DESCRIBE)
MODULE_SOFTDEP(TARN_MODULE_SOFTDEP);
MODULE_IMPORT_NS(TARN_MODULE_IMPORT_NS);

/* Declares the parameters' variables with the types in the list. */
#define DECLARE_int(variable) extern int variable
#define DECLARE_uint(variable) extern unsigned int variable
#define DECLARE_int_field(variable) static_assert(__same_type(variable, int))
#define DECLARE_uint_field(variable) static_assert(__same_type(variable, unsigned int))
#define DECLARE_charp(variable) extern char *variable
#define DECLARE_charp_rcu(variable) extern char *variable
#define DECLARE_kind_counts(function) extern void function(u64 counts[2])
#define PARAM_int(name, variable, mode) module_param_named(name, variable, int, mode)
#define PARAM_uint(name, variable, mode) module_param_named(name, variable, uint, mode)
#define PARAM_int_field PARAM_int
#define PARAM_uint_field PARAM_uint
#define PARAM_charp(name, variable, mode) module_param_named(name, variable, charp, mode)
#define PARAM_charp_rcu(name, variable, mode) module_param_charp_rcu(name, variable, mode)
#define PARAM_kind_counts(name, function, mode) module_param_kind_counts(name, function, mode)
#define PARAM(name, variable, type, mode)                                                          \
	DECLARE_##type(variable);                                                                  \
	PARAM_##type(name, variable, mode);
TARN_MODULE_PARAMS(PARAM)

#define EXPORT(function) EXPORT_SYMBOL(function);
#define EXPORT_GPL(function) EXPORT_SYMBOL_GPL(function);
TARN_MODULE_EXPORTS(EXPORT, EXPORT_GPL)

#define REPORT_MISSING(hook, prototype)                                                            \
	if (!helper_##hook)                                                                        \
		pr_warn("%s: the kernel has no hook %s: features that need it stay off\n",         \
			KBUILD_MODNAME, #hook);

static int __init module_start(void)
{
	KERNEL_VENDOR_HOOKS(REPORT_MISSING)
	find_kernel_symbols();
	return tarn_mem_adapter_init();
}

static void __exit module_stop(void)
{
	tarn_mem_adapter_exit();
}

module_init(module_start);
module_exit(module_stop);
