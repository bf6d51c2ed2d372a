// SPDX-License-Identifier: GPL-2.0-only
// Readouts and notifications.
#include <chrono>

#include <fmt/format.h>
#include <hosted/engine/log.h>
#include <platform/hosted/lmkd.h>

#include "rig.h"

namespace bench
{
namespace
{

constexpr int seen_often = 100;
constexpr std::size_t queue_capacity = 64; // of the daemon's socket

void readout(benchmark::State &state, auto &r, std::size_t pairs)
{
	callers who(pairs);
	std::chrono::duration<double, std::nano> locked{};

	r.track();
	measure(
		state, 1, CLOCK_THREAD_CPUTIME_ID,
		[&] {
			hosted::take_log();
			see_all(r, who);
			r.set_counts(seen_often);
		},
		[&] { locked += r.read(); });
	state.counters["locked"] = locked.count() / static_cast<double>(state.iterations());
}

void notification(benchmark::State &state, rig &r)
{
	platform::lmkd daemon(100, queue_capacity);
	auto *const lmkd_notify = r.module().symbol<int(unsigned)>("lmkd_notify");

	daemon.handshake();
	measure(
		state, queue_capacity, CLOCK_THREAD_CPUTIME_ID,
		[&] {
			daemon.collect();
			hosted::take_log();
		},
		[&] { repeat(queue_capacity, [&] { lmkd_notify(8); }); });
	if (daemon.collect().size() != queue_capacity)
		state.SkipWithError("notifications were lost");
}

} // namespace

void add_readout_benchmarks()
{
	for (const std::size_t pairs : {1000, 100000})
		add_both(
			fmt::format("readout of {} pairs", pairs),
			[=](auto &state, auto &r) { readout(state, r, pairs); },
			pairs > 1000 ? 1 : 5);
	add<rig>("notification", notification);
}

} // namespace bench
