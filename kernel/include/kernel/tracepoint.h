/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct tracepoint;

/* probe is called with data and then the tracepoint's own arguments. Returns 0 or a negative error.
 * Context: process, may sleep. */
int tracepoint_probe_register(struct tracepoint *tp, void *probe, void *data);
/* A probe that runs at this moment may still run after the return; see below. */
int tracepoint_probe_unregister(struct tracepoint *tp, void *probe, void *data);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* The tracepoint of a name in the kernel proper; null where it has none. Context: process. */
struct tracepoint *helper_find_tracepoint(const char *name);
/* Waits until no probe that was unregistered runs any more. Context: process, may sleep. */
void helper_tracepoint_synchronize_unregister(void);

KERNEL_C_END
