// SPDX-License-Identifier: GPL-2.0-only
// A hunt in a recorded trace, from the file to what is printed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tarn
{

// As the command line gives them. Times are in ns from the first event, limits of 0 are none.
struct trace_hunt_options {
	std::string path; // "-": standard input
	std::string cache;
	bool automatic = false; // the module chooses its target
	std::vector<std::int32_t> pids;
	std::vector<std::string> comms;
	std::vector<std::string> functions;
	std::uint64_t from = 0;
	std::uint64_t to = UINT64_MAX;
	std::uint64_t min_age = 0;
	std::string live_at = "end"; // "end", "peak" or a time
	std::string sort;	     // "bytes", "objects" or "allocated"; of caches "peak", "end"
	std::size_t top = 0;
	std::size_t frames = 0;
	bool stacks = false;
	bool readout = false;
	bool json = false;
	bool log = false;
	bool strict = false;
};

// What to print, and what the process ends with.
struct trace_hunt_output {
	std::string text;
	std::string log; // of the module's kernel, if it was wanted
	int status = 0;	 // exit_damaged with strict, when anything is lost or damaged
};

// Status of a strict hunt in a trace from which anything is lost or in which anything is damaged.
constexpr int exit_damaged = 3;

// Whether this build reads traces.
bool can_hunt_traces();

// Throws trace::trace_error, unknown_cache or hunt_error.
trace_hunt_output run_trace_hunt(const trace_hunt_options &options);
trace_hunt_output run_trace_caches(const trace_hunt_options &options);

} // namespace tarn
