// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/command/command_follow.h>

#include <limits>

#include <fmt/format.h>

namespace tarn
{

follow_limits follow_options::limits() const
{
	follow_limits limits;

	if (count != 0)
		limits.count = count;
	if (seconds != 0)
		limits.time = std::chrono::seconds(seconds);
	return limits;
}

follow_output follow_options::output() const
{
	return {json, [](const std::string &line) { print_out(line + "\n"); }, print_error};
}

void add_follow_options(CLI::App &command, follow_options &options, const char *what)
{
	command.add_option("--count", options.count, fmt::format("Exit after this many {}", what))
		->transform(whole_number(1, std::numeric_limits<std::uint32_t>::max()));
	command.add_option("--seconds", options.seconds,
			   "Exit after this many seconds, with status 1 if --count was not reached")
		->transform(whole_number(1, longest_run));
	command.add_flag("--json", options.json, "Print one JSON object per line");
}

} // namespace tarn
