// SPDX-License-Identifier: GPL-2.0-only
// The control device of the memory adapter, by the calls of <uapi/tarn_device.h>.
#pragma once

#include <stdexcept>
#include <string>

#include "file_descriptor.h"

namespace tarn
{

// The device, or something else of the kernel's that a command needs, is not usable.
struct device_error : std::runtime_error {
	using std::runtime_error::runtime_error;
};

// What an error number means, in words.
std::string reason(int error);

class control_device
{
public:
	virtual ~control_device() = default;

	// Returns 0 or a negative error number.
	virtual int call(unsigned long request, void *argument) = 0;
};

class control_device_file final : public control_device
{
public:
	// Throws device_error if the path is no such device.
	explicit control_device_file(const std::string &path);

	int call(unsigned long request, void *argument) override;

private:
	file_descriptor file_;
};

} // namespace tarn
