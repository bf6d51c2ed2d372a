// SPDX-License-Identifier: GPL-2.0-only
// The subcommands. Each is added to the application with its options; its work is done while the
// arguments are parsed, and what goes wrong is thrown.
#pragma once

#include <stdexcept>
#include <string>

#include <CLI/CLI.hpp>

namespace tarn
{

// What the process ends with.
constexpr int exit_not_found = 1; // asked for something that there is not
constexpr int exit_usage = 2;	  // bad usage, unusable input or device

void add_hunt(CLI::App &app);
// The status is exit_not_found when the notifications waited for do not come in time.
void add_watch(CLI::App &app, int &status);
void add_thresholds(CLI::App &app);
void add_pages(CLI::App &app);
void add_cma(CLI::App &app);
// The status as for watch.
void add_pins(CLI::App &app, int &status);
// The status is exit_not_found when nothing came of it: no pages, or no room.
void add_kill(CLI::App &app, int &status);
void add_reclaim(CLI::App &app, int &status);
void add_drop(CLI::App &app, int &status);
void add_compact(CLI::App &app, int &status);
void add_watermark(CLI::App &app, int &status);

struct usage_error : std::runtime_error {
	using std::runtime_error::runtime_error;
};

// One day, in seconds: the longest that a command runs by itself.
constexpr unsigned int longest_run = 86400;

// An option for the control device's path, which has a default.
CLI::Option *add_device_option(CLI::App &command, std::string &path);

// A check of options: nothing is no name, and would be taken for an option that was not given.
std::string not_empty(const std::string &value);

// Writes to standard output, at once. Throws std::runtime_error when that fails.
void print_out(const std::string &text);
// A sentence on standard error.
void complain(const char *sentence);

} // namespace tarn
