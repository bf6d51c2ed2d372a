// SPDX-License-Identifier: GPL-2.0-only
// The memory adapter's page counts.
#pragma once

#include <string>

#include <uapi/tarn_device.h>

#include "control_device.h"

namespace tarn
{

// Throws device_error.
tarn_page_counts get_pages(control_device &device);

// A line a count: "free 12345".
std::string pages_text(const tarn_page_counts &counts);
// One JSON object and a line end.
std::string pages_json(const tarn_page_counts &counts);

} // namespace tarn
