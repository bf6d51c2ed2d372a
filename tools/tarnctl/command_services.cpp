// SPDX-License-Identifier: GPL-2.0-only
// The subcommands that make the kernel free memory, or ask whether there is enough.
#include <functional>
#include <map>
#include <memory>

#include <fmt/format.h>

#include "command.h"
#include "memory_counts.h"
#include "services.h"

namespace tarn
{

namespace
{

// What a service was asked and what came of it.
struct outcome {
	std::string sentence;
	nlohmann::ordered_json members;
	bool in_vain = false;
};

struct service_options {
	std::string device;
	bool json = false;
	std::uint64_t amount = 0;
	process_size measure = process_size::resident;
	bool sure = false;
	std::string what;
	int zone_index = 1;
	unsigned int order = 0;
};

using service = std::function<outcome(control_device &)>;

void run_service(const service_options &options, shown_counts shown, int &status,
		 const service &serve)
{
	control_device_file device(options.device);
	const memory_counts before = read_memory_counts();
	outcome result = serve(device);
	const memory_counts after = read_memory_counts();

	if (result.in_vain)
		status = exit_not_found;
	if (!options.json) {
		print_out(result.sentence + "\n" + change_text(before, after, shown));
		return;
	}
	result.members.update(change_json(before, after, shown));
	print_out(result.members.dump(2) + "\n");
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
	added.command->add_flag("--json", added.options->json, "Print one JSON object");
	return added;
}

outcome kill_outcome(control_device &device, const service_options &options)
{
	const bool swapped = options.measure == process_size::swapped;
	const char *measure = swapped ? "swapped" : "resident";
	const std::uint64_t pages = kill_processes(device, options.measure, options.amount);

	return {fmt::format("asked for {} {} pages, killed processes of {}", options.amount,
			    measure, pages),
		{{"measure", measure}, {"target_pages", options.amount}, {"killed_pages", pages}},
		pages == 0};
}

outcome drop_outcome(control_device &device, const std::string &what)
{
	if (what != "pages")
		drop_slab(device);
	if (what != "slab")
		drop_page_cache(device);
	return {fmt::format("dropped: {}", what), {{"dropped", what}}};
}

} // namespace

void add_kill(CLI::App &app, int &status)
{
	const auto [command, options] =
		add_command(app, "kill", "Kill expendable processes, largest first");
	const std::map<std::string, process_size> measures = {{"resident", process_size::resident},
							      {"swapped", process_size::swapped}};

	command->add_option("pages", options->amount, "Kill until this many pages are reached")
		->type_name("PAGES")
		->required();
	command->add_option("--by", options->measure, "A process's size: resident or swapped pages")
		->transform(CLI::CheckedTransformer(measures));
	command->add_flag("--yes", options->sure, "Really kill");
	command->callback([options = options, &status] {
		if (!options->sure)
			throw usage_error("this kills processes whose oom_score_adj is 600 or "
					  "more; repeat it with --yes");
		run_service(*options, shown_counts::memory, status,
			    [&](control_device &device) { return kill_outcome(device, *options); });
	});
}

void add_reclaim(CLI::App &app, int &status)
{
	const auto [command, options] =
		add_command(app, "reclaim", "One pass of direct reclaim for an allocation");

	command->add_option("size", options->amount, "The allocation's size, such as 4096 or 2M")
		->transform(CLI::AsSizeValue(false))
		->type_name("SIZE")
		->required();
	command->callback([options = options, &status] {
		run_service(*options, shown_counts::memory, status, [&](control_device &device) {
			const std::uint64_t pages = reclaim(device, options->amount);

			return outcome{fmt::format("asked for {} bytes, reclaimed {} pages",
						   options->amount, pages),
				       {{"bytes", options->amount}, {"reclaimed_pages", pages}},
				       pages == 0};
		});
	});
}

void add_drop(CLI::App &app, int &status)
{
	const auto [command, options] = add_command(
		app, "drop", "Drop reclaimable slab objects, clean page cache, or both");

	command->add_option("what", options->what, "slab, pages or all")
		->type_name("WHAT")
		->check(CLI::IsMember({"slab", "pages", "all"}))
		->required();
	command->callback([options = options, &status] {
		run_service(*options, shown_counts::memory, status, [&](control_device &device) {
			return drop_outcome(device, options->what);
		});
	});
}

void add_compact(CLI::App &app, int &status)
{
	const auto [command, options] =
		add_command(app, "compact", "Compact memory, up to the normal zone");

	command->callback([options = options, &status] {
		run_service(*options, shown_counts::memory_and_blocks, status,
			    [](control_device &device) {
				    compact(device);
				    return outcome{"compacted", {{"compacted", true}}};
			    });
	});
}

void add_watermark(CLI::App &app, int &status)
{
	const auto [command, options] = add_command(
		app, "watermark", "Whether the zones have room for an allocation; status 1 if not");

	command->add_option("--zone", options->zone_index, "The highest zone's index")
		->capture_default_str();
	command->add_option("--order", options->order, "The block's order: 2^ORDER pages")
		->capture_default_str();
	command->callback([options = options, &status] {
		run_service(*options, shown_counts::memory_and_blocks, status,
			    [&](control_device &device) {
				    const bool ok = watermark_ok(device, options->zone_index,
								 options->order);

				    return outcome{fmt::format("zones up to {}, order {}: {}",
							       options->zone_index, options->order,
							       ok ? "room" : "no room"),
						   {{"zone", options->zone_index},
						    {"order", options->order},
						    {"room", ok}},
						   !ok};
			    });
	});
}

} // namespace tarn
