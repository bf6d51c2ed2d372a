// SPDX-License-Identifier: GPL-2.0-only
// A progress bar on standard error, where that is a terminal.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tarn
{

// Shows itself only when the work takes a while; removes itself at the end. For one thread.
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
	bool terminal_;
	bool shown_ = false;
	clock::time_point next_;
};

} // namespace tarn
