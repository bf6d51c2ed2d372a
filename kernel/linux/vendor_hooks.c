// SPDX-License-Identifier: GPL-2.0-only
#include <linux/tracepoint.h>

#include <kernel/vendor_hooks.h>

/* A weak reference is null where nothing defines the symbol. Taken in data, since code cannot reach
 * the address 0 from where modules are. */
#define DEFINE_HOOK(hook)                                                                          \
	extern struct tracepoint __tracepoint_##hook __weak;                                       \
	struct tracepoint *const helper_##hook = &__tracepoint_##hook;
KERNEL_VENDOR_HOOKS(DEFINE_HOOK)
