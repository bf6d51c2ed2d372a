// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <tsl/robin_map.h>

namespace tarn::trace
{

// No cache, object, name or the like.
inline constexpr std::uint32_t none = UINT32_MAX;

// Distinct strings, numbered from 0 in the order of their first use.
class string_pool
{
public:
	// The number of the name, which is added if it is new.
	std::uint32_t add(std::string_view name)
	{
		const auto known = ids_.find(name);

		if (known != ids_.end())
			return known->second;
		const std::uint32_t id = size();

		ids_.emplace(names_.emplace_back(name), id);
		return id;
	}

	// The number of the name, or none.
	std::uint32_t find(std::string_view name) const
	{
		const auto known = ids_.find(name);

		return known != ids_.end() ? known->second : none;
	}

	std::uint32_t size() const
	{
		return static_cast<std::uint32_t>(names_.size());
	}

	// The name of that number; it stays where it is for the life of the pool.
	const std::string &operator[](std::uint32_t id) const
	{
		return names_[id];
	}

private:
	using map =
		tsl::robin_map<std::string_view, std::uint32_t, std::hash<std::string_view>,
			       std::equal_to<>,
			       std::allocator<std::pair<std::string_view, std::uint32_t>>, true>;

	std::deque<std::string> names_; // the keys of ids_ point into it
	map ids_;
};

} // namespace tarn::trace
