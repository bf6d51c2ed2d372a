// SPDX-License-Identifier: GPL-2.0-only
// tarnctl: the command line of the memory adapter.
#include <cstdio>
#include <exception>
#include <new>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "hunt_hosted.h"
#include "hunt_print.h"

namespace
{

constexpr int exit_not_found = 1; // asked for something that the input does not have
constexpr int exit_usage = 2;	  // bad usage or unusable input

int complain(int status, const char *sentence)
{
	fmt::print(stderr, "tarnctl: {}\n", sentence);
	return status;
}

// Nothing is no name, and would be taken for an option that was not given.
std::string not_empty(const std::string &value)
{
	return value.empty() ? "the name is empty" : "";
}

} // namespace

int main(int argc, char **argv)
{
	CLI::App app("Finds memory leaks of the kernel.", "tarnctl");
	std::string trace;
	std::string cache;
	bool json = false;
	bool log = false;

	app.require_subcommand(1);
	CLI::App *hunt = app.add_subcommand(
		"hunt", "Hunt a slab leak: who allocates and frees the objects of one cache");
	hunt->add_option("--trace", trace,
			 "Replay a recorded trace of a kernel's slab events (plain or .xz)")
		->required()
		->check(not_empty);
	hunt->add_option("--cache", cache, "Track this cache instead of the largest")
		->check(not_empty);
	hunt->add_flag("--json", json, "Print one JSON object");
	hunt->add_flag("--log", log, "Print the kernel log, too (with --json on standard error)");

	try {
		app.parse(argc, argv);
		const tarn::hunt_result result = tarn::hunt_trace(trace, cache);

		fmt::print("{}", json ? tarn::hunt_json(result) : tarn::hunt_text(result));
		if (log)
			fmt::print(json ? stderr : stdout, "\nKernel log:\n{}", result.log);
		if (std::fflush(stdout) != 0)
			return complain(exit_usage, "the result cannot be written");
		return 0;
	} catch (const CLI::Success &e) {
		return app.exit(e);
	} catch (const CLI::ArgumentMismatch &) {
		return complain(exit_usage, "--trace and --cache take one value each");
	} catch (const CLI::ParseError &e) {
		return complain(exit_usage, e.what());
	} catch (const std::bad_alloc &) {
		return complain(exit_usage, "there is not enough memory");
	} catch (const tarn::unknown_cache &e) {
		return complain(exit_not_found, e.what());
	} catch (const std::exception &e) {
		return complain(exit_usage, e.what());
	}
}
