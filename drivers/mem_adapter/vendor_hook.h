// SPDX-License-Identifier: GPL-2.0-only
// One probe on one vendor hook or tracepoint, attached and detached by the subsystem that owns it.
#pragma once

#include <kernel/core_tracepoints.h>
#include <kernel/err.h>
#include <kernel/vendor_hooks.h>

// Prototype is the type of the hook's probes. The kernel calls a probe with the hook's arguments
// whatever type it has, so neither another probe nor another hook compiles here.
// Not thread safe: attach and detach run in the owner's start and stop, one after the other.
// Detaching what is not attached does nothing; the kernel itself would warn.
template <class Prototype>
class vendor_hook
{
public:
	// Returns 0 or a negative error; -ENOENT for a hook that the kernel lacks.
	// Context: process, may sleep.
	int attach(typed_tracepoint<Prototype> hook, Prototype *probe)
	{
		if (!hook.tp)
			return -ENOENT;

		const int ret = tracepoint_probe_register(hook.tp, untyped(probe), nullptr);

		if (ret >= 0) {
			hook_ = hook.tp;
			probe_ = probe;
		}
		return ret;
	}

	// Context: process, may sleep.
	void detach()
	{
		if (hook_)
			tracepoint_probe_unregister(hook_, untyped(probe_), nullptr);
		hook_ = nullptr;
	}

private:
	static void *untyped(Prototype *probe)
	{
		return reinterpret_cast<void *>(probe);
	}

	struct tracepoint *hook_ = nullptr;
	Prototype *probe_ = nullptr;
};
