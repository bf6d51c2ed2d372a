// SPDX-License-Identifier: GPL-2.0-only
// Simulated kernel text: symbols have addresses, a thread's call stack is what scopes push on it.
#pragma once

#include <cstdint>
#include <hosted/context.h>
#include <span>
#include <string>
#include <string_view>

namespace hosted
{

// The address of name+offset/size [module], at kernel text addresses above 4 GiB; the same address
// for the same symbol at every call. size 0 means that only the name is known; such an address
// prints as the bare name. An offset lies within the size, its end included. Thread safe.
unsigned long symbol_address(std::string_view name, std::uint32_t offset = 0,
			     std::uint32_t size = 0, std::string_view module = {});

// How %pS prints an address: "name+0x10/0x80 [module]", or hexadecimal for one that is no symbol's.
// Thread safe.
std::string symbol_text(unsigned long address);

// Pushes return addresses on the current thread's simulated stack for the length of the scope.
class frame_scope
{
public:
	explicit frame_scope(unsigned long address) : stack_(self().stack), depth_(stack_.size())
	{
		stack_.push_back(address);
	}
	// innermost first, as a trace prints them
	explicit frame_scope(std::span<const unsigned long> innermost_first)
		: stack_(self().stack), depth_(stack_.size())
	{
		for (std::size_t i = innermost_first.size(); i > 0; i--)
			stack_.push_back(innermost_first[i - 1]);
	}
	~frame_scope()
	{
		stack_.resize(depth_);
	}
	frame_scope(const frame_scope &) = delete;
	frame_scope &operator=(const frame_scope &) = delete;

private:
	std::vector<unsigned long> &stack_;
	std::size_t depth_;
};

// The innermost address, what a real kernel gets from _RET_IP_; 0 on an empty stack.
inline unsigned long caller_address()
{
	const std::vector<unsigned long> &stack = self().stack;
	return stack.empty() ? 0 : stack.back();
}

} // namespace hosted
