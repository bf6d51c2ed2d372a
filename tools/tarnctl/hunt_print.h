// SPDX-License-Identifier: GPL-2.0-only
// A hunt's result for people and for programs.
#pragma once

#include <string>

#include "hunt.h"

namespace tarn
{

// Tables for a terminal.
std::string hunt_text(const hunt_result &result);
// One JSON object and a line end.
std::string hunt_json(const hunt_result &result);

} // namespace tarn
