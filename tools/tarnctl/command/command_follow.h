// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <tarnctl/command/command.h>
#include <tarnctl/device/follow.h>

namespace tarn
{

// The options of a command that shows things as they come: --count, --seconds and --json.
struct follow_options {
	std::uint32_t count = 0; // 0: not given
	unsigned int seconds = 0;
	bool json = false;

	[[nodiscard]] follow_limits limits() const;
	// Lines go to standard output, warnings to standard error.
	[[nodiscard]] follow_output output() const;
};

// The options must live as long as the command. What: the plural of what is counted.
void add_follow_options(CLI::App &command, follow_options &options, const char *what);

} // namespace tarn
