// SPDX-License-Identifier: GPL-2.0-only
// What values options take. CLI11's own numbers would let "-5" wrap, "010" be octal and a number
// that is too large become the largest.
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace tarn
{

// Each is passed to CLI::Option::transform. What does not fit is a usage error.

// A decimal number without sign, fraction or unit.
CLI::Validator whole_number(std::uint64_t min = 0,
			    std::uint64_t max = std::numeric_limits<std::uint64_t>::max());

// A size as parse_size() reads it; the option gets the number of bytes.
CLI::Validator size_in_bytes();

// A time as parse_time() reads it, in seconds if it has no unit; the option gets nanoseconds.
CLI::Validator time_in_ns();

// One of these words, of which there are at least two.
CLI::Validator one_of(std::vector<std::string> words);

// Rejects an empty value, which would look like an option that was not given.
CLI::Validator not_empty();

} // namespace tarn
