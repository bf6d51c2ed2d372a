// SPDX-License-Identifier: GPL-2.0-only
// The subcommands that make the kernel free memory or check whether there is enough.
#include <functional>
#include <limits>
#include <memory>

#include <tarnctl/command/command.h>
#include <tarnctl/device/service_outcome.h>

namespace tarn
{

namespace
{

struct service_options {
	std::string device;
	bool json = false;
	std::uint64_t amount = 0;
	std::string measure = "resident";
	bool sure = false;
	std::string what;
	int zone_index = 1;
	unsigned int order = 0;
};

using service = std::function<service_outcome(ioctl_device &)>;

void run_service(const service_options &options, shown_counts shown, int &status,
		 const service &serve)
{
	ioctl_device_file device(options.device);
	const memory_counts before = read_memory_counts();
	const service_outcome outcome = serve(device);
	const memory_counts after = read_memory_counts();

	if (outcome.in_vain)
		status = exit_not_found;
	print_out(options.json ? outcome_json(outcome, before, after, shown)
			       : outcome_text(outcome, before, after, shown));
}

struct added_command {
	CLI::App *command;
	std::shared_ptr<service_options> options;
};

added_command add_command(CLI::App &app, const char *name, const char *description)
{
	added_command added = {app.add_subcommand(name, description),
			       std::make_shared<service_options>()};

	add_device_option(*added.command, added.options->device);
	added.command->add_flag("--json", added.options->json, "Print a JSON object");
	return added;
}

} // namespace

void add_kill(CLI::App &app, int &status)
{
	const auto [command, options] =
		add_command(app, "kill", "Kill expendable processes, largest first");

	command->add_option("pages", options->amount,
			    "Kill until the processes total this many pages")
		->transform(whole_number())
		->type_name("PAGES")
		->required();
	command->add_option("--by", options->measure, "Which pages make up a process's size")
		->transform(one_of({"resident", "swapped"}))
		->type_name("resident|swapped")
		->capture_default_str();
	command->add_flag("--yes", options->sure, "Confirm that processes may be killed");
	command->callback([options = options, &status] {
		if (!options->sure)
			throw usage_error("this kills processes whose oom_score_adj is 600 or "
					  "more; add --yes to confirm");
		run_service(*options, shown_counts::memory, status, [&](ioctl_device &device) {
			return kill_outcome(device, options->measure, options->amount);
		});
	});
}

void add_reclaim(CLI::App &app, int &status)
{
	const auto [command, options] =
		add_command(app, "reclaim", "Run one pass of direct reclaim, as for an allocation");

	command->add_option("size", options->amount,
			    "The allocation's size in bytes, such as 4096 or 2M")
		->transform(size_in_bytes())
		->type_name("SIZE")
		->required();
	command->callback([options = options, &status] {
		run_service(*options, shown_counts::memory, status, [&](ioctl_device &device) {
			return reclaim_outcome(device, options->amount);
		});
	});
}

void add_drop(CLI::App &app, int &status)
{
	const auto [command, options] = add_command(
		app, "drop", "Drop reclaimable slab objects, clean page cache, or both");

	command->add_option("what", options->what, "What to drop")
		->transform(one_of({"slab", "pages", "all"}))
		->type_name("slab|pages|all")
		->required();
	command->callback([options = options, &status] {
		run_service(*options, shown_counts::memory, status, [&](ioctl_device &device) {
			return drop_outcome(device, options->what);
		});
	});
}

void add_compact(CLI::App &app, int &status)
{
	const auto [command, options] =
		add_command(app, "compact", "Compact memory in all zones up to the normal one");

	command->callback([options = options, &status] {
		run_service(*options, shown_counts::memory_and_blocks, status,
			    [](ioctl_device &device) { return compact_outcome(device); });
	});
}

void add_watermark(CLI::App &app, int &status)
{
	const auto [command, options] = add_command(
		app, "watermark",
		"Check whether zones have room for an allocation; exit status 1 if not");

	command->add_option("--zone", options->zone_index, "The index of the highest zone")
		->transform(whole_number(0, std::numeric_limits<std::int32_t>::max()))
		->capture_default_str();
	command->add_option("--order", options->order, "The order of the block: 2^ORDER pages")
		->transform(whole_number(0, std::numeric_limits<std::uint32_t>::max()))
		->capture_default_str();
	command->callback([options = options, &status] {
		run_service(*options, shown_counts::memory_and_blocks, status,
			    [&](ioctl_device &device) {
				    return watermark_outcome(device, options->zone_index,
							     options->order);
			    });
	});
}

} // namespace tarn
