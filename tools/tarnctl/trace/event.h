// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <tarnctl/trace/string_pool.h>

#include <array>
#include <cstdint>
#include <string_view>

namespace tarn::trace
{

enum class op : std::uint8_t { kmem_cache_alloc, kmem_cache_free, kmalloc, kfree };

constexpr bool is_free(op kind)
{
	return kind == op::kmem_cache_free || kind == op::kfree;
}

// An allocation or a free. The reader settles which object a pointer means at that time: objects
// that the trace allocated have dense numbers, reused after their free, so a consumer needs no map
// by pointer but an array by number.
struct event {
	std::uint64_t ptr;	 // 0: an allocation that failed, or the free of a null pointer
	std::uint64_t time;	 // in ns by the trace's clock
	std::uint32_t cache;	 // number in the index; none: a kfree of an unknown object
	std::uint32_t bytes;	 // that an allocation took from the cache; 0 for a free
	std::uint32_t object;	 // none: a failure, or not allocated in the trace
	std::uint32_t displaced; // object whose free went unseen, or none; goes first
	std::uint32_t stack;	 // number in the stack table
	std::int32_t pid;
	std::uint16_t cpu;
	op kind;
	bool in_interrupt;
	bool has_stack;		   // false: the stack is the call site alone
	std::array<char, 16> comm; // padded with NUL

	std::string_view task() const
	{
		return comm.data();
	}
};

} // namespace tarn::trace
