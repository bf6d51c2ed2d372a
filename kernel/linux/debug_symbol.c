// SPDX-License-Identifier: GPL-2.0-only
#include <linux/compiler.h>
#include <linux/err.h>

#include <kernel/debug_symbol.h>

void *android_debug_symbol(int index) __weak;

/* volatile forces the weak reference into data, as for the vendor hooks. */
static void *(*const volatile lookup)(int index) = android_debug_symbol;

void *helper_debug_symbol(int index)
{
	return lookup ? lookup(index) : ERR_PTR(-ENOENT);
}
