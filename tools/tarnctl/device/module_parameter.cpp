// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/device/module_parameter.h>

#include <array>
#include <filesystem>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>

#include <tarnctl/device/device_error.h>
#include <tarnctl/device/file_descriptor.h>
#include <tarnctl/terminal/output.h>

namespace tarn
{

namespace
{

// What the kernel shows for a text parameter that was never set.
constexpr const char *unset = "(null)";

} // namespace

void require_module(const std::string &root)
{
	std::error_code error;

	if (!std::filesystem::exists(root + "/sys/module/tarn_mem_adapter", error))
		throw device_error("the module tarn_mem_adapter is not loaded");
}

std::string read_kernel_file(const std::string &file)
{
	constexpr std::size_t page = 4096; // no value is longer
	const file_descriptor fd(open(file.c_str(), O_RDONLY | O_CLOEXEC));
	std::array<char, page> text;

	if (fd.get() < 0)
		throw_errno(fmt::format("cannot open {}", file));
	const ssize_t n = read(fd.get(), text.data(), text.size());

	if (n < 0)
		throw_errno(fmt::format("cannot read {}", file));
	std::string value(text.data(), static_cast<std::size_t>(n));

	// The kernel adds a line end. If there is another before it, that belongs to the value.
	if (value.ends_with('\n'))
		value.pop_back();
	return value == unset ? "" : value;
}

void write_parameter(const std::string &file, const std::string &value)
{
	const file_descriptor fd(open(file.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));

	if (fd.get() < 0)
		throw_errno(fmt::format("cannot open {}", file));
	if (write(fd.get(), value.c_str(), value.empty() ? 1 : value.size()) < 0)
		throw_errno(fmt::format("cannot write to {}", file));
}

scoped_parameter::scoped_parameter(std::string file, const std::string &value)
	: file_(std::move(file)), before_(read_kernel_file(file_))
{
	write_parameter(file_, value);
}

scoped_parameter::~scoped_parameter()
{
	try {
		write_parameter(file_, before_);
	} catch (const device_error &error) {
		print_error(error.what());
	}
}

} // namespace tarn
