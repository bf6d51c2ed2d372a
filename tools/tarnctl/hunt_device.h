// SPDX-License-Identifier: GPL-2.0-only
// A hunt on the running kernel.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "hunt.h"

namespace tarn
{

// The object size of a cache in bytes by the text of /proc/slabinfo, if it is listed there.
std::optional<std::uint32_t> listed_object_size(const std::string &slabinfo,
						const std::string &cache);

// Tracks for a time, or until a signal asks to end. Throws device_error, unknown_cache or
// hunt_error.
hunt_result hunt_device(const std::string &device, const std::string &cache,
			std::chrono::seconds time);

} // namespace tarn
