// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "command.h"
#include "follow.h"

namespace tarn
{

// The options of a command that follows something: --count, --seconds and --json.
struct follow_options {
	std::uint32_t count = 0; // 0: not given
	unsigned int seconds = 0;
	bool json = false;

	[[nodiscard]] follow_limits limits() const;
	// To standard output and standard error.
	[[nodiscard]] follow_output output() const;
};

// The options must live as long as the command.
void add_follow_options(CLI::App &command, follow_options &options, const char *what);

} // namespace tarn
