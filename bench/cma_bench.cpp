// SPDX-License-Identifier: GPL-2.0-only
// Cost of the CMA probes, listings, the pin probes and the abort hooks. The plain side of the CMA
// probes is the plain bookkeeping: a walk over an array of the same records, without a lock, an
// allocation or a stack capture.
#include <chrono>
#include <cstring>
#include <optional>
#include <random>
#include <stdexcept>

#include <cma_track.h>
#include <fmt/format.h>
#include <hosted/cma.h>
#include <hosted/core_tracepoints.h>
#include <hosted/engine/callstack.h>
#include <hosted/engine/irqs_off.h>
#include <hosted/engine/log.h>
#include <hosted/kprobes.h>
#include <hosted/pins.h>
#include <hosted/sysfs.h>

#include "rig.h"

namespace bench
{
namespace
{

constexpr unsigned long area_pages = 262144;
constexpr unsigned long range_pages = 2;
constexpr std::size_t batch = 256;
constexpr std::size_t many = 100000;

// The module's records. The area is not the target, so its usage is neither counted nor reported.
class cma_rig
{
public:
	static constexpr char side[] = "ours";

	void alloc(unsigned long pfn)
	{
		trace_cma_alloc_finish(name_, pfn, nullptr, range_pages, 0, 0);
	}
	void release(unsigned long pfn)
	{
		trace_cma_release(name_, pfn, nullptr, range_pages);
	}
	// The listing of this many records, without the listing's text.
	void list(std::size_t records)
	{
		std::size_t lines = 0;
		std::string text;
		const hosted::log_watch counted([&](const std::string &line) {
			lines += line.find("show_info") != std::string::npos;
		});

		hosted::read_file("/sys/kernel/debug/tarn_cma/camera/show", text);
		hosted::take_log();
		if (lines < records)
			throw std::runtime_error("records are missing from the listing");
	}
	// Unloads the module, which frees its records.
	void unload()
	{
		module_.reset();
	}

private:
	hosted::machine machine_;
	const char *name_ = helper_cma_name(&hosted::add_cma_area("camera", 0, area_pages));
	std::optional<hosted::loaded_module> module_{std::in_place};
	// As deep as the stack of a driver's allocation.
	const std::vector<unsigned long> stack_ = [] {
		constexpr int depth = 12;
		std::vector<unsigned long> frames;

		frames.reserve(depth);
		for (int i = 0; i < depth; i++)
			frames.push_back(
				hosted::symbol_address(fmt::format("frame_{}", i), 0x20, 0x80));
		return frames;
	}();
	const hosted::frame_scope frames_{stack_};
};

// The newest record is last and is examined first.
class array_rig
{
public:
	static constexpr char side[] = "plain";

	array_rig()
	{
		records_.reserve(area_pages);
	}
	void alloc(unsigned long pfn)
	{
		record r{};
		std::memcpy(r.name, name_, sizeof(name_));
		r.start = pfn;
		r.end = pfn + range_pages - 1;
		records_.push_back(r);
	}
	void release(unsigned long pfn)
	{
		const unsigned long end = pfn + range_pages - 1;

		for (auto at = records_.rbegin(); at != records_.rend(); ++at) {
			if (std::strncmp(at->name, name_, sizeof(name_)) != 0)
				continue;
			if (at->start == pfn || at->end == end ||
			    (at->start <= end && at->end >= pfn)) {
				*at = records_.back();
				records_.pop_back();
				return;
			}
		}
	}

private:
	struct record {
		char name[CMA_MAX_NAME];
		unsigned long start;
		unsigned long end;
	};

	char name_[CMA_MAX_NAME] = "camera";
	std::vector<record> records_;
};

// Ranges in shuffled order; the first ones are live.
template <class Rig>
class live_ranges
{
public:
	live_ranges(Rig &rig, std::size_t live) : rig_(rig)
	{
		for (std::size_t i = 0; i < ranges_.size(); i++)
			ranges_[i] = i * range_pages;
		std::ranges::shuffle(ranges_, random_);
		while (live_ < live)
			alloc();
	}
	void alloc()
	{
		rig_.alloc(ranges_[live_++]);
	}
	void release_newest()
	{
		rig_.release(ranges_[--live_]);
	}
	// On average this examines half of the records.
	void release_any()
	{
		std::swap(ranges_[random_() % live_], ranges_[live_ - 1]);
		release_newest();
	}

private:
	Rig &rig_;
	std::vector<unsigned long> ranges_ = std::vector<unsigned long>(area_pages / range_pages);
	std::size_t live_ = 0;
	std::minstd_rand random_{1};
};

template <class Rig>
void cma_alloc(benchmark::State &state, Rig &r, std::size_t live)
{
	live_ranges<Rig> ranges(r, live);

	repeat(batch, [&] { ranges.alloc(); });
	measure(
		state, batch, CLOCK_THREAD_CPUTIME_ID,
		[&] { repeat(batch, [&] { ranges.release_newest(); }); },
		[&] { repeat(batch, [&] { ranges.alloc(); }); });
}

template <class Rig>
void cma_alloc_and_release(benchmark::State &state, Rig &r, std::size_t live)
{
	live_ranges<Rig> ranges(r, live);

	measure(
		state, batch, CLOCK_THREAD_CPUTIME_ID, [] {},
		[&] {
			repeat(batch, [&] {
				ranges.alloc();
				ranges.release_any();
			});
		});
}

// Adds a row with the longest time that a part of the module kept interrupts off.
template <class Part>
void irqs_off(benchmark::State &state, const char *lock_class, Part part)
{
	const hosted::irqs_off_timer timer;

	measure(
		state, 1, CLOCK_THREAD_CPUTIME_ID, [] {}, part);
	state.counters["irqs_off"] = static_cast<double>(timer.longest(lock_class).count());
}

// What the timer shows of a lock that is held for nothing: the host's own delays.
class empty_rig
{
public:
	static constexpr char side[] = "plain";

	empty_rig()
	{
		helper_raw_spin_lock_init(&lock_, "empty_lock", &key_);
	}
	void take_lock()
	{
		const irqsave_guard guard(lock_);
	}

private:
	hosted::machine machine_;
	lock_class_key key_ = {};
	raw_spinlock_t lock_ = {};
};

// A kernel whose first pageblock is CMA, with or without the module.
template <bool loaded>
class kernel_rig
{
public:
	static constexpr const char *side = loaded ? "ours" : "plain";

	kernel_rig()
	{
		hosted::add_frames(0, 2 * hosted::pageblock_pages);
		hosted::set_migratetype(0, KERNEL_MIGRATE_CMA);
		if constexpr (loaded)
			module_.emplace();
	}

private:
	hosted::machine machine_;
	std::optional<hosted::loaded_module> module_;
};

// A pin that is not reported. One pin before all others starts the interval.
template <class Rig>
void pin(benchmark::State &state, Rig &, const char *comm, unsigned long pfn, unsigned flags)
{
	constexpr std::size_t events = 4096;
	page &p = hosted::page_at(pfn);

	hosted::try_grab_page(hosted::page_at(0), FOLL_PIN);
	const hosted::task_ptr task = hosted::make_task(comm, 7);
	const hosted::task_scope as(*task);
	measure(
		state, events, CLOCK_THREAD_CPUTIME_ID, [&] { p.refcount = 1; },
		[&] { repeat(events, [&] { hosted::try_grab_page(p, flags); }); });
}

template <class Rig>
void abort_hook(benchmark::State &state, Rig &)
{
	constexpr std::size_t events = 4096;
	bool abort = false;

	measure(
		state, events, CLOCK_THREAD_CPUTIME_ID, [] {},
		[&] { repeat(events, [&] { trace_android_vh_compact_finished(&abort); }); });
	if (abort)
		state.SkipWithError("the switch is on");
}

template <class Run>
void add_loaded_and_not(const std::string &row, Run run)
{
	add<kernel_rig<true>>(row, run);
	add<kernel_rig<false>>(row, run);
}

} // namespace

void add_cma_benchmarks()
{
	for (const std::size_t live : {std::size_t{10}, std::size_t{1000}, many}) {
		const std::string row = fmt::format(", {} live", live);
		const auto alloc = [=](benchmark::State &state, auto &r) {
			cma_alloc(state, r, live);
		};
		const auto both = [=](benchmark::State &state, auto &r) {
			cma_alloc_and_release(state, r, live);
		};

		add<cma_rig>("cma alloc" + row, alloc);
		add<array_rig>("cma alloc" + row, alloc);
		add<cma_rig>("cma alloc and release" + row, both);
		add<array_rig>("cma alloc and release" + row, both);
	}
	using ranges = live_ranges<cma_rig>;
	const auto add_part = [](const char *part, std::size_t locked, auto run) {
		const std::string row = fmt::format("cma {}, {} live", part, many);
		const auto module_part = [=](benchmark::State &state, cma_rig &r) {
			ranges live(r, many);

			irqs_off(state, "cma_lock", [&] { run(r, live); });
		};
		const auto as_often = [=](benchmark::State &state, empty_rig &r) {
			irqs_off(state, "empty_lock",
				 [&] { repeat(locked, [&] { r.take_lock(); }); });
		};

		add<cma_rig>(row, module_part, 1);
		add<empty_rig>(row, as_often, 1);
	};

	add_part("1000 releases", 1000,
		 [](cma_rig &, ranges &live) { repeat(1000, [&] { live.release_any(); }); });
	add_part("listing", 2 * many, [](cma_rig &r, ranges &) { r.list(many); });
	add_part("unload", many / cma_records_at_once, [](cma_rig &r, ranges &) { r.unload(); });
	struct unreported {
		const char *reason;
		const char *comm;
		unsigned long pfn;
		unsigned flags;
	};
	for (const unreported &u : {unreported{"no pin", "app", 0, hosted::foll_get},
				    {"excluded task", "RenderThread", 0, FOLL_PIN},
				    {"not a CMA page", "app", hosted::pageblock_pages, FOLL_PIN},
				    {"too early", "app", 0, FOLL_PIN}})
		add_loaded_and_not(std::string("pin not reported, ") + u.reason,
				   [u](benchmark::State &state, auto &r) {
					   pin(state, r, u.comm, u.pfn, u.flags);
				   });
	add_loaded_and_not("abort hook, switch off",
			   [](benchmark::State &state, auto &r) { abort_hook(state, r); });
}

} // namespace bench
