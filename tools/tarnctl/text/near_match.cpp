// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/text/near_match.h>

#include <algorithm>
#include <numeric>
#include <utility>

namespace tarn
{

namespace
{

// Characters to insert, remove or replace to turn one name into the other.
std::size_t edit_distance(std::string_view from, std::string_view to)
{
	std::vector<std::size_t> row(to.size() + 1);

	std::iota(row.begin(), row.end(), 0U);
	for (std::size_t i = 0; i < from.size(); i++) {
		std::size_t diagonal = std::exchange(row[0], i + 1);

		for (std::size_t j = 0; j < to.size(); j++) {
			const std::size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);

			diagonal = row[j + 1];
			row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
		}
	}
	return row.back();
}

} // namespace

std::vector<std::string> near_matches(std::string_view mistyped, std::span<const std::string> names)
{
	constexpr std::size_t most = 3;
	const std::size_t limit = (mistyped.size() + 2) / 3;
	std::vector<std::pair<std::size_t, std::string>> near;

	for (const std::string &name : names) {
		const bool begins = !mistyped.empty() && name.starts_with(mistyped);
		const std::size_t distance = begins ? 0 : edit_distance(mistyped, name);

		if (distance <= limit && distance < name.size())
			near.emplace_back(distance, name);
	}
	std::ranges::stable_sort(near, {}, &std::pair<std::size_t, std::string>::first);
	std::vector<std::string> matches;

	for (std::size_t i = 0; i < std::min(most, near.size()); i++)
		matches.push_back(near[i].second);
	return matches;
}

} // namespace tarn
