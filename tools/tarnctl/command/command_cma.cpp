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

void run(const cma_options &options)
{
	const cma_reader files;
	const std::vector<std::string> names =
		options.area.empty() ? files.names() : std::vector{options.area};
	std::vector<cma_area> areas;
	std::string text = names.empty() ? "The kernel has no CMA areas.\n" : "";

	for (const std::string &name : names) {
		areas.push_back(files.read(name, [] { return kernel_log(); }));
		if (areas.size() > 1)
			text += "\n";
		text += cma_text(areas.back(), static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)));
	}
	print_out(options.json ? cma_json(areas) : text);
}

} // namespace

void add_cma(CLI::App &app)
{
	CLI::App *command = app.add_subcommand(
		"cma", "Show the contiguous memory (CMA) areas and who allocated from them");
	const auto options = std::make_shared<cma_options>();

	command->add_option("area", options->area, "Show only this area")->transform(not_empty());
	command->add_flag("--json", options->json, "Print a JSON object");
	command->callback([options] { run(*options); });
}

} // namespace tarn
