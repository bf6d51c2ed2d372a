// SPDX-License-Identifier: GPL-2.0-only
#include <memory>

#include <tarnctl/command/command_follow.h>
#include <tarnctl/device/pins.h>

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
		"pins", "Show who pins pages of CMA areas, as the kernel log reports it");
	const auto options = std::make_shared<pins_options>();

	add_follow_options(*command, *options, "pins");
	command->add_flag("--all", options->all, "Begin with the pins that are already in the log");
	command->callback([options, &status] {
		require_pin_tracking();
		kernel_log log(options->all ? log_start::oldest : log_start::now);

		if (!follow_pins(log, options->limits(), options->output()))
			status = exit_not_found;
	});
}

} // namespace tarn
