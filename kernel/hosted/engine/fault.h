// SPDX-License-Identifier: GPL-2.0-only
// Makes kernel calls fail on request.
#pragma once

#include <atomic>
#include <iosfwd>
#include <string>
#include <vector>

namespace hosted
{

extern constinit std::atomic<bool> fault_scope_open;
bool fails_in_scope(const char *call);

// Every call that can fail asks this, with its own name; true means it must fail now.
inline bool should_fail(const char *call)
{
	return fault_scope_open.load(std::memory_order_relaxed) && fails_in_scope(call);
}

// A fallible call: the n-th of its name, counted from 1.
struct fallible_call {
	std::string name;
	unsigned nth = 1;

	bool operator==(const fallible_call &) const = default;
};
// For test messages: "vmalloc 2".
std::ostream &operator<<(std::ostream &os, const fallible_call &call);

// Makes a fallible call fail while this object lives, counted from its construction. One at a time.
// Thread safe.
class fault_scope
{
public:
	enum class mode {
		once,
		from_then_on, // and every fallible call after it, of any name
	};
	explicit fault_scope(fallible_call call, mode m = mode::once);
	explicit fault_scope(const char *name, unsigned nth = 1, mode m = mode::once)
		: fault_scope(fallible_call{name, nth}, m)
	{
	}
	// Fails nothing, only lists the calls.
	fault_scope() : fault_scope("", 0) {}
	~fault_scope();
	fault_scope(const fault_scope &) = delete;
	fault_scope &operator=(const fault_scope &) = delete;

	// The fallible calls made so far in this scope, in order.
	[[nodiscard]] std::vector<fallible_call> calls() const;
	// Whether a call was made to fail.
	[[nodiscard]] bool hit() const;
};

// The fallible calls that body makes, in order: what a test of every failure walks through.
template <class Body>
std::vector<fallible_call> fallible_calls(Body body)
{
	const fault_scope none;

	body();
	return none.calls();
}

} // namespace hosted
