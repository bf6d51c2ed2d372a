// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <tarnctl/trace/event.h>
#include <tarnctl/trace/stacks.h>

#include <boost/circular_buffer.hpp>

#include <cstdint>
#include <vector>

namespace tarn::trace
{

// Events in the order of the file, held until they have their stacks. A stack belongs to the last
// event of its CPU, with other CPUs' events in between, and only the first one does: a second
// comes from an event that another one interrupted.
class event_queue
{
public:
	// Events held at most: beyond that the oldest goes without its stack.
	static constexpr std::size_t limit = 65536;

	// The table takes the stacks, and is where the numbers of frames come from.
	explicit event_queue(stack_table &stacks) : stacks_(stacks) {}

	// An event of the CPU, with its call site's frame.
	void push(const event &e, std::uint32_t site);

	// A stack that follows on that CPU is not that of an event in the queue.
	void pass_over(std::uint32_t cpu);

	// A stack of the CPU starts.
	void open_stack(std::uint32_t cpu);

	// Whether a stack is open that belongs to an event.
	bool wants_frame() const
	{
		return open_ != nothing;
	}

	// The next frame of the open stack. Needs wants_frame().
	void add_frame(std::uint32_t id);

	// Whatever follows is not part of the open stack, if there is one.
	void close_stack();

	// No event can get a stack any more: the end of the file.
	void finish();

	// Takes the oldest event if it has its stack, or can get none, or the queue is full.
	bool pop(event &out);

private:
	static constexpr std::uint64_t nothing = UINT64_MAX;

	struct entry {
		event e;
		std::uint32_t site;
		bool complete;
	};

	// Events are numbered as they come; the oldest in the ring is number head_.
	entry &at(std::uint64_t number)
	{
		return ring_[number - head_];
	}

	std::uint64_t &waiting(std::uint32_t cpu);
	std::uint32_t add_stack(std::uint32_t site);

	stack_table &stacks_;
	bool finished_ = false;
	boost::circular_buffer<entry> ring_{64};
	std::uint64_t head_ = 0;
	std::vector<std::uint64_t> waiting_; // by CPU: the event to get the next stack

	std::uint64_t open_ = nothing;	   // the event of the open stack
	std::vector<std::uint32_t> block_; // its frames as they came
	std::vector<std::uint32_t> stack_; // scratch: the stack that is made of them
};

} // namespace tarn::trace
