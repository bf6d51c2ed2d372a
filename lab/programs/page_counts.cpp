// SPDX-License-Identifier: GPL-2.0-only
// Compares the device's page counts with /proc, read before and after. Each count must lie between
// the two readings, with a margin for what a CPU may add or remove at once (the counters change in
// batches). The reserve and the watermark do not depend on anything that changes, so they must be
// equal if both readings are.
#include <algorithm>
#include <cstdint>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "memcheck_file.h"

namespace
{

// For each of two CPUs, a page-list batch or the CPU's share of a counter.
constexpr std::int64_t batch = 2 * 63;

using counters = std::map<std::string, std::int64_t>;

// "name value" or "name: value kB"
counters read_list(const char *path)
{
	std::ifstream file(path);
	counters all;

	for (std::string line; std::getline(file, line);) {
		std::istringstream words(line);
		std::string name;
		std::int64_t value = 0;

		if (words >> name >> value)
			all[name] = value;
	}
	return all;
}

// The kernel's rule for the reserve, applied to the zones in /proc/zoneinfo.
std::int64_t total_reserve()
{
	std::ifstream file("/proc/zoneinfo");
	std::int64_t total = 0;
	std::int64_t managed = 0;
	std::int64_t high = 0;

	for (std::string line; std::getline(file, line);) {
		std::istringstream words(line);
		std::string name;

		words >> name;
		if (name == "high") // "high:" is a different number
			words >> high;
		if (name == "managed")
			words >> managed;
		if (name != "protection:")
			continue;
		std::int64_t protection = 0;
		char separator = 0;

		for (std::int64_t pages = 0; words >> separator >> pages;)
			protection = std::max(protection, pages);
		total += std::min(protection + high, managed);
		managed = 0;
		high = 0;
	}
	return total;
}

std::int64_t swap_field(int field)
{
	std::ifstream file("/proc/swaps");
	std::string line;
	std::int64_t total = 0;

	std::getline(file, line);
	while (std::getline(file, line)) {
		std::istringstream words(line);
		std::string word;

		for (int i = 0; i <= field; i++)
			words >> word;
		total += std::stol(word);
	}
	return total / 4;
}

struct snapshot {
	counters counts; // pages

	static snapshot take()
	{
		counters vm = read_list("/proc/vmstat");
		snapshot now;

		now.counts["reserve"] = total_reserve();
		const std::int64_t free = vm["nr_free_pages"];
		const std::int64_t reserve = now.counts["reserve"];

		now.counts["free"] = free > reserve ? free - reserve : free;
		now.counts["file"] = vm["nr_file_pages"] - vm["nr_swapcached"] - vm["nr_shmem"] -
				     vm["nr_unevictable"];
		now.counts["anon"] = vm["nr_inactive_anon"] + vm["nr_active_anon"];
		now.counts["zram"] = swap_field(3);

		const std::int64_t swap = swap_field(2);
		const std::int64_t ram = read_list("/proc/meminfo")["MemTotal:"] / 4;

		now.counts["watermark"] = swap * (swap > ram ? 20 : 75) / 100;
		return now;
	}
};

counters device_counts(const lab::memcheck_file &device)
{
	tarn_page_counts counts = {};

	if (const int error = device.call(TARN_IOC_GET_PAGES, &counts))
		lab::fail("page counts: %s", std::strerror(error));
	return {
		{"reserve", counts.total_reserve},
		{"free", counts.free},
		{"file", counts.file},
		{"anon", counts.anon},
		{"zram", counts.zram},
		{"watermark", counts.zram_watermark},
	};
}

} // namespace

int main()
{
	const lab::memcheck_file device;
	const snapshot before = snapshot::take();
	const counters device_says = device_counts(device);
	const snapshot after = snapshot::take();
	int failures = 0;

	for (const auto &[name, value] : device_says) {
		const std::int64_t a = before.counts.at(name);
		const std::int64_t b = after.counts.at(name);
		const bool exact = name == "reserve" || name == "watermark";
		const std::int64_t room = exact ? 0 : batch;

		std::printf("%s %ld\n", name.c_str(), value);
		if (value < std::min(a, b) - room || value > std::max(a, b) + room) {
			std::printf("%s: /proc has %ld and then %ld\n", name.c_str(), a, b);
			failures++;
		}
	}
	return failures != 0;
}
