// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/ledger/lifetimes.h>

#include <bit>
#include <cmath>

namespace tarn::ledger
{

namespace
{

// Traces tell times in microseconds, so what lies below is of no interest.
constexpr unsigned int lowest_bits = 10;

unsigned int bucket_of(std::uint64_t ns)
{
	const std::uint64_t scaled = (ns >> (lowest_bits - 2)) | 4;
	const auto top = static_cast<unsigned int>(std::bit_width(scaled)) - 3;

	return ns >> lowest_bits == 0 ? 0 : top * 4 + ((scaled >> top) & 3);
}

std::uint64_t end_of(unsigned int bucket)
{
	return std::uint64_t{bucket % 4 + 5} << (bucket / 4 + lowest_bits - 2);
}

} // namespace

void lifetimes::add(std::uint64_t ns)
{
	const unsigned int bucket = bucket_of(ns);

	if (bucket >= buckets_.size())
		buckets_.resize(bucket + 1);
	buckets_[bucket]++;
	count_++;
}

std::uint64_t lifetimes::quantile(double share) const
{
	const auto wanted =
		static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(count_)));
	std::uint64_t seen = 0;

	for (unsigned int bucket = 0; bucket < buckets_.size(); bucket++) {
		seen += buckets_[bucket];
		if (seen >= wanted && seen != 0)
			return end_of(bucket);
	}
	return 0;
}

void lifetimes::merge(const lifetimes &other)
{
	if (other.buckets_.size() > buckets_.size())
		buckets_.resize(other.buckets_.size());
	for (std::size_t i = 0; i < other.buckets_.size(); i++)
		buckets_[i] += other.buckets_[i];
	count_ += other.count_;
}

} // namespace tarn::ledger
