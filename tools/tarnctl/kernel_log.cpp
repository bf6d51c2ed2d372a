// SPDX-License-Identifier: GPL-2.0-only
#include "kernel_log.h"

#include <array>
#include <cerrno>
#include <charconv>

#include <fcntl.h>
#include <fmt/format.h>

#include "control_device.h"

namespace tarn
{

namespace
{

constexpr const char *path = "/dev/kmsg";
constexpr std::size_t longest_record = 8192;

// A line that the kernel logged without a line end is held back until another begins, in case it
// goes on; this one begins. Facility 1 (user), level 7 (debug).
constexpr std::string_view line_opener = "<15>tarnctl: reads the log\n";

} // namespace

kernel_log::kernel_log() : file_(open(path, O_RDWR | O_CLOEXEC | O_NONBLOCK))
{
	if (file_.get() < 0 || lseek(file_.get(), 0, SEEK_END) < 0)
		throw device_error(fmt::format("{} cannot be opened: {}", path, reason(errno)));
}

std::string kernel_log::take()
{
	std::array<char, longest_record> record;
	std::string lines;

	if (write(file_.get(), line_opener.data(), line_opener.size()) < 0)
		throw device_error(fmt::format("{} cannot be written: {}", path, reason(errno)));
	while (true) {
		const ssize_t n = read(file_.get(), record.data(), record.size());

		if (n > 0) {
			const std::string_view text =
				kernel_log_text({record.data(), static_cast<std::size_t>(n)});

			if (!text.empty())
				lines.append(text).append("\n");
		} else if (n == 0 || errno == EAGAIN) {
			return lines;
		} else if (errno != EPIPE && errno != EINTR) {
			throw device_error(
				fmt::format("{} cannot be read: {}", path, reason(errno)));
		}
	}
}

std::string_view kernel_log_text(std::string_view record)
{
	constexpr unsigned int facility_shift = 3;
	unsigned int priority = 0;

	// "priority,number,time,flags;text", then lines of properties that begin with a blank.
	if (std::from_chars(record.data(), record.data() + record.size(), priority).ec !=
		    std::errc{} ||
	    priority >> facility_shift != 0)
		return {};
	const std::size_t text = record.find(';');

	if (text == std::string_view::npos)
		return {};
	record.remove_prefix(text + 1);
	return record.substr(0, record.find('\n'));
}

} // namespace tarn
