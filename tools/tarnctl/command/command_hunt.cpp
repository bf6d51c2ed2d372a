// SPDX-License-Identifier: GPL-2.0-only
#include <chrono>
#include <cstdio>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>

#include <fmt/format.h>

#include <tarnctl/command/command.h>
#include <tarnctl/hunt/device_print.h>
#include <tarnctl/hunt/hunt_device.h>
#include <tarnctl/hunt/trace_hunt.h>
#include <tarnctl/text/quantity.h>

namespace tarn
{

namespace
{

struct hunt_options {
	trace_hunt_options trace; // cache, json and log are those of a device, too
	std::string device;
	unsigned int seconds = 10;
};

std::string is_moment(std::string &value)
{
	return value == "end" || value == "peak" || parse_time(value)
		       ? ""
		       : "expected end, peak or a time such as 1.5 or 300ms";
}

trace_hunt_output run(const hunt_options &options)
{
	if (options.trace.path.empty() == options.device.empty())
		throw usage_error("hunt needs either --trace or --device");
	if (options.device.empty())
		return run_trace_hunt(options.trace);
	const device_hunt hunt =
		hunt_device(options.device, {options.trace.cache, options.trace.automatic,
					     std::chrono::seconds(options.seconds)});

	return {options.trace.json ? device_hunt_json(hunt) : device_hunt_text(hunt),
		hunt.result.log};
}

void print(const hunt_options &options, int &status)
{
	const trace_hunt_output output = run(options);

	print_out(output.text);
	status = output.status;
	if (!options.trace.log)
		return;
	const std::string log = "\nKernel log:\n" + output.log;

	if (!options.trace.json)
		print_out(log);
	else if (!print_to_error(log))
		throw std::runtime_error("cannot write the kernel log to standard error");
}

// Which objects of a trace are shown, and how.
void add_trace_options(CLI::App &hunt, trace_hunt_options &t, CLI::Option *trace)
{
	constexpr std::uint64_t highest_pid = std::numeric_limits<std::int32_t>::max();
	const auto add = [&](const char *name, auto &value, const char *description,
			     const char *type) {
		return hunt.add_option(name, value, description)
			->needs(trace)
			->allow_extra_args(false)
			->type_name(type);
	};

	add("--pid", t.pids, "Only objects that this thread allocated (may be repeated)", "PID")
		->transform(whole_number(0, highest_pid));
	add("--comm", t.comms, "Only objects of programs with this name (a pattern)", "NAME");
	add("--function", t.functions, "Only objects with this function (a pattern) in their stack",
	    "NAME");
	add("--from", t.from, "Only objects allocated from this time on", "TIME")
		->transform(time_in_ns());
	add("--to", t.to, "Only objects allocated up to this time", "TIME")
		->transform(time_in_ns());
	add("--min-age", t.min_age, "Show only objects that are at least this old", "TIME")
		->transform(time_in_ns());
	add("--live-at", t.live_at, "Show what lives at the end, at the peak or at a time",
	    "end|peak|TIME")
		->check(CLI::Validator(is_moment, ""))
		->capture_default_str();
	add("--sort", t.sort, "Order the stacks by bytes, objects or allocated", "KEY")
		->transform(one_of({"bytes", "objects", "allocated"}));
	add("--top", t.top, "Show this many rows of each table", "N")
		->transform(whole_number(1, 1000000));
	add("--frames", t.frames, "Show this many frames of each stack", "N")
		->transform(whole_number(1, 1000));
	hunt.add_flag("--stacks", t.stacks, "List what is held, stack by stack")->needs(trace);
	hunt.add_flag("--readout", t.readout, "Also print what the module recorded of its target")
		->needs(trace);
	hunt.add_flag("--strict", t.strict,
		      "Exit with status 3 if the trace has lost events or damaged lines")
		->needs(trace);
}

} // namespace

void add_hunt(CLI::App &app, int &status)
{
	CLI::App *hunt =
		app.add_subcommand("hunt", "Hunt a slab leak: show which program keeps objects");
	const auto options = std::make_shared<hunt_options>();
	CLI::Option *trace =
		hunt->add_option("--trace", options->trace.path,
				 "Hunt in a recorded trace of slab events, plain or compressed; "
				 "- reads standard input")
			->transform(not_empty());
	CLI::Option *device =
		hunt->add_option("--device", options->device,
				 "Hunt on the running kernel through its memcheck device")
			->transform(not_empty());

	hunt->add_option("--cache", options->trace.cache, "Look only at this cache")
		->transform(not_empty());
	hunt->add_flag("--auto", options->trace.automatic,
		       "Let the module choose its target, the largest cache, instead of the first "
		       "suspect's or the fastest growing one");
	hunt->add_option("--seconds", options->seconds,
			 "How long to watch and track the running kernel")
		->transform(whole_number(1, longest_run))
		->needs(device)
		->capture_default_str();
	if (can_hunt_traces())
		add_trace_options(*hunt, options->trace, trace);
	else
		trace->group(""); // hidden from the help
	hunt->add_flag("--json", options->trace.json, "Print a JSON object");
	hunt->add_flag("--log", options->trace.log,
		       "Also print the module's kernel log (with --json: to standard error)");
	hunt->callback([options, &status] { print(*options, status); });
}

} // namespace tarn
