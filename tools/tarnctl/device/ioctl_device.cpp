// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/device/ioctl_device.h>

#include <cerrno>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/ioctl.h>
#include <uapi/tarn_device.h>

namespace tarn
{

ioctl_device_file::ioctl_device_file(const std::string &path)
	: file_(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK))
{
	if (file_.get() < 0 && errno == ENOENT && path == TARN_DEVICE_PATH)
		throw device_error(fmt::format(
			"there is no {}; is the module that provides it loaded?", path));
	if (file_.get() < 0)
		throw_errno(fmt::format("cannot open {}", path));
	// Every memcheck device grants a request for no thresholds, which changes nothing.
	memcheck_threshold nothing = {};

	if (const int ret = call(TARN_IOC_GET_THRESHOLDS, &nothing))
		throw device_error(
			fmt::format("{} is not a memcheck device: {}", path, errno_message(-ret)));
}

int ioctl_device_file::call(unsigned long request, void *argument)
{
	return ioctl(file_.get(), request, argument) < 0 ? -errno : 0;
}

} // namespace tarn
