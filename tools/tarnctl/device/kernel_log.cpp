// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/device/kernel_log.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <fstream>

#include <fcntl.h>
#include <fmt/format.h>

#include <tarnctl/text/scan.h>

namespace tarn
{

namespace
{

constexpr const char *path = "/dev/kmsg";
constexpr std::size_t longest_record = 8192;

// The field up to a separator; removes both from the text.
std::string_view take_field(std::string_view &text, char separator)
{
	const std::size_t end = std::min(text.find(separator), text.size());
	const std::string_view field = text.substr(0, end);

	text.remove_prefix(std::min(end + 1, text.size()));
	return field;
}

} // namespace

log_record parse_log_record(std::string_view record)
{
	constexpr unsigned int facility_shift = 3;
	constexpr std::string_view caller = "caller=";
	log_record result;

	// "priority,number,time,flags[,caller=...];text", then lines of properties, each of which
	// begins with a space.
	const std::size_t text = record.find(';');

	if (text == std::string_view::npos)
		return result;
	std::string_view head = record.substr(0, text);
	const auto priority = parse_number<unsigned int>(take_field(head, ','));

	if (!priority)
		return result;
	take_field(head, ','); // the record's number
	const auto time = parse_number<std::int64_t>(take_field(head, ','));

	while (!head.empty()) {
		const std::string_view field = take_field(head, ',');

		if (field.starts_with(caller))
			result.caller = field.substr(caller.size());
	}
	record.remove_prefix(text + 1);
	result.by_kernel = *priority >> facility_shift == 0;
	result.time = std::chrono::microseconds(time.value_or(0));
	result.text = record.substr(0, record.find('\n'));
	return result;
}

std::string no_kernel_log_reason(int error, const std::string &root)
{
	std::string setting;

	// Programs are refused whatever their rights, which looks like missing rights.
	std::getline(std::ifstream(root + "/proc/sys/kernel/printk_devkmsg"), setting);
	if (error == EPERM && setting == "off")
		return fmt::format("cannot open {}: printk.devkmsg=off closes it to programs; set "
				   "\"ratelimit\" on the kernel's command line or in "
				   "/proc/sys/kernel/printk_devkmsg",
				   path);
	return fmt::format("cannot open {}: {}", path, errno_message(error));
}

kernel_log::kernel_log(log_start start) : file_(open(path, O_RDWR | O_CLOEXEC | O_NONBLOCK))
{
	if (file_.get() < 0)
		throw no_kernel_log(no_kernel_log_reason(errno));
	if (start == log_start::oldest)
		return;
	// A line that the kernel holds back is older than this moment.
	release_last_line();
	if (lseek(file_.get(), 0, SEEK_END) < 0)
		throw_errno(fmt::format("cannot read {}", path));
}

std::string kernel_log::take()
{
	std::string lines;

	drain([&lines](const log_record &record) {
		if (record.by_kernel && !record.text.empty())
			lines.append(record.text).append("\n");
	});
	return lines;
}

std::optional<log_record> kernel_log::next()
{
	std::array<char, longest_record> record;

	while (true) {
		const ssize_t n = read(file_.get(), record.data(), record.size());

		if (n > 0)
			return parse_log_record({record.data(), static_cast<std::size_t>(n)});
		if (n == 0 || errno == EAGAIN)
			return std::nullopt;
		if (errno == EPIPE)
			lost_ = true;
		else if (errno != EINTR)
			throw_errno(fmt::format("cannot read {}", path));
	}
}

void kernel_log::drain(const std::function<void(const log_record &)> &take)
{
	using clock = std::chrono::steady_clock;
	constexpr std::chrono::seconds patience{2};

	release_last_line();
	// Others may log without a pause, so our own line is the end. It may have been overwritten
	// by then, so our patience is an end, too.
	const clock::time_point deadline = clock::now() + patience;

	while (const auto record = next()) {
		if (record->text == mark_)
			return;
		take(*record);
		if (clock::now() > deadline) {
			lost_ = true;
			return;
		}
	}
}

void kernel_log::release_last_line()
{
	mark_ = fmt::format("tarnctl[{}]: reads the log ({})", getpid(), ++marks_);
	// Facility 1 (user), level 7 (debug).
	const std::string line = "<15>" + mark_ + "\n";

	if (write(file_.get(), line.data(), line.size()) < 0)
		throw_errno(fmt::format("cannot write to {}", path));
}

bool kernel_log::take_loss()
{
	return std::exchange(lost_, false);
}

} // namespace tarn
