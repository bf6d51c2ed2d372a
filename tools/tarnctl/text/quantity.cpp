// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/text/quantity.h>

#include <algorithm>
#include <cctype>
#include <limits>
#include <string>

#include <tarnctl/text/scan.h>

namespace tarn
{

namespace
{

// The power of two that a unit stands for; nothing if there is no such unit.
std::optional<unsigned int> size_shift(std::string unit)
{
	constexpr std::string_view letters = "kmgt";
	constexpr unsigned int step = 10;

	std::ranges::transform(unit, unit.begin(),
			       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
	if (unit.empty() || unit == "b")
		return 0;
	const std::size_t at = letters.find(unit.front());
	const std::string_view rest = std::string_view(unit).substr(1);

	if (at == std::string_view::npos || (!rest.empty() && rest != "b" && rest != "ib"))
		return std::nullopt;
	return step * (static_cast<unsigned int>(at) + 1);
}

// The nanoseconds in a unit; nothing if there is no such unit.
std::optional<std::int64_t> time_unit(std::string_view unit)
{
	if (unit.empty() || unit == "s")
		return 1'000'000'000;
	if (unit == "ms")
		return 1'000'000;
	if (unit == "us")
		return 1'000;
	if (unit == "ns")
		return 1;
	return std::nullopt;
}

} // namespace

std::optional<std::uint64_t> parse_size(std::string_view text)
{
	std::uint64_t number = 0;

	if (!take_number(text, number))
		return std::nullopt;
	const auto shift = size_shift(std::string(text));

	if (!shift || number > std::numeric_limits<std::uint64_t>::max() >> *shift)
		return std::nullopt;
	return number << *shift;
}

std::optional<std::chrono::nanoseconds> parse_time(std::string_view text)
{
	constexpr std::string_view digits = "0123456789";
	std::uint64_t whole = 0;
	std::string_view fraction;

	if (!take_number(text, whole))
		return std::nullopt;
	if (take_literal(text, ".")) {
		fraction = text.substr(0, std::min(text.find_first_not_of(digits), text.size()));
		text.remove_prefix(fraction.size());
		if (fraction.empty())
			return std::nullopt;
	}
	const auto unit = time_unit(text);

	if (!unit)
		return std::nullopt;
	const auto most =
		static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max() / *unit);

	if (whole >= most)
		return std::nullopt;
	std::int64_t total = static_cast<std::int64_t>(whole) * *unit;
	std::int64_t place = *unit;

	for (const char digit : fraction) {
		place /= 10;
		total += place * (digit - '0');
	}
	return std::chrono::nanoseconds(total);
}

} // namespace tarn
