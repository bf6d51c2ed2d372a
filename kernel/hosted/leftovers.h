// SPDX-License-Identifier: GPL-2.0-only
// What a module must give back: every registry of the hosted kernel reports what it still holds.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace hosted
{

// Adds a registry; called once a registry, when the program starts. report returns a line for each
// thing that the module registered or allocated through the kernel interface and has not given
// back.
struct leftover_source {
	explicit leftover_source(std::function<std::vector<std::string>()> report);
};

// All lines of all registries.
std::vector<std::string> leftovers();

} // namespace hosted
