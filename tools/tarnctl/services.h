// SPDX-License-Identifier: GPL-2.0-only
// The memory adapter's services, one call of its device each. All throw device_error.
#pragma once

#include <cstdint>

#include "control_device.h"

namespace tarn
{

// Whether the zones up to an index have room for a block of 2^order pages.
bool watermark_ok(control_device &device, int zone_index, unsigned int order);
// Returns the pages reclaimed.
std::uint64_t reclaim(control_device &device, std::uint64_t bytes);

void drop_slab(control_device &device);
void drop_page_cache(control_device &device);
void compact(control_device &device);

enum class process_size { resident, swapped };

// Kills expendable processes up to a target. Returns the victims' pages.
std::uint64_t kill_processes(control_device &device, process_size measure, std::uint64_t target);

} // namespace tarn
