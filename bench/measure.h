// SPDX-License-Identifier: GPL-2.0-only
// The measuring of one benchmark.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

#include <benchmark/benchmark.h>

namespace bench
{

// User-space instructions of the thread that asked first; 0 where the machine cannot count them.
std::uint64_t instructions();

inline double seconds(clockid_t clock)
{
	timespec ts = {};

	clock_gettime(clock, &ts);
	return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// Measures batch, which is that many events, once an iteration; prepare runs before each. The clock
// is the thread's or the program's own processor time, which other programs do not share in, or
// where threads wait for each other the wall's.
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
