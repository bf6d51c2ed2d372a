// SPDX-License-Identifier: GPL-2.0-only
// A hunt on a device for people and for programs.
#pragma once

#include <string>

#include <tarnctl/hunt/hunt_device.h>

namespace tarn
{

// For a terminal of 80 columns.
std::string device_hunt_text(const device_hunt &hunt);
// One JSON object and a line end. docs/json.md describes it.
std::string device_hunt_json(const device_hunt &hunt);

} // namespace tarn
