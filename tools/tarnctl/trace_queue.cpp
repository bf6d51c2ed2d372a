// SPDX-License-Identifier: GPL-2.0-only
#include "trace_queue.h"

#include <utility>

namespace tarn::trace
{

std::uint64_t &event_queue::waiting(std::uint32_t cpu)
{
	if (cpu >= waiting_.size())
		waiting_.resize(cpu + 1, nothing);
	return waiting_[cpu];
}

void event_queue::grow()
{
	std::vector<entry> wider(ring_.size() * 2);
	for (std::uint64_t i = head_; i != tail_; i++)
		wider[i & (wider.size() - 1)] = at(i);
	ring_ = std::move(wider);
}

void event_queue::pass_over(std::uint32_t cpu)
{
	const std::uint64_t before = std::exchange(waiting(cpu), nothing);
	if (before != nothing && before >= head_)
		at(before).complete = true;
}

void event_queue::push(const event &e)
{
	pass_over(e.cpu);
	if (tail_ - head_ == ring_.size())
		grow();
	waiting_[e.cpu] = tail_;
	at(tail_++) = {e, false};
}

void event_queue::open_stack(std::uint32_t cpu)
{
	open_ = std::exchange(waiting(cpu), nothing);
	if (open_ < head_)
		open_ = nothing;
	found_site_ = false;
	spare_count_ = 0;
}

void event_queue::add_frame(std::uint32_t id)
{
	event &e = at(open_).e;
	if (found_site_) {
		e.frames[e.frame_count++] = id;
		if (e.frame_count == frame_limit)
			close_stack();
	} else if (frames_.same_function(id, e.frames[0])) {
		found_site_ = true;
	} else if (spare_count_ < frame_limit && (spare_count_ != 0 || !frames_.is_allocator(id))) {
		spare_[spare_count_++] = id;
	}
}

void event_queue::close_stack()
{
	if (open_ == nothing)
		return;
	entry &done = at(std::exchange(open_, nothing));
	if (!found_site_ && spare_count_ != 0) {
		done.e.frames = spare_;
		done.e.frame_count = spare_count_;
	}
	done.complete = true;
}

void event_queue::finish()
{
	close_stack();
	finished_ = true;
}

bool event_queue::pop(event &out)
{
	if (head_ == tail_)
		return false;
	const entry &oldest = at(head_);
	if (!oldest.complete && !finished_ && tail_ - head_ < limit)
		return false;
	out = oldest.e;
	head_++;
	return true;
}

} // namespace tarn::trace
