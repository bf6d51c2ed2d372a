// SPDX-License-Identifier: GPL-2.0-only
#include <cstdint>
#include <limits>
#include <memory>

#include "command.h"
#include "watch.h"

namespace tarn
{

namespace
{

struct watch_options {
	std::uint32_t count = 0; // 0: not given
	unsigned int seconds = 0;
	bool json = false;
};

bool run(const watch_options &options)
{
	watch_limits limits;

	if (options.count != 0)
		limits.count = options.count;
	if (options.seconds != 0)
		limits.time = std::chrono::seconds(options.seconds);
	lmkd_channel channel;

	return watch(
		channel, limits,
		{options.json, [](const std::string &line) { print_out(line + "\n"); }, complain});
}

} // namespace

void add_watch(CLI::App &app, int &status)
{
	CLI::App *command = app.add_subcommand(
		"watch", "Register as lmkd and show the notifications of leaks as they come");
	const auto options = std::make_shared<watch_options>();

	command->add_option("--count", options->count, "End after so many notifications")
		->check(CLI::Range(1U, std::numeric_limits<std::uint32_t>::max()));
	command->add_option("--seconds", options->seconds,
			    "End after so many seconds; exit status 1 if --count was not reached")
		->check(CLI::Range(1U, longest_run));
	command->add_flag("--json", options->json, "Print one JSON object a line");
	command->callback([options, &status] {
		if (!run(*options))
			status = exit_not_found;
	});
}

} // namespace tarn
