// SPDX-License-Identifier: GPL-2.0-only
// Plays a recorded trace into the hosted kernel's slab allocator.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <hosted/slab.h>
#include <hosted/tasks.h>
#include <tarnctl/trace_directory.h>
#include <tarnctl/trace_event.h>
#include <tarnctl/trace_frames.h>

namespace tarn
{

// The caches of a trace on the hosted kernel, and any number of replays of it. For one thread.
class replay
{
public:
	// Creates the trace's caches. The trace is read anew at each replay.
	replay(std::string path, const trace::directory &directory);

	// Allocates the objects that the trace frees without having allocated them: they were there
	// before the recording began. No hook fires. Before each run.
	void allocate_existing();

	struct counts {
		std::uint64_t alloc = 0;
		std::uint64_t free = 0;
	};
	// Replays all events; drain threads get their turn whenever one has work. Returns how many
	// events each cache has seen, by the directory's numbers. Throws trace::trace_error.
	std::vector<counts> run(const trace::directory::progress &report = {});

private:
	void enter(const trace::event &event);
	void act(const trace::event &event);
	void *take_existing(std::uint32_t cache);

	std::string path_;
	const trace::directory &directory_;
	trace::frame_table frames_;
	std::vector<unsigned long> addresses_;	    // by frame number
	std::vector<kmem_cache *> caches_;	    // by the directory's numbers
	std::vector<std::vector<void *>> existing_; // likewise: objects without a number
	struct placed {
		void *memory = nullptr;
		std::uint32_t cache = 0;
	};
	std::vector<placed> objects_; // by object number
	hosted::task_ptr task_;
};

} // namespace tarn
