// SPDX-License-Identifier: GPL-2.0-only
// Following who pins pages of the contiguous memory areas.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include <tarnctl/device/follow.h>
#include <tarnctl/device/kernel_log.h>

namespace tarn
{

struct pin {
	std::chrono::microseconds time{}; // since boot
	std::string task;
	std::string function;	     // the kernel's, that pinned
	std::uint64_t first_pfn = 0; // the range that was pinned, both ends included
	std::uint64_t last_pfn = 0;
};

// Throws device_error where no pins can be reported: the module is not loaded, or has no probes.
// Tests pass another root directory.
void require_pin_tracking(const std::string &root = "");

// The pin that a record of the log reports, if it reports one.
std::optional<pin> parse_pin(const log_record &record);

// A line without its end.
std::string pin_text(const pin &p);
std::string pin_json(const pin &p);

// Shows the pins in the log, present and future, until a limit is reached or a signal asks to end.
// False if the time was over before the count was reached. Throws device_error.
bool follow_pins(kernel_log &log, const follow_limits &limits, const follow_output &output);

} // namespace tarn
