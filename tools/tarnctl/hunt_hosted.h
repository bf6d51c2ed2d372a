// SPDX-License-Identifier: GPL-2.0-only
// A hunt on the hosted kernel, fed by a recorded trace.
#pragma once

#include <string>

#include "hunt.h"

namespace tarn
{

// Whether this build has the hosted kernel.
bool can_hunt_traces();

// Without a cache the trace is replayed untracked first, so that the module can choose its target
// by real footprints. Throws trace::trace_error, unknown_cache or hunt_error.
hunt_result hunt_trace(const std::string &trace, const std::string &cache);

} // namespace tarn
