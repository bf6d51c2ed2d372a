// SPDX-License-Identifier: GPL-2.0-only
// A hunt on the hosted kernel, fed by a recorded trace.
#pragma once

#include <string>

#include <tarnctl/hunt/hunt.h>
#include <tarnctl/trace/cache_index.h>

namespace tarn
{

// Loads the module on a fresh hosted kernel and lets it track the replayed trace. Without a cache
// the trace is replayed untracked first, so that the module can choose its target by real
// footprints. The index is that of the trace. Throws trace::trace_error, unknown_cache or
// hunt_error.
hunt_result hunt_trace(const trace::trace_path &path, const trace::cache_index &index,
		       const std::string &cache);

} // namespace tarn
