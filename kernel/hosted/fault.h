// SPDX-License-Identifier: GPL-2.0-only
// Makes fallible kernel calls fail on request.
#pragma once

#include <atomic>
#include <string>
#include <vector>

namespace hosted
{

extern constinit std::atomic<bool> fault_scope_open;
bool fails_in_scope(const char *call);

// Asked by every call that can fail, with its own name; true means it must fail now.
inline bool should_fail(const char *call)
{
	return fault_scope_open.load(std::memory_order_relaxed) && fails_in_scope(call);
}

// Fails the n-th fallible call (from 1) that is made while this object lives, once or from then on.
// One at a time. Thread safe.
class fault_scope
{
public:
	enum class mode { once, from_then_on };
	explicit fault_scope(unsigned n, mode m = mode::once);
	~fault_scope();
	fault_scope(const fault_scope &) = delete;
	fault_scope &operator=(const fault_scope &) = delete;

	// The names of the fallible calls made so far in this scope, in order.
	[[nodiscard]] std::vector<std::string> calls() const;
	// Whether a call was made to fail.
	[[nodiscard]] bool hit() const;
};

} // namespace hosted
