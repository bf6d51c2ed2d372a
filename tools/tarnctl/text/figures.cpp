// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/text/figures.h>

#include <algorithm>
#include <array>

#include <fmt/format.h>

namespace tarn
{

std::string bytes_text(std::uint64_t bytes)
{
	if (bytes < 10240)
		return bytes % 1024 == 0
			       ? fmt::format("{} KiB", bytes / 1024)
			       : fmt::format("{:.1f} KiB", static_cast<double>(bytes) / 1024);
	if (bytes < (10U << 20))
		return fmt::format("{} KiB", (bytes + 512) / 1024);
	return fmt::format("{} MiB", (bytes + (1U << 19)) >> 20);
}

std::string rate_text(double bytes_per_second)
{
	const auto bytes = static_cast<std::uint64_t>(std::max(0.0, bytes_per_second));

	return fmt::format("+{}/s", bytes_text(bytes));
}

std::string per_second_text(double objects)
{
	return objects < 10 ? fmt::format("{:.1f}/s", objects) : fmt::format("{:.0f}/s", objects);
}

std::string seconds_text(std::uint64_t ns)
{
	return fmt::format("{:.3f} s", static_cast<double>(ns) / 1e9);
}

std::string time_text(std::uint64_t ns)
{
	if (ns < 10000000)
		return fmt::format("{} us", ns / 1000);
	if (ns < 10000000000)
		return fmt::format("{} ms", ns / 1000000);
	return fmt::format("{} s", ns / 1000000000);
}

std::string chart(const std::vector<std::uint64_t> &values, std::size_t columns)
{
	constexpr std::array blocks = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
	const std::uint64_t top =
		values.empty() ? 0 : std::max<std::uint64_t>(1, *std::ranges::max_element(values));
	std::string text;

	for (std::size_t column = 0; column < columns && !values.empty(); column++) {
		const std::size_t from = column * values.size() / columns;
		const std::size_t to = std::max(from + 1, (column + 1) * values.size() / columns);
		const std::uint64_t most =
			*std::max_element(values.begin() + static_cast<std::ptrdiff_t>(from),
					  values.begin() + static_cast<std::ptrdiff_t>(to));

		text += blocks[most * (blocks.size() - 1) / top];
	}
	return text;
}

std::string wrapped(const std::string &text, std::size_t indent, std::size_t columns,
		    const std::string &start)
{
	std::string out = start.empty() ? std::string(indent, ' ') : start;
	std::size_t column = indent;
	std::size_t at = 0;

	while (at < text.size()) {
		std::size_t end = text.find(' ', at);

		// "< name" stays together.
		if (text[at] == '<' && end == at + 1)
			end = text.find(' ', end + 1);
		end = std::min(end, text.size());
		if (column != indent && column + 1 + (end - at) > columns) {
			out += '\n';
			out.append(indent, ' ');
			column = indent;
		}
		if (column != indent) {
			out += ' ';
			column++;
		}
		out += text.substr(at, end - at);
		column += end - at;
		at = end + 1;
	}
	return out + "\n";
}

std::string shortened(const std::string &text, std::size_t columns)
{
	return text.size() <= columns ? text : text.substr(0, columns - 2) + "..";
}

} // namespace tarn
