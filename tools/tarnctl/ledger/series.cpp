// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/ledger/series.h>

namespace tarn::ledger
{

void floor_series::halve()
{
	if (used_ % 2 != 0)
		floors_[used_++] = last_;
	for (unsigned int i = 0; i < used_ / 2; i++)
		floors_[i] = std::min(floors_[2 * i], floors_[2 * i + 1]);
	used_ /= 2;
	shift_++;
}

void floor_series::set(std::uint64_t time, std::uint32_t value)
{
	if (used_ == 0) {
		start_ = time;
		used_ = 1; // it begins with nothing
	}
	while ((time - start_) >> shift_ >= parts)
		halve();
	const auto part = static_cast<unsigned int>((time - start_) >> shift_);

	for (; used_ <= part; used_++)
		floors_[used_] = last_;
	floors_[part] = std::min(floors_[part], value);
	last_ = value;
}

std::uint32_t floor_series::least(std::uint64_t from, std::uint64_t to) const
{
	if (used_ == 0 || from < start_)
		return 0;
	std::uint32_t least = UINT32_MAX;

	for (std::uint64_t part = (from - start_) >> shift_; part <= (to - start_) >> shift_;
	     part++) {
		if (part >= used_)
			return std::min(least, last_);
		least = std::min(least, floors_[part]);
	}
	return least;
}

} // namespace tarn::ledger
