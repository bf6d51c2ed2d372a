// SPDX-License-Identifier: GPL-2.0-only
#include <cctype>
#include <cerrno>
#include <charconv>
#include <kernel/kstrtox.h>
#include <limits>
#include <string_view>

namespace
{

// Removes a prefix that belongs to the base, and resolves base 0.
unsigned int take_base(std::string_view &digits, unsigned int base)
{
	const bool hexadecimal = digits.size() > 1 && digits[0] == '0' && (digits[1] | 0x20) == 'x';
	if (base == 0) {
		if (hexadecimal && digits.size() > 2 &&
		    std::isxdigit(static_cast<unsigned char>(digits[2])))
			base = 16;
		else
			base = !digits.empty() && digits[0] == '0' ? 8 : 10;
	}
	if (base == 16 && hexadecimal)
		digits.remove_prefix(2);
	return base;
}

} // namespace

int kstrtoint(const char *s, unsigned int base, int *res)
{
	std::string_view digits(s);
	const bool negative = digits.starts_with('-');
	if (negative || digits.starts_with('+'))
		digits.remove_prefix(1);
	base = take_base(digits, base);

	unsigned long long value = 0;
	const char *const end = digits.data() + digits.size();
	auto [rest, error] = std::from_chars(digits.data(), end, value, static_cast<int>(base));
	if (error == std::errc::result_out_of_range)
		return -ERANGE;
	if (error != std::errc{})
		return -EINVAL;
	if (rest != end && *rest == '\n')
		rest++;
	if (rest != end)
		return -EINVAL;
	constexpr unsigned long long max = std::numeric_limits<int>::max();
	if (value > max + (negative ? 1 : 0))
		return -ERANGE;
	*res = static_cast<int>(negative ? -value : value);
	return 0;
}
