// SPDX-License-Identifier: GPL-2.0-only
// Tracepoints: each has a list of probes, replaced as a whole under RCU.
#pragma once

#include <atomic>
#include <vector>

#include <hosted/engine/callstack.h>
#include <hosted/engine/context.h>
#include <hosted/engine/judge.h>
#include <kernel/rcupdate.h>
#include <kernel/tracepoint.h>

namespace hosted
{

struct registered_probe {
	void *function;
	void *data;
};

// The probes of a tracepoint in use. Never changed once published.
struct probe_list {
	std::vector<unsigned long>
		frames; // simulated calls between the kernel and the probes' work
	std::vector<registered_probe> probes;
};

} // namespace hosted

struct tracepoint {
	const char *name;
	// Number of calls, including the probe itself, down to where it captures a stack.
	unsigned probe_frames;
	std::atomic<const hosted::probe_list *> list{nullptr};
};

namespace hosted
{

inline bool in_use(const tracepoint &tp)
{
	return tp.list.load(std::memory_order_relaxed) != nullptr;
}

// The environment of the probes during one firing: preemption off, an RCU read section, and the
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

// Calls the probes of one tracepoint with their data and the call's arguments.
template <class Probe>
class trace_call;

template <class... Args>
class trace_call<void(void *, Args...)>
{
public:
	constexpr explicit trace_call(const tracepoint &tp) : tp_(tp) {}

	void operator()(Args... args) const
	{
		if (!in_use(tp_)) [[likely]]
			return;
		const firing now(tp_);
		for (const registered_probe &p : now.probes()) {
			const callback_check check(tp_.name);
			reinterpret_cast<void (*)(void *, Args...)>(p.function)(p.data, args...);
		}
	}

private:
	const tracepoint &tp_;
};

// Frees the probe lists that no reader can hold any more. Stops the program if a probe is still
// registered. Process context.
void reset_tracepoints();

} // namespace hosted

// trace_<name>(...) fires the tracepoint __tracepoint_<name>. Used with the lists of the interface.
#define HOSTED_DECLARE_TRACEPOINT(name, prototype)                                                 \
	extern tracepoint __tracepoint_##name;                                                     \
	inline constexpr hosted::trace_call<name##_probe> trace_##name{__tracepoint_##name};
