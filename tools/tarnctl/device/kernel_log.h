// SPDX-License-Identifier: GPL-2.0-only
// The running kernel's log, from /dev/kmsg.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <tarnctl/device/device_error.h>
#include <tarnctl/device/file_descriptor.h>

namespace tarn
{

struct log_record {
	bool by_kernel = false;		  // false: by a program
	std::chrono::microseconds time{}; // since boot
	// "T" and a task's number or "C" and a processor's; empty if the kernel does not say.
	std::string caller;
	std::string text; // unprintable bytes and the backslash are escaped as \xNN
};

// A text that is not a record gives one that is not by the kernel and has no text.
log_record parse_log_record(std::string_view record);

// The log cannot be opened.
struct no_kernel_log : device_error {
	using device_error::device_error;
};

// Why the log could not be opened, for the user. Tests pass another root directory.
std::string no_kernel_log_reason(int error, const std::string &root = "");

enum class log_start { now, oldest };

// Not thread-safe.
class kernel_log
{
public:
	// Gives what the kernel logs from now on, or also what it still holds. Throws
	// no_kernel_log; all calls throw device_error.
	explicit kernel_log(log_start start = log_start::now);
	// Takes over a non-blocking file that yields one record per read.
	explicit kernel_log(file_descriptor file) : file_(std::move(file)) {}

	// The kernel's own lines since the last call, less those that it has already overwritten.
	std::string take();

	// The next record, or nothing if there is none yet.
	std::optional<log_record> next();
	// Takes all records up to now, including the last line. A loss may show up only after
	// that.
	void drain(const std::function<void(const log_record &)> &take);
	// The kernel holds back a line without a line end until another begins. Logs a line, so
	// that one begins.
	void release_last_line();
	// Whether records were overwritten before they were read, since the last call.
	bool take_loss();

	// For waiting.
	[[nodiscard]] int file() const
	{
		return file_.get();
	}

private:
	file_descriptor file_;
	std::string mark_; // the last line that we logged
	unsigned int marks_ = 0;
	bool lost_ = false;
};

} // namespace tarn
