// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/device/device_error.h>

#include <cerrno>
#include <system_error>

#include <fmt/format.h>

namespace tarn
{

std::string errno_message(int error)
{
	return std::generic_category().message(error);
}

void throw_errno(std::string_view what)
{
	const int error = errno;

	throw device_error(fmt::format("{}: {}", what, errno_message(error)));
}

} // namespace tarn
