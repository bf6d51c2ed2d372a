// SPDX-License-Identifier: GPL-2.0-only
/* Probes that are prepared in advance and set in the kernel's text on demand. */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/errno.h>
#include <linux/kernel.h>
#include <linux/kprobes.h>
#include <linux/printk.h>

#include "bridge.h"

/*
 * The compiler may have made a copy of the function for constant arguments. This is the only kind
 * of copy that keeps the first arguments in their registers, provided that only later ones were
 * removed. If some callers use the copy and others the original, a probe would see only part of the
 * calls.
 */
static int find_function(const char *function, unsigned long *address)
{
	char name[KSYM_NAME_LEN];
	unsigned long copy;

	snprintf(name, sizeof(name), "%s.constprop.0", function);
	copy = symbol_address(name);
	*address = symbol_address(function);
	if (copy && *address)
		return -ENOTUNIQ;
	if (copy)
		*address = copy;
	return *address ? 0 : -ENOENT;
}

/* A probe counts as added if its address is set. */
static int prepare(struct kprobe *probe, const char *function)
{
	unsigned long address;
	int err = find_function(function, &address);

	if (err)
		return err;
	probe->addr = (kprobe_opcode_t *)address;
	probe->flags = KPROBE_FLAG_DISABLED;
	return 0;
}

static int finish(struct kprobe *probe, int err)
{
	if (err)
		probe->addr = NULL;
	return err;
}

int probe_add(struct kprobe *probe, const char *function)
{
	int err = prepare(probe, function);

	return err ? err : finish(probe, register_kprobe(probe));
}

void probe_remove(struct kprobe *probe)
{
	if (probe->addr)
		unregister_kprobe(probe);
	probe->addr = NULL;
}

int return_probe_add(struct kretprobe *probe, const char *function)
{
	int err = prepare(&probe->kp, function);

	return err ? err : finish(&probe->kp, register_kretprobe(probe));
}

void return_probe_remove(struct kretprobe *probe)
{
	if (!probe->kp.addr)
		return;
	if (probe->nmissed)
		pr_warn("%ps: %d calls missed\n", probe->kp.addr, probe->nmissed);
	unregister_kretprobe(probe);
	probe->kp.addr = NULL;
}

int probe_start(struct kprobe *probe)
{
	return probe->addr ? enable_kprobe(probe) : 0;
}

void probe_stop(struct kprobe *probe)
{
	if (probe->addr)
		disable_kprobe(probe);
}
