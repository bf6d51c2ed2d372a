// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <tarnctl/trace/event.h>

#include <cstdint>
#include <string_view>

namespace tarn::trace
{

// What a line of a trace is.
enum class line_kind {
	other,	      // a comment or anything else not written by the tracer
	slab_event,   // one of those in enum op
	other_event,  // any other event
	stack_header, // opens the stack of an event of its CPU
	stack_frame,
	user_stack_header, // opens a stack of user space, of the same form
	lost_events,	   // the CPU wrote events that the trace does not have
	buffer_counts,	   // the header's entries in the buffer and entries written
	malformed,	   // a slab event, but not as the kernel writes it
};

// A line taken apart. The strings are parts of the line.
struct parsed_line {
	// Of every event, of the stack headers, and of malformed lines with a header.
	std::string_view comm; // at most 15 characters
	std::uint64_t time;    // ns; of a clock without a fraction its ticks
	std::int32_t pid;
	std::uint16_t cpu; // also of lost events
	bool in_interrupt;
	bool has_header; // of malformed lines: whether they have one

	// Of slab events.
	op kind;
	std::string_view call_site;
	std::string_view cache; // empty: the line names none
	std::uint64_t ptr;
	std::uint32_t bytes; // of allocations
	bool hidden_pointer; // of malformed lines: the kernel wrote (____ptrval____)

	// Of stack frames.
	std::string_view frame;

	// Of lost events the number, at least 1; of buffer counts those that were overwritten.
	std::uint64_t lost;
};

// Takes a line apart; sets the members that its kind has.
line_kind parse_line(std::string_view line, parsed_line &out);

} // namespace tarn::trace
