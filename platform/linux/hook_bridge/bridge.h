/* SPDX-License-Identifier: GPL-2.0-only */
/* What the parts of the bridge share. */
#pragma once

#include <linux/kprobes.h>

/*
 * A vendor hook and what fires it. Arming makes sure that the kernel has what is needed; kprobes
 * are set in the kernel's text only while something is attached to the hook. Once disarmed,
 * nothing of the bridge runs for the hook any more.
 */
struct hook {
	const char *name;
	const char *source; /* what fires it, for people */

	/* Where one probe alone fires it; without arm it is set at the function "source". */
	struct kprobe *kprobe;
	struct kretprobe *kretprobe;

	int (*arm)(void); /* 0, -ENOENT where this kernel lacks the source, or another error */
	void (*disarm)(void);
	bool armed;
};

extern struct hook slab_alloc_hook;
extern struct hook slab_free_hook;
extern struct hook save_vmalloc_stack_hook;
extern struct hook show_stack_hash_hook;
extern struct hook kswapd_done_hook;
extern struct hook alloc_slowpath_hook;
extern struct hook direct_reclaim_hook;
extern struct hook page_mapcount_hook;
extern struct hook alloc_gfp_hook;
extern struct hook madvise_abort_hook;
extern struct hook compact_abort_hook;

/*
 * Probes at a function's entry and return. Adding finds the function and leaves its text alone;
 * start and stop do nothing to a probe that could not be added, and may be called from the
 * registration functions of a tracepoint.
 */
int probe_add(struct kprobe *probe, const char *function);
void probe_remove(struct kprobe *probe);
int return_probe_add(struct kretprobe *probe, const char *function);
void return_probe_remove(struct kretprobe *probe);
int probe_start(struct kprobe *probe);
void probe_stop(struct kprobe *probe);

/* The registration functions start_HOOK and stop_HOOK of a tracepoint that one probe fires. */
#define DEFINE_PROBE_SWITCH(hook, probe)                                                           \
	static int start_##hook(void)                                                              \
	{                                                                                          \
		return probe_start(probe);                                                         \
	}                                                                                          \
                                                                                                   \
	static void stop_##hook(void)                                                              \
	{                                                                                          \
		probe_stop(probe);                                                                 \
	}

/* Finds what the kernel keeps to itself; the other functions here depend on it. */
int symbols_init(void);
/* Address of a symbol, or 0. Context: process. */
unsigned long symbol_address(const char *name);
/* Size of the function at an address, or 0. Context: process. */
unsigned long symbol_size(unsigned long address);

/*
 * Calls function(NULL, flags, area) so that a stack trace continues from there with the frame of
 * somebody else: frame is that frame's pointer, address the code address in it.
 */
void call_in_frame(int (*function)(void *data, unsigned long flags, struct vm_struct *area),
		   unsigned long flags, struct vm_struct *area, unsigned long frame,
		   unsigned long address);
