// SPDX-License-Identifier: GPL-2.0-only
// What a memory service was asked for and what came of it, for people and for programs.
#pragma once

#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

#include <tarnctl/device/ioctl_device.h>
#include <tarnctl/device/memory_counts.h>

namespace tarn
{

struct service_outcome {
	std::string sentence;
	nlohmann::ordered_json members;
	bool in_vain = false; // no pages, or no room
};

// Each runs its service, and throws device_error.
// Measure: "resident" or "swapped".
service_outcome kill_outcome(ioctl_device &device, const std::string &measure,
			     std::uint64_t target_pages);
service_outcome reclaim_outcome(ioctl_device &device, std::uint64_t bytes);
// What: "slab", "pages" or "all".
service_outcome drop_outcome(ioctl_device &device, const std::string &what);
service_outcome compact_outcome(ioctl_device &device);
service_outcome watermark_outcome(ioctl_device &device, int zone_index, unsigned int order);

// The sentence, and a line for each count.
std::string outcome_text(const service_outcome &outcome, const memory_counts &before,
			 const memory_counts &after, shown_counts shown);
// A JSON object and a line end.
std::string outcome_json(const service_outcome &outcome, const memory_counts &before,
			 const memory_counts &after, shown_counts shown);

} // namespace tarn
