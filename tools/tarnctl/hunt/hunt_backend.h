// SPDX-License-Identifier: GPL-2.0-only
// What a hunt drives: the memcheck entries of a module, on a running kernel or a hosted one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <tarnctl/hunt/event_counts.h>

namespace tarn
{

class hunt_backend
{
public:
	virtual ~hunt_backend() = default;

	// Whether slab tracking is on, no matter who switched it on.
	virtual bool is_tracking() = 0;
	// Returns what the module returns: 0 or a negative error number.
	virtual int command(std::uint32_t memtype, std::uint32_t cmd) = 0;
	// Sets the cache that the next prepare chooses; an empty name leaves the choice to the
	// module.
	virtual void set_target(const std::string &cache) = 0;
	// Reads the stacks of a memory type, at most size bytes of text. Returns what the module
	// returns.
	virtual int read(std::uint32_t memtype, std::uint64_t size, std::string &text) = 0;
	// What the module counts, if it counts at all.
	virtual std::optional<event_counts> events() = 0;
	// The lines of the kernel log since the last call.
	virtual std::string take_log() = 0;
};

} // namespace tarn
