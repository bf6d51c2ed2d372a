// SPDX-License-Identifier: GPL-2.0-only
#include "trace_number_map.h"

#include "trace_names.h"

#include <utility>

namespace tarn::trace
{

namespace
{

constexpr unsigned int first_bits = 10;

} // namespace

number_map::number_map() : slots_(std::size_t{1} << first_bits), shift_(64 - first_bits) {}

/* Pointers share their low and their high bits; the multiplication brings the others to the top. */
std::size_t number_map::home(std::uint64_t key) const
{
	return (key * 0x9e3779b97f4a7c15ULL) >> shift_;
}

std::size_t number_map::probe(std::uint64_t key) const
{
	const std::size_t mask = slots_.size() - 1;
	std::size_t at = home(key);
	while (slots_[at].key != 0 && slots_[at].key != key)
		at = (at + 1) & mask;
	return at;
}

std::uint32_t number_map::find(std::uint64_t key) const
{
	const slot &s = slots_[probe(key)];
	return s.key != 0 ? s.value : none;
}

std::uint32_t number_map::put(std::uint64_t key, std::uint32_t value)
{
	slot &s = slots_[probe(key)];
	if (s.key != 0)
		return std::exchange(s.value, value);
	s = {key, value};
	if (++used_ * 2 > slots_.size())
		grow();
	return none;
}

std::uint32_t number_map::take(std::uint64_t key)
{
	const std::size_t mask = slots_.size() - 1;
	std::size_t hole = probe(key);
	if (slots_[hole].key == 0)
		return none;
	const std::uint32_t value = slots_[hole].value;

	/* Those behind that could not get nearer to their home move up, so that no search ends at
	 * the hole. */
	for (std::size_t at = (hole + 1) & mask; slots_[at].key != 0; at = (at + 1) & mask) {
		if (((at - home(slots_[at].key)) & mask) >= ((at - hole) & mask)) {
			slots_[hole] = slots_[at];
			hole = at;
		}
	}
	slots_[hole].key = 0;
	used_--;
	return value;
}

void number_map::grow()
{
	const std::vector<slot> old = std::exchange(slots_, std::vector<slot>(slots_.size() * 2));
	shift_--;
	for (const slot &s : old) {
		if (s.key != 0)
			slots_[probe(s.key)] = s;
	}
}

} // namespace tarn::trace
