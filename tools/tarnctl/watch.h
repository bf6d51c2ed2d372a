// SPDX-License-Identifier: GPL-2.0-only
// Watching the lmkd channel.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "lmkd_channel.h"

namespace tarn
{

struct watch_limits {
	std::optional<std::uint64_t> count; // notifications, or what else is shown, to wait for
	std::optional<std::chrono::seconds> time;
};

// Where the lines of a watch go.
struct watch_output {
	bool json = false;
	std::function<void(const std::string &line)> line;
	std::function<void(const char *sentence)> warn;
};

// Registers and shows what arrives until a limit is reached or a signal asks to end. False if the
// time was over before the count was reached.
bool watch(lmkd_channel &channel, const watch_limits &limits, const watch_output &output);

} // namespace tarn
