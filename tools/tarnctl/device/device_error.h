// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace tarn
{

// The device, or another part of the kernel that a command needs, cannot be used. what() is a
// sentence for the user.
struct device_error : std::runtime_error {
	using std::runtime_error::runtime_error;
};

// What an error number means, in words.
std::string errno_message(int error);

// Throws device_error: "what: " and the meaning of errno.
[[noreturn]] void throw_errno(std::string_view what);

} // namespace tarn
