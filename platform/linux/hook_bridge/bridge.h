/* SPDX-License-Identifier: GPL-2.0-only */
/* Declarations that the parts of the bridge share. */
#pragma once

#include <linux/kprobes.h>

/*
 * A vendor hook and its source. Arming checks that the kernel has the source; a kprobe is set in
 * the kernel's text only while something is attached to the hook. Once disarmed, no code of the
 * bridge runs for the hook.
 */
struct hook {
	const char *name;
	const char *source; /* the source's name, for log messages */

	/* Set if a single probe fires the hook. Without arm, it is set at the function named by
	 * "source". */
	struct kprobe *kprobe;
	struct kretprobe *kretprobe;

	int (*arm)(void); /* 0, -ENOENT if this kernel lacks the source, or another error */
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
 * Probes at a function's entry and return. Adding a probe finds the function without changing its
 * text. Start and stop ignore a probe that could not be added, and may be called from the
 * registration functions of a tracepoint.
 */
int probe_add(struct kprobe *probe, const char *function);
void probe_remove(struct kprobe *probe);
int return_probe_add(struct kretprobe *probe, const char *function);
void return_probe_remove(struct kretprobe *probe);
int probe_start(struct kprobe *probe);
void probe_stop(struct kprobe *probe);

/* Defines start_HOOK and stop_HOOK, the registration functions of a tracepoint fired by a single
 * probe. */
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

/* Finds the kernel's symbol lookup; the functions below depend on it. */
int symbols_init(void);
/* The address of a symbol, or 0. Context: process. */
unsigned long symbol_address(const char *name);
/* The size of the function at an address, or 0. Context: process. */
unsigned long symbol_size(unsigned long address);

/*
 * Calls function(NULL, number, pointer) so that a stack trace continues in another function's
 * frame: frame is its frame pointer, address the code address in it.
 */
#define call_in_frame(function, number, pointer, frame, address)                                   \
	do {                                                                                       \
		/* The compiler checks the arguments, but makes no call here. */                   \
		(void)sizeof((function)(NULL, number, pointer));                                   \
		call_function_in_frame(function, number, pointer, frame, address);                 \
	} while (0)
void call_function_in_frame(void *function, unsigned long number, const void *pointer,
			    unsigned long frame, unsigned long address);
