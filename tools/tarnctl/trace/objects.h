// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <tarnctl/trace/string_pool.h>
#include <tarnctl/trace/u64_map.h>

#include <cstdint>
#include <vector>

namespace tarn::trace
{

struct object {
	std::uint32_t id = none;
	std::uint32_t cache = none;
	bool guessed = false; // the cache is what its call site made it seem
};

// The live objects of a trace by pointer, numbered densely: a number is used again.
class object_table
{
public:
	// Numbers the new object at ptr; displaced is the number of one still there, or none.
	std::uint32_t add(std::uint64_t ptr, std::uint32_t cache, bool guessed,
			  std::uint32_t &displaced);

	// Removes the object at ptr and returns it; the members are none if there is none.
	object take(std::uint64_t ptr);

private:
	u64_map ids_;
	std::vector<object> objects_; // by number
	std::vector<std::uint32_t> free_;
};

} // namespace tarn::trace
