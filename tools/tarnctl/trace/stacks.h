// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <tarnctl/trace/frames.h>
#include <tarnctl/trace/u64_map.h>

#include <cstdint>
#include <span>
#include <vector>

namespace tarn::trace
{

// The distinct call stacks of traces, numbered from 0, with the frames that they consist of. Not
// for use by two threads at once.
class stack_table
{
public:
	frame_table &frames()
	{
		return frames_;
	}
	const frame_table &frames() const
	{
		return frames_;
	}

	// The number of the stack with those frames, innermost first; it is added if it is new.
	// Needs at least one frame.
	std::uint32_t add(std::span<const std::uint32_t> stack);

	std::uint32_t size() const
	{
		return static_cast<std::uint32_t>(entries_.size());
	}

	// Innermost first. Valid until the next stack is added.
	std::span<const std::uint32_t> operator[](std::uint32_t id) const
	{
		const entry &e = entries_[id];

		return {pool_.data() + e.start, e.count};
	}

	// The roles that any of its frames has.
	const frame_role &role(std::uint32_t id) const
	{
		return entries_[id].role;
	}

private:
	struct entry {
		std::size_t start;
		std::uint32_t count;
		frame_role role;
	};

	frame_table frames_;
	std::vector<std::uint32_t> pool_; // the frames of all stacks, one after another
	std::vector<entry> entries_;
	u64_map ids_; // by hash
};

} // namespace tarn::trace
