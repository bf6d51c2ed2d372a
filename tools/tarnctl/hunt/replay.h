// SPDX-License-Identifier: GPL-2.0-only
// Plays a recorded trace into the hosted kernel's slab allocator.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <hosted/slab.h>
#include <hosted/task_control.h>
#include <tarnctl/trace/cache_index.h>
#include <tarnctl/trace/event.h>
#include <tarnctl/trace/stacks.h>

namespace tarn
{

// The caches of a trace on the hosted kernel, and any number of replays of it. For one thread.
class replay
{
public:
	// The frames of a stack that the replay enters: as many as the module saves.
	static constexpr std::size_t frame_limit = 7;

	// Creates the trace's caches. The trace is read anew at each replay.
	replay(trace::trace_path path, const trace::cache_index &index);

	// Allocates the objects that the trace frees without having allocated them: they were there
	// before the recording began. No hook fires. Before each run; a second call adds nothing.
	void allocate_existing();

	// Replays all events; drain threads get their turn whenever one has work. Throws
	// trace::trace_error.
	void run(const trace::cache_index::progress &report = {});

private:
	void enter(const trace::event &event);
	void act(const trace::event &event);
	void *take(const trace::event &event);
	void *take_existing(std::uint32_t cache);

	trace::trace_path path_;
	const trace::cache_index &index_;
	trace::stack_table stacks_;
	std::vector<unsigned long> addresses_;	    // by frame number
	std::vector<kmem_cache *> caches_;	    // by the index's numbers
	std::vector<std::vector<void *>> existing_; // likewise: objects without a number
	struct placed {
		void *memory = nullptr;
		std::uint32_t cache = 0;
	};
	std::vector<placed> objects_; // by object number
	hosted::task_ptr task_;
};

} // namespace tarn
