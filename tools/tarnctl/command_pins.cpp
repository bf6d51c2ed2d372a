// SPDX-License-Identifier: GPL-2.0-only
#include <memory>

#include "command_follow.h"
#include "pins.h"

namespace tarn
{

namespace
{

struct pins_options : follow_options {
	bool all = false;
};

} // namespace

void add_pins(CLI::App &app, int &status)
{
	CLI::App *command = app.add_subcommand(
		"pins", "Follow the kernel log and show who pins pages of CMA areas");
	const auto options = std::make_shared<pins_options>();

	add_follow_options(*command, *options, "pins");
	command->add_flag("--all", options->all, "Begin with the pins that the log already holds");
	command->callback([options, &status] {
		kernel_log log(options->all ? log_start::oldest : log_start::now);

		if (!follow_pins(log, options->limits(), options->output()))
			status = exit_not_found;
	});
}

} // namespace tarn
