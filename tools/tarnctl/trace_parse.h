// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "trace_event.h"

#include <cstdint>
#include <string_view>

namespace tarn::trace
{

/** What a line of a trace is. */
enum class line_kind {
	other,	     /**< a comment, a note about lost events, anything not written by the tracer */
	slab_event,  /**< one of those in enum op */
	other_event, /**< any other event */
	stack_header, /**< opens the stack of an event of its CPU */
	stack_frame,
	user_stack_header, /**< opens a stack of user space, of the same form */
	malformed,	   /**< a slab event, but not as the kernel writes it */
};

/** A line taken apart. The strings are parts of the line. */
struct parsed_line {
	/* Of every event and of the stack headers. */
	std::string_view comm; /**< at most 15 characters */
	std::int32_t pid;
	std::uint16_t cpu;
	bool in_interrupt;

	/* Of slab events. */
	op kind;
	std::string_view call_site;
	std::string_view cache; /**< empty: the line names none */
	std::uint64_t ptr;
	std::uint32_t bytes; /**< of allocations */

	/* Of stack frames. */
	std::string_view frame;
};

/** Takes a line apart; sets the members that its kind has. */
line_kind parse_line(std::string_view line, parsed_line &out);

} // namespace tarn::trace
