// SPDX-License-Identifier: GPL-2.0-only
#include "control_device.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/ioctl.h>
#include <uapi/tarn_device.h>

namespace tarn
{

std::string reason(int error)
{
	return std::generic_category().message(error);
}

control_device_file::control_device_file(const std::string &path)
	: file_(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK))
{
	if (file_.get() < 0)
		throw device_error(fmt::format("{} cannot be opened: {}", path, reason(errno)));
	// Asks for no threshold, so that any answer is the device's own.
	memcheck_threshold nothing = {};

	if (const int ret = call(TARN_IOC_GET_THRESHOLDS, &nothing))
		throw device_error(
			fmt::format("{} is not a memcheck device: {}", path, reason(-ret)));
}

int control_device_file::call(unsigned long request, void *argument)
{
	return ioctl(file_.get(), request, argument) < 0 ? -errno : 0;
}

} // namespace tarn
