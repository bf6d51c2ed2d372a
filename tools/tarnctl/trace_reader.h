// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "trace_directory.h"
#include "trace_event.h"
#include "trace_frames.h"
#include "trace_line_reader.h"
#include "trace_objects.h"
#include "trace_queue.h"

#include <cstdint>
#include <string>

namespace tarn::trace
{

/**
 * The slab events of a trace in the order of the file, each with its cache, its object and its
 * stack. Releases of what no consumer can know are left out: kfree of a pointer the trace did not
 * allocate, and releases of a null pointer. Not for use by two threads at once.
 */
class reader
{
public:
	/**
	 * @dir is the directory of the same file; it and @frames, which gives the numbers of
	 * frames, outlive the reader. Throws trace_error if the file cannot be opened.
	 */
	reader(const std::string &path, const directory &dir, frame_table &frames);

	/** The next event; false at the end. Throws trace_error, also if the file has changed. */
	bool next(event &out);

	/** The file, for progress in bytes as stored. */
	const source &input() const
	{
		return lines_.input();
	}

private:
	void take_line(std::string_view line);
	void take_event(const parsed_line &parsed);
	bool resolve(const parsed_line &parsed, event &e);

	const directory &dir_;
	frame_table &frames_;
	line_reader lines_;
	event_queue queue_;
	object_table objects_;
};

} // namespace tarn::trace
