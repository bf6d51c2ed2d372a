// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <tarnctl/trace/string_pool.h>

#include <cstddef>
#include <cstdint>
#include <tsl/robin_map.h>
#include <utility>

namespace tarn::trace
{

// Maps u64 keys such as pointers to u32 numbers.
class u64_map
{
public:
	// The value of the key, or none.
	std::uint32_t find(std::uint64_t key) const
	{
		const auto at = map_.find(key);

		return at != map_.end() ? at->second : none;
	}

	// Sets the value of the key; returns the one it had before, or none.
	std::uint32_t put(std::uint64_t key, std::uint32_t value)
	{
		const auto [at, is_new] = map_.try_emplace(key, value);

		return is_new ? none : std::exchange(at.value(), value);
	}

	// Removes the key; returns its value, or none.
	std::uint32_t take(std::uint64_t key)
	{
		const auto at = map_.find(key);

		if (at == map_.end())
			return none;
		const std::uint32_t value = at->second;

		map_.erase(at);
		return value;
	}

private:
	// Pointers share their low and their high bits; the multiplication mixes the others, and
	// the swap brings the mixed bits down to where the map looks.
	struct hash {
		std::size_t operator()(std::uint64_t key) const
		{
			return __builtin_bswap64(key * 0x9e3779b97f4a7c15ULL);
		}
	};

	tsl::robin_map<std::uint64_t, std::uint32_t, hash> map_;
};

} // namespace tarn::trace
