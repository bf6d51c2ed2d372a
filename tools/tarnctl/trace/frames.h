// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <tarnctl/trace/string_pool.h>

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::trace
{

// A place in a function, as the trace wrote it.
struct frame {
	std::string function;
	std::string module;	  // empty: of the kernel proper
	std::uint32_t offset = 0; // bytes from the start of the function
	std::uint32_t size = 0;	  // of the function in bytes; 0: written by name only
};

// Takes `name+0x1/0x2 [module]` apart; text of another form is a name as a whole.
frame parse_frame(std::string_view text);

// What a function says about the stacks it appears in.
struct frame_role {
	bool allocator = false;	  // a stack may start with it, inside the allocator
	bool exit = false;	  // a task is ending
	bool exit_mm = false;	  // its address space is torn down
	bool rcu = false;	  // a callback of RCU, long after the free was asked for
	bool pseudo = false;	  // for a socket, pipe or the like, which no cache of files keeps
	bool bookkeeping = false; // it allocates for the slab allocator's own sake
};

// The distinct frames of traces, numbered from 0. One table may serve several readers, one after
// another, so that the same frame keeps its number. Not for use by two threads at once.
class frame_table
{
public:
	// The number of the frame written so; it is added if it is new.
	std::uint32_t add(std::string_view text);

	std::uint32_t size() const
	{
		return texts_.size();
	}

	// The frame of that number; it stays where it is for the life of the table.
	const frame &operator[](std::uint32_t id) const
	{
		return frames_[id];
	}

	// The frame as the trace wrote it, without an address.
	const std::string &text(std::uint32_t id) const
	{
		return texts_[id];
	}

	// Whether both are of functions of the same name.
	bool same_function(std::uint32_t a, std::uint32_t b) const
	{
		return traits_[a].function == traits_[b].function;
	}

	const frame_role &role(std::uint32_t id) const
	{
		return traits_[id].role;
	}

private:
	struct traits {
		std::string_view text;
		std::uint32_t function;
		std::uint32_t next; // the frame that was added after this one the last time
		frame_role role;
	};

	std::uint32_t look_up(std::string_view text);

	string_pool texts_;
	string_pool functions_;
	std::deque<frame> frames_;
	std::vector<traits> traits_;
	std::uint32_t last_ = 0;
};

} // namespace tarn::trace
