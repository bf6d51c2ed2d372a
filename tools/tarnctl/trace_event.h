// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "trace_names.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace tarn::trace
{

enum class op : std::uint8_t { kmem_cache_alloc, kmem_cache_free, kmalloc, kfree };

constexpr bool is_free(op kind)
{
	return kind == op::kmem_cache_free || kind == op::kfree;
}

/** The most frames an event keeps. */
inline constexpr std::size_t frame_limit = 7;

/**
 * An allocation or a release. Which object a pointer means at that time is settled here: objects
 * that the trace allocated have dense numbers, used again after their release, so a consumer needs
 * no map by pointer but an array by number.
 */
struct event {
	std::uint64_t ptr;	 /**< 0: an allocation that failed */
	std::uint32_t cache;	 /**< number in the directory */
	std::uint32_t bytes;	 /**< that an allocation took from the cache; 0 for a release */
	std::uint32_t object;	 /**< none: a failure, or not allocated in the trace */
	std::uint32_t displaced; /**< object that must have gone unseen, or none; goes first */
	std::int32_t pid;
	std::uint16_t cpu;
	op kind;
	bool in_interrupt;
	std::array<char, 16> comm;		       /**< padded with NUL */
	std::uint32_t frame_count;		       /**< at least 1 */
	std::array<std::uint32_t, frame_limit> frames; /**< numbers in the frame table */

	std::string_view task() const
	{
		return comm.data();
	}

	/** From the call site outwards. */
	std::span<const std::uint32_t> stack() const
	{
		return {frames.data(), frame_count};
	}
};

} // namespace tarn::trace
