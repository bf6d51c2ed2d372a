// SPDX-License-Identifier: GPL-2.0-only
// The watermark check and one pass of the killer. The plain way is a lower bound for the job: the
// same numbers from plain arrays, without a lock.
#include <array>
#include <random>
#include <string>
#include <vector>

#include <hosted/engine/log.h>
#include <hosted/mmzone.h>
#include <hosted/process.h>

#include "rig.h"

namespace bench
{
namespace
{

constexpr std::size_t checks = 1000;
constexpr int processes = 10000;
constexpr unsigned cpus = 8;
constexpr auto movable_zone = static_cast<zone_type>(2);
constexpr unsigned order = 3;

struct plain_zone {
	bool skipped = false;
	long free = 0;
	long unusable = 0;
	long high_wmark = 0;
	long reserve = 0;
	long drift_mark = 0;
	std::array<signed char, cpus> diffs{};
	std::array<std::array<unsigned, 3>, 10> blocks{};
};

bool plain_check(const std::array<plain_zone, 3> &zones)
{
	for (const plain_zone &z : zones) {
		if (z.skipped)
			continue;
		long free = z.free;
		if (free < z.drift_mark)
			for (const signed char diff : z.diffs)
				free += diff;
		if (free - z.unusable - 7 <= z.high_wmark + 8 + z.reserve)
			return false;
		unsigned o = order;
		while (o < z.blocks.size() && !(z.blocks[o][0] | z.blocks[o][1] | z.blocks[o][2]))
			o++;
		if (o == z.blocks.size())
			return false;
	}
	return true;
}

// Both zones with memory pass at the third order searched.
void set_zones(unsigned long drift_mark)
{
	for (const int index : {1, 2}) {
		hosted::set_zone(index,
				 {.high_wmark = 100, .free = 9000, .drift_mark = drift_mark});
		hosted::set_free_blocks(index, order + 2, 1, 1);
	}
}

void watermark(benchmark::State &state, rig &r, unsigned long drift_mark)
{
	auto *const ok = r.module().symbol<bool(zone_type, unsigned)>("tarn_zone_watermark_ok");
	bool all = true;

	set_zones(drift_mark);
	measure(
		state, checks, CLOCK_THREAD_CPUTIME_ID, [] {},
		[&] { repeat(checks, [&] { all &= ok(movable_zone, order); }); });
	if (!all)
		state.SkipWithError("the check fails");
}

void plain_watermark(benchmark::State &state, long drift_mark)
{
	// volatile: called like an export.
	decltype(&plain_check) volatile const check = plain_check;
	std::array<plain_zone, 3> zones{};
	bool all = true;

	zones[2].skipped = true;
	for (const int at : {0, 1}) {
		zones[at] = {.free = 9000, .high_wmark = 100, .drift_mark = drift_mark};
		zones[at].blocks[order + 2][1] = 1;
	}
	measure(
		state, checks, CLOCK_THREAD_CPUTIME_ID, [] {},
		[&] { repeat(checks, [&] { all &= check(zones); }); });
	if (!all)
		state.SkipWithError("the check fails");
}

struct plain_process {
	unsigned flags;
	unsigned state;
	int oom_score_adj;
	std::array<long, 3> pages;
};

std::vector<plain_process> random_processes()
{
	std::mt19937 random(1);
	std::vector<plain_process> all(processes);

	for (plain_process &p : all) {
		p.oom_score_adj = static_cast<int>(random() % 1000);
		for (long &pages : p.pages)
			pages = static_cast<long>(random() % 100000);
	}
	return all;
}

void kill_pass(benchmark::State &state, rig &r)
{
	auto *const kill = r.module().symbol<unsigned long(int, unsigned long)>("tarn_direct_kill");
	int pid = 0;

	for (const plain_process &p : random_processes())
		hosted::add_process("app", ++pid, {p.pages[0], p.pages[1], 0, p.pages[2]},
				    p.oom_score_adj);
	measure(
		state, processes, CLOCK_THREAD_CPUTIME_ID,
		[] {
			hosted::take_log();
			hosted::take_signals();
		},
		[&] { kill(0, 0); });
	if (hosted::take_signals().size() != 1)
		state.SkipWithError("no pass");
}

void plain_kill_pass(benchmark::State &state)
{
	const std::vector<plain_process> all = random_processes();

	measure(
		state, processes, CLOCK_THREAD_CPUTIME_ID, [] {},
		[&] {
			long best = 0;

			for (const plain_process &p : all) {
				const long size = p.pages[0] + p.pages[1] + p.pages[2];

				if (!(p.flags & PF_KTHREAD) && !(p.state & TASK_UNINTERRUPTIBLE) &&
				    p.oom_score_adj >= 600 && size >= best)
					best = size;
			}
			benchmark::DoNotOptimize(best);
		});
}

} // namespace

void add_service_benchmarks()
{
	for (const long drift_mark : {0L, 1L << 40}) {
		const std::string row =
			drift_mark ? "watermark check, snapshot" : "watermark check";

		add<rig>(row, [=](auto &state, rig &r) { watermark(state, r, drift_mark); });
		add<plain_rig>(row,
			       [=](auto &state, auto &) { plain_watermark(state, drift_mark); });
	}
	add<rig>("direct kill, a process", kill_pass);
	add<plain_rig>("direct kill, a process",
		       [](auto &state, auto &) { plain_kill_pass(state); });
}

} // namespace bench
