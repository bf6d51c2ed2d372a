// SPDX-License-Identifier: GPL-2.0-only
// How the lab's programs fail.
#pragma once

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace lab
{

[[noreturn, gnu::format(printf, 1, 2)]] inline void fail(const char *format, ...)
{
	va_list arguments;

	va_start(arguments, format);
	std::vfprintf(stderr, format, arguments);
	va_end(arguments);
	std::fputc('\n', stderr);
	std::exit(1);
}

// Returns the result of a call that must not fail.
template <class T>
T must(T result, const char *what)
{
	if (result == static_cast<T>(-1))
		fail("%s: %s", what, std::strerror(errno));
	return result;
}

} // namespace lab
