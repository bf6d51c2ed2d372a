// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::trace
{

/** No cache, object, name or the like. */
inline constexpr std::uint32_t none = UINT32_MAX;

/** Distinct strings, numbered from 0 in the order of their first use. */
class name_table
{
public:
	name_table();

	/** The number of @name, which is added if it is new. */
	std::uint32_t add(std::string_view name);

	/** The number of @name, or none. */
	std::uint32_t find(std::string_view name) const;

	std::uint32_t size() const
	{
		return static_cast<std::uint32_t>(names_.size());
	}

	/** The name of that number; it stays where it is for the life of the table. */
	const std::string &operator[](std::uint32_t id) const
	{
		return names_[id];
	}

private:
	struct slot {
		std::uint32_t hash;
		std::uint32_t id;
	};

	std::size_t probe(std::string_view name, std::uint32_t hash) const;
	void grow();

	std::deque<std::string> names_;
	std::vector<slot> slots_;
};

} // namespace tarn::trace
