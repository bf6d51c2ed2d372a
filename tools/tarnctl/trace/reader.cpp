// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/trace/reader.h>

#include <tarnctl/trace/error.h>
#include <tarnctl/trace/parse.h>

#include <algorithm>

namespace tarn::trace
{

reader::reader(const trace_path &path, const cache_index &index, stack_table &stacks)
	: index_(index), frames_(stacks.frames()), lines_(path), queue_(stacks)
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
	case line_kind::lost_events: // a stack that follows is that of a lost event
		queue_.close_stack();
		queue_.pass_over(parsed.cpu);
		break;
	case line_kind::malformed:
		queue_.close_stack();
		if (parsed.has_header)
			queue_.pass_over(parsed.cpu);
		break;
	case line_kind::buffer_counts:
	case line_kind::other:
		break;
	}
}

void reader::take_event(const parsed_line &parsed)
{
	event e = {};

	e.ptr = parsed.ptr;
	e.time = parsed.time;
	e.bytes = parsed.bytes;
	e.pid = parsed.pid;
	e.cpu = parsed.cpu;
	e.kind = parsed.kind;
	e.in_interrupt = parsed.in_interrupt;
	std::ranges::copy(parsed.comm, e.comm.begin());
	e.object = none;
	e.displaced = none;
	e.cache = index_.cache_of(parsed);
	if (e.cache == none && !(is_free(parsed.kind) && parsed.cache.empty()))
		throw trace_error(lines_.input().name(), "has changed while it was read");
	if (is_free(parsed.kind))
		resolve_free(parsed, e);
	else if (parsed.ptr != 0)
		e.object = objects_.add(parsed.ptr, e.cache,
					parsed.kind == op::kmem_cache_alloc && parsed.cache.empty(),
					e.displaced);
	queue_.push(e, frames_.add(parsed.call_site));
}

// A free that names another cache than the object at that address is known to have come from: the
// object's own free went unseen. Where its cache was only guessed, the free knows better.
void reader::resolve_free(const parsed_line &parsed, event &e)
{
	if (parsed.ptr == 0)
		return;
	const object freed = objects_.take(parsed.ptr);

	if (parsed.cache.empty()) {
		e.object = freed.id;
		e.cache = freed.cache;
	} else if (freed.cache == e.cache || freed.guessed) {
		e.object = freed.id;
	} else {
		e.displaced = freed.id;
	}
}

} // namespace tarn::trace
