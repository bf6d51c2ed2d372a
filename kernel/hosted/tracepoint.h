// SPDX-License-Identifier: GPL-2.0-only
// Tracepoints: a list of probes, replaced as a whole under RCU.
#pragma once

#include <atomic>
#include <vector>

#include <hosted/callstack.h>
#include <hosted/context.h>
#include <hosted/judge.h>
#include <kernel/rcupdate.h>
#include <kernel/tracepoint.h>

namespace hosted
{

struct registered_probe {
	void *function;
	void *data;
};

// What a tracepoint does while it is in use. Never changed once it is published.
struct probe_list {
	std::vector<unsigned long>
		frames; // simulated calls between the kernel and the probes' work
	std::vector<registered_probe> probes;
};

} // namespace hosted

struct tracepoint {
	const char *name;
	// Calls that a probe makes, itself included, down to where it takes a stack trace.
	unsigned probe_frames;
	std::atomic<const hosted::probe_list *> list{nullptr};
};

namespace hosted
{

inline bool in_use(const tracepoint &tp)
{
	return tp.list.load(std::memory_order_relaxed) != nullptr;
}

// The surroundings of the probes of one firing: preemption off, an RCU read section, and the
// simulated frames of the tracepoint's own code.
class firing
{
public:
	explicit firing(const tracepoint &tp);
	~firing();
	firing(const firing &) = delete;
	firing &operator=(const firing &) = delete;

	[[nodiscard]] const std::vector<registered_probe> &probes() const
	{
		return list_.probes;
	}

private:
	const probe_list &list_;
	frame_scope frames_;
};

// Calls the probes with exactly these argument types; the typed callers are in vendor_hooks.h.
template <class... Args>
void fire(const tracepoint &tp, Args... args)
{
	if (!in_use(tp)) [[likely]]
		return;
	const firing now(tp);
	for (const registered_probe &p : now.probes()) {
		const callback_check check(tp.name);
		reinterpret_cast<void (*)(void *, Args...)>(p.function)(p.data, args...);
	}
}

// Frees the probe lists that no reader can hold any more. Stops the program if a probe is
// registered. Process context.
void reset_tracepoints();

} // namespace hosted
