// SPDX-License-Identifier: GPL-2.0-only
// The vendor hooks, fired as the rest of the kernel fires them.
#pragma once

#include <hosted/tracepoint.h>
#include <kernel/vendor_hooks.h>

KERNEL_VENDOR_HOOKS(HOSTED_DECLARE_TRACEPOINT)
