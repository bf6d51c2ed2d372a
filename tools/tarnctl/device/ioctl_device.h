// SPDX-License-Identifier: GPL-2.0-only
// The control device of the memory adapter, by the calls of <uapi/tarn_device.h>.
#pragma once

#include <string>

#include <tarnctl/device/device_error.h>
#include <tarnctl/device/file_descriptor.h>

namespace tarn
{

class ioctl_device
{
public:
	virtual ~ioctl_device() = default;

	// Returns 0 or a negative error number.
	virtual int call(unsigned long request, void *argument) = 0;
};

class ioctl_device_file final : public ioctl_device
{
public:
	// Throws device_error if the path does not name such a device.
	explicit ioctl_device_file(const std::string &path);

	int call(unsigned long request, void *argument) override;

private:
	file_descriptor file_;
};

} // namespace tarn
