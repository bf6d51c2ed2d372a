// SPDX-License-Identifier: GPL-2.0-only
// The running kernel's log, as /dev/kmsg gives it.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "file_descriptor.h"

namespace tarn
{

struct log_record {
	bool by_kernel = false;		  // not by a program
	std::chrono::microseconds time{}; // since boot
	// "T" and a task's number or "C" and a processor's; empty where the kernel does not tell.
	std::string caller;
	std::string text; // with bytes that are not printable, and the backslash, as \xNN
};

// Throws nothing: what is no record is one without text, not by the kernel.
log_record parse_log_record(std::string_view record);

enum class log_start { now, oldest };

// Not for use by two threads at once.
class kernel_log
{
public:
	// What the kernel logs from the moment of opening on, or what it still holds as well.
	// Throws device_error, as all the calls do.
	explicit kernel_log(log_start start = log_start::now);
	// Takes over a non-blocking file that gives a record a read.
	explicit kernel_log(file_descriptor file) : file_(std::move(file)) {}

	// The lines since the last call, without those that the kernel has already overwritten and
	// those that programs wrote.
	std::string take();

	// The next record; nothing while there is none.
	std::optional<log_record> next();
	// Takes all records up to this moment, the last line included. Losses may show only
	// behind them.
	void drain(const std::function<void(const log_record &)> &take);
	// The kernel holds a line without a line end back until another begins. This one begins.
	void release_last_line();
	// Whether records were overwritten before they could be read, since the last call.
	bool take_loss();

	// To wait for.
	[[nodiscard]] int file() const
	{
		return file_.get();
	}

private:
	file_descriptor file_;
	std::string mark_; // our last line
	unsigned int marks_ = 0;
	bool lost_ = false;
};

} // namespace tarn
