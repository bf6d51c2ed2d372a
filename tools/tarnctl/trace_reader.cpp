// SPDX-License-Identifier: GPL-2.0-only
#include "trace_reader.h"

#include "trace_error.h"
#include "trace_parse.h"

#include <algorithm>

namespace tarn::trace
{

reader::reader(const std::string &path, const directory &dir, frame_table &frames)
	: dir_(dir), frames_(frames), lines_(path), queue_(frames)
{
}

bool reader::next(event &out)
{
	std::string_view line;
	while (!queue_.pop(out)) {
		if (!lines_.next(line)) {
			queue_.finish();
			return queue_.pop(out);
		}
		take_line(line);
	}
	return true;
}

void reader::take_line(std::string_view line)
{
	parsed_line parsed;
	switch (parse_line(line, parsed)) {
	case line_kind::stack_frame:
		if (queue_.wants_frame())
			queue_.add_frame(frames_.add(parsed.frame));
		break;
	case line_kind::stack_header:
		queue_.close_stack();
		queue_.open_stack(parsed.cpu);
		break;
	case line_kind::user_stack_header:
		queue_.close_stack();
		break;
	case line_kind::slab_event:
		queue_.close_stack();
		take_event(parsed);
		break;
	case line_kind::other_event:
		queue_.close_stack();
		queue_.pass_over(parsed.cpu);
		break;
	case line_kind::malformed:
		throw trace_error(input().path(), lines_.line_number(),
				  "the event is cut or malformed");
	case line_kind::other:
		break;
	}
}

void reader::take_event(const parsed_line &parsed)
{
	event e = {};
	if (!resolve(parsed, e)) {
		queue_.pass_over(parsed.cpu);
		return;
	}
	e.ptr = parsed.ptr;
	e.bytes = parsed.bytes;
	e.pid = parsed.pid;
	e.cpu = parsed.cpu;
	e.kind = parsed.kind;
	e.in_interrupt = parsed.in_interrupt;
	std::copy(parsed.comm.begin(), parsed.comm.end(), e.comm.begin());
	e.frame_count = 1;
	e.frames[0] = frames_.add(parsed.call_site);
	queue_.push(e);
}

/* Finds the cache and the object; false if the event is to be left out. */
bool reader::resolve(const parsed_line &parsed, event &e)
{
	e.object = none;
	e.displaced = none;
	if (parsed.ptr == 0 && is_free(parsed.kind))
		return false;
	if (parsed.kind == op::kfree) {
		const object freed = objects_.take(parsed.ptr);
		e.object = freed.id;
		e.cache = freed.cache;
		return freed.id != none;
	}

	e.cache = dir_.cache_of(parsed);
	if (e.cache == none)
		throw trace_error(input().path(), lines_.line_number(),
				  "the file has changed while it was read");
	if (!is_free(parsed.kind)) {
		if (parsed.ptr != 0)
			e.object = objects_.add(parsed.ptr, e.cache, e.displaced);
		return true;
	}
	/* An object of another cache was released, and its place taken, unseen. */
	const object freed = objects_.take(parsed.ptr);
	if (freed.cache == e.cache)
		e.object = freed.id;
	else
		e.displaced = freed.id;
	return true;
}

} // namespace tarn::trace
