// SPDX-License-Identifier: GPL-2.0-only
#include <memory>

#include <tarnctl/command/command.h>
#include <tarnctl/hunt/trace_hunt.h>

namespace tarn
{

void add_caches(CLI::App &app, int &status)
{
	if (!can_hunt_traces())
		return;
	CLI::App *command = app.add_subcommand(
		"caches", "List the caches of a recorded trace and what they hold");
	const auto options = std::make_shared<trace_hunt_options>();

	options->sort = "peak";
	command->add_option("file", options->path, "The trace; - reads standard input")
		->type_name("FILE")
		->required()
		->transform(not_empty());
	command->add_option("--sort", options->sort, "Order by peak, end or allocated")
		->transform(one_of({"peak", "end", "allocated"}))
		->capture_default_str();
	command->add_option("--top", options->top, "Show this many caches")
		->transform(whole_number(1, 1000000));
	command->add_flag("--json", options->json, "Print a JSON object");
	command->add_flag("--strict", options->strict,
			  "Exit with status 3 if the trace has lost events or damaged lines");
	command->callback([options, &status] {
		const trace_hunt_output output = run_trace_caches(*options);

		print_out(output.text);
		status = output.status;
	});
}

} // namespace tarn
