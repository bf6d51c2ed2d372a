// SPDX-License-Identifier: GPL-2.0-only
#include <memory>
#include <vector>

#include <tarnctl/command/command.h>
#include <tarnctl/device/thresholds.h>

namespace tarn
{

namespace
{

struct threshold_options {
	std::string device;
	std::vector<std::string> settings;
	bool json = false;
};

} // namespace

void add_thresholds(CLI::App &app)
{
	CLI::App *command = app.add_subcommand(
		"thresholds", "Show or set the memory use above which a leak is suspected");
	const auto options = std::make_shared<threshold_options>();

	add_device_option(*command, options->device);
	command->add_flag("--json", options->json, "Print a JSON object");
	command->require_subcommand(0, 1);
	command->fallthrough();
	command->add_subcommand("get", "Show the thresholds (the default)")->fallthrough();
	command->add_subcommand("set", "Set thresholds, then show all of them")
		->fallthrough()
		->add_option("setting", options->settings,
			     "slab_k, vmalloc_k, slab_leak_k or vmalloc_leak_k, and its new value")
		->type_name("NAME=KIB")
		->required();
	command->callback([options] {
		const memcheck_threshold wanted = parse_thresholds(options->settings);
		ioctl_device_file device(options->device);

		if (wanted.mask != 0)
			set_thresholds(device, wanted);
		const memcheck_threshold now = get_thresholds(device);

		print_out(options->json ? thresholds_json(now) : thresholds_text(now));
	});
}

} // namespace tarn
