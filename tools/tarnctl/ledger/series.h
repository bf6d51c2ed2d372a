// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace tarn::ledger
{

// A number over a stretch of time of unknown length: how low it was in each of at most 64 equal
// parts. When the parts do not suffice, two become one. The least is what tells a leak from churn:
// it leaves out all that comes and goes.
class floor_series
{
public:
	// From this time on the number is value. Times do not go backwards.
	void set(std::uint64_t time, std::uint32_t value);

	// The least that the number was between the times, in whole parts; 0 before the first.
	std::uint32_t least(std::uint64_t from, std::uint64_t to) const;

private:
	static constexpr unsigned int parts = 64;

	void halve();

	std::array<std::uint32_t, parts> floors_ = {};
	std::uint64_t start_ = 0;
	unsigned int shift_ = 10; // a part takes 2^shift_ ns
	unsigned int used_ = 0;	  // parts that have begun
	std::uint32_t last_ = 0;
};

// A number at the end of each of so many parts of the recording, and the most within each.
class timeline
{
public:
	// In that part, and from then on, the number is value. Parts do not go backwards.
	void set(std::size_t part, std::uint64_t value)
	{
		extend(part + 1);
		last_ = ends_[part] = value;
		if (value > most_[part])
			most_[part] = value;
	}

	// Carries the last number on until there are so many parts.
	void extend(std::size_t parts)
	{
		ends_.resize(std::max(ends_.size(), parts), last_);
		most_.resize(ends_.size(), last_);
	}

	const std::vector<std::uint64_t> &ends() const
	{
		return ends_;
	}
	const std::vector<std::uint64_t> &most() const
	{
		return most_;
	}

	// Adds a timeline of as many parts. The most are an upper bound then.
	void add(const timeline &other)
	{
		extend(other.ends_.size());
		for (std::size_t i = 0; i < other.ends_.size(); i++) {
			ends_[i] += other.ends_[i];
			most_[i] += other.most_[i];
		}
	}

private:
	std::vector<std::uint64_t> ends_;
	std::vector<std::uint64_t> most_;
	std::uint64_t last_ = 0;
};

} // namespace tarn::ledger
