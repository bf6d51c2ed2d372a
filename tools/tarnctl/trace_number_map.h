// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarn::trace
{

/**
 * Numbers by number, for keys such as pointers; 0 is no key. Once it has its size it allocates no
 * memory, which std::unordered_map does with every insertion.
 */
class number_map
{
public:
	number_map();

	/** The value of @key, or none. */
	std::uint32_t find(std::uint64_t key) const;

	/** Sets the value of @key; returns the one it had before, or none. */
	std::uint32_t put(std::uint64_t key, std::uint32_t value);

	/** Removes @key; returns its value, or none. */
	std::uint32_t take(std::uint64_t key);

private:
	struct slot {
		std::uint64_t key;
		std::uint32_t value;
	};

	std::size_t home(std::uint64_t key) const;
	std::size_t probe(std::uint64_t key) const;
	void grow();

	std::vector<slot> slots_;
	std::size_t used_ = 0;
	unsigned int shift_;
};

} // namespace tarn::trace
