// SPDX-License-Identifier: GPL-2.0-only
// The memory adapter's services, each one call of its device. All throw device_error.
#pragma once

#include <cstdint>

#include <tarnctl/device/ioctl_device.h>

namespace tarn
{

// Whether the zones up to this index have room for a block of 2^order pages.
bool watermark_ok(ioctl_device &device, int zone_index, unsigned int order);
// Returns the number of pages reclaimed.
std::uint64_t reclaim(ioctl_device &device, std::uint64_t bytes);

void drop_slab(ioctl_device &device);
void drop_page_cache(ioctl_device &device);
void compact(ioctl_device &device);

enum class process_size { resident, swapped };

// Kills expendable processes until their pages add up to the target. Returns the victims' pages.
std::uint64_t kill_processes(ioctl_device &device, process_size measure, std::uint64_t target);

} // namespace tarn
