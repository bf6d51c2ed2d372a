// SPDX-License-Identifier: GPL-2.0-only
// One probe on one vendor hook, attached and detached by the subsystem that owns it.
#pragma once

#include <kernel/err.h>
#include <kernel/tracepoint.h>
#include <kernel/vendor_hooks.h>

// Not thread safe: attach and detach run in the owner's start and stop, one after the other.
// Detaching what is not attached does nothing; the kernel itself would warn.
class vendor_hook
{
public:
	// Returns 0 or a negative error; -ENOENT for a hook that the kernel lacks.
	template <class Probe>
	int attach(struct tracepoint *hook, Probe *probe)
	{
		if (!hook)
			return -ENOENT;

		const int ret =
			tracepoint_probe_register(hook, reinterpret_cast<void *>(probe), nullptr);

		if (ret >= 0) {
			hook_ = hook;
			probe_ = reinterpret_cast<void *>(probe);
		}
		return ret;
	}

	void detach()
	{
		if (hook_)
			tracepoint_probe_unregister(hook_, probe_, nullptr);
		hook_ = nullptr;
	}

private:
	struct tracepoint *hook_ = nullptr;
	void *probe_ = nullptr;
};
