// SPDX-License-Identifier: GPL-2.0-only
#include "trace_names.h"

#include <functional>

namespace tarn::trace
{

namespace
{

std::uint32_t hash_of(std::string_view name)
{
	return static_cast<std::uint32_t>(std::hash<std::string_view>{}(name));
}

} // namespace

name_table::name_table() : slots_(64, {0, none}) {}

/* The slot that has the name, or else the free slot where it belongs. */
std::size_t name_table::probe(std::string_view name, std::uint32_t hash) const
{
	const std::size_t mask = slots_.size() - 1;
	std::size_t at = hash & mask;
	while (slots_[at].id != none && (slots_[at].hash != hash || names_[slots_[at].id] != name))
		at = (at + 1) & mask;
	return at;
}

std::uint32_t name_table::find(std::string_view name) const
{
	return slots_[probe(name, hash_of(name))].id;
}

std::uint32_t name_table::add(std::string_view name)
{
	const std::uint32_t hash = hash_of(name);
	const std::size_t at = probe(name, hash);
	if (slots_[at].id != none)
		return slots_[at].id;

	const std::uint32_t id = size();
	names_.emplace_back(name);
	slots_[at] = {hash, id};
	if (names_.size() * 2 > slots_.size())
		grow();
	return id;
}

void name_table::grow()
{
	std::vector<slot> wider(slots_.size() * 2, {0, none});
	const std::size_t mask = wider.size() - 1;
	for (const slot &s : slots_) {
		if (s.id == none)
			continue;
		std::size_t at = s.hash & mask;
		while (wider[at].id != none)
			at = (at + 1) & mask;
		wider[at] = s;
	}
	slots_ = std::move(wider);
}

} // namespace tarn::trace
