// SPDX-License-Identifier: GPL-2.0-only
#include <chrono>
#include <cstdio>
#include <memory>

#include <fmt/format.h>

#include "command.h"
#include "hunt_device.h"
#include "hunt_hosted.h"
#include "hunt_print.h"

namespace tarn
{

namespace
{

struct hunt_options {
	std::string trace;
	std::string device;
	std::string cache;
	unsigned int seconds = 10;
	bool json = false;
	bool log = false;
};

void run(const hunt_options &options)
{
	if (options.trace.empty() == options.device.empty())
		throw usage_error("hunt takes either --trace or --device");
	const hunt_result result = options.device.empty()
					   ? hunt_trace(options.trace, options.cache)
					   : hunt_device(options.device, options.cache,
							 std::chrono::seconds(options.seconds));

	print_out(options.json ? hunt_json(result) : hunt_text(result));
	if (!options.log)
		return;
	const std::string log = "\nKernel log:\n" + result.log;

	if (options.json)
		fmt::print(stderr, "{}", log);
	else
		print_out(log);
}

} // namespace

void add_hunt(CLI::App &app)
{
	CLI::App *hunt = app.add_subcommand(
		"hunt", "Hunt a slab leak: who allocates and frees the objects of one cache");
	const auto options = std::make_shared<hunt_options>();
	CLI::Option *trace =
		hunt->add_option("--trace", options->trace,
				 "Replay a recorded trace of a kernel's slab events (plain or .xz)")
			->check(not_empty);
	CLI::Option *device =
		hunt->add_option("--device", options->device,
				 "Hunt on the running kernel, through its memcheck device")
			->check(not_empty);

	if (!can_hunt_traces())
		trace->group(""); // not in the help
	hunt->add_option("--cache", options->cache, "Track this cache instead of the largest")
		->check(not_empty);
	hunt->add_option("--seconds", options->seconds, "How long to track a running kernel")
		->check(CLI::Range(1U, longest_run))
		->needs(device)
		->capture_default_str();
	hunt->add_flag("--json", options->json, "Print one JSON object");
	hunt->add_flag("--log", options->log,
		       "Print the kernel log, too (with --json on standard error)");
	hunt->callback([options] { run(*options); });
}

} // namespace tarn
