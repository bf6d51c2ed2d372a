// SPDX-License-Identifier: GPL-2.0-only
// Replay of a recorded trace, compressed and as plain text.
#include <string>

#include <tarnctl/hunt/replay.h>
#include <tarnctl/ledger/ledger.h>
#include <tarnctl/trace/reader.h>

#include "rig.h"

namespace bench
{
namespace
{

using tarn::trace::cache_index;

// Precedes every replay: the pass that finds the caches.
void check(benchmark::State &state, const std::string &path)
{
	measure(
		state, cache_index(path).facts().events, CLOCK_THREAD_CPUTIME_ID, [] {},
		[&] { benchmark::DoNotOptimize(cache_index(path).facts().events); });
}

void read(benchmark::State &state, const std::string &path)
{
	const cache_index dir(path);

	measure(
		state, dir.facts().events, CLOCK_THREAD_CPUTIME_ID, [] {},
		[&] {
			tarn::trace::stack_table stacks;
			tarn::trace::reader reader(path, dir, stacks);
			tarn::trace::event event;

			while (reader.next(event))
				benchmark::DoNotOptimize(event.object);
		});
}

// The same with the account of all objects: what `tarnctl hunt` does.
void follow(benchmark::State &state, const std::string &path)
{
	const cache_index dir(path);

	measure(
		state, dir.facts().events, CLOCK_THREAD_CPUTIME_ID, [] {},
		[&] {
			tarn::trace::stack_table stacks;
			tarn::trace::reader reader(path, dir, stacks);
			tarn::ledger::ledger account(dir, stacks, {}, {});
			tarn::trace::event event;

			while (reader.next(event))
				account.take(event);
			account.finish();
			benchmark::DoNotOptimize(account.peak_bytes());
		});
}

// Drains alternate with the replay, so the program's processor time equals the elapsed time on an
// idle machine.
void replay(benchmark::State &state, rig &r, const std::string &path)
{
	const cache_index dir(path);
	tarn::replay trace(path, dir);

	r.track("filp");
	measure(
		state, dir.facts().events, CLOCK_PROCESS_CPUTIME_ID,
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
		add<rig>("ledger" + row, [=](auto &state, rig &) { follow(state, path); });
		add<rig>(
			"tracked replay" + row,
			[=](auto &state, rig &r) { replay(state, r, path); }, 3);
	}
}

} // namespace bench
