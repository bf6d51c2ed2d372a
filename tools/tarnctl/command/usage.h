// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <stdexcept>
#include <string>

#include <CLI/CLI.hpp>

namespace tarn
{

struct usage_error : std::runtime_error {
	using std::runtime_error::runtime_error;
};

// Says in one sentence why the arguments were refused and what to do about it. The error is what
// the application's parse() threw.
std::string usage_sentence(const CLI::App &app, const CLI::ParseError &error);

} // namespace tarn
