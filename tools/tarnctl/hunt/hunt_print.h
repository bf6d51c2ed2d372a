// SPDX-License-Identifier: GPL-2.0-only
// A hunt's result for people and for programs.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include <tarnctl/hunt/hunt.h>

namespace tarn
{

// Tables for a terminal.
std::string hunt_text(const hunt_result &result);
// The members of the JSON that show what the module recorded. docs/json.md describes them.
nlohmann::ordered_json hunt_members(const hunt_result &result);
// The lists of who allocates and who frees, stack by stack, each after an empty line.
std::string callers_text(const readout &callers);

} // namespace tarn
