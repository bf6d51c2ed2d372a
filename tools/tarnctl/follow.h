// SPDX-License-Identifier: GPL-2.0-only
// What commands share that show things as they come.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace tarn
{

struct follow_limits {
	std::optional<std::uint64_t> count; // of what is shown, to wait for
	std::optional<std::chrono::seconds> time;
};

// Where the lines go.
struct follow_output {
	bool json = false;
	std::function<void(const std::string &line)> line;
	std::function<void(const char *sentence)> warn;
};

} // namespace tarn
