// SPDX-License-Identifier: GPL-2.0-only
// A slab leak hunt: prepare, switch on, let the system run, switch off, read out.
#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>

#include "memcheck_device.h"
#include "readout.h"

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
	std::uint32_t object_size = 0; // bytes
	growth target;
	std::uint64_t alloc_events = 0; // recorded
	std::uint64_t free_events = 0;
	std::uint64_t dropped_events = 0;
	readout callers;
	std::string log; // the kernel log of the hunt
};

struct hunt_error : std::runtime_error {
	using std::runtime_error::runtime_error;
};

// Runs the hunt on a device; let_run is what happens while tracking is on. Fills in the callers,
// the growth and the log. Throws hunt_error when the module refuses a step.
hunt_result run_hunt(memcheck_device &device, const std::string &cache,
		     const std::function<void()> &let_run);

} // namespace tarn
