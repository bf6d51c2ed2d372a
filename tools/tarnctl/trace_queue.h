// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "trace_event.h"
#include "trace_frames.h"

#include <cstdint>
#include <vector>

namespace tarn::trace
{

/**
 * Events in the order of the file, held until they have their stacks. A stack belongs to the last
 * event of its CPU, with other CPUs' events in between, and only the first one does: a second
 * comes from an event that another one interrupted.
 */
class event_queue
{
public:
	/** Events held at most: beyond that the oldest goes without its stack. */
	static constexpr std::size_t limit = 65536;

	/** @frames is where the numbers of frames come from. */
	explicit event_queue(const frame_table &frames) : frames_(frames) {}

	/** An event of the CPU, whose frames are the call site so far. Needs the queue not full. */
	void push(const event &e);

	/** An event of the CPU that is of no interest, though a stack may follow it. */
	void pass_over(std::uint32_t cpu);

	/** A stack of the CPU starts. */
	void open_stack(std::uint32_t cpu);

	/** Whether a further frame of the open stack is of use. */
	bool wants_frame() const
	{
		return open_ != nothing;
	}

	/** The next frame of the open stack. Needs wants_frame(). */
	void add_frame(std::uint32_t id);

	/** Whatever follows the open stack, if any, is not part of it. */
	void close_stack();

	/** No event can get any more stack: the end of the file. */
	void finish();

	/** Takes the oldest event if it is complete, or the queue is full. */
	bool pop(event &out);

private:
	static constexpr std::uint64_t nothing = UINT64_MAX;

	struct entry {
		event e;
		bool complete;
	};

	entry &at(std::uint64_t sequence)
	{
		return ring_[sequence & (ring_.size() - 1)];
	}

	std::uint64_t &waiting(std::uint32_t cpu);
	void grow();

	const frame_table &frames_;
	bool finished_ = false;
	std::vector<entry> ring_ = std::vector<entry>(64);
	std::uint64_t head_ = 0;
	std::uint64_t tail_ = 0;
	std::vector<std::uint64_t> waiting_; /* by CPU: the event to get the next stack */

	std::uint64_t open_ = nothing; /* the event of the open stack */
	bool found_site_ = false;
	std::uint32_t spare_count_ = 0; /* frames to use if the call site is not among them */
	std::array<std::uint32_t, frame_limit> spare_ = {};
};

} // namespace tarn::trace
