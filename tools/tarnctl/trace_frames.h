// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "trace_names.h"

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::trace
{

/** A place in a function, as the trace wrote it. */
struct frame {
	std::string function;
	std::string module;	  /**< empty: of the kernel proper */
	std::uint32_t offset = 0; /**< bytes from the start of the function */
	std::uint32_t size = 0;	  /**< of the function in bytes; 0: written by name only */
};

/** Takes `name+0x1/0x2 [module]` apart; what has another form is a name as a whole. */
frame parse_frame(std::string_view text);

/**
 * The distinct frames of traces, numbered from 0. One table may serve several readers, one after
 * another, so that the same frame keeps its number. Not for use by two threads at once.
 */
class frame_table
{
public:
	/** The number of the frame written so; it is added if it is new. */
	std::uint32_t add(std::string_view text);

	std::uint32_t size() const
	{
		return texts_.size();
	}

	/** The frame of that number; it stays where it is for the life of the table. */
	const frame &operator[](std::uint32_t id) const
	{
		return frames_[id];
	}

	/** Whether both are of functions of the same name. */
	bool same_function(std::uint32_t a, std::uint32_t b) const
	{
		return traits_[a].function == traits_[b].function;
	}

	/** Whether the function is one of those by which a stack starts inside the allocator. */
	bool is_allocator(std::uint32_t id) const
	{
		return traits_[id].allocator;
	}

private:
	struct traits {
		std::string_view text;
		std::uint32_t function;
		std::uint32_t next; /* the frame that was added after this one the last time */
		bool allocator;
	};

	std::uint32_t look_up(std::string_view text);

	name_table texts_;
	name_table functions_;
	std::deque<frame> frames_;
	std::vector<traits> traits_;
	std::uint32_t last_ = 0;
};

} // namespace tarn::trace
