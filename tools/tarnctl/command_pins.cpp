// SPDX-License-Identifier: GPL-2.0-only
#include <cstdint>
#include <limits>
#include <memory>

#include "command.h"
#include "pins.h"

namespace tarn
{

namespace
{

struct pins_options {
	std::uint32_t count = 0; // 0: not given
	unsigned int seconds = 0;
	bool all = false;
	bool json = false;
};

bool run(const pins_options &options)
{
	watch_limits limits;

	if (options.count != 0)
		limits.count = options.count;
	if (options.seconds != 0)
		limits.time = std::chrono::seconds(options.seconds);
	kernel_log log(options.all ? log_start::oldest : log_start::now);

	return follow_pins(
		log, limits,
		{options.json, [](const std::string &line) { print_out(line + "\n"); }, complain});
}

} // namespace

void add_pins(CLI::App &app, int &status)
{
	CLI::App *command = app.add_subcommand(
		"pins", "Follow the kernel log and show who pins pages of CMA areas");
	const auto options = std::make_shared<pins_options>();

	command->add_option("--count", options->count, "End after so many pins")
		->check(CLI::Range(1U, std::numeric_limits<std::uint32_t>::max()));
	command->add_option("--seconds", options->seconds,
			    "End after so many seconds; exit status 1 if --count was not reached")
		->check(CLI::Range(1U, longest_run));
	command->add_flag("--all", options->all, "Begin with the pins that the log already holds");
	command->add_flag("--json", options->json, "Print one JSON object a line");
	command->callback([options, &status] {
		if (!run(*options))
			status = exit_not_found;
	});
}

} // namespace tarn
