// SPDX-License-Identifier: GPL-2.0-only
// The running kernel's log, as /dev/kmsg gives it.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "file_descriptor.h"

namespace tarn
{

// What the kernel logs from the moment of opening on. Not for use by two threads at once.
class kernel_log
{
public:
	// Throws device_error.
	kernel_log();
	// Takes over a non-blocking file that gives a record a read.
	explicit kernel_log(file_descriptor file) : file_(std::move(file)) {}

	// The lines since the last call, without those that the kernel has already overwritten and
	// those that programs wrote. Throws device_error.
	std::string take();

private:
	file_descriptor file_;
};

// The text of one record; empty for one that a program wrote.
std::string_view kernel_log_text(std::string_view record);

} // namespace tarn
