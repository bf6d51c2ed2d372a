// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/terminal/progress_bar.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <utility>

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <tarnctl/terminal/output.h>
#include <tarnctl/text/scan.h>

namespace tarn
{

namespace
{

// Work that is done before this needs no bar.
constexpr std::chrono::milliseconds patience{300};
constexpr std::chrono::milliseconds redraw{100};

std::string_view environment(const char *name)
{
	const char *value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nobody sets any

	return value ? value : "";
}

bool can_redraw()
{
	const std::string_view terminal = environment("TERM");

	return isatty(STDERR_FILENO) == 1 && !terminal.empty() && terminal != "dumb";
}

std::size_t terminal_columns()
{
	constexpr std::size_t usual = 80;
	winsize size = {};

	if (const auto columns = parse_number<std::size_t>(environment("COLUMNS")))
		return *columns;
	if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0)
		return size.ws_col;
	return usual;
}

} // namespace

std::string progress_line(const std::string &what, std::uint64_t done, std::uint64_t total,
			  std::size_t columns)
{
	constexpr std::size_t widest = 40;
	constexpr std::size_t narrowest = 5;
	const double share = std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
	const std::string percent = fmt::format("{:3} %", static_cast<unsigned int>(share * 100));
	const std::size_t room = columns == 0 ? 0 : columns - 1;
	// Two brackets and two spaces.
	const std::size_t rest = what.size() + percent.size() + 4;

	if (room >= rest + narrowest) {
		const std::size_t width = std::min(widest, room - rest);
		const auto filled = static_cast<std::size_t>(share * static_cast<double>(width));

		return fmt::format("{} [{:#<{}}{:{}}] {}", what, "", filled, "", width - filled,
				   percent);
	}
	return percent.size() <= room ? percent : "";
}

progress_bar::progress_bar(std::string what)
	: what_(std::move(what)), can_show_(can_redraw()), next_(clock::now() + patience)
{
}

progress_bar::~progress_bar()
{
	if (shown_)
		print_to_error("\r\033[K");
}

void progress_bar::update(std::uint64_t done, std::uint64_t total)
{
	if (!can_show_ || total == 0 || clock::now() < next_)
		return;
	next_ = clock::now() + redraw;
	shown_ = true;
	// A terminal that went away needs no bar.
	can_show_ =
		print_to_error("\r\033[K" + progress_line(what_, done, total, terminal_columns()));
}

} // namespace tarn
