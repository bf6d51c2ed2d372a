// SPDX-License-Identifier: GPL-2.0-only
#include <memory>

#include <tarnctl/command/command.h>
#include <tarnctl/device/pages.h>

namespace tarn
{

namespace
{

struct pages_options {
	std::string device;
	bool json = false;
};

} // namespace

void add_pages(CLI::App &app)
{
	CLI::App *command = app.add_subcommand(
		"pages", "Show the memory adapter's page counts, in pages of 4 KiB");
	const auto options = std::make_shared<pages_options>();

	add_device_option(*command, options->device);
	command->add_flag("--json", options->json, "Print a JSON object");
	command->callback([options] {
		ioctl_device_file device(options->device);
		const tarn_page_counts counts = get_pages(device);

		print_out(options->json ? pages_json(counts) : pages_text(counts));
	});
}

} // namespace tarn
