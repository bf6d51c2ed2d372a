// SPDX-License-Identifier: GPL-2.0-only
// The kernel's memory counts before and after a service ran.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace tarn
{

struct zone_blocks {
	std::string zone;
	std::vector<std::uint64_t> free; // blocks, by order
};

struct memory_counts {
	std::vector<std::pair<std::string, std::uint64_t>> kib; // named as in /proc/meminfo
	std::vector<zone_blocks> zones;
};

// Reads the texts of /proc/meminfo and /proc/buddyinfo. Throws device_error if a count that is
// shown is missing.
memory_counts parse_memory_counts(const std::string &meminfo, const std::string &buddyinfo);
// Those of this machine. Throws device_error.
memory_counts read_memory_counts();

enum class shown_counts { memory, memory_and_blocks };

// One line per count, "MemFree 100 kB -> 300 kB (+200)", and two per zone, its free blocks by
// order.
std::string change_text(const memory_counts &before, const memory_counts &after,
			shown_counts shown);
// A JSON object with the members "before" and "after".
nlohmann::ordered_json change_json(const memory_counts &before, const memory_counts &after,
				   shown_counts shown);

} // namespace tarn
