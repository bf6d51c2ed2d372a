// SPDX-License-Identifier: GPL-2.0-only
// Parses the text of a slab readout.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tarn
{

// One (call stack, task) pair.
struct caller_record {
	std::string handle; // as printed, "0x..."
	std::string comm;   // empty in interrupt context
	std::int64_t count = 0;
	std::uint64_t total = 0; // counts of all pairs with this stack
	std::int64_t pid_min = 0;
	std::int64_t pid_max = 0;
	std::vector<std::string> frames; // innermost first

	bool operator==(const caller_record &) const = default;
};

struct readout {
	std::string cache; // empty if neither kind has records
	std::vector<caller_record> alloc;
	std::vector<caller_record> free;
};

struct readout_error : std::runtime_error {
	using std::runtime_error::runtime_error;
};

// Throws readout_error if the text is not a whole readout.
readout parse_readout(std::string_view text);

} // namespace tarn
