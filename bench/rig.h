// SPDX-License-Identifier: GPL-2.0-only
// Test rigs for the benchmarks: a booted kernel with a tracker, and tasks that allocate. The
// module's rig and the plain tracker's have the same interface, so each benchmark is written once.
#pragma once

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include <hosted/engine/context.h>
#include <hosted/engine/irqs_off.h>
#include <hosted/engine/loader.h>
#include <hosted/engine/machine.h>
#include <hosted/slab.h>
#include <hosted/task_control.h>
#include <hosted/vendor_hooks.h>
#include <platform/hosted/client.h>
#include <slub_track.h>

#include "measure.h"
#include "plain_tracker.h"

namespace bench
{

// Half a ring: the last event of a batch wakes the drain thread.
inline constexpr std::size_t batch_events = slub_ring_entries / 2;
// The number of records that a readout asks for.
inline constexpr std::size_t max_records = 8192;

class rig
{
public:
	static constexpr char side[] = "ours";

	rig();
	// Selects the cache and switches tracking on.
	void track(const std::string &name = "bench");
	// An allocation as the kernel reports it; the object itself is never accessed.
	void fire()
	{
		trace_android_vh_slab_alloc_node(this, 0, cache_);
	}
	// The same without the tracepoint.
	void call()
	{
		probe_(nullptr, this, 0, cache_);
	}
	// Lets the drain thread run and folds in what is left.
	void drain()
	{
		hosted::settle();
		fetch();
	}
	void fetch()
	{
		fetch_(SLUB_ALLOC);
	}
	void set_counts(int count);
	// Returns how long the tracker held its lock.
	std::chrono::nanoseconds read();
	// Allocations recorded since tracking was switched on.
	[[nodiscard]] u64 recorded() const;
	[[nodiscard]] const hosted::loaded_module &module() const
	{
		return module_;
	}

private:
	hosted::machine machine_;
	hosted::loaded_module module_;
	platform::client client_{module_};
	kmem_cache *cache_ = hosted::add_cache("bench", 256);
	decltype(&vh_slab_alloc_node) probe_;
	decltype(&slub_fetch_node) fetch_;
};

// It has its own tracepoint, which fires exactly like the allocator's.
class plain_rig
{
public:
	static constexpr char side[] = "plain";

	plain_rig();
	~plain_rig();
	plain_rig(const plain_rig &) = delete;
	plain_rig &operator=(const plain_rig &) = delete;

	void track()
	{
		tracker_.switch_on();
	}
	void fire()
	{
		hosted::trace_call<android_vh_slab_alloc_node_probe>{point_}(this, 0, cache_);
	}
	void call()
	{
		probe_(&tracker_, this, 0, cache_);
	}
	void drain() {}
	void fetch() {}
	void set_counts(int count)
	{
		tracker_.set_counts(count);
	}
	std::chrono::nanoseconds read()
	{
		tracker_.read(max_records);
		return tracker_.held();
	}

private:
	hosted::machine machine_;
	kmem_cache *cache_ = hosted::add_cache("bench", 256);
	plain_tracker tracker_{cache_};
	tracepoint point_{"plain_slab_alloc_node", 2};
	// volatile: called like the module's probe, through a pointer that the compiler cannot see
	// through.
	decltype(&plain_tracker::probe) volatile probe_ = plain_tracker::probe;
};

// Makes the current thread one (call stack, task) pair after another in shuffled order. One per
// thread at a time.
class callers
{
public:
	explicit callers(std::size_t pairs);
	~callers();
	callers(const callers &) = delete;
	callers &operator=(const callers &) = delete;

	void next()
	{
		const auto &[caller, task] = pairs_[at_];

		at_ = at_ + 1 == pairs_.size() ? 0 : at_ + 1;
		caller_ = caller;
		ctx_.task = task;
	}
	// Switches to a call stack that has not been seen yet.
	void next_new()
	{
		caller_ = unseen += 16;
	}
	[[nodiscard]] std::size_t pairs() const
	{
		return pairs_.size();
	}

private:
	static unsigned long unseen;

	hosted::thread_context &ctx_;
	task_struct *const task_before_;
	std::array<hosted::task_ptr, 10> tasks_;
	std::vector<std::pair<unsigned long, task_struct *>> pairs_;
	std::size_t at_ = 0;
	unsigned long &caller_; // the stack's frame that calls the allocator
};

template <class Event>
void repeat(std::size_t times, Event event)
{
	for (std::size_t i = 0; i < times; i++)
		event();
}

// Makes this many allocations, each by the next caller.
void allocate_as(auto &r, callers &who, std::size_t times)
{
	repeat(times, [&] {
		who.next();
		r.fire();
	});
}

// Makes each pair allocate once and leaves nothing pending.
void see_all(auto &r, callers &who)
{
	for (std::size_t done = 0; done < who.pairs(); done += batch_events) {
		allocate_as(r, who, std::min(who.pairs() - done, batch_events));
		r.drain();
	}
}

// Registers one side of a row: run gets the state and a fresh rig.
template <class Rig, class Run>
void add(const std::string &row, Run run, int iterations = 0)
{
	auto *added = benchmark::RegisterBenchmark((row + "/" + Rig::side).c_str(),
						   [run](benchmark::State &state) {
							   Rig r;
							   run(state, r);
						   });

	if (iterations)
		added->Iterations(iterations);
	else
		added->MinTime(0.01);
	added->UseManualTime()->Unit(benchmark::kNanosecond);
}

template <class Run>
void add_both(const std::string &row, Run run, int iterations = 0)
{
	add<rig>(row, run, iterations);
	add<plain_rig>(row, run, iterations);
}

void add_cma_benchmarks();
void add_record_benchmarks();
void add_readout_benchmarks();
void add_replay_benchmarks(const std::string &xz, const std::string &plain_text);
void add_secpage_benchmarks();
void add_service_benchmarks();

} // namespace bench
