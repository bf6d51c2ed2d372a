// SPDX-License-Identifier: GPL-2.0-only
// A slab leak hunt: prepare, switch on, let the system run, switch off, read out.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

#include <tarnctl/hunt/hunt_backend.h>
#include <tarnctl/hunt/readout.h>

namespace tarn
{

struct growth {
	std::uint64_t start_kib = 0;
	std::int64_t delta_kib = 0;
	std::uint64_t end_kib = 0;
};

// What a hunt brings home. The callers come out of the readout buffer and from nowhere else.
struct hunt_result {
	std::string cache;
	std::optional<std::uint32_t> object_size; // bytes, where it can be learnt
	growth target;
	std::optional<event_counts> events; // an older module does not tell
	readout callers;
	std::string log; // the kernel log of the hunt
};

struct hunt_error : std::runtime_error {
	using std::runtime_error::runtime_error;
};

// Where the hunt takes place there is no such cache.
struct unknown_cache : hunt_error {
	using hunt_error::hunt_error;
};

// Runs the hunt on a device; let_run is what happens while tracking is on. Fills in all but the
// object size. Throws hunt_error when the module refuses a step, unknown_cache when it
// does not find the named cache. Tracking is off again in any case.
hunt_result run_hunt(hunt_backend &device, const std::string &cache,
		     const std::function<void()> &let_run);

} // namespace tarn
