// SPDX-License-Identifier: GPL-2.0-only
// A progress bar on standard error.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tarn
{

// The bar's line for a terminal of this width, which it does not fill: without its last column no
// terminal wraps the line. Total is not 0.
std::string progress_line(const std::string &what, std::uint64_t done, std::uint64_t total,
			  std::size_t columns);

// Shows up only if the work takes a while and standard error is a terminal that can redraw a line.
// Removes itself at the end. Not thread-safe.
class progress_bar
{
public:
	explicit progress_bar(std::string what);
	~progress_bar();
	progress_bar(const progress_bar &) = delete;
	progress_bar &operator=(const progress_bar &) = delete;

	void update(std::uint64_t done, std::uint64_t total);

private:
	using clock = std::chrono::steady_clock;

	std::string what_;
	bool can_show_;
	bool shown_ = false;
	clock::time_point next_;
};

} // namespace tarn
