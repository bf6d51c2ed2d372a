/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct tracepoint;

/* probe is called with data and then the tracepoint's own arguments. Returns 0 or a negative error.
 * Context: process, may sleep. */
int tracepoint_probe_register(struct tracepoint *tp, void *probe, void *data);
/* A running probe may still be running after the return; see below. */
int tracepoint_probe_unregister(struct tracepoint *tp, void *probe, void *data);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* Waits until no unregistered probe is running. Context: process, may sleep. */
void helper_tracepoint_synchronize_unregister(void);

KERNEL_C_END

/* Declares <name>_probe, the type of a tracepoint's probes: they take the data passed at
 * registration and then the tracepoint's arguments. prototype is the list of these arguments in
 * parentheses. */
#define KERNEL_PROBE_TYPE(name, prototype)                                                         \
	typedef void name##_probe KERNEL_PROBE_ARGUMENTS prototype;
#define KERNEL_PROBE_ARGUMENTS(...) (void *data, __VA_ARGS__)

#ifdef KERNEL_NATIVE_TYPES
/* Fails the build if the kernel's headers, included before, declare probes of another type for the
 * tracepoint. */
#define KERNEL_CHECK_PROBE_TYPE(name, prototype)                                                   \
	static_assert(__same_type(register_trace_##name, int(name##_probe *, void *)),             \
		      #name ": the interface declares its probes with another type");
#endif

#ifdef __cplusplus
/* A tracepoint (or null) together with the type of its probes, which the kernel's own pointer does
 * not have. */
template <class Prototype>
struct typed_tracepoint {
	struct tracepoint *tp;
};
#endif
