// SPDX-License-Identifier: GPL-2.0-only
// Figures and lines as a person reads them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tarn
{

std::string bytes_text(std::uint64_t bytes);	// "1099 KiB"
std::string rate_text(double bytes_per_second); // "+4.2 KiB/s"
std::string per_second_text(double objects);	// "5/s", "0.3/s"
std::string seconds_text(std::uint64_t ns);	// "0.145 s"
std::string time_text(std::uint64_t ns);	// "37 us"

// A number over time as blocks of eight heights, scaled to its maximum.
std::string chart(const std::vector<std::uint64_t> &values, std::size_t columns);

// Words broken into lines of so many columns; the first line starts with its own text, the others
// are indented.
std::string wrapped(const std::string &text, std::size_t indent, std::size_t columns,
		    const std::string &start = {});
// Cut to so many characters, with an ellipsis.
std::string shortened(const std::string &text, std::size_t columns);

} // namespace tarn
