// SPDX-License-Identifier: GPL-2.0-only
// Cost of an allocation, and of the drain afterwards.
#include <atomic>
#include <stop_token>
#include <thread>

#include <fmt/format.h>

#include "rig.h"

namespace bench
{
namespace
{

constexpr int new_stack_iterations = 2; // the stack depot never forgets

// Batches of single events on this thread.
template <class Event>
void single(benchmark::State &state, auto &r, Event event)
{
	measure(
		state, batch_events, CLOCK_THREAD_CPUTIME_ID, [&] { r.drain(); },
		[&] { repeat(batch_events, event); });
}

void known_stack(benchmark::State &state, auto &r, std::size_t pairs)
{
	callers who(pairs);

	r.track();
	see_all(r, who);
	single(state, r, [&] {
		who.next();
		r.fire();
	});
}

void new_stack(benchmark::State &state, auto &r)
{
	callers who(1);

	r.track();
	single(state, r, [&] {
		who.next_new();
		r.fire();
	});
}

// Drains a ring that is one event short of waking the thread; measures the recording too if asked.
void drain(benchmark::State &state, auto &r, std::size_t pairs, bool record_too)
{
	constexpr std::size_t events = batch_events - 1;
	callers who(pairs);

	r.track();
	see_all(r, who);
	measure(
		state, events, CLOCK_THREAD_CPUTIME_ID,
		[&] {
			if (!record_too)
				allocate_as(r, who, events);
		},
		[&] {
			if (record_too)
				allocate_as(r, who, events);
			r.fetch();
		});
}

// Two threads record at the same time; only one is measured.
void contended(benchmark::State &state, auto &r, std::size_t pairs)
{
	constexpr std::size_t events = batch_events / 2 - 1;
	std::atomic<unsigned> ready = 0;
	std::atomic<unsigned> go = 0;
	std::atomic<unsigned> done = 0;
	const auto wait = [](const std::atomic<unsigned> &until, unsigned round) {
		while (until != round)
			std::this_thread::yield();
	};

	r.track();
	std::jthread other([&](const std::stop_token &stop) {
		callers who(pairs);

		for (unsigned round = 1;; round++) {
			ready = round;
			while (go != round) {
				if (stop.stop_requested())
					return;
			}
			allocate_as(r, who, events);
			done = round;
		}
	});
	callers who(pairs);
	unsigned round = 0;

	measure(
		state, events, CLOCK_MONOTONIC,
		[&] {
			wait(done, round);
			r.drain();
			wait(ready, ++round);
		},
		[&] {
			go = round;
			allocate_as(r, who, events);
		});
	wait(done, round);
}

} // namespace

void add_record_benchmarks()
{
	add_both("probe, tracking off",
		 [](auto &state, auto &r) { single(state, r, [&] { r.fire(); }); });
	add_both("probe, tracking off, bare call",
		 [](auto &state, auto &r) { single(state, r, [&] { r.call(); }); });
	add_both("event, known stack", [](auto &state, auto &r) { known_stack(state, r, 1); });
	add_both(
		"event, new stack", [](auto &state, auto &r) { new_stack(state, r); },
		new_stack_iterations);
	for (const std::size_t pairs : {10, 1000, 100000}) {
		const std::string row = fmt::format(", {} pairs", pairs);

		add_both("event" + row,
			 [=](auto &state, auto &r) { known_stack(state, r, pairs); });
		add<rig>("drain of an entry" + row,
			 [=](auto &state, auto &r) { drain(state, r, pairs, false); });
		add_both("event and its drain" + row,
			 [=](auto &state, auto &r) { drain(state, r, pairs, true); });
		add_both("event" + row + ", two threads",
			 [=](auto &state, auto &r) { contended(state, r, pairs); });
	}
}

} // namespace bench
