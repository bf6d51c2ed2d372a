// SPDX-License-Identifier: GPL-2.0-only
#include <linux/tracepoint.h>

#include <kernel/vendor_hooks.h>

/* A weak reference is null if nothing defines the symbol. It is taken in data, since code in a
 * module cannot reach address 0. volatile keeps it there when the link optimises, too: code would
 * find the address through a table that a module does not have. */
#define DEFINE_HOOK(hook, prototype)                                                               \
	extern struct tracepoint __tracepoint_##hook __weak;                                       \
	struct tracepoint *const volatile helper_##hook = &__tracepoint_##hook;
KERNEL_VENDOR_HOOKS(DEFINE_HOOK)
