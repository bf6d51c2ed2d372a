// SPDX-License-Identifier: GPL-2.0-only
// The replay of a recorded trace, compressed as it is and as plain text.
#include <string>

#include <tarnctl/replay.h>
#include <tarnctl/trace_reader.h>

#include "rig.h"

namespace bench
{
namespace
{

using tarn::trace::directory;

// What precedes every replay: the pass that finds the caches.
void check(benchmark::State &state, const std::string &path)
{
	measure(
		state, directory(path).event_lines(), CLOCK_THREAD_CPUTIME_ID, [] {},
		[&] { benchmark::DoNotOptimize(directory(path).event_lines()); });
}

void read(benchmark::State &state, const std::string &path)
{
	const directory dir(path);

	measure(
		state, dir.event_lines(), CLOCK_THREAD_CPUTIME_ID, [] {},
		[&] {
			tarn::trace::frame_table frames;
			tarn::trace::reader reader(path, dir, frames);
			tarn::trace::event event;

			while (reader.next(event))
				benchmark::DoNotOptimize(event.object);
		});
}

// Drains take turns with the replay, so the program's processor time is what passes on an idle
// machine.
void replay(benchmark::State &state, rig &r, const std::string &path)
{
	const directory dir(path);
	tarn::replay trace(path, dir);

	r.track("filp");
	measure(
		state, dir.event_lines(), CLOCK_PROCESS_CPUTIME_ID,
		[&] { trace.allocate_existing(); }, [&] { trace.run(); });
	if (r.recorded() == 0)
		state.SkipWithError("nothing was recorded");
}

} // namespace

void add_replay_benchmarks(const std::string &xz, const std::string &plain_text)
{
	for (const std::string &path : {xz, plain_text}) {
		const std::string row = path == xz ? ", xz" : ", plain text";

		add<rig>("trace check" + row, [=](auto &state, rig &) { check(state, path); });
		add<rig>("trace reading" + row, [=](auto &state, rig &) { read(state, path); });
		add<rig>(
			"tracked replay" + row,
			[=](auto &state, rig &r) { replay(state, r, path); }, 3);
	}
}

} // namespace bench
