// SPDX-License-Identifier: GPL-2.0-only
// Simulated kernel code: symbols have addresses, and scopes push them on a thread's call stack.
#pragma once

#include <cstdint>
#include <hosted/engine/context.h>
#include <span>
#include <string>
#include <string_view>

namespace hosted
{

// The address of name+offset/size [module], in kernel text above 4 GiB; the same symbol always has
// the same address. size 0 means that only the name is known; such an address prints as the bare
// name. An offset may be at most the size. Thread safe.
unsigned long symbol_address(std::string_view name, std::uint32_t offset = 0,
			     std::uint32_t size = 0, std::string_view module = {});

// An address as %pS prints it: "name+0x10/0x80 [module]", or hexadecimal if it belongs to no
// symbol. Thread safe.
std::string symbol_text(unsigned long address);

// Pushes return addresses on the current thread's simulated stack for a scope.
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

// The innermost address, which a real kernel gets from _RET_IP_; 0 on an empty stack.
inline unsigned long caller_address()
{
	const std::vector<unsigned long> &stack = self().stack;
	return stack.empty() ? 0 : stack.back();
}

} // namespace hosted
