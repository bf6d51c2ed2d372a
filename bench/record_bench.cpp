// SPDX-License-Identifier: GPL-2.0-only
// Cost of an allocation, and of the drain afterwards.
#include <atomic>
#include <stop_token>
#include <thread>
#include <vector>

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

// Drops each event: the ring is full, and its thread is awake but does not get to run.
void dropped(benchmark::State &state, rig &r)
{
	callers who(1);

	r.track();
	hosted::hold_thread("slub-alloc");
	allocate_as(r, who, slub_ring_entries);
	measure(
		state, batch_events, CLOCK_THREAD_CPUTIME_ID, [] {},
		[&] { repeat(batch_events, [&] { r.fire(); }); });
	if (r.recorded() != slub_ring_entries)
		state.SkipWithError("some events were not dropped");
	hosted::let_go_thread("slub-alloc");
}

// Threads that record when told to, beside the one that is measured.
template <class Rig>
class recorders
{
public:
	recorders(Rig &r, unsigned threads, std::size_t pairs, std::size_t events)
		: rig_(r), pairs_(pairs), events_(events)
	{
		threads_.reserve(threads);
		while (threads_.size() < threads)
			threads_.emplace_back([this](const std::stop_token &stop) { run(stop); });
	}
	// Waits until all of them have recorded what they were last told to.
	void finish()
	{
		wait(done_);
	}
	// Waits until all of them are ready for the next round.
	void prepare()
	{
		round_++;
		wait(ready_);
	}
	void go()
	{
		go_ = round_;
	}

private:
	void run(const std::stop_token &stop)
	{
		callers who(pairs_);

		for (unsigned round = 1;; round++) {
			ready_++;
			while (go_ != round) {
				if (stop.stop_requested())
					return;
				std::this_thread::yield();
			}
			allocate_as(rig_, who, events_);
			done_++;
		}
	}
	void wait(const std::atomic<unsigned> &threads) const
	{
		while (threads != round_ * threads_.size())
			std::this_thread::yield();
	}

	Rig &rig_;
	const std::size_t pairs_;
	const std::size_t events_;
	unsigned round_ = 0;
	std::atomic<unsigned> ready_ = 0; // threads, summed over the rounds
	std::atomic<unsigned> go_ = 0;
	std::atomic<unsigned> done_ = 0;
	std::vector<std::jthread> threads_; // last: they use all of the above
};

// Several threads record at the same time. What is measured is the processor time of one of them,
// which includes spinning for a lock, but not sleeping for one.
template <class Rig>
void contended(benchmark::State &state, Rig &r, std::size_t pairs, unsigned threads)
{
	const std::size_t events = batch_events / threads - 1;
	callers who(pairs);

	r.track();
	recorders<Rig> others(r, threads - 1, pairs, events);

	measure(
		state, events, CLOCK_THREAD_CPUTIME_ID,
		[&] {
			others.finish();
			r.drain();
			others.prepare();
		},
		[&] {
			others.go();
			allocate_as(r, who, events);
		});
	others.finish();
}

} // namespace

void add_record_benchmarks()
{
	add_both("probe, tracking off",
		 [](auto &state, auto &r) { single(state, r, [&] { r.fire(); }); });
	add_both("probe, tracking off, bare call",
		 [](auto &state, auto &r) { single(state, r, [&] { r.call(); }); });
	add_both("event, known stack", [](auto &state, auto &r) { known_stack(state, r, 1); });
	add<rig>("event dropped", dropped);
	add<plain_rig>("event dropped", [](auto &state, auto &r) { known_stack(state, r, 1); });
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
		for (const unsigned threads : {2U, 4U, 8U})
			add_both(
				fmt::format("event{}, {} threads", row, threads),
				[=](auto &state, auto &r) { contended(state, r, pairs, threads); });
	}
}

} // namespace bench
