// SPDX-License-Identifier: GPL-2.0-only
// What commands share that show things as they come.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include <tarnctl/terminal/stop_signals.h>

namespace tarn
{

struct follow_limits {
	std::optional<std::uint64_t> count; // end when this many were shown
	std::optional<std::chrono::seconds> time;
};

// Where the lines go.
struct follow_output {
	bool json = false;
	std::function<void(const std::string &line)> line;
	std::function<void(const char *sentence)> warn;
};

enum class follow_event { readable, silence, time_over, signal };

// One run of such a command, which begins with the construction: waits for the next thing and for
// the reasons to end. While it lives, signals that ask to end do not kill the process. Not
// thread-safe.
class follow_run
{
public:
	using milliseconds = std::chrono::milliseconds;

	explicit follow_run(const follow_limits &limits);

	// Waits until the file can be read, the time is over or a signal comes, and at most for the
	// length of a silence if one is given. May report silence early.
	follow_event wait(int file, std::optional<milliseconds> silence = std::nullopt);

	void count_shown()
	{
		shown_++;
	}
	// True once the wanted count was shown; never without one.
	[[nodiscard]] bool is_complete() const
	{
		return count_ && shown_ >= *count_;
	}
	// Whether the run did what was asked of it, should it end now.
	[[nodiscard]] bool is_satisfied() const
	{
		return !count_ || is_complete();
	}

private:
	using clock = std::chrono::steady_clock;

	stop_signals signals_;
	std::optional<std::uint64_t> count_;
	std::uint64_t shown_ = 0;
	std::optional<clock::time_point> deadline_;
};

} // namespace tarn
