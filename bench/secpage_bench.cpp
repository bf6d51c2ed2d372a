// SPDX-License-Identifier: GPL-2.0-only
// Changes a gigabyte of memory, one page table entry or page structure at a time. The plain side is
// a bare loop of the stores; in rows marked "ordered", each store has the barrier or the atomic
// operation that it needs.
#include <algorithm>
#include <atomic>
#include <memory>
#include <vector>

#include <hosted/engine/loader.h>
#include <hosted/engine/machine.h>
#include <hosted/pgtable.h>
#include <hosted/scatterlist.h>
#include <mem_adapter.h>

#include "rig.h"

namespace bench
{
namespace
{

using hosted::entry_span;

constexpr u64 gib = entry_span(1);
constexpr std::size_t blocks = 512;
constexpr std::size_t pages = blocks * 512;
constexpr std::size_t split_stores = blocks * (512 + 1 + 512); // fill, install, change
constexpr u64 virt = hosted::lowest_kernel_address + gib;
constexpr u64 phys = 64 * gib;
constexpr u64 normal = 0x0068000000000703;
constexpr u64 read_only = (normal & ~(1ULL << 51)) | 1ULL << 7;
constexpr unsigned long flag = 1UL << 27;

class range_rig
{
public:
	static constexpr char side[] = "ours";

	void boot_blocks()
	{
		hosted::reset_page_tables();
		for (u64 at = 0; at < gib; at += entry_span(2))
			hosted::boot_map(virt + at, 2, (phys + at) | (normal & ~2ULL));
	}
	// Changes the whole gigabyte. moved maps each page to the next frame, which splits the
	// blocks.
	void change(std::size_t stores, bool moved)
	{
		const unsigned long barriers = hosted::table_activity().barriers;

		turn_ = !turn_;
		change_(phys + (moved ? entry_span(3) : 0), virt, gib,
			{turn_ ? read_only : normal});
		// Each store has its barrier, and each table that is installed one more.
		done_ &= hosted::table_activity().barriers - barriers >= stores;
	}
	void set_flags(bool set)
	{
		set_flags_(table_.get(), set);
		done_ &= ((memory_.front().flags & memory_.back().flags & flag) != 0) == set;
	}
	[[nodiscard]] bool done() const
	{
		return done_;
	}

private:
	std::vector<hosted::segment> segments()
	{
		std::vector<hosted::segment> found;

		for (std::size_t at = 0; at < pages; at += pages / blocks)
			found.push_back({&memory_[at], entry_span(2)});
		return found;
	}

	hosted::machine machine_;
	hosted::loaded_module module_;
	decltype(tarn_change_secpage_range) *change_ =
		module_.symbol<decltype(tarn_change_secpage_range)>("tarn_change_secpage_range");
	decltype(tarn_change_page_flag) *set_flags_ =
		module_.symbol<decltype(tarn_change_page_flag)>("tarn_change_page_flag");
	std::span<page> memory_ = hosted::make_pages(pages);
	hosted::scatter_table table_{segments()};
	bool turn_ = false;
	bool done_ = true;
};

template <bool ordered>
class store_rig
{
public:
	static constexpr char side[] = "plain";

	void boot_blocks() {}
	void change(std::size_t stores, bool)
	{
		turn_ = !turn_;
		for (std::size_t i = 0; i < stores; i++) {
			entries_[i].store((phys + i * entry_span(3)) | (turn_ ? read_only : normal),
					  std::memory_order_relaxed);
			if constexpr (ordered)
				barriers_.fetch_add(1);
		}
	}
	void set_flags(bool set)
	{
		for (page &p : memory_) {
			if constexpr (!ordered)
				p.flags.store(set ? flag : 0, std::memory_order_relaxed);
			else if (set)
				p.flags.fetch_or(flag, std::memory_order_relaxed);
			else
				p.flags.fetch_and(~flag, std::memory_order_relaxed);
		}
	}
	[[nodiscard]] static bool done()
	{
		return true;
	}

private:
	std::vector<std::atomic<u64>> entries_ = std::vector<std::atomic<u64>>(split_stores);
	std::vector<page> memory_ = std::vector<page>(pages);
	std::atomic<unsigned long> barriers_ = 0;
	bool turn_ = false;
};

void change(benchmark::State &state, auto &r, std::size_t stores, bool moved)
{
	measure(
		state, stores, CLOCK_THREAD_CPUTIME_ID,
		[&] {
			if (stores != pages)
				r.boot_blocks();
		},
		[&] { r.change(stores, moved); });
	if (!r.done())
		state.SkipWithError("some entries were not written");
}

void change_pages(benchmark::State &state, auto &r)
{
	r.boot_blocks();
	r.change(split_stores, true);
	change(state, r, pages, true);
}

void set_flags(benchmark::State &state, auto &r)
{
	bool set = false;

	measure(
		state, pages, CLOCK_THREAD_CPUTIME_ID, [&] { set = !set; },
		[&] { r.set_flags(set); });
	if (!r.done())
		state.SkipWithError("some flags were not changed");
}

template <class Run>
void add_all(const std::string &row, Run run)
{
	add<range_rig>(row, run);
	add<store_rig<false>>(row, run);
	add<range_rig>(row + ", ordered", run);
	add<store_rig<true>>(row + ", ordered", run);
}

} // namespace

void add_secpage_benchmarks()
{
	add_all("entry, 1 GiB of blocks",
		[](auto &state, auto &r) { change(state, r, blocks, false); });
	add_all("entry, 1 GiB of splits",
		[](auto &state, auto &r) { change(state, r, split_stores, true); });
	add_all("entry, 1 GiB of pages", [](auto &state, auto &r) { change_pages(state, r); });
	add_all("flag, 1 GiB of pages", [](auto &state, auto &r) { set_flags(state, r); });
}

} // namespace bench
