// SPDX-License-Identifier: GPL-2.0-only
// The thresholds of memory use above which a leak is suspected.
#pragma once

#include <string>
#include <vector>

#include <uapi/tarn_memcheck.h>

#include <tarnctl/device/ioctl_device.h>

namespace tarn
{

// Reads settings of the form NAME=KIB. Throws std::invalid_argument if a name is unknown or comes
// twice, or if a value is not a decimal number of 32 bits.
memcheck_threshold parse_thresholds(const std::vector<std::string> &settings);

// Each is one call of the device. Both throw device_error.
void set_thresholds(ioctl_device &device, memcheck_threshold thresholds);
memcheck_threshold get_thresholds(ioctl_device &device);

// One line per threshold: "slab_k 1048576 kB".
std::string thresholds_text(const memcheck_threshold &thresholds);
// A JSON object and a line end: "slab_k" and so on, in KiB.
std::string thresholds_json(const memcheck_threshold &thresholds);

} // namespace tarn
