// SPDX-License-Identifier: GPL-2.0-only
#include "module_parameter.h"

#include <array>
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>

#include "control_device.h"

namespace tarn
{

namespace
{

// How the kernel shows a text parameter that was never set.
constexpr const char *unset = "(null)";

[[noreturn]] void complain(const std::string &file, const char *what)
{
	throw device_error(fmt::format("{} cannot be {}: {}", file, what, reason(errno)));
}

} // namespace

std::string read_parameter(const std::string &file)
{
	constexpr std::size_t page = 4096; // no value is longer
	const file_descriptor fd(open(file.c_str(), O_RDONLY | O_CLOEXEC));
	std::array<char, page> text;

	if (fd.get() < 0)
		complain(file, "opened");
	const ssize_t n = read(fd.get(), text.data(), text.size());

	if (n < 0)
		complain(file, "read");
	std::string value(text.data(), static_cast<std::size_t>(n));

	// The kernel adds a line end; one before it is the value's own.
	if (value.ends_with('\n'))
		value.pop_back();
	return value == unset ? "" : value;
}

void write_parameter(const std::string &file, const std::string &value)
{
	const file_descriptor fd(open(file.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));

	if (fd.get() < 0)
		complain(file, "opened");
	if (write(fd.get(), value.c_str(), value.empty() ? 1 : value.size()) < 0)
		complain(file, "written");
}

parameter_loan::parameter_loan(std::string file, const std::string &value)
	: file_(std::move(file)), own_(read_parameter(file_))
{
	write_parameter(file_, value);
}

parameter_loan::~parameter_loan()
{
	try {
		write_parameter(file_, own_);
	} catch (const device_error &error) {
		fmt::print(stderr, "tarnctl: {}\n", error.what());
	}
}

} // namespace tarn
