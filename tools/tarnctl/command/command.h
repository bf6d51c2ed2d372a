// SPDX-License-Identifier: GPL-2.0-only
// The subcommands. Each is added to the application with its options; it runs while the arguments
// are parsed, and throws its errors.
#pragma once

#include <string>

#include <CLI/CLI.hpp>

#include <tarnctl/command/option_values.h>
#include <tarnctl/command/usage.h>
#include <tarnctl/terminal/output.h>

namespace tarn
{

// The exit status of the process.
constexpr int exit_not_found = 1; // what was asked for does not exist, or nothing came of it
constexpr int exit_usage = 2;	  // bad usage, unusable input or device

// Sets the status to exit_damaged if a strict reading finds a trace lossy or damaged.
void add_hunt(CLI::App &app, int &status);
void add_caches(CLI::App &app, int &status);
// Sets the status to exit_not_found if the notifications waited for do not come in time.
void add_watch(CLI::App &app, int &status);
void add_thresholds(CLI::App &app);
void add_pages(CLI::App &app);
// Sets the status to exit_usage if an area cannot be read.
void add_cma(CLI::App &app, int &status);
// The status as for watch.
void add_pins(CLI::App &app, int &status);
// These set the status to exit_not_found if nothing came of it: no pages, or no room.
void add_kill(CLI::App &app, int &status);
void add_reclaim(CLI::App &app, int &status);
void add_drop(CLI::App &app, int &status);
void add_compact(CLI::App &app, int &status);
void add_watermark(CLI::App &app, int &status);

// The longest that a command runs by itself: one day, in seconds.
constexpr unsigned int longest_run = 86400;

// An option for the path of the control device, which has a default.
CLI::Option *add_device_option(CLI::App &command, std::string &path);

} // namespace tarn
