// SPDX-License-Identifier: GPL-2.0-only
#include "plain_tracker.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <tuple>

#include <kernel/preempt.h>
#include <kernel/printk.h>
#include <kernel/stackdepot.h>
#include <kernel/stacktrace.h>
#include <page_counts.h>

namespace bench
{
namespace
{

constexpr unsigned long leak_threshold_k = 1048576;
constexpr int reported_count = 50;
constexpr long reported_tasks = 3;
// The recorder, the probe, the tracepoint and two functions of the allocator.
constexpr unsigned own_frames = 5;

using record = plain_tracker::record;

// Gives each run of records with the same frames its total, and keeps only the first few of the
// run.
void keep_heaviest_of_stack(std::vector<record> &records)
{
	auto kept = records.begin();

	for (auto start = records.begin(); start != records.end();) {
		std::int64_t total = 0;
		auto end = start;

		for (; end != records.end() && end->who.frames == start->who.frames; ++end)
			total += end->seen.count;
		for (auto it = start; it != end; ++it) {
			if (it - start < reported_tasks)
				*kept++ = {it->who, it->seen, total};
		}
		start = end;
	}
	records.erase(kept, records.end());
}

void log_records(const std::vector<record> &records)
{
	int i = 0;

	for (const record &r : records) {
		_printk(KERN_ERR "plain: top%d cnt:[%d/%lu] pid:[%ld-%ld] %s\n", i++, r.seen.count,
			static_cast<unsigned long>(r.total), static_cast<long>(r.seen.pid_min),
			static_cast<long>(r.seen.pid_max), r.who.comm.data());
		for (const unsigned long frame : r.who.frames) {
			if (frame)
				_printk(KERN_ERR "plain:         %pS\n",
					reinterpret_cast<void *>(frame));
		}
	}
}

} // namespace

std::size_t plain_tracker::hash::operator()(const caller &who) const
{
	static_assert(std::has_unique_object_representations_v<caller>);
	return std::hash<std::string_view>()({reinterpret_cast<const char *>(&who), sizeof(who)});
}

void plain_tracker::probe(void *data, void *object, unsigned long, kmem_cache *cache)
{
	auto &self = *static_cast<plain_tracker *>(data);

	if (unreclaimable_slab_kib() > leak_threshold_k)
		_printk(KERN_ERR "plain: slab leak\n");
	if (object && cache == self.target_ && self.on_)
		self.count_event();
}

void plain_tracker::count_event()
{
	caller who = {};
	std::int64_t pid = 0;

	stack_trace_save(who.frames.data(), who.frames.size(), own_frames);
	if (!in_interrupt_context()) {
		const task_struct *task = helper_current();

		pid = helper_task_pid(task);
		std::memcpy(who.comm.data(), helper_task_comm(task), who.comm.size());
	}
	const std::lock_guard guard(lock_);
	const auto [at, added] = callers_.try_emplace(who);
	tally &seen = at->second;

	seen.count++;
	seen.pid_min = added ? pid : std::min(seen.pid_min, pid);
	seen.pid_max = added ? pid : std::max(seen.pid_max, pid);
}

std::vector<record> plain_tracker::take(std::size_t max_records)
{
	std::vector<record> records;
	const std::lock_guard guard(lock_);
	const auto start = std::chrono::steady_clock::now();

	for (const auto &[who, seen] : callers_) {
		if (seen.count >= reported_count && records.size() < max_records)
			records.push_back({who, seen, 0});
	}
	callers_.clear();
	held_ = std::chrono::steady_clock::now() - start;
	return records;
}

std::vector<record> plain_tracker::read(std::size_t max_records)
{
	std::vector<record> records = take(max_records);

	std::ranges::sort(records, [](const record &a, const record &b) {
		return std::tie(a.who.frames, b.seen.count) < std::tie(b.who.frames, a.seen.count);
	});
	keep_heaviest_of_stack(records);
	std::ranges::sort(records, [](const record &a, const record &b) {
		return std::tie(a.total, a.seen.count) > std::tie(b.total, b.seen.count);
	});
	log_records(records);
	return records;
}

void plain_tracker::set_counts(int count)
{
	const std::lock_guard guard(lock_);

	for (auto &[who, seen] : callers_)
		seen.count = count;
}

} // namespace bench
