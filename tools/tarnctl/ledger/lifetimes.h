// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <vector>

namespace tarn::ledger
{

// How long objects lived, in memory that does not grow with their number: a histogram with four
// buckets an octave, so that a quantile is at most a fifth too high.
class lifetimes
{
public:
	void add(std::uint64_t ns);

	// The time in ns that this share (0 to 1) of the objects did not exceed; 0 without objects.
	std::uint64_t quantile(double share) const;

	void merge(const lifetimes &other);

private:
	std::vector<std::uint32_t> buckets_;
	std::uint64_t count_ = 0;
};

} // namespace tarn::ledger
