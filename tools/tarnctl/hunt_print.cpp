// SPDX-License-Identifier: GPL-2.0-only
#include "hunt_print.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace tarn
{

namespace
{

// Task names are bytes that a program chose: what is not printable would play with the terminal.
std::string printable(const std::string &name)
{
	std::string text;

	if (name.empty())
		return "(interrupt)";
	for (const char c : name)
		text += c >= ' ' && c != 0x7f ? c : '?';
	return text;
}

std::string pids(const caller_record &record)
{
	if (record.pid_min == record.pid_max)
		return fmt::format("pid {}", record.pid_min);
	return fmt::format("pids {} to {}", record.pid_min, record.pid_max);
}

struct balance {
	std::string comm;
	std::int64_t allocated = 0;
	std::int64_t freed = 0;
};

balance &balance_of(std::vector<balance> &all, const std::string &comm)
{
	const auto found = std::ranges::find(all, comm, &balance::comm);

	if (found != all.end())
		return *found;
	return all.emplace_back(balance{comm});
}

// Tasks with what they allocated and freed, those that keep the most first.
std::vector<balance> balances(const readout &callers)
{
	std::vector<balance> all;

	for (const caller_record &record : callers.alloc)
		balance_of(all, record.comm).allocated += record.count;
	for (const caller_record &record : callers.free)
		balance_of(all, record.comm).freed += record.count;
	std::ranges::stable_sort(all, std::greater{},
				 [](const balance &b) { return b.allocated - b.freed; });
	return all;
}

void print_balances(fmt::memory_buffer &out, const hunt_result &result)
{
	auto to = std::back_inserter(out);

	fmt::format_to(to, "\n{:<16} {:>12} {:>12} {:>12} {:>12}\n", "task", "allocated", "freed",
		       "difference", "KiB");
	for (const balance &b : balances(result.callers)) {
		const std::int64_t kept = b.allocated - b.freed;

		fmt::format_to(to, "{:<16} {:>12} {:>12} {:>+12} {:>+12}\n", printable(b.comm),
			       b.allocated, b.freed, kept, kept * result.object_size / 1024);
	}
}

void print_callers(fmt::memory_buffer &out, const char *title, const char *none,
		   const std::vector<caller_record> &records)
{
	auto to = std::back_inserter(out);

	if (records.empty()) {
		fmt::format_to(to, "\n{}\n", none);
		return;
	}
	fmt::format_to(to, "\n{}\n", title);
	for (const caller_record &record : records) {
		fmt::format_to(to, "\n{:>10}  {}, {}", record.count, printable(record.comm),
			       pids(record));
		if (record.total != static_cast<std::uint64_t>(record.count))
			fmt::format_to(to, " (of {} on this stack)", record.total);
		fmt::format_to(to, "\n");
		if (record.frames.empty())
			fmt::format_to(to, "{:>12}{} (no call stack was saved)\n", "",
				       record.handle);
		for (const std::string &frame : record.frames)
			fmt::format_to(to, "{:>12}{}\n", "", frame);
	}
}

nlohmann::ordered_json to_json(const std::vector<caller_record> &records)
{
	auto list = nlohmann::ordered_json::array();

	for (const caller_record &record : records) {
		list.push_back({{"handle", record.handle},
				{"comm", record.comm},
				{"count", record.count},
				{"total", record.total},
				{"pid_min", record.pid_min},
				{"pid_max", record.pid_max},
				{"frames", record.frames}});
	}
	return list;
}

} // namespace

std::string hunt_text(const hunt_result &result)
{
	fmt::memory_buffer out;
	auto to = std::back_inserter(out);

	fmt::format_to(to, "Slab cache {}, {} bytes an object\n", result.cache, result.object_size);
	fmt::format_to(to, "  footprint  {} KiB before, {} KiB after: {:+} KiB\n",
		       result.target.start_kib, result.target.end_kib, result.target.delta_kib);
	fmt::format_to(to, "  events     {} allocations and {} frees recorded, {} dropped\n",
		       result.alloc_events, result.free_events, result.dropped_events);
	if (!result.callers.alloc.empty() || !result.callers.free.empty())
		print_balances(out, result);
	print_callers(out,
		      "Who allocates, heaviest first:", "No caller allocated 50 times or more.",
		      result.callers.alloc);
	print_callers(out, "Who frees, heaviest first:", "No caller freed 50 times or more.",
		      result.callers.free);
	return fmt::to_string(out);
}

std::string hunt_json(const hunt_result &result)
{
	const nlohmann::ordered_json object = {
		{"cache", result.cache},
		{"object_size", result.object_size},
		{"growth",
		 {{"start_kib", result.target.start_kib},
		  {"end_kib", result.target.end_kib},
		  {"delta_kib", result.target.delta_kib}}},
		{"events",
		 {{"alloc", result.alloc_events},
		  {"free", result.free_events},
		  {"dropped", result.dropped_events}}},
		{"alloc", to_json(result.callers.alloc)},
		{"free", to_json(result.callers.free)},
	};

	// A task name need not be UTF-8.
	return object.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

} // namespace tarn
