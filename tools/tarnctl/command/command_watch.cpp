// SPDX-License-Identifier: GPL-2.0-only
#include <memory>

#include <tarnctl/command/command_follow.h>
#include <tarnctl/device/watch.h>

namespace tarn
{

void add_watch(CLI::App &app, int &status)
{
	CLI::App *command = app.add_subcommand(
		"watch", "Register as lmkd and show leak notifications as they come");
	const auto options = std::make_shared<follow_options>();

	add_follow_options(*command, *options, "notifications");
	command->callback([options, &status] {
		lmkd_channel channel;

		if (!watch(channel, options->limits(), options->output()))
			status = exit_not_found;
	});
}

} // namespace tarn
