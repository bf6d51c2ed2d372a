// SPDX-License-Identifier: GPL-2.0-only
#include <cstdio>
#include <fmt/format.h>
#include <hosted/engine/callstack.h>
#include <hosted/engine/judge.h>
#include <hosted/engine/log.h>
#include <string_view>

namespace hosted
{

namespace
{

template <class... T>
void print(std::string &out, const std::string &conversion, T... values)
{
	const int length = std::snprintf(nullptr, 0, conversion.c_str(), values...);
	const std::size_t at = out.size();
	out.resize(at + length + 1);
	(void)std::snprintf(&out[at], length + 1, conversion.c_str(), values...);
	out.pop_back();
}

// Copies flags, width and precision, replacing each '*' by its argument.
std::string take_fields(const char *&fmt, va_list &args)
{
	std::string fields = "%";
	for (; *fmt != '\0' &&
	       std::string_view("-+ #0123456789.*").find(*fmt) != std::string_view::npos;
	     fmt++) {
		if (*fmt == '*')
			fields += std::to_string(va_arg(args, int));
		else
			fields += *fmt;
	}
	return fields;
}

std::string take_length(const char *&fmt)
{
	std::string length;
	while (*fmt != '\0' && std::string_view("hlzjt").find(*fmt) != std::string_view::npos)
		length += *fmt++;
	return length;
}

void print_integer(std::string &out, const std::string &conversion, const std::string &length,
		   va_list &args)
{
	if (length == "ll" || length == "j")
		print(out, conversion, va_arg(args, long long));
	else if (length == "l" || length == "z" || length == "t")
		print(out, conversion, va_arg(args, long));
	else
		print(out, conversion, va_arg(args, int));
}

void print_pointer(std::string &out, const char *&fmt, const std::string &fields, va_list &args)
{
	const auto address = va_arg(args, unsigned long);
	if (*fmt == 'S') {
		fmt++;
		print(out, fields + 's', symbol_text(address).c_str());
	} else if (*fmt == 'x' || *fmt == 'K') {
		fmt++;
		print(out, "%016lx", address);
	} else {
		// Hashed, so that the log gives no addresses away.
		print(out, "%016lx", (address * 0x9e3779b97f4a7c15UL) >> 32);
	}
}

void print_conversion(std::string &out, const char *&fmt, va_list &args)
{
	const std::string fields = take_fields(fmt, args);
	const std::string length = take_length(fmt);
	const char type = *fmt != '\0' ? *fmt++ : '\0';
	const std::string conversion = fields + length + type;

	switch (type) {
	case '%':
		out += '%';
		break;
	case 'p':
		print_pointer(out, fmt, fields, args);
		break;
	case 's': {
		const char *text = va_arg(args, const char *);
		print(out, conversion, text != nullptr ? text : "(null)");
		break;
	}
	case 'c':
	case 'd':
	case 'i':
	case 'u':
	case 'o':
	case 'x':
	case 'X':
		print_integer(out, conversion, length, args);
		break;
	default:
		judge_stop("format", fmt::format("the kernel does not support {}", conversion));
	}
}

} // namespace

std::string format(const char *fmt, va_list args)
{
	std::string out;
	va_list rest;
	va_copy(rest, args);
	while (*fmt != '\0') {
		if (*fmt == '%')
			print_conversion(out, ++fmt, rest);
		else
			out += *fmt++;
	}
	va_end(rest);
	return out;
}

} // namespace hosted
