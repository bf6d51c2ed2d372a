// SPDX-License-Identifier: GPL-2.0-only
// Quantities as people write them.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tarn
{

// A size in bytes: a whole number, and perhaps K, M, G or T for powers of 1024, also written as KB
// or KiB in any case. Nothing if the text is something else, or 2^64 bytes and more.
std::optional<std::uint64_t> parse_size(std::string_view text);

// A time: a decimal number, perhaps with a fraction, and perhaps a unit: s (the default), ms, us or
// ns. Digits below a nanosecond are cut off. Nothing if the text is something else, or too long a
// time for the type.
std::optional<std::chrono::nanoseconds> parse_time(std::string_view text);

} // namespace tarn
