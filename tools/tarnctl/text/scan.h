// SPDX-License-Identifier: GPL-2.0-only
// Taking fixed words and numbers off the front of a text.
#pragma once

#include <charconv>
#include <concepts>
#include <optional>
#include <string_view>
#include <system_error>

namespace tarn
{

// Removes the literal from the front of the text. False if the text does not begin with it.
inline bool take_literal(std::string_view &text, std::string_view literal)
{
	if (!text.starts_with(literal))
		return false;
	text.remove_prefix(literal.size());
	return true;
}

// Removes a number from the front of the text. False, and nothing changes, if there is none or if
// it does not fit its type. No spaces, no "+", and "-" only for signed types.
template <std::integral number>
bool take_number(std::string_view &text, number &value, int base = 10)
{
	number found{};
	const auto [end, error] =
		std::from_chars(text.data(), text.data() + text.size(), found, base);

	if (error != std::errc{})
		return false;
	text.remove_prefix(static_cast<std::size_t>(end - text.data()));
	value = found;
	return true;
}

// The text as a number, if it is that and nothing else.
template <std::integral number>
std::optional<number> parse_number(std::string_view text)
{
	number value{};

	if (!take_number(text, value) || !text.empty())
		return std::nullopt;
	return value;
}

} // namespace tarn
