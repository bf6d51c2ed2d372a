// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/command/command.h>

#include <uapi/tarn_device.h>

namespace tarn
{

CLI::Option *add_device_option(CLI::App &command, std::string &path)
{
	path = TARN_DEVICE_PATH;
	return command.add_option("--device", path, "The memcheck device")
		->transform(not_empty())
		->capture_default_str();
}

} // namespace tarn
