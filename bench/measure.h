// SPDX-License-Identifier: GPL-2.0-only
// Measures one benchmark.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

#include <benchmark/benchmark.h>

namespace bench
{

// User-space instructions of the thread that called first; 0 if the machine cannot count them.
std::uint64_t instructions();

inline double seconds(clockid_t clock)
{
	timespec ts = {};

	clock_gettime(clock, &ts);
	return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// Measures batch, which consists of this many events, once per iteration; prepare runs before each.
// The clock is the processor time of the thread or the program, which other programs do not affect,
// or the wall clock where threads wait for each other.
template <class Prepare, class Batch>
void measure(benchmark::State &state, std::size_t events, clockid_t clock, Prepare prepare,
	     Batch batch)
{
	std::uint64_t counted = 0;

	for ([[maybe_unused]] const auto iteration : state) {
		prepare();
		const std::uint64_t counted_before = instructions();
		const double start = seconds(clock);

		batch();
		state.SetIterationTime(seconds(clock) - start);
		counted += instructions() - counted_before;
	}
	state.counters["events"] = static_cast<double>(events);
	state.counters["instructions"] =
		static_cast<double>(counted) /
		static_cast<double>(events * static_cast<std::size_t>(state.iterations()));
}

} // namespace bench
