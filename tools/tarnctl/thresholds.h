// SPDX-License-Identifier: GPL-2.0-only
// The thresholds above which the kernel's memory counts as suspicious, by name.
#pragma once

#include <string>
#include <vector>

#include <uapi/tarn_memcheck.h>

#include "control_device.h"

namespace tarn
{

// Reads settings of the form NAME=KIB. Throws std::invalid_argument on a name that is unknown or
// comes twice and on a value that is not a decimal number of 32 bits.
memcheck_threshold parse_thresholds(const std::vector<std::string> &settings);

// In one call. Both throw device_error.
void set_thresholds(control_device &device, memcheck_threshold thresholds);
memcheck_threshold get_thresholds(control_device &device);

// A line each: "slab_k 1048576 kB".
std::string thresholds_text(const memcheck_threshold &thresholds);

} // namespace tarn
