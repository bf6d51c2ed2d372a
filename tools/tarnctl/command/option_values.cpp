// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/command/option_values.h>

#include <algorithm>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <tarnctl/terminal/printable.h>
#include <tarnctl/text/quantity.h>
#include <tarnctl/text/scan.h>

namespace tarn
{

CLI::Validator whole_number(std::uint64_t min, std::uint64_t max)
{
	return {[min, max](std::string &text) -> std::string {
			const auto number = parse_number<std::uint64_t>(text);

			if (!number || *number < min || *number > max)
				return fmt::format(
					"expected a whole number from {} to {}, got \"{}\"", min,
					max, printable(text));
			// Without leading zeros.
			text = std::to_string(*number);
			return "";
		},
		""};
}

CLI::Validator size_in_bytes()
{
	return {[](std::string &text) -> std::string {
			const auto bytes = parse_size(text);

			if (!bytes)
				return fmt::format("expected a size such as 4096, 64K or 2M, below "
						   "2^64 bytes, got \"{}\"",
						   printable(text));
			text = std::to_string(*bytes);
			return "";
		},
		""};
}

CLI::Validator time_in_ns()
{
	return {[](std::string &text) -> std::string {
			const auto time = parse_time(text);

			if (!time)
				return fmt::format(
					"expected a time such as 2, 0.5 or 300ms, got \"{}\"",
					printable(text));
			text = std::to_string(time->count());
			return "";
		},
		""};
}

CLI::Validator one_of(std::vector<std::string> words)
{
	const std::string choice = fmt::format(
		"{} or {}", fmt::join(words.begin(), words.end() - 1, ", "), words.back());

	return {[words = std::move(words), choice](std::string &text) -> std::string {
			if (std::ranges::count(words, text) != 0)
				return "";
			return fmt::format("expected {}, got \"{}\"", choice, printable(text));
		},
		""};
}

CLI::Validator not_empty()
{
	return {[](std::string &text) -> std::string {
			return text.empty() ? "the name is empty" : "";
		},
		""};
}

} // namespace tarn
