// SPDX-License-Identifier: GPL-2.0-only
#include <memory>
#include <vector>

#include <unistd.h>

#include <tarnctl/cma/cma_print.h>
#include <tarnctl/cma/cma_reader.h>
#include <tarnctl/command/command.h>

namespace tarn
{

namespace
{

struct cma_options {
	std::string area;
	bool json = false;
};

void run(const cma_options &options, int &status)
{
	const cma_reader files;
	const std::vector<std::string> names =
		options.area.empty() ? files.names() : std::vector{options.area};
	const cma_areas all = files.read_all(names, [] { return kernel_log(); });
	std::string text = names.empty() ? "The kernel has no CMA areas.\n" : "";

	for (const cma_area &area : all.areas) {
		if (!text.empty())
			text += "\n";
		text += cma_text(area, static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)));
	}
	if (options.json || !text.empty())
		print_out(options.json ? cma_json(all) : text);
	for (const unreadable_cma_area &area : all.unreadable) {
		print_error(area.reason);
		status = exit_usage;
	}
}

} // namespace

void add_cma(CLI::App &app, int &status)
{
	CLI::App *command = app.add_subcommand(
		"cma", "Show the contiguous memory (CMA) areas and who allocated from them");
	const auto options = std::make_shared<cma_options>();

	command->add_option("area", options->area, "Show only this area")->transform(not_empty());
	command->add_flag("--json", options->json, "Print a JSON object");
	command->callback([options, &status] { run(*options, status); });
}

} // namespace tarn
