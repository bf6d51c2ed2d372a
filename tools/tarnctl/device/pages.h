// SPDX-License-Identifier: GPL-2.0-only
// The memory adapter's page counts.
#pragma once

#include <string>

#include <uapi/tarn_device.h>

#include <tarnctl/device/ioctl_device.h>

namespace tarn
{

// Throws device_error.
tarn_page_counts get_pages(ioctl_device &device);

// One line per count: "free 12345".
std::string pages_text(const tarn_page_counts &counts);
// A JSON object and a line end.
std::string pages_json(const tarn_page_counts &counts);

} // namespace tarn
