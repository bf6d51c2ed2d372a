// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <tarnctl/trace/cache_index.h>
#include <tarnctl/trace/event.h>
#include <tarnctl/trace/line_reader.h>
#include <tarnctl/trace/objects.h>
#include <tarnctl/trace/queue.h>
#include <tarnctl/trace/stacks.h>

#include <cstdint>

namespace tarn::trace
{

// The slab events of a trace in the order of the file, each with its cache, its object and its
// stack; damaged lines are passed over. Not for use by two threads at once.
class reader
{
public:
	// The index is that of the same file; it and the stacks, which give the numbers of frames
	// and stacks, outlive the reader. Throws trace_error if the file cannot be opened.
	reader(const trace_path &path, const cache_index &index, stack_table &stacks);

	// The next event; false at the end. Throws trace_error, also if the file has changed.
	bool next(event &out);

	// The file, for progress in bytes as stored.
	const source &input() const
	{
		return lines_.input();
	}

private:
	void take_line(std::string_view line);
	void take_event(const parsed_line &parsed);
	void resolve_free(const parsed_line &parsed, event &e);

	const cache_index &index_;
	frame_table &frames_;
	line_reader lines_;
	event_queue queue_;
	object_table objects_;
};

} // namespace tarn::trace
