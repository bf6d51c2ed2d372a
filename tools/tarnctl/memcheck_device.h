// SPDX-License-Identifier: GPL-2.0-only
// The device through which user space reaches the memcheck entries, wherever it is.
#pragma once

#include <cstdint>
#include <string>

namespace tarn
{

class memcheck_device
{
public:
	virtual ~memcheck_device() = default;

	// Whether slab tracking is on, by whomever.
	virtual bool is_tracking() = 0;
	// Results are the module's: 0 or a negative error number.
	virtual int command(std::uint32_t memtype, std::uint32_t cmd) = 0;
	// Names the cache that the next prepare takes; an empty name leaves the choice to the
	// module.
	virtual void set_target(const std::string &cache) = 0;
	// Reads the stacks of a memory type: the header's protocol, into room for size bytes of
	// text.
	virtual int read(std::uint32_t memtype, std::uint64_t size, std::string &text) = 0;
	// The kernel log's lines since the last call.
	virtual std::string take_log() = 0;
};

} // namespace tarn
