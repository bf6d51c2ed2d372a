// SPDX-License-Identifier: GPL-2.0-only
#include <linux/compiler.h>
#include <linux/err.h>

#include <kernel/debug_symbol.h>

/*
 * The kernel's function takes an enum. A kernel with control-flow integrity compares the type of a
 * call with that of the function, the name of the enum included, so the kernel's own declaration is
 * used. A kernel without the header gets a call that is not checked.
 */
#if __has_include(<linux/android_debug_symbols.h>)
#include <linux/android_debug_symbols.h>
#define unchecked
typedef enum android_debug_symbol symbol_index;
#else
#define unchecked __nocfi
typedef int symbol_index;
#endif

void *android_debug_symbol(symbol_index index) __weak;

/* volatile forces the weak reference into data, as for the vendor hooks. */
static void *(*const volatile lookup)(symbol_index index) = android_debug_symbol;

unchecked void *helper_debug_symbol(int index)
{
	return lookup ? lookup(index) : ERR_PTR(-ENOENT);
}
