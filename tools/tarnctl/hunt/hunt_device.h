// SPDX-License-Identifier: GPL-2.0-only
// A hunt on the running kernel.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include <tarnctl/hunt/hunt.h>
#include <tarnctl/hunt/slab_sampler.h>

namespace tarn
{

struct device_hunt_options {
	std::string cache;	// empty: the one that grows fastest
	bool automatic = false; // without a cache the module chooses
	std::chrono::seconds time{10};
};

enum class target_choice {
	named,	 // by the user
	fastest, // it grew fastest while the hunt only observed
	module,
};

// What a hunt on a device brings home. Times count from its beginning.
struct device_hunt {
	hunt_result result;
	slab_sampler slabs;
	target_choice choice = target_choice::module;
	time_span observed; // before tracking; empty if the target was known
	time_span tracked;
	std::vector<std::string> merged; // caches whose events count as the target's
};

// The time that passes during a hunt.
class hunt_clock
{
public:
	virtual ~hunt_clock() = default;

	// Since the hunt began.
	virtual std::chrono::nanoseconds now() = 0;
	// Waits; true if the hunt is to end early.
	virtual bool wait(std::chrono::milliseconds time) = 0;
};

// Throws device_error, unknown_cache or hunt_error.
device_hunt run_device_hunt(hunt_backend &kernel, hunt_clock &clock, slab_sampler slabs,
			    const device_hunt_options &options);

// The same on this machine. A signal ends it early.
device_hunt hunt_device(const std::string &device, const device_hunt_options &options);

} // namespace tarn
