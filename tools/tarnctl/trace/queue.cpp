// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/trace/queue.h>

#include <algorithm>
#include <utility>

namespace tarn::trace
{

namespace
{

// No kernel records deeper stacks; a damaged file must not grow one without end.
constexpr std::size_t frame_limit = 1024;

} // namespace

std::uint64_t &event_queue::waiting(std::uint32_t cpu)
{
	if (cpu >= waiting_.size())
		waiting_.resize(cpu + 1, nothing);
	return waiting_[cpu];
}

void event_queue::pass_over(std::uint32_t cpu)
{
	const std::uint64_t before = std::exchange(waiting(cpu), nothing);

	if (before != nothing && before >= head_)
		at(before).complete = true;
}

void event_queue::push(const event &e, std::uint32_t site)
{
	pass_over(e.cpu);
	if (ring_.full())
		ring_.set_capacity(ring_.capacity() * 2);
	waiting_[e.cpu] = head_ + ring_.size();
	ring_.push_back({e, site, false});
}

void event_queue::open_stack(std::uint32_t cpu)
{
	open_ = std::exchange(waiting(cpu), nothing);
	if (open_ < head_)
		open_ = nothing;
	block_.clear();
}

void event_queue::add_frame(std::uint32_t id)
{
	if (block_.size() < frame_limit)
		block_.push_back(id);
}

// The stack proper starts at the call site, whose place the event knows better than the block does.
// In a block without it (the caller was inlined) what lies inside the allocator is left out.
std::uint32_t event_queue::add_stack(std::uint32_t site)
{
	const frame_table &frames = stacks_.frames();
	auto from = std::ranges::find_if(
		block_, [&](std::uint32_t id) { return frames.same_function(id, site); });

	stack_.clear();
	if (from != block_.end()) {
		stack_.push_back(site);
		++from;
	} else {
		from = std::ranges::find_if(
			block_, [&](std::uint32_t id) { return !frames.role(id).allocator; });
		if (from == block_.end())
			stack_.push_back(site);
	}
	stack_.insert(stack_.end(), from, block_.end());
	return stacks_.add(stack_);
}

void event_queue::close_stack()
{
	if (open_ == nothing)
		return;
	entry &done = at(std::exchange(open_, nothing));

	if (!block_.empty()) {
		done.e.stack = add_stack(done.site);
		done.e.has_stack = true;
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
	if (ring_.empty())
		return false;
	const entry &oldest = ring_.front();

	if (!oldest.complete && !finished_ && ring_.size() < limit)
		return false;
	if (open_ == head_)
		close_stack();
	out = oldest.e;
	if (!out.has_stack)
		out.stack = stacks_.add({&oldest.site, 1});
	ring_.pop_front();
	head_++;
	return true;
}

} // namespace tarn::trace
