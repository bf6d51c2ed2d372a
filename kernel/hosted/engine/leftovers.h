// SPDX-License-Identifier: GPL-2.0-only
// Finds what a module fails to give back: every registry of the hosted kernel reports what it still
// holds.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace hosted
{

// Adds a registry; construct one per registry at program start. report returns a line for each
// thing that the module has registered or allocated through the kernel interface and not given
// back.
struct leftover_source {
	explicit leftover_source(std::function<std::vector<std::string>()> report);
};

// The lines of all registries.
std::vector<std::string> leftovers();

} // namespace hosted
