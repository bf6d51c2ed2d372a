// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/hunt/replay.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>
#include <hosted/engine/callstack.h>
#include <hosted/engine/context.h>
#include <hosted/engine/fault.h>
#include <tarnctl/trace/reader.h>

namespace tarn
{

namespace
{

// How often a run tells of its progress, in events.
constexpr std::uint64_t report_interval = 4096;

// A function larger than this is a damaged line.
constexpr std::uint32_t max_function_size = 1 << 24;

// What cannot be a place in a function is kept as the trace wrote it, as a name.
unsigned long address_of(const trace::frame &frame)
{
	if (frame.offset > frame.size || frame.size > max_function_size)
		return hosted::symbol_address(
			fmt::format("{}+{:#x}/{:#x}", frame.function, frame.offset, frame.size), 0,
			0, frame.module);
	return hosted::symbol_address(frame.function, frame.offset, frame.size, frame.module);
}

// An allocation that the recorded system had has to succeed here, too.
void *must_have(void *object)
{
	if (!object)
		throw std::runtime_error("the trace keeps more memory than the hosted kernel has");
	return object;
}

} // namespace

replay::replay(trace::trace_path path, const trace::cache_index &index)
	: path_(std::move(path)), index_(index), existing_(index.caches().size()),
	  task_(hosted::make_task("", 0))
{
	for (const trace::cache &cache : index.caches())
		caches_.push_back(hosted::add_cache(
			cache.name, cache.object_size,
			SLAB_NO_MERGE | (cache.reclaimable ? SLAB_RECLAIM_ACCOUNT : 0)));
}

void replay::allocate_existing()
{
	for (std::uint32_t cache = 0; cache < caches_.size(); cache++) {
		std::vector<void *> &pool = existing_[cache];

		while (pool.size() < index_.caches()[cache].existing)
			pool.push_back(
				must_have(hosted::allocate_untraced(*caches_[cache], GFP_KERNEL)));
	}
}

void *replay::take_existing(std::uint32_t cache)
{
	std::vector<void *> &pool = existing_[cache];

	// One call site may serve several caches, of which the index knows one; an object that
	// is freed into another of them shows up here.
	if (pool.empty())
		return must_have(hosted::allocate_untraced(*caches_[cache], GFP_ATOMIC));
	void *object = pool.back();

	pool.pop_back();
	return object;
}

// The memory that the event frees. An object whose allocation did not name its cache may turn out
// to be another cache's: it is exchanged for one of that cache.
void *replay::take(const trace::event &event)
{
	if (event.object == trace::none)
		return take_existing(event.cache);
	const placed known = std::exchange(objects_[event.object], {});

	if (known.cache == event.cache)
		return known.memory;
	hosted::release_quietly(*caches_[known.cache], known.memory);
	return take_existing(event.cache);
}

void replay::act(const trace::event &event)
{
	kmem_cache &cache = *caches_[event.cache];

	if (event.displaced != trace::none) {
		const placed gone = std::exchange(objects_[event.displaced], {});

		hosted::release_quietly(*caches_[gone.cache], gone.memory);
	}
	if (trace::is_free(event.kind)) {
		hosted::release(cache, take(event));
		return;
	}
	if (event.object == trace::none) {
		const hosted::fault_scope failed("kmem_cache_alloc");

		hosted::allocate(cache, GFP_ATOMIC);
		return;
	}
	if (event.object >= objects_.size())
		objects_.resize(event.object + 1);
	objects_[event.object] = {must_have(hosted::allocate(cache, GFP_ATOMIC)), event.cache};
}

void replay::enter(const trace::event &event)
{
	const hosted::context_scope context(event.in_interrupt ? hosted::context_kind::softirq
							       : hosted::context_kind::process,
					    event.cpu);
	const trace::frame_table &known = stacks_.frames();
	const std::span<const std::uint32_t> called = stacks_[event.stack];
	std::array<unsigned long, frame_limit> stack;
	const std::size_t depth = std::min(called.size(), frame_limit);

	while (addresses_.size() < known.size())
		addresses_.push_back(
			address_of(known[static_cast<std::uint32_t>(addresses_.size())]));
	for (std::size_t i = 0; i < depth; i++)
		stack[i] = addresses_[called[i]];
	const hosted::frame_scope frames(std::span<const unsigned long>(stack.data(), depth));

	hosted::set_task(*task_, event.task(), event.pid);
	act(event);
}

void replay::run(const trace::cache_index::progress &report)
{
	trace::reader reader(path_, index_, stacks_);
	trace::event event;
	std::uint64_t events = 0;
	const hosted::task_scope as_task(*task_);

	objects_.clear();
	hosted::settle();
	while (reader.next(event)) {
		// Nobody can know what a kfree of an object from before the recording freed.
		if (event.cache == trace::none || (trace::is_free(event.kind) && event.ptr == 0))
			continue;
		enter(event);
		hosted::settle();
		if (report && ++events % report_interval == 0)
			report(reader.input().position(), reader.input().size());
	}
}

} // namespace tarn
