// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/device/module_line.h>

#include <charconv>

#include <tarnctl/text/scan.h>

namespace tarn
{

namespace
{

std::string unescape(std::string_view text)
{
	constexpr std::size_t digits = 2;
	std::string bytes;

	while (!text.empty()) {
		std::string_view rest = text;
		unsigned char byte = 0;

		if (take_literal(rest, "\\x") && rest.size() >= digits &&
		    std::from_chars(rest.begin(), rest.begin() + digits, byte, 16).ptr ==
			    rest.begin() + digits) {
			bytes += static_cast<char>(byte);
			rest.remove_prefix(digits);
			text = rest;
		} else {
			bytes += text.front();
			text.remove_prefix(1);
		}
	}
	return bytes;
}

} // namespace

std::optional<std::string> module_message(const log_record &record, std::string_view function)
{
	std::string_view text = record.text;
	unsigned int line = 0;

	if (!record.by_kernel || !take_literal(text, "[MEM_ADAPTER] ") ||
	    !take_literal(text, function) || !take_literal(text, ":") || !take_number(text, line) ||
	    !take_literal(text, ": "))
		return std::nullopt;
	return unescape(text);
}

} // namespace tarn
