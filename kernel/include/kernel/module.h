/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct module;

/* The module that this code is compiled into. */
extern struct module __this_module;

/* Keeps the module's string parameters from being replaced. Context: process, may sleep. */
void kernel_param_lock(struct module *mod);
void kernel_param_unlock(struct module *mod);

KERNEL_C_END
#endif

#ifdef __cplusplus
/* Keeps this module's string parameters from being replaced during a scope. */
class [[nodiscard]] param_guard
{
public:
	param_guard()
	{
		kernel_param_lock(&__this_module);
	}
	~param_guard()
	{
		kernel_param_unlock(&__this_module);
	}
	param_guard(const param_guard &) = delete;
	param_guard &operator=(const param_guard &) = delete;
};
#endif
