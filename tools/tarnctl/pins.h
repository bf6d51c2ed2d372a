// SPDX-License-Identifier: GPL-2.0-only
// Following who pins pages of the contiguous memory areas.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "follow.h"
#include "kernel_log.h"

namespace tarn
{

struct pin {
	std::chrono::microseconds time{}; // since boot
	std::string task;
	std::string function;	     // of the kernel's, that pinned
	std::uint64_t first_pfn = 0; // what was pinned
	std::uint64_t last_pfn = 0;
};

// The pin that a record of the log reports, if it does.
std::optional<pin> parse_pin(const log_record &record);

// A line without its end.
std::string pin_text(const pin &p);
std::string pin_json(const pin &p);

// Shows the pins that the log has and brings, until a limit is reached or a signal asks to end.
// False if the time was over before the count was reached.
bool follow_pins(kernel_log &log, const follow_limits &limits, const follow_output &output);

} // namespace tarn
