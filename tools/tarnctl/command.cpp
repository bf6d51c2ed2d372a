// SPDX-License-Identifier: GPL-2.0-only
#include "command.h"

#include <cstdio>

#include <fmt/format.h>
#include <uapi/tarn_device.h>

namespace tarn
{

CLI::Option *add_device_option(CLI::App &command, std::string &path)
{
	path = TARN_DEVICE_PATH;
	return command.add_option("--device", path, "The memcheck device")
		->check(not_empty)
		->capture_default_str();
}

std::string not_empty(const std::string &value)
{
	return value.empty() ? "the name is empty" : "";
}

void print_out(const std::string &text)
{
	if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() ||
	    std::fflush(stdout) != 0)
		throw std::runtime_error("the result cannot be written");
}

void complain(const char *sentence)
{
	fmt::print(stderr, "tarnctl: {}\n", sentence);
}

} // namespace tarn
