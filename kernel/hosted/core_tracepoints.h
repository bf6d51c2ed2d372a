// SPDX-License-Identifier: GPL-2.0-only
// The kernel's own tracepoints, fired as the rest of the kernel fires them.
#pragma once

#include <hosted/tracepoint.h>
#include <kernel/core_tracepoints.h>

KERNEL_CORE_TRACEPOINTS(HOSTED_DECLARE_TRACEPOINT)
