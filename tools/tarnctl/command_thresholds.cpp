// SPDX-License-Identifier: GPL-2.0-only
#include <memory>
#include <vector>

#include "command.h"
#include "thresholds.h"

namespace tarn
{

namespace
{

struct threshold_options {
	std::string device;
	std::vector<std::string> settings;
};

} // namespace

void add_thresholds(CLI::App &app)
{
	CLI::App *command = app.add_subcommand(
		"thresholds", "Show or set the memory use above which a leak is suspected");
	const auto options = std::make_shared<threshold_options>();

	add_device_option(*command, options->device);
	command->require_subcommand(0, 1);
	command->fallthrough();
	command->add_subcommand("get", "Show them (this is done by default)")->fallthrough();
	command->add_subcommand("set", "Set some of them and show all")
		->fallthrough()
		->add_option("setting", options->settings,
			     "slab_k, vmalloc_k, slab_leak_k or vmalloc_leak_k and the new value")
		->type_name("NAME=KIB")
		->required();
	command->callback([options] {
		const memcheck_threshold wanted = parse_thresholds(options->settings);
		control_device_file device(options->device);

		if (wanted.mask != 0)
			set_thresholds(device, wanted);
		print_out(thresholds_text(get_thresholds(device)));
	});
}

} // namespace tarn
